// The document writer.
//
// Why the document keeps count of what the C library's own buffer would
// have written: a regular file is written through a 64 KB buffer, a
// sixteenth of the library's system calls. Two things would show the
// difference, and both are kept as they always were:
// - a run that ends abnormally (an exception nobody catches) leaves the
//   file as the library's buffer had written it, all but the last few
//   kilobytes: a terminate handler brings the file to that length;
// - a run that reads its own document (a template section or the table
//   named as the document) finds in it what the library had put on disk
//   by then: every input file the process opens is compared with the
//   document, and once it is the same file, the document is written from
//   then on exactly as the library's buffer would write it.
// Where the stream's layout is not known, the library's own buffer is
// used and none of this is needed.
#include "textio/output_file.h"

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "textio/helpers.h"
#include "textio/stream_buffer.h"
#include "textio/utf8.h"

wchar_t const kConName[] = L"CON";

DocumentTap* OutputFile::s_Tap = nullptr;

namespace {

// Every line of the document passes through here; one buffer kept for the
// whole run spares an allocation per write.
std::string& Scratch() {
  static std::string bytes;
  return bytes;
}

// Writes count bytes to the descriptor; a full disk is not detected, as
// with the stream.
void WriteAll(int fd, const char* from, size_t count) {
  while (count > 0) {
    const ssize_t done = write(fd, from, count);
    if (done <= 0) {
      return;
    }
    from += done;
    count -= static_cast<size_t>(done);
  }
}

#if FORMFILL_STREAM_INTERNALS
// The document of the run, for the terminate handler and NoteRead.
OutputFile* g_Document = nullptr;
bool g_HandlerSet = false;
std::terminate_handler g_PreviousTerminate = nullptr;

[[noreturn]] void TerminateLeavingDocument() {
  if (g_Document != nullptr) {
    g_Document->LeaveAsLibraryWould();
  }
  if (g_PreviousTerminate != nullptr) {
    g_PreviousTerminate();
  }
  std::abort();
}

// The document's buffer, larger than the library's own.
constexpr size_t kDocumentBuffer = 64 * 1024;
#endif

}  // namespace

void OutputFile::LibraryBlocks::Add(size_t count) {
  // Before the first write the library has no buffer yet: no room.
  const size_t room = started ? block - held : 0;
  const size_t fits = count < room ? count : room;
  held += fits;
  count -= fits;
  if (count == 0) {
    return;
  }
  // The buffer is written, then whole blocks straight from the text; the
  // rest waits in the buffer.
  started = true;
  written += held;
  const size_t direct = count - count % block;
  written += direct;
  held = count - direct;
}

OutputFile::OutputFile(wchar_t const* name, bool append)
    : m_Stream(nullptr), m_Console(false) {
  // Only this very pointer selects the console. The run's output-name
  // setting holds its own copy of "CON", so without -O the document goes to
  // a file named CON: existing scripts collect it under that name.
  if (name == kConName) {
    m_Console = true;
    return;
  }
  const std::string path = ToUtf8(std::wstring(name));
  // "wb" first and the seek second: append has always started the document
  // afresh, and the scripts around the program expect a file holding one
  // run only.
  m_Stream = fopen(path.c_str(), "wb");
#if FORMFILL_STREAM_INTERNALS
  // A regular file gets the larger buffer; st_blksize, at most BUFSIZ, is
  // what the library's own would have been. A terminal or a pipe keeps the
  // library's buffering as it is.
  struct stat st;
  if (m_Stream != nullptr && fstat(fileno(m_Stream), &st) == 0 &&
      S_ISREG(st.st_mode)) {
    m_Buffer.reset(new char[kDocumentBuffer]);
    if (setvbuf(m_Stream, m_Buffer.get(), _IOFBF, kDocumentBuffer) == 0) {
      m_Library.block = st.st_blksize > 0 && st.st_blksize < BUFSIZ
                            ? static_cast<size_t>(st.st_blksize)
                            : size_t{BUFSIZ};
      g_Document = this;
      if (!g_HandlerSet) {
        g_PreviousTerminate = std::set_terminate(TerminateLeavingDocument);
        g_HandlerSet = true;
      }
    }
  }
#endif
  if (m_Stream != nullptr && append) {
    fseek(m_Stream, 0, SEEK_END);
  }
}

OutputFile::~OutputFile() {
  if (m_Stream != nullptr) {
    if (m_Follows) {
      // The library writes what its buffer holds when the stream closes.
      WriteAll(fileno(m_Stream), m_Held.data(), m_Held.size());
    }
    fclose(m_Stream);
  }
#if FORMFILL_STREAM_INTERNALS
  if (g_Document == this) {
    g_Document = nullptr;
  }
#endif
}

void OutputFile::NoteRead(FILE* input) {
#if FORMFILL_STREAM_INTERNALS
  OutputFile* const doc = g_Document;
  struct stat in;
  struct stat out;
  if (doc == nullptr || doc->m_Stream == nullptr || input == nullptr ||
      fstat(fileno(input), &in) != 0 ||
      fstat(fileno(doc->m_Stream), &out) != 0 || in.st_dev != out.st_dev ||
      in.st_ino != out.st_ino) {
    return;
  }
  doc->FollowLibrary();
#else
  static_cast<void>(input);
#endif
}

void OutputFile::FollowLibrary() {
  if (m_Follows || m_Library.block == 0) {
    return;
  }
  const int fd = fileno(m_Stream);
  const auto pending = StreamBuffer::Unwritten(m_Stream);
  const uint64_t on_file = m_Handed - pending.second;
  m_Held.clear();
  if (m_Library.written >= on_file) {
    const size_t due = static_cast<size_t>(m_Library.written - on_file);
    WriteAll(fd, pending.first, due);
    m_Held.assign(pending.first + due, pending.second - due);
  } else {
    // Only a block size that does not divide the larger buffer lets the
    // stream get ahead of the library's: what it wrote too early is taken
    // back into the held bytes.
    m_Held.resize(static_cast<size_t>(on_file - m_Library.written));
    const ssize_t got = pread(fd, &m_Held[0], m_Held.size(),
                              static_cast<off_t>(m_Library.written));
    m_Held.resize(got > 0 ? static_cast<size_t>(got) : 0);
    m_Held.append(pending.first, pending.second);
    static_cast<void>(ftruncate(fd, static_cast<off_t>(m_Library.written)));
    lseek(fd, static_cast<off_t>(m_Library.written), SEEK_SET);
  }
  StreamBuffer::DropUnwritten(m_Stream);
  m_Follows = true;
}

void OutputFile::LeaveAsLibraryWould() {
  if (m_Stream == nullptr || m_Library.block == 0) {
    return;
  }
  FollowLibrary();
  // What the library's buffer still holds never reaches the file.
  m_Held.clear();
  m_Library.block = 0;
}

void OutputFile::WriteBytes(const char* bytes, size_t count) {
  if (m_Follows) {
    if (m_Library.block == 0) {
      return;  // Left as the library would have: nothing more is written.
    }
    m_Held.append(bytes, count);
    const uint64_t before = m_Library.written;
    m_Library.Add(count);
    const size_t due = static_cast<size_t>(m_Library.written - before);
    WriteAll(fileno(m_Stream), m_Held.data(), due);
    m_Held.erase(0, due);
    return;
  }
  // A full disk is not detected; the document is as complete as the
  // device allowed.
  static_cast<void>(StreamBuffer::WriteBlock(bytes, count, m_Stream));
  if (m_Library.block != 0) {
    m_Library.Add(count);
    m_Handed += count;
  }
}

void OutputFile::Write(const wchar_t* text, size_t len) {
  // A document line is converted straight into the stream's buffer when
  // its longest form fits there, which is most of the time; the stream then
  // holds what an fwrite of the converted bytes would have left in it.
  if (!m_Console && m_Stream != nullptr && !m_Follows) {
    const StreamBuffer::Room room = StreamBuffer::WriteRoom(m_Stream);
    if (room.next != nullptr &&
        static_cast<size_t>(room.end - room.next) / 4 >= len) {
      size_t count = 0;
      if (!EncodeUtf8(text, len, room.next, &count)) {
        throw std::range_error("wstring_convert::to_bytes");
      }
      StreamBuffer::Commit(m_Stream, room.next + count);
      if (s_Tap != nullptr) {
        s_Tap->Wrote(text, len);
      }
      if (m_Library.block != 0) {
        m_Library.Add(count);
        m_Handed += count;
      }
      return;
    }
  }
  // Elsewhere through a buffer that only grows: it keeps room for the
  // longest form of the longest text so far.
  std::string& bytes = Scratch();
  if (bytes.size() < 4 * len) {
    bytes.resize(4 * len);
  }
  size_t count = 0;
  // Converted before the target is looked at, so an unconvertible
  // character is refused on every kind of output alike.
  if (!EncodeUtf8(text, len, &bytes[0], &count)) {
    throw std::range_error("wstring_convert::to_bytes");
  }
  if (s_Tap != nullptr) {
    s_Tap->Wrote(text, len);
  }
  if (count == 0) {
    return;
  }
  if (m_Console) {
    std::cout.write(bytes.data(), static_cast<std::streamsize>(count));
  } else if (m_Stream != nullptr) {
    WriteBytes(bytes.data(), count);
  }
}

OutputFile& OutputFile::operator<<(std::wstring const& text) {
  Write(text.data(), text.size());
  return *this;
}

OutputFile& OutputFile::operator<<(std::wstring_view text) {
  Write(text.data(), text.size());
  return *this;
}

OutputFile& OutputFile::operator<<(wchar_t const* text) {
  if (text == nullptr) {
    throw std::logic_error("basic_string: construction from null is not valid");
  }
  Write(text, std::char_traits<wchar_t>::length(text));
  return *this;
}

OutputFile& OutputFile::operator<<(long value) {
  wchar_t digits[kDecimalDigits];
  Write(digits, FormatDecimal(value, digits));
  return *this;
}
