// The block loops of the reading, searching and encoding paths once more
// for 32-byte vectors, where the processor has them. The 16-byte versions
// (char_blocks.h, stream_bytes.h) are the base every x86-64 processor runs;
// on one that also has 32-byte vectors a block of 32 characters costs about
// what 16 cost there, and every character of the table, of every printed
// template line and of the document passes through these loops. Which set
// is used is decided once, when the program starts; the results are the
// same either way.
#ifndef FORMFILL_TEXTIO_WIDE_VECTORS_H_
#define FORMFILL_TEXTIO_WIDE_VECTORS_H_

#include <array>
#include <cstddef>
#include <cstdint>

#if defined(__x86_64__) && defined(__GNUC__)
#define FORMFILL_WIDE_VECTORS 1
#include <immintrin.h>
#define FORMFILL_WIDE_TARGET __attribute__((target("avx2")))
#else
#define FORMFILL_WIDE_VECTORS 0
#endif

namespace wide_vectors {
extern bool g_On;
}  // namespace wide_vectors

// True when the 32-byte loops are in use.
inline bool WideVectors() {
  return FORMFILL_WIDE_VECTORS != 0 && wide_vectors::g_On;
}

// Turns the 32-byte loops off (false) or back on where the processor has
// them; returns whether they were on. For tests, which check both sets.
bool SetWideVectors(bool on);

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

#if FORMFILL_WIDE_VECTORS
namespace wide_vectors {

constexpr size_t kBlock = 32;

// The eight groups of four bytes that two rounds of packing leave in the
// order 0 2 4 6 1 3 5 7 (the packs work within each 16-byte half), put back
// in order.
FORMFILL_WIDE_TARGET inline __m256i InOrder(__m256i packed) {
  return _mm256_permutevar8x32_epi32(packed,
                                     _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// The 32 characters at p packed to signed 16-bit values with saturation, in
// two vectors (halves interleaved as above).
FORMFILL_WIDE_TARGET inline void PackWords(const wchar_t* p, __m256i words[2]) {
  const auto* v = reinterpret_cast<const __m256i*>(p);
  words[0] = _mm256_packs_epi32(_mm256_loadu_si256(v), _mm256_loadu_si256(v + 1));
  words[1] =
      _mm256_packs_epi32(_mm256_loadu_si256(v + 2), _mm256_loadu_si256(v + 3));
}

// Bit k set when character k of the 32 at p is one of Cs (ASCII below 0x7F).
// As in char_blocks::HitMask, the narrowing saturates: any character other
// than U+0000 to U+007E comes out as 0x7F or a negative byte.
template <wchar_t... Cs>
FORMFILL_WIDE_TARGET inline uint32_t HitMask(const wchar_t* p) {
  __m256i words[2];
  PackWords(p, words);
  const __m256i bytes = InOrder(_mm256_packs_epi16(words[0], words[1]));
  __m256i hits = _mm256_setzero_si256();
  ((hits = _mm256_or_si256(
        hits, _mm256_cmpeq_epi8(bytes, _mm256_set1_epi8(static_cast<char>(Cs))))),
   ...);
  return static_cast<uint32_t>(_mm256_movemask_epi8(hits));
}

// FindFirstOf (char_blocks.h) for a range of at least kBlock characters.
template <wchar_t... Cs>
FORMFILL_WIDE_TARGET size_t FindFirstOf(const wchar_t* text, size_t from,
                                        size_t to) {
  for (;;) {
    // The rest after whole blocks is tested as the block that ends at to,
    // over characters already found to be none of Cs.
    if (to - from < kBlock) {
      from = to - kBlock;
    }
    const uint32_t hits = HitMask<Cs...>(text + from);
    if (hits != 0) {
      return from + static_cast<size_t>(__builtin_ctz(hits));
    }
    from += kBlock;
    if (from == to) {
      return to;
    }
  }
}

// Writes the bytes of the ASCII characters that text[0, len) begins with
// to out, one each, and returns how many there are; len is at least kBlock.
// Up to len bytes are written, those after the ASCII ones of no use.
FORMFILL_WIDE_TARGET inline size_t AsciiPrefix(const wchar_t* text, size_t len,
                                               char* out) {
  size_t i = 0;
  for (;;) {
    if (len - i < kBlock) {
      if (i == len) {
        return len;
      }
      // The block that ends the text, over ASCII characters already done:
      // their bytes are written again with the same values.
      i = len - kBlock;
    }
    __m256i words[2];
    PackWords(text + i, words);
    // Unsigned saturation: an ASCII character keeps its value, one from
    // U+0080 up comes out as a byte from 0x80 up, and a negative one as 0,
    // as a null character does.
    const __m256i bytes = InOrder(_mm256_packus_epi16(words[0], words[1]));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), bytes);
    uint32_t other = static_cast<uint32_t>(_mm256_movemask_epi8(bytes));
    uint32_t zero = static_cast<uint32_t>(
        _mm256_movemask_epi8(_mm256_cmpeq_epi8(bytes, _mm256_setzero_si256())));
    for (; zero != 0; zero &= zero - 1) {
      const unsigned k = static_cast<unsigned>(__builtin_ctz(zero));
      if (text[i + k] != 0) {
        other |= 1u << k;
      }
    }
    if (other != 0) {
      return i + static_cast<size_t>(__builtin_ctz(other));
    }
    i += kBlock;
  }
}

// The lanes of the bytes in b that stop.
template <signed char AtMost, signed char... Equal>
FORMFILL_WIDE_TARGET inline __m256i StopLanes(__m256i b,
                                              ByteStops<AtMost, Equal...>) {
  __m256i stop = _mm256_cmpgt_epi8(_mm256_set1_epi8(AtMost + 1), b);
  ((stop = _mm256_or_si256(stop, _mm256_cmpeq_epi8(b, _mm256_set1_epi8(Equal)))),
   ...);
  return stop;
}

// Widens the bytes at p up to the first that stops into out, and returns
// how many came before it, or limit when none of p[0, limit) stops; limit
// is at least kBlock. The block in which the first stop lies is widened
// whole, so out must hold limit characters.
template <typename Stops>
FORMFILL_WIDE_TARGET size_t WidenUntil(const unsigned char* p, size_t limit,
                                       wchar_t* out) {
  size_t k = 0;
  for (;;) {
    if (limit - k < kBlock) {
      if (k == limit) {
        return limit;
      }
      // The block that ends at limit, over bytes already found plain and
      // widened: they are widened again to the same characters.
      k = limit - kBlock;
    }
    for (size_t part = 0; part < kBlock; part += 8) {
      const __m128i eight =
          _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + k + part));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + k + part),
                          _mm256_cvtepu8_epi32(eight));
    }
    const __m256i b =
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + k));
    const uint32_t mask =
        static_cast<uint32_t>(_mm256_movemask_epi8(StopLanes(b, Stops())));
    if (mask != 0) {
      return k + static_cast<size_t>(__builtin_ctz(mask));
    }
    k += kBlock;
  }
}

}  // namespace wide_vectors
#endif  // FORMFILL_WIDE_VECTORS

#endif  // FORMFILL_TEXTIO_WIDE_VECTORS_H_
