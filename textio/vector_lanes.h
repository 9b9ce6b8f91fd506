// The result of a comparison in one of the compiler's vector types.
#ifndef FORMFILL_TEXTIO_VECTOR_LANES_H_
#define FORMFILL_TEXTIO_VECTOR_LANES_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

// The index of the first set lane of a 16-byte comparison result (each lane
// all ones or all zeros), or the number of lanes when none is set.
template <typename Lanes>
size_t FirstLane(Lanes lanes) {
  constexpr size_t kCount = sizeof(Lanes) / sizeof(lanes[0]);
  uint64_t halves[2];
  static_assert(sizeof halves == sizeof lanes, "two halves make the lanes");
  std::memcpy(halves, &lanes, sizeof halves);
#if defined(__GNUC__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  // Lane 0 holds the lowest bits of the first half.
  constexpr size_t kBits = 8 * sizeof(lanes[0]);
  if (halves[0] != 0)
    return static_cast<size_t>(__builtin_ctzll(halves[0])) / kBits;
  if (halves[1] != 0)
    return kCount / 2 + static_cast<size_t>(__builtin_ctzll(halves[1])) / kBits;
  return kCount;
#else
  size_t k = 0;
  while (k < kCount && lanes[k] == 0)
    ++k;
  return k;
#endif
}

#endif  // FORMFILL_TEXTIO_VECTOR_LANES_H_
