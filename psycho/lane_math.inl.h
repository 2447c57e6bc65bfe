// Vectors of W floats: what the operators of the language do not offer. A quad is four lanes beginning at a multiple of
// four; shuffles within quads are the cheap ones.
#pragma once

#include <cmath>

#include "base/lanes.h"

namespace qav {

template <int W>
NEB_INLINE Lanes<float, W> minimum(const Lanes<float, W> &a, const Lanes<float, W> &b) {
  return a < b ? a : b;
}
template <int W>
NEB_INLINE Lanes<float, W> maximum(const Lanes<float, W> &a, const Lanes<float, W> &b) {
  return a > b ? a : b;
}

template <int W>
NEB_INLINE Lanes<float, W> squareRoot(const Lanes<float, W> &x) {
  float values[W];
  storeLanes(values, x);
  for (float &value : values) value = std::sqrt(value);
  return loadLanes<Lanes<float, W>>(values);
}

// The vector whose values are all x.
template <int W>
NEB_INLINE Lanes<float, W> all(float x) {
  return Lanes<float, W>{} + x;
}

// Within every four lanes: the first two of a and b, alternating, and the last two.
template <int W>
NEB_INLINE void interleaveQuads(const Lanes<float, W> &a, const Lanes<float, W> &b, Lanes<float, W> &low,
                                Lanes<float, W> &high) {
  if constexpr (W == 4) {
    low = __builtin_shufflevector(a, b, 0, 4, 1, 5);
    high = __builtin_shufflevector(a, b, 2, 6, 3, 7);
  } else if constexpr (W == 8) {
    low = __builtin_shufflevector(a, b, 0, 8, 1, 9, 4, 12, 5, 13);
    high = __builtin_shufflevector(a, b, 2, 10, 3, 11, 6, 14, 7, 15);
  } else {
    low = __builtin_shufflevector(a, b, 0, 16, 1, 17, 4, 20, 5, 21, 8, 24, 9, 25, 12, 28, 13, 29);
    high = __builtin_shufflevector(a, b, 2, 18, 3, 19, 6, 22, 7, 23, 10, 26, 11, 27, 14, 30, 15, 31);
  }
}

// The quads of even number of a and b one after the other, and those of odd number.
template <int W>
NEB_INLINE void separateQuads(const Lanes<float, W> &a, const Lanes<float, W> &b, Lanes<float, W> &even,
                              Lanes<float, W> &odd) {
  if constexpr (W == 8) {
    even = __builtin_shufflevector(a, b, 0, 1, 2, 3, 8, 9, 10, 11);
    odd = __builtin_shufflevector(a, b, 4, 5, 6, 7, 12, 13, 14, 15);
  } else {
    even = __builtin_shufflevector(a, b, 0, 1, 2, 3, 8, 9, 10, 11, 16, 17, 18, 19, 24, 25, 26, 27);
    odd = __builtin_shufflevector(a, b, 4, 5, 6, 7, 12, 13, 14, 15, 20, 21, 22, 23, 28, 29, 30, 31);
  }
}

// The first halves of a and b, and the second ones.
NEB_INLINE void separateHalves(const Lanes<float, 16> &a, const Lanes<float, 16> &b, Lanes<float, 16> &first,
                               Lanes<float, 16> &second) {
  first = __builtin_shufflevector(a, b, 0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23);
  second = __builtin_shufflevector(a, b, 8, 9, 10, 11, 12, 13, 14, 15, 24, 25, 26, 27, 28, 29, 30, 31);
}

// Within every quad: the first two lanes of a and b, and the last two.
template <int W>
NEB_INLINE void separatePairs(const Lanes<float, W> &a, const Lanes<float, W> &b, Lanes<float, W> &first,
                              Lanes<float, W> &second) {
  if constexpr (W == 4) {
    first = __builtin_shufflevector(a, b, 0, 1, 4, 5);
    second = __builtin_shufflevector(a, b, 2, 3, 6, 7);
  } else if constexpr (W == 8) {
    first = __builtin_shufflevector(a, b, 0, 1, 8, 9, 4, 5, 12, 13);
    second = __builtin_shufflevector(a, b, 2, 3, 10, 11, 6, 7, 14, 15);
  } else {
    first = __builtin_shufflevector(a, b, 0, 1, 16, 17, 4, 5, 20, 21, 8, 9, 24, 25, 12, 13, 28, 29);
    second = __builtin_shufflevector(a, b, 2, 3, 18, 19, 6, 7, 22, 23, 10, 11, 26, 27, 14, 15, 30, 31);
  }
}

// Within every quad: the lanes of even number of a and b, and those of odd number.
template <int W>
NEB_INLINE void separateSingles(const Lanes<float, W> &a, const Lanes<float, W> &b, Lanes<float, W> &even,
                                Lanes<float, W> &odd) {
  if constexpr (W == 4) {
    even = __builtin_shufflevector(a, b, 0, 2, 4, 6);
    odd = __builtin_shufflevector(a, b, 1, 3, 5, 7);
  } else if constexpr (W == 8) {
    even = __builtin_shufflevector(a, b, 0, 2, 8, 10, 4, 6, 12, 14);
    odd = __builtin_shufflevector(a, b, 1, 3, 9, 11, 5, 7, 13, 15);
  } else {
    even = __builtin_shufflevector(a, b, 0, 2, 16, 18, 4, 6, 20, 22, 8, 10, 24, 26, 12, 14, 28, 30);
    odd = __builtin_shufflevector(a, b, 1, 3, 17, 19, 5, 7, 21, 23, 9, 11, 25, 27, 13, 15, 29, 31);
  }
}

}  // namespace qav
