// The one place that reads from and writes into a C stream's own buffer.
//
// Every byte of the table, and every byte of every printed template line,
// is read one at a time, and every document line is written. getc_unlocked
// takes a byte from the stream's buffer, but keeps the buffer's read
// pointer in the stream, where a loop has to load it, compare it and store
// it back for each byte; fwrite copies what was converted elsewhere. Where
// the C library's stream layout is known, the loops here walk the buffered
// bytes with the pointer in a register and hand the new position back
// once, and a document line is converted straight into the room the
// stream's buffer has left: exactly the bytes that as many getc or one
// fwrite would have moved, and the stream goes on from there. Elsewhere,
// and when FORMFILL_PORTABLE_IO is defined, nothing is pending and there
// is no room: the callers' getc and fwrite paths do all the work.
#ifndef FORMFILL_TEXTIO_STREAM_BUFFER_H_
#define FORMFILL_TEXTIO_STREAM_BUFFER_H_

#include <stdio.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#if defined(__GLIBC__) && !defined(FORMFILL_PORTABLE_IO)
#define FORMFILL_STREAM_INTERNALS 1
#else
#define FORMFILL_STREAM_INTERNALS 0
#endif

// The bytes that end a run of plain text: every byte that is at most
// AtMost as a signed value (control characters, and the bytes from 0x80,
// which begin longer sequences), and those equal to one of Equal. Fixed
// when the program is built, so that the block tests compare with
// constants.
template <signed char AtMost, signed char... Equal>
struct ByteStops {
  static constexpr bool Stops(unsigned char b) {
    const auto s = static_cast<signed char>(b);
    return (s <= AtMost) | ((s == Equal) | ... | false);
  }
};

class StreamBuffer {
 public:
  // The bytes the stream has read ahead and not yet handed out.
  struct Pending {
    const unsigned char* next;
    const unsigned char* end;
  };
  static Pending ReadAhead(FILE* stream) {
#if FORMFILL_STREAM_INTERNALS
    return {reinterpret_cast<const unsigned char*>(stream->_IO_read_ptr),
            reinterpret_cast<const unsigned char*>(stream->_IO_read_end)};
#else
    static_cast<void>(stream);
    return {nullptr, nullptr};
#endif
  }

  // Marks the pending bytes before upto as read; upto lies in the range
  // that ReadAhead gave, and nothing has read from the stream since.
  static void Consume(FILE* stream, const unsigned char* upto) {
#if FORMFILL_STREAM_INTERNALS
    stream->_IO_read_ptr =
        const_cast<char*>(reinterpret_cast<const char*>(upto));
#else
    static_cast<void>(stream);
    static_cast<void>(upto);
#endif
  }

  // Moves the stream back by n bytes when they are still in its buffer, as
  // a seek to that position would: the same bytes are read again from
  // there. The library's own seek also makes a system call to bring the
  // descriptor's offset in line, which a stream that only reads does not
  // need; the template is read back at its loops for every record. False,
  // and nothing moved, when the bytes are not in the buffer or the stream
  // has ever held pushed-back bytes (its buffer is then not the file's).
  static bool StepBack(FILE* stream, size_t n) {
#if FORMFILL_STREAM_INTERNALS
    if (stream->_IO_save_base == nullptr &&
        static_cast<size_t>(stream->_IO_read_ptr - stream->_IO_read_base) >=
            n) {
      stream->_IO_read_ptr -= n;
      return true;
    }
#else
    static_cast<void>(stream);
    static_cast<void>(n);
#endif
    return false;
  }

  // feof without the stream's lock, where the library has it.
  static bool AtEnd(FILE* stream) {
#if FORMFILL_STREAM_INTERNALS
    return feof_unlocked(stream) != 0;
#else
    return feof(stream) != 0;
#endif
  }

  // The position of a stream that is only read, as ftell gives it: the
  // offset its buffer was filled up to, less what it has not handed out.
  // ftell works this out too, behind the lock and the library's general
  // seek code, and the template's position is asked for every printed
  // line. ftell answers where the layout is unknown, or the stream holds
  // pushed-back bytes or an unknown offset.
  static long Position(FILE* stream) {
#if FORMFILL_STREAM_INTERNALS
    if (stream->_IO_buf_base != nullptr && stream->_IO_save_base == nullptr &&
        stream->_IO_write_ptr == stream->_IO_write_base &&
        stream->_offset >= 0) {
      return static_cast<long>(stream->_offset -
                               (stream->_IO_read_end - stream->_IO_read_ptr));
    }
#endif
    return ftell(stream);
  }

  // The free part of the buffer for bytes written: what putc_unlocked
  // would store into before the library has to flush. Bytes stored there
  // and handed over by Commit are written exactly as if fwrite had copied
  // them in. Empty where the layout is unknown, and for a stream that has
  // not written yet or that flushes at every line or byte.
  struct Room {
    char* next;
    char* end;
  };
  static Room WriteRoom(FILE* stream) {
#if FORMFILL_STREAM_INTERNALS
    return {stream->_IO_write_ptr, stream->_IO_write_end};
#else
    static_cast<void>(stream);
    return {nullptr, nullptr};
#endif
  }

  // Hands the bytes before upto, which lies in the range WriteRoom gave,
  // over to the stream, nothing having been written to it since.
  static void Commit(FILE* stream, char* upto) {
#if FORMFILL_STREAM_INTERNALS
    stream->_IO_write_ptr = upto;
#else
    static_cast<void>(stream);
    static_cast<void>(upto);
#endif
  }

  // The bytes written into the buffer and not yet handed to the file.
  static std::pair<const char*, size_t> Unwritten(FILE* stream) {
#if FORMFILL_STREAM_INTERNALS
    const char* const base = stream->_IO_write_base;
    return {base, base != nullptr
                      ? static_cast<size_t>(stream->_IO_write_ptr - base)
                      : 0};
#else
    static_cast<void>(stream);
    return {nullptr, 0};
#endif
  }

  // Forgets the unwritten bytes: they will never reach the file.
  static void DropUnwritten(FILE* stream) {
#if FORMFILL_STREAM_INTERNALS
    stream->_IO_write_ptr = stream->_IO_write_base;
#else
    static_cast<void>(stream);
#endif
  }

  // One block write, without the stream's lock where the library offers
  // that: the program has one thread.
  static size_t WriteBlock(const char* bytes, size_t count, FILE* stream) {
#if FORMFILL_STREAM_INTERNALS
    return fwrite_unlocked(bytes, 1, count, stream);
#else
    return fwrite(bytes, 1, count, stream);
#endif
  }

  // Takes the pending bytes up to the first that Stops, at most room of
  // them, each stored in out as the wide character of the same value, and
  // returns how many were taken. Runs go sixteen bytes at a time; the block
  // in which a run ends is widened whole (out has the room) and taken up
  // to its first stop.
  template <typename Stops>
  static size_t TakeWhile(FILE* stream, wchar_t* out, size_t room);

 private:
  // Sixteen bytes in the compiler's vector type: a test of all of them is
  // a few vector instructions on any target (plain loops where there are
  // none). Bytes from 0x80 on are negative.
  using ByteBlock = signed char __attribute__((vector_size(16)));
  static constexpr size_t kByteBlock = sizeof(ByteBlock);

  // Widens a block of bytes into wide characters of the same values: a
  // fixed-length loop over buffers that do not overlap, which the compiler
  // turns into a few vector instructions.
  static void Widen(const unsigned char* __restrict from,
                    wchar_t* __restrict to) {
    for (size_t k = 0; k < kByteBlock; ++k) {
      to[k] = static_cast<wchar_t>(from[k]);
    }
  }

  template <signed char AtMost, signed char... Equal>
  static ByteBlock StopLanes(ByteBlock block, ByteStops<AtMost, Equal...>) {
    return (block <= AtMost) | ((block == Equal) | ... | ByteBlock{});
  }

  // The index of the first set lane of a comparison result (each lane all
  // ones or all zeros), or kByteBlock when none is set.
  static size_t FirstLane(ByteBlock lanes) {
    uint64_t halves[2];
    static_assert(sizeof halves == sizeof lanes, "two halves make the lanes");
    std::memcpy(halves, &lanes, sizeof halves);
#if defined(__GNUC__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    // Lane 0 holds the lowest bits of the first half.
    if (halves[0] != 0)
      return static_cast<size_t>(__builtin_ctzll(halves[0])) / 8;
    if (halves[1] != 0)
      return 8 + static_cast<size_t>(__builtin_ctzll(halves[1])) / 8;
    return kByteBlock;
#else
    size_t k = 0;
    while (k < kByteBlock && lanes[k] == 0)
      ++k;
    return k;
#endif
  }
};

template <typename Stops>
size_t StreamBuffer::TakeWhile(FILE* stream, wchar_t* out, size_t room) {
  const Pending bytes = ReadAhead(stream);
  const unsigned char* p = bytes.next;
  const size_t avail = static_cast<size_t>(bytes.end - p);
  const size_t limit = avail < room ? avail : room;
  size_t k = 0;
  while (limit - k >= kByteBlock) {
    ByteBlock block;
    std::memcpy(&block, p + k, sizeof block);
    Widen(p + k, out + k);
    const size_t plain_bytes = FirstLane(StopLanes(block, Stops()));
    k += plain_bytes;
    if (plain_bytes < kByteBlock) {
      Consume(stream, p + k);
      return k;
    }
  }
  while (k < limit && !Stops::Stops(p[k])) {
    out[k] = static_cast<wchar_t>(p[k]);
    ++k;
  }
  Consume(stream, p + k);
  return k;
}

#endif  // FORMFILL_TEXTIO_STREAM_BUFFER_H_
