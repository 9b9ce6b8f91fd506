#include "textio/output_file.h"

#include <stdio.h>

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

}  // namespace

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
  if (m_Stream != nullptr && append) {
    fseek(m_Stream, 0, SEEK_END);
  }
}

OutputFile::~OutputFile() {
  if (m_Stream != nullptr) {
    fclose(m_Stream);
  }
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
