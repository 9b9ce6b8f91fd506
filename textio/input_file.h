#ifndef FORMFILL_TEXTIO_INPUT_FILE_H_
#define FORMFILL_TEXTIO_INPUT_FILE_H_

#include <stdio.h>

#include <cstddef>
#include <memory>

#include "textio/stream_buffer.h"

// Reads a UTF-8 text file as wide characters: one at a time with a
// one-character push-back, runs of text, whole lines, and byte positions
// to come back to. Failures are false results; the caller picks the
// message.
class InputFile {
 public:
  // Opens name when it is not null; a failed open shows at the first read.
  explicit InputFile(wchar_t const* name = nullptr);
  ~InputFile();

  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  // Opens name (never null) for reading. A stream already held is replaced
  // without being closed. Returns true when a file is open afterwards.
  // A name above U+10FFFF throws std::range_error. With buffer above 0 the
  // stream reads through a buffer of that many bytes, which lives as long
  // as the stream; otherwise through the C library's own.
  bool Open(wchar_t const* name, size_t buffer = 0);

  // True while a file is open.
  bool IsOpen() const { return m_Stream != nullptr; }

  // Next character: the pushed-back one first, else one decoded from the
  // file. False at end of file, on a cut sequence, on a byte that cannot
  // begin a sequence (it is consumed) or without a file; ch is then unchanged.
  bool Get(wchar_t& ch) {
    if (m_IsBack) {
      m_IsBack = false;
      ch = m_Back;
      return true;
    }
    return Decode(m_Stream, ch);
  }

  // One slot: a second PutBack before the next read replaces the first.
  void PutBack(wchar_t ch);

  // True once a read has met the end of the file (not an undecodable byte).
  bool AtEndOfFile() const {
    return m_Stream != nullptr && StreamBuffer::AtEnd(m_Stream);
  }

  // How TakeUntil ended.
  enum class RunEnd {
    kStop,  // a character that Stops names was read into stop
    kFull,  // room characters were stored
    kEnd,   // the input ended (as Get's false result)
  };
  // Reads characters into out, counting them in n, until one of the ASCII
  // characters that Stops (a ByteStops) names comes, until room are stored,
  // or until the input ends. Characters from U+0080 up never stop a run.
  // The characters are those that as many Get calls would give.
  template <typename Stops>
  RunEnd TakeUntil(wchar_t* out, size_t room, size_t& n, wchar_t& stop);

  // Reads one line into buf, which must hold max + 2 characters. Carriage
  // returns are dropped, the line feed is kept, buf is always terminated.
  // When more than max + 1 characters come before the line feed, the one
  // that does not fit is lost. False only when nothing was stored.
  bool GetLine(wchar_t* buf, int max);
  // What GetLine saw of the line it stored, for callers that go over it
  // again and need not measure it or search it for tabs.
  struct LineShape {
    // The length of what buf holds as a C string: up to its first null,
    // which a file may carry like any other character.
    size_t length = 0;
    // Whether a tab comes within that length.
    bool tabs = false;
  };
  bool GetLine(wchar_t* buf, int max, LineShape& shape);

  // Byte offsets from the start of the file; only while a file is open.
  // A failed seek is not reported.
  void SetFilePointer(long pos);
  long GetFilePointer();

  FILE* m_Stream;
  wchar_t m_Back;
  bool m_IsBack;

 private:
  // The buffer Open gave m_Stream, if it gave one.
  std::unique_ptr<char[]> m_Buffer;

  // Takes the line text that the stream has buffered next (ASCII above the
  // carriage return), at most room characters, into out; returns how many.
  size_t TakeLineText(wchar_t* out, size_t room);

  // Decodes one character from stream (null: none open); false as for Get.
  // A table or template is nearly all ASCII, which is decoded here, inline
  // in the reading loops; longer sequences go to DecodeMore.
  static bool Decode(FILE* stream, wchar_t& ch) {
    if (stream == nullptr)
      return false;
    // The program has one thread, so the stream's lock buys nothing and
    // costs a lot on a byte-at-a-time reader.
    const int b0 = getc_unlocked(stream);
    if (b0 >= 0 && b0 < 0x80) {
      ch = static_cast<wchar_t>(b0);
      return true;
    }
    return DecodeMore(stream, b0, ch);
  }
  // The rest of Decode once b0 (a byte from 0x80 up, or EOF) is read.
  static bool DecodeMore(FILE* stream, int b0, wchar_t& ch);
};

template <typename Stops>
InputFile::RunEnd InputFile::TakeUntil(wchar_t* out, size_t room, size_t& n,
                                       wchar_t& stop) {
  n = 0;
  while (n < room) {
    // What the stream has buffered of the run is taken in one go; the
    // character that ends it is read and decoded below.
    if (!m_IsBack && m_Stream != nullptr) {
      n += StreamBuffer::TakeWhile<Stops>(m_Stream, out + n, room - n);
      if (n == room) {
        break;
      }
    }
    wchar_t ch;
    if (!Get(ch)) {
      return RunEnd::kEnd;
    }
    const auto code = static_cast<uint32_t>(ch);
    if (code < 0x80 && Stops::Stops(static_cast<unsigned char>(code))) {
      stop = ch;
      return RunEnd::kStop;
    }
    out[n++] = ch;
  }
  return RunEnd::kFull;
}

#endif  // FORMFILL_TEXTIO_INPUT_FILE_H_
