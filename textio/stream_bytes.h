// The bytes a C stream has read ahead into its own buffer and not yet
// handed out, for the loops that read the table and the template; and the
// room in a stream's buffer for bytes written, for the document.
#ifndef FORMFILL_TEXTIO_STREAM_BYTES_H_
#define FORMFILL_TEXTIO_STREAM_BYTES_H_

#include <stdio.h>

#include <cstddef>
#include <cstring>

#include "textio/vector_lanes.h"
#include "textio/wide_vectors.h"

// Every byte of the table, and every byte of every printed template line,
// is read one at a time. getc_unlocked takes it from the stream's buffer,
// but keeps the buffer's read pointer in the stream, where a loop has to
// load it, compare it and store it back for each byte. A loop that walks
// the buffered bytes with the pointer in a register and hands the new
// position back once takes exactly the bytes that as many getc calls would
// give, and the stream goes on after them; getc itself refills the buffer
// when these run out. Where the C library's stream layout is not known,
// nothing is pending and the callers' getc paths do all the reading.
struct PendingBytes {
  const unsigned char* next;
  const unsigned char* end;
};

inline PendingBytes Pending(FILE* stream) {
#if defined(__GLIBC__) && !defined(__UCLIBC__)
  return {reinterpret_cast<const unsigned char*>(stream->_IO_read_ptr),
          reinterpret_cast<const unsigned char*>(stream->_IO_read_end)};
#else
  static_cast<void>(stream);
  return {nullptr, nullptr};
#endif
}

// Marks the pending bytes before upto as read; upto lies in the range that
// Pending gave, and nothing has read from the stream since.
inline void TakePending(FILE* stream, const unsigned char* upto) {
#if defined(__GLIBC__) && !defined(__UCLIBC__)
  stream->_IO_read_ptr =
      const_cast<char*>(reinterpret_cast<const char*>(upto));
#else
  static_cast<void>(stream);
  static_cast<void>(upto);
#endif
}

// Moves the stream back by n bytes when they are still in its buffer, as a
// seek to that position would: the same bytes are read again from there.
// The C library's own seek also makes a system call to bring the file
// descriptor's offset in line, which a stream that only reads does not
// need; the template is read back at its loops for every record, and those
// calls were a good part of the run's time. False, and nothing moved, when
// the bytes are not in the buffer or the stream has ever held pushed-back
// bytes (its buffer is then not simply the file's).
inline bool StepBack(FILE* stream, size_t n) {
#if defined(__GLIBC__) && !defined(__UCLIBC__)
  if (stream->_IO_save_base == nullptr &&
      static_cast<size_t>(stream->_IO_read_ptr - stream->_IO_read_base) >= n) {
    stream->_IO_read_ptr -= n;
    return true;
  }
#else
  static_cast<void>(stream);
  static_cast<void>(n);
#endif
  return false;
}

// feof without the stream's lock, where the C library has it.
inline bool EndSeen(FILE* stream) {
#if defined(__GLIBC__) && !defined(__UCLIBC__)
  return feof_unlocked(stream) != 0;
#else
  return feof(stream) != 0;
#endif
}

// The stream's position, as ftell gives it, for a stream that is only read:
// the file offset its buffer was filled up to, less what it has not handed
// out yet. ftell works this out too, but behind the stream's lock and the
// library's general seek code, and the template stream's position is asked
// for every printed line. Where the stream's layout is not known, or it
// holds pushed-back bytes or an unknown offset, ftell answers.
inline long ReadPosition(FILE* stream) {
#if defined(__GLIBC__) && !defined(__UCLIBC__)
  if (stream->_IO_buf_base != nullptr && stream->_IO_save_base == nullptr &&
      stream->_IO_write_ptr == stream->_IO_write_base && stream->_offset >= 0) {
    return static_cast<long>(stream->_offset -
                             (stream->_IO_read_end - stream->_IO_read_ptr));
  }
#endif
  return ftell(stream);
}

// The free part of the stream's buffer for bytes written: what
// putc_unlocked would store bytes into before the library has to flush.
// Bytes stored there and handed over by TakeRoom are written exactly as if
// fwrite had copied them in, as the library's own fwrite does when they
// fit. Empty where the stream's layout is not known, and for a stream that
// has not written yet or that flushes at every line or byte: the library
// keeps no room in it then.
struct WriteRoom {
  char* next;
  char* end;
};

inline WriteRoom Room(FILE* stream) {
#if defined(__GLIBC__) && !defined(__UCLIBC__)
  return {stream->_IO_write_ptr, stream->_IO_write_end};
#else
  static_cast<void>(stream);
  return {nullptr, nullptr};
#endif
}

// Hands the bytes before upto, which lies in the range that Room gave,
// over to the stream, nothing having been written to it since.
inline void TakeRoom(FILE* stream, char* upto) {
#if defined(__GLIBC__) && !defined(__UCLIBC__)
  stream->_IO_write_ptr = upto;
#else
  static_cast<void>(stream);
  static_cast<void>(upto);
#endif
}

// Sixteen bytes in the compiler's vector type: a test on all of them at
// once is a few vector instructions on any target (plain loops where there
// are none). Bytes from 0x80 on are negative.
using ByteBlock = signed char __attribute__((vector_size(16)));
constexpr size_t kByteBlock = sizeof(ByteBlock);

// Widens a block of bytes into wide characters of the same values. A
// fixed-length loop over buffers that do not overlap, which the compiler
// does in a few vector instructions.
inline void WidenBlock(const unsigned char* __restrict from,
                       wchar_t* __restrict to) {
  for (size_t k = 0; k < kByteBlock; ++k) {
    to[k] = static_cast<wchar_t>(from[k]);
  }
}

// The lanes of the bytes in block that stop.
template <signed char AtMost, signed char... Equal>
ByteBlock StopLanes(ByteBlock block, ByteStops<AtMost, Equal...>) {
  return (block <= AtMost) | ((block == Equal) | ... | ByteBlock{});
}

// Takes the pending bytes up to the first that stops, at most room of
// them, each stored in out as the wide character of the same value, and
// returns how many were taken. Runs go a block at a time, and the block in
// which a run ends is widened whole (out has the room) and taken up to the
// first stop.
template <typename Stops>
size_t TakeWhile(FILE* stream, wchar_t* out, size_t room) {
  const PendingBytes bytes = Pending(stream);
  const unsigned char* p = bytes.next;
  const size_t avail = static_cast<size_t>(bytes.end - p);
  const size_t limit = avail < room ? avail : room;
#if FORMFILL_WIDE_VECTORS
  if (limit >= wide_vectors::kBlock && WideVectors()) {
    const size_t k = wide_vectors::WidenUntil<Stops>(p, limit, out);
    TakePending(stream, p + k);
    return k;
  }
#endif
  size_t k = 0;
  while (limit - k >= kByteBlock) {
    ByteBlock block;
    std::memcpy(&block, p + k, sizeof block);
    WidenBlock(p + k, out + k);
    const size_t plain_bytes = FirstLane(StopLanes(block, Stops()));
    k += plain_bytes;
    if (plain_bytes < kByteBlock) {
      TakePending(stream, p + k);
      return k;
    }
  }
  while (k < limit && !Stops::Stops(p[k])) {
    out[k] = static_cast<wchar_t>(p[k]);
    ++k;
  }
  TakePending(stream, p + k);
  return k;
}

#endif  // FORMFILL_TEXTIO_STREAM_BYTES_H_
