#include "textio/input_file.h"

#include <stdio.h>

#include <cstddef>
#include <string>

#include "textio/stream_bytes.h"
#include "textio/utf8.h"

namespace {

// Line text that GetLine stores without a second look: ASCII above the
// carriage return. Line feeds, carriage returns, the other low control
// characters and the bytes that begin a longer sequence take the
// character-by-character path.
using LineTextEnds = ByteStops<'\r'>;

bool IsLineText(unsigned char b) {
  return !LineTextEnds::Stops(b);
}

// Takes the pending line text at the head of stream's buffer, at most room
// characters, into out; returns how many. Template lines are mostly long
// runs of it.
size_t TakeLineText(FILE* stream, wchar_t* out, size_t room) {
  return TakeWhile<LineTextEnds>(stream, out, room);
}

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

bool InputFile::GetLine(wchar_t* buf, int max) {
  LineShape shape;
  return GetLine(buf, max, shape);
}

bool InputFile::GetLine(wchar_t* buf, int max, LineShape& shape) {
  FILE* const stream = m_Stream;
  int n = 0;
  // Where the first null was stored. Nulls and tabs are control characters,
  // which the block path below never takes.
  int first_null = -1;
  shape.tabs = false;
  const auto c_string_length = [&first_null](ptrdiff_t stored) {
    return static_cast<size_t>(first_null >= 0 ? first_null : stored);
  };
  wchar_t ch = 0;
  // Only the first character can be a pushed-back one; the rest come
  // straight from the stream. Without one, the line starts as a run of
  // text taken from the stream, with no character in hand yet.
  bool in_hand = m_IsBack || stream == nullptr;
  bool got = in_hand ? Get(ch) : true;
  while (got) {
    // Files edited on other systems end their lines with CR LF; a
    // carriage return is never wanted in a template line, wherever it
    // stands.
    if (!in_hand) {
      in_hand = true;
    } else if (ch != L'\r') {
      if (ch == L'\n' && n <= max) {
        buf[n++] = ch;
        buf[n] = 0;
        shape.length = c_string_length(n);
        return true;
      }
      if (n > max) {
        // The character that does not fit is dropped, and the rest of the
        // long line is left for the next call: old templates were laid
        // out around exactly this cut.
        buf[n] = 0;
        shape.length = c_string_length(n);
        return true;
      }
      if (first_null < 0) {
        if (ch == L'\0') {
          first_null = n;
        } else if (ch == L'\t') {
          shape.tabs = true;
        }
      }
      buf[n++] = ch;
    }
    if (stream == nullptr)
      break;
    // Every printed line is read again from the template, so this loop
    // runs for every character of the document. Line text needs none of
    // the tests above but the length one: what the stream has buffered of
    // it is taken in one go, and the rest byte after byte without leaving
    // the loop. Characters are stored while fewer than max + 1 are in buf.
    wchar_t* out = buf + n;
    wchar_t* const full = buf + (static_cast<ptrdiff_t>(max) + 1);
    for (;;) {
      out += TakeLineText(stream, out, static_cast<size_t>(full - out));
      const int b = getc_unlocked(stream);
      if (b != EOF && IsLineText(static_cast<unsigned char>(b))) {
        if (out >= full) {
          *out = 0;
          shape.length = c_string_length(out - buf);
          return true;
        }
        *out++ = static_cast<wchar_t>(b);
        continue;
      }
      if (b == '\n' && out - buf <= max) {
        // The usual end of a line, as the test at the top would take it.
        *out++ = L'\n';
        *out = 0;
        shape.length = c_string_length(out - buf);
        return true;
      }
      if (b >= 0 && b < 0x80) {
        ch = static_cast<wchar_t>(b);
      } else {
        got = DecodeMore(stream, b, ch);
      }
      break;
    }
    n = static_cast<int>(out - buf);
  }
  buf[n] = 0;
  shape.length = c_string_length(n);
  return n != 0;
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
  if (!EndSeen(m_Stream)) {
    long here = ReadPosition(m_Stream);
    if (here >= 0 && pos < here &&
        StepBack(m_Stream, static_cast<size_t>(here - pos))) {
      return;
    }
    const PendingBytes bytes = Pending(m_Stream);
    const long avail = static_cast<long>(bytes.end - bytes.next);
    if (here >= 0 && pos >= here && pos - here <= avail + kReadOverMax) {
      const long skip = pos - here < avail ? pos - here : avail;
      TakePending(m_Stream, bytes.next + skip);
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
  return ReadPosition(m_Stream);
}
