// Searches over wide text that test a block of characters at a time.
#ifndef FORMFILL_TEXTIO_CHAR_BLOCKS_H_
#define FORMFILL_TEXTIO_CHAR_BLOCKS_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "textio/vector_lanes.h"

// Every character of every printed line is looked at, mostly only to find
// that it is plain text. A block of characters is compared with each
// wanted character at once, in the compiler's vector type (a few vector
// instructions on any target, plain loops where there are none), instead
// of a compare and a branch per character and wanted character.
namespace char_blocks {

using Lanes = int32_t __attribute__((vector_size(16)));
static_assert(sizeof(wchar_t) == sizeof(int32_t), "wide characters are 32-bit");

constexpr size_t kLanes = sizeof(Lanes) / sizeof(wchar_t);
constexpr size_t kBlock = 4 * kLanes;

// The index of the first of the kBlock characters at p that is one of Cs,
// or kBlock when none is.
template <wchar_t... Cs>
inline size_t FirstInBlock(const wchar_t* p) {
  Lanes hits[kBlock / kLanes];
  Lanes any = {};
  for (size_t k = 0; k < kBlock / kLanes; ++k) {
    Lanes chars;
    std::memcpy(&chars, p + k * kLanes, sizeof chars);
    hits[k] = ((chars == static_cast<int32_t>(Cs)) | ...);
    any |= hits[k];
  }
  if (FirstLane(any) == kLanes) {
    return kBlock;
  }
  size_t k = 0;
  while (FirstLane(hits[k]) == kLanes) {
    ++k;
  }
  return k * kLanes + FirstLane(hits[k]);
}

// True when all kBlock characters at p are below U+0080 (none negative).
inline bool BlockIsAscii(const wchar_t* p) {
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

}  // namespace char_blocks

// Index of the first character of text[from, to) that is one of Cs, or to.
template <wchar_t... Cs>
size_t FindFirstOf(const wchar_t* text, size_t from, size_t to) {
  using char_blocks::kBlock;
  while (to - from >= kBlock) {
    const size_t first = char_blocks::FirstInBlock<Cs...>(text + from);
    if (first < kBlock) {
      return from + first;
    }
    from += kBlock;
  }
  while (from < to && ((text[from] != Cs) && ...)) {
    ++from;
  }
  return from;
}

#endif  // FORMFILL_TEXTIO_CHAR_BLOCKS_H_
