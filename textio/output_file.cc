#include "textio/output_file.h"

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "textio/stream_bytes.h"
#include "textio/utf8.h"

wchar_t const kConName[] = L"CON";

namespace {

// Every line of the document passes through here; one buffer kept for the
// whole run spares an allocation per write.
std::string& Scratch() {
  static std::string bytes;
  return bytes;
}

// One block write. The program has one thread, so where the C library
// offers it the stream's lock is not taken for every line of the document.
size_t WriteBytes(const char* bytes, size_t count, FILE* stream) {
#if defined(__GLIBC__)
  return fwrite_unlocked(bytes, 1, count, stream);
#else
  return fwrite(bytes, 1, count, stream);
#endif
}

#if defined(__GLIBC__)
// The document of the run, for the terminate handler below.
OutputFile* g_Document = nullptr;
bool g_HandlerSet = false;
std::terminate_handler g_PreviousTerminate = nullptr;

// A run ends abnormally through an exception nobody catches (a character
// above U+10FFFF, a line pushed past its buffer). The stream's buffer is
// not flushed then, so the file keeps what the stream had written; with
// the library's own small buffer that was all but the last few kilobytes,
// and that is what such a run has always left. The document is written
// through a larger buffer (far fewer system calls), so the file is brought
// to that length here before the usual message and abort.
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

// True when one of paths names the same file as st. A name that cannot be
// converted names nothing here; opening it fails later in its own way.
bool AmongFiles(std::vector<std::wstring> const& paths, struct stat const& st) {
  for (const std::wstring& path : paths) {
    std::string bytes;
    try {
      bytes = ToUtf8(path);
    } catch (const std::range_error&) {
      continue;
    }
    struct stat other;
    if (stat(bytes.c_str(), &other) == 0 && other.st_dev == st.st_dev &&
        other.st_ino == st.st_ino) {
      return true;
    }
  }
  return false;
}
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

void OutputFile::Handed(size_t count) {
  if (m_Library.block != 0) {
    m_Library.Add(count);
    m_Handed += count;
  }
}

void OutputFile::LeaveAsLibraryWould() {
#if defined(__GLIBC__)
  if (m_Stream == nullptr || m_Library.block == 0) {
    return;
  }
  const int fd = fileno(m_Stream);
  const char* const pending = m_Stream->_IO_write_base;
  const size_t held = pending != nullptr
                          ? static_cast<size_t>(m_Stream->_IO_write_ptr - pending)
                          : 0;
  const uint64_t on_file = m_Handed - held;
  if (m_Library.written > on_file) {
    size_t left = static_cast<size_t>(m_Library.written - on_file);
    const char* from = pending;
    while (left > 0) {
      const ssize_t done = write(fd, from, left);
      if (done <= 0) {
        break;
      }
      from += done;
      left -= static_cast<size_t>(done);
    }
  } else if (m_Library.written < on_file) {
    // Only a block size that does not divide the larger buffer lets the
    // stream get ahead of the library's; the file is cut back.
    static_cast<void>(ftruncate(fd, static_cast<off_t>(m_Library.written)));
  }
  // What the stream still holds is not the file's any more.
  m_Stream->_IO_write_ptr = m_Stream->_IO_write_base;
  m_Library.block = 0;
#endif
}

OutputFile::OutputFile(wchar_t const* name, bool append,
                       std::vector<std::wstring> const& read_back)
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
#if defined(__GLIBC__)
  // A regular file gets the larger buffer, and count is kept of what the
  // library's own would have written: st_blksize, at most BUFSIZ, is what
  // it takes. Anything else (a terminal, a pipe) keeps the library's
  // buffering as it is, and so does a document that the run reads back (a
  // template section named as the document, say): what such a read finds
  // depends on when each block reached the file.
  struct stat st;
  if (m_Stream != nullptr && fstat(fileno(m_Stream), &st) == 0 &&
      S_ISREG(st.st_mode) && !AmongFiles(read_back, st)) {
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
    fclose(m_Stream);
  }
#if defined(__GLIBC__)
  if (g_Document == this) {
    g_Document = nullptr;
  }
#endif
}

void OutputFile::Write(const wchar_t* text, size_t len) {
  // A document line is converted straight into the stream's buffer when
  // its longest form fits there, which is most of the time; the stream then
  // holds what an fwrite of the converted bytes would have left in it.
  if (!m_Console && m_Stream != nullptr) {
    const WriteRoom room = Room(m_Stream);
    if (room.next != nullptr &&
        static_cast<size_t>(room.end - room.next) / 4 >= len) {
      size_t count = 0;
      if (!EncodeUtf8(text, len, room.next, &count)) {
        throw std::range_error("wstring_convert::to_bytes");
      }
      TakeRoom(m_Stream, room.next + count);
      Handed(count);
      return;
    }
  }
  // Elsewhere through a buffer that only grows: it keeps room for the
  // longest form of the longest text so far, and each write converts
  // straight into it.
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
  if (count == 0)
    return;
  if (m_Console) {
    std::cout.write(bytes.data(), static_cast<std::streamsize>(count));
  } else if (m_Stream != nullptr) {
    // A full disk is not detected; the document is as complete as the
    // device allowed.
    static_cast<void>(WriteBytes(bytes.data(), count, m_Stream));
    Handed(count);
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
  // Unsigned arithmetic, so the smallest long has a magnitude too.
  unsigned long magnitude = value < 0 ? 0UL - static_cast<unsigned long>(value)
                                      : static_cast<unsigned long>(value);
  char digits[24];
  char* end = digits + sizeof(digits);
  char* p = end;
  do {
    *--p = static_cast<char>('0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude != 0);
  if (value < 0)
    *--p = '-';
  wchar_t wide[24];
  size_t len = 0;
  for (; p != end; ++p)
    wide[len++] = static_cast<wchar_t>(*p);
  Write(wide, len);
  return *this;
}
