#include "textio/input_file.h"

#include <stdio.h>

#include <cstddef>
#include <string>

#include "textio/output_file.h"
#include "textio/utf8.h"

namespace {

// Line text that GetLine stores without a second look: ASCII above the
// carriage return. Line feeds, carriage returns, the other low control
// characters and the bytes that begin a longer sequence take the
// character-by-character path.
using LineTextEnds = ByteStops<'\r'>;

}  // namespace

InputFile::InputFile(wchar_t const* name)
    : m_Stream(nullptr), m_Back(0), m_IsBack(false) {
  if (name != nullptr) {
    // A failed open shows as a false result at the first read.
    static_cast<void>(Open(name));
  }
}

InputFile::~InputFile() {
  if (m_Stream != nullptr) {
    fclose(m_Stream);
  }
}

bool InputFile::Open(wchar_t const* name, size_t buffer) {
  const std::string path = ToUtf8(std::wstring(name));
  // The template reader opens its sections one after another through this
  // object. The handle held before is replaced, not closed: it stays open
  // until the process ends, which costs one descriptor per section and
  // never pulls a stream from under a caller. A pending pushed-back
  // character survives as well and is delivered first. A buffer given to
  // the old stream stays with it for as long.
  static_cast<void>(m_Buffer.release());
  m_Stream = fopen(path.c_str(), "rb");
  if (m_Stream != nullptr) {
    if (buffer > 0) {
      m_Buffer.reset(new char[buffer]);
      if (setvbuf(m_Stream, m_Buffer.get(), _IOFBF, buffer) != 0) {
        m_Buffer.reset();
      }
    }
    fseek(m_Stream, 0, SEEK_SET);
    // A run may read its own document; it must find there what it always
    // found.
    OutputFile::NoteRead(m_Stream);
  }
  return m_Stream != nullptr;
}

bool InputFile::DecodeMore(FILE* stream, int b0, wchar_t& ch) {
  if (b0 == EOF)
    return false;
  int more;
  unsigned value;
  if ((b0 & 0xE0) == 0xC0) {
    more = 1;
    value = b0 & 0x1F;
  } else if ((b0 & 0xF0) == 0xE0) {
    more = 2;
    value = b0 & 0x0F;
  } else if ((b0 & 0xF8) == 0xF0) {
    more = 3;
    value = b0 & 0x07;
  } else {
    // Consumed; the next read starts with the byte after it.
    return false;
  }
  // Continuation bytes are taken by their low six bits without a check:
  // templates and tables written by old tools carry overlong forms and
  // stray values, and they must come through as they are.
  while (more-- > 0) {
    const int b = getc_unlocked(stream);
    if (b == EOF)
      return false;
    value = (value << 6) | (static_cast<unsigned>(b) & 0x3F);
  }
  ch = static_cast<wchar_t>(value);
  return true;
}

void InputFile::PutBack(wchar_t ch) {
  m_Back = ch;
  m_IsBack = true;
}

size_t InputFile::TakeLineText(wchar_t* out, size_t room) {
  return StreamBuffer::TakeWhile<LineTextEnds>(m_Stream, out, room);
}

bool InputFile::GetLine(wchar_t* buf, int max) {
  LineShape shape;
  return GetLine(buf, max, shape);
}

bool InputFile::GetLine(wchar_t* buf, int max, LineShape& shape) {
  // Every printed line is read again from the template, so this loop runs
  // for every character of the document. Line text needs none of the tests
  // below: what the stream has buffered of it is taken in one go, while
  // fewer than max + 1 characters are stored.
  const size_t full = static_cast<size_t>(max) + 1;
  size_t n = 0;
  // Where the first null was stored. Nulls and tabs are control
  // characters, which TakeLineText never takes.
  size_t first_null = full + 1;
  shape.tabs = false;
  bool stored = false;
  wchar_t ch;
  for (;;) {
    if (!m_IsBack && m_Stream != nullptr && n < full) {
      n += TakeLineText(buf + n, full - n);
    }
    if (!Get(ch)) {
      stored = n != 0;
      break;
    }
    // Files edited on other systems end their lines with CR LF; a carriage
    // return is never wanted in a template line, wherever it stands.
    if (ch == L'\r') {
      continue;
    }
    if (n >= full) {
      // The character that does not fit is dropped, and the rest of the
      // long line is left for the next call: old templates were laid out
      // around exactly this cut.
      stored = true;
      break;
    }
    if (first_null > full) {
      if (ch == L'\0') {
        first_null = n;
      } else if (ch == L'\t') {
        shape.tabs = true;
      }
    }
    buf[n++] = ch;
    if (ch == L'\n') {
      stored = true;
      break;
    }
  }
  buf[n] = 0;
  shape.length = first_null <= full ? first_null : n;
  return stored;
}

void InputFile::SetFilePointer(long pos) {
  // The C library makes a system call of every seek, even one inside its
  // buffer, and the template is re-read line by line. Lines printed one
  // after another mostly follow each other in the file, skip a command line
  // or two, or go back to the top of a loop: the stream is then moved
  // inside its buffer, or read over the bytes up to pos, which ends where
  // the seek would. Anything else, and a stream at its end (the seek clears
  // that), takes the seek.
  constexpr long kReadOverMax = 256;
  if (!StreamBuffer::AtEnd(m_Stream)) {
    long here = StreamBuffer::Position(m_Stream);
    if (here >= 0 && pos < here &&
        StreamBuffer::StepBack(m_Stream, static_cast<size_t>(here - pos))) {
      return;
    }
    const StreamBuffer::Pending bytes = StreamBuffer::ReadAhead(m_Stream);
    const long avail = static_cast<long>(bytes.end - bytes.next);
    if (here >= 0 && pos >= here && pos - here <= avail + kReadOverMax) {
      const long skip = pos - here < avail ? pos - here : avail;
      StreamBuffer::Consume(m_Stream, bytes.next + skip);
      here += skip;
      while (here < pos && getc_unlocked(m_Stream) != EOF) {
        ++here;
      }
      if (here == pos) {
        return;
      }
    }
  }
  // Positions come from GetFilePointer on the same file; a failed seek
  // shows as a wrong or missing line at the next read.
  static_cast<void>(fseek(m_Stream, pos, SEEK_SET));
}

long InputFile::GetFilePointer() {
  return StreamBuffer::Position(m_Stream);
}
