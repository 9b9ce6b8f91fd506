// Byte work of the inner loops of reading CSV and writing values: they
// test every byte of the input against a few others, and copy values of a
// few bytes each.
#ifndef FORMFILL_TABLE_BYTES_H_
#define FORMFILL_TABLE_BYTES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace formfill_table {

// The eight bytes at p as a number whose lowest byte is p[0].
inline uint64_t LoadEight(const unsigned char* p) {
  uint64_t x;
  memcpy(&x, p, 8);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  x = __builtin_bswap64(x);
#endif
  return x;
}

// memcpy for regions that do not overlap, without a call for up to 16
// bytes: two copies that overlap each other cover n bytes.
inline void CopyBytes(char* to, const void* from, size_t n) {
  const auto* f = static_cast<const char*>(from);
  if (n > 16) {
    memcpy(to, f, n);
  } else if (n >= 8) {
    memcpy(to, f, 8);
    memcpy(to + n - 8, f + n - 8, 8);
  } else if (n >= 4) {
    memcpy(to, f, 4);
    memcpy(to + n - 4, f + n - 4, 4);
  } else if (n > 0) {
    to[0] = f[0];
    to[n / 2] = f[n / 2];
    to[n - 1] = f[n - 1];
  }
}

// The position of the lowest bit set in a mark mask that is not zero.
inline unsigned FirstMark(uint32_t marks) {
  return static_cast<unsigned>(__builtin_ctz(marks));
}

// Marks the bytes from 0x80 up among the sixteen at p, as ByteMarks does.
inline uint32_t HighMarks(const unsigned char* p) {
#if defined(__SSE2__)
  return static_cast<uint32_t>(
      _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))));
#else
  uint32_t marks = 0;
  for (unsigned i = 0; i < 16; ++i)
    marks |= static_cast<uint32_t>(p[i] >= 0x80) << i;
  return marks;
#endif
}

// Marks, among the sixteen bytes at p, the lead bytes of two-byte UTF-8
// sequences (0xC2 to 0xDF) in *leads and the continuation bytes (0x80 to
// 0xBF) in *continuations.
inline void TwoByteMarks(const unsigned char* p, uint32_t* leads,
                         uint32_t* continuations) {
#if defined(__SSE2__)
  const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  // x - 0xC2 <= 0x1D, unsigned: min(t, 0x1D) == t.
  const __m128i t = _mm_sub_epi8(x, _mm_set1_epi8(static_cast<char>(0xC2)));
  *leads = static_cast<uint32_t>(_mm_movemask_epi8(
      _mm_cmpeq_epi8(_mm_min_epu8(t, _mm_set1_epi8(0x1D)), t)));
  *continuations = static_cast<uint32_t>(_mm_movemask_epi8(
      _mm_cmpeq_epi8(_mm_and_si128(x, _mm_set1_epi8(static_cast<char>(0xC0))),
                     _mm_set1_epi8(static_cast<char>(0x80)))));
#else
  *leads = *continuations = 0;
  for (unsigned i = 0; i < 16; ++i) {
    *leads |= static_cast<uint32_t>(p[i] >= 0xC2 && p[i] <= 0xDF) << i;
    *continuations |= static_cast<uint32_t>((p[i] & 0xC0) == 0x80) << i;
  }
#endif
}

// Marks the bytes of the set kBytes (a constant std::array<char, N>), and
// with kUnusual also every byte below the blank and from 0x80 up, among
// sixteen bytes: bit i of the result for byte i, the one at the lowest
// address.
template <const auto& kBytes, bool kUnusual>
class ByteMarks {
 public:
  static uint32_t Find(const unsigned char* p) {
#if defined(__SSE2__)
    return Find(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
#else
    return Find(LoadEight(p), LoadEight(p + 8));
#endif
  }

  // The same for the sixteen bytes of two numbers, low's lowest first.
  static uint32_t Find(uint64_t low, uint64_t high) {
#if defined(__SSE2__)
    return Find(_mm_set_epi64x(static_cast<long long>(high),
                               static_cast<long long>(low)));
#else
    uint32_t marks = 0;
    for (unsigned i = 0; i < 16; ++i) {
      const auto c = static_cast<unsigned char>((i < 8 ? low : high) >>
                                                (8 * (i % 8)));
      marks |= static_cast<uint32_t>(Marked(c)) << i;
    }
    return marks;
#endif
  }

 private:
  static constexpr size_t kCount = std::tuple_size<
      std::remove_cv_t<std::remove_reference_t<decltype(kBytes)>>>::value;

#if defined(__SSE2__)
  static uint32_t Find(__m128i x) {
    return Find(x, std::make_index_sequence<kCount>());
  }
  // The set's bytes are constants here, so that their vectors are too.
  template <size_t... kIndex>
  static uint32_t Find(__m128i x, std::index_sequence<kIndex...>) {
    // A signed compare: the bytes from 0x80 up are below zero.
    __m128i marks = kUnusual ? _mm_cmplt_epi8(x, _mm_set1_epi8(' '))
                             : _mm_setzero_si128();
    ((marks = _mm_or_si128(marks,
                           _mm_cmpeq_epi8(x, _mm_set1_epi8(kBytes[kIndex])))),
     ...);
    return static_cast<uint32_t>(_mm_movemask_epi8(marks));
  }
#else
  static bool Marked(unsigned char c) {
    if (kUnusual && (c < ' ' || c >= 0x80))
      return true;
    for (const char b : kBytes)
      if (c == static_cast<unsigned char>(b))
        return true;
    return false;
  }
#endif
};

}  // namespace formfill_table

#endif  // FORMFILL_TABLE_BYTES_H_
