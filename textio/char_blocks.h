// Searches over wide text that test a block of characters at a time.
#ifndef FORMFILL_TEXTIO_CHAR_BLOCKS_H_
#define FORMFILL_TEXTIO_CHAR_BLOCKS_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Every character of every printed line is looked at, mostly only to find
// that it is plain text. A block of characters is compared with each
// wanted character at once (a few vector instructions; plain loops where
// the target has no vector unit), instead of a compare and a branch per
// character and wanted character.
namespace char_blocks {

using Lanes = int32_t __attribute__((vector_size(16)));
static_assert(sizeof(wchar_t) == sizeof(int32_t), "wide characters are 32-bit");

constexpr size_t kLanes = sizeof(Lanes) / sizeof(wchar_t);
constexpr size_t kBlock = 4 * kLanes;

// The lowest set bit of a nonzero mask.
inline unsigned LowestBit(unsigned mask) {
#if defined(__GNUC__)
  return static_cast<unsigned>(__builtin_ctz(mask));
#else
  unsigned k = 0;
  while ((mask & 1u) == 0) {
    mask >>= 1;
    ++k;
  }
  return k;
#endif
}

#if defined(__SSE2__)
// The kBlock characters at p as four vectors of four.
inline void LoadBlock(const wchar_t* p, __m128i part[4]) {
  for (size_t k = 0; k < 4; ++k) {
    part[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 4 * k));
  }
}

// The sixteen lanes of part narrowed to bytes with saturation: a lane from
// -128 to 127 keeps its value, a larger one becomes 127, a smaller -128.
inline __m128i SaturatedBytes(const __m128i part[4]) {
  return _mm_packs_epi16(_mm_packs_epi32(part[0], part[1]),
                         _mm_packs_epi32(part[2], part[3]));
}
#endif

// Bit k set when character k of the kBlock characters at p is one of Cs,
// which are ASCII.
template <wchar_t... Cs>
inline unsigned HitMask(const wchar_t* p) {
  static_assert(((Cs >= 0 && Cs < 0x7F) && ...), "wanted characters are ASCII");
#if defined(__SSE2__)
  // The sixteen characters are narrowed to sixteen bytes, which are then
  // compared all at once. As the narrowing saturates, a character up to
  // U+007E keeps its value and any other comes out as 0x7F or a negative
  // byte (never 0), so none is taken for a wanted one.
  __m128i part[4];
  LoadBlock(p, part);
  const __m128i bytes = SaturatedBytes(part);
  __m128i hits = _mm_setzero_si128();
  ((hits = _mm_or_si128(
        hits, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(static_cast<char>(Cs))))),
   ...);
  return static_cast<unsigned>(_mm_movemask_epi8(hits));
#else
  Lanes hits[kBlock / kLanes];
  for (size_t k = 0; k < kBlock / kLanes; ++k) {
    Lanes chars;
    std::memcpy(&chars, p + k * kLanes, sizeof chars);
    hits[k] = ((chars == static_cast<int32_t>(Cs)) | ...);
  }
  unsigned mask = 0;
  for (size_t k = 0; k < kBlock; ++k) {
    mask |= (hits[k / kLanes][k % kLanes] != 0 ? 1u : 0u) << k;
  }
  return mask;
#endif
}

// True when all kBlock characters at p are ASCII: below U+0080, none
// negative.
inline bool AllAscii(const wchar_t* p) {
  Lanes bits = {};
  for (size_t k = 0; k < kBlock; k += kLanes) {
    Lanes chars;
    std::memcpy(&chars, p + k, sizeof chars);
    bits |= chars;
  }
  bits &= ~0x7F;
  uint64_t halves[2];
  static_assert(sizeof halves == sizeof bits, "two halves make the lanes");
  std::memcpy(halves, &bits, sizeof halves);
  return (halves[0] | halves[1]) == 0;
}

// Writes the kBlock characters at p to out as one byte each, and returns
// which of them are not ASCII (bit k for character k): their bytes are of
// no use. Those of the ASCII characters are their values.
inline unsigned NarrowBlock(const wchar_t* __restrict p, char* __restrict out) {
#if defined(__SSE2__)
  __m128i part[4];
  LoadBlock(p, part);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), SaturatedBytes(part));
  if (AllAscii(p)) {
    return 0;
  }
  // Each lane all ones where the character is ASCII, narrowed to a byte.
  const __m128i high = _mm_set1_epi32(~0x7F);
  const __m128i zero = _mm_setzero_si128();
  __m128i ascii[4];
  for (size_t k = 0; k < 4; ++k) {
    ascii[k] = _mm_cmpeq_epi32(_mm_and_si128(part[k], high), zero);
  }
  return ~static_cast<unsigned>(_mm_movemask_epi8(SaturatedBytes(ascii))) &
         0xFFFFu;
#else
  unsigned wide = 0;
  for (size_t k = 0; k < kBlock; ++k) {
    out[k] = static_cast<char>(p[k]);
    wide |= (static_cast<uint32_t>(p[k]) >= 0x80 ? 1u : 0u) << k;
  }
  return wide;
#endif
}

}  // namespace char_blocks

// Index of the first character of text[from, to) that is one of Cs, or to.
template <wchar_t... Cs>
size_t FindFirstOf(const wchar_t* text, size_t from, size_t to) {
  using char_blocks::kBlock;
  if (to - from < kBlock) {
    while (from < to && ((text[from] != Cs) && ...)) {
      ++from;
    }
    return from;
  }
  for (;;) {
    // What is left after whole blocks is tested as the block that ends at
    // to. It overlaps characters already found to be none of Cs, so its
    // first hit is still the first one.
    if (to - from < kBlock) {
      from = to - kBlock;
    }
    const unsigned hits = char_blocks::HitMask<Cs...>(text + from);
    if (hits != 0) {
      return from + char_blocks::LowestBit(hits);
    }
    from += kBlock;
    if (from == to) {
      return to;
    }
  }
}

#endif  // FORMFILL_TEXTIO_CHAR_BLOCKS_H_
