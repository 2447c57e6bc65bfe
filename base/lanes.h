// Vectors of N values in the compiler's own notation: +, -, *, comparisons and ?: work value by value, a scalar operand
// counts for every value. N is chosen per CPU level; the compiler splits what the CPU has not in one piece.
//
// Values that stand side by side never meet in a sum, so N changes no result.
#pragma once

#include <cstring>

#include "base/attributes.h"

namespace qav {

template <typename T, int N>
struct LanesOf {
  typedef T Type __attribute__((vector_size(N * sizeof(T))));
};

template <typename T, int N>
using Lanes = typename LanesOf<T, N>::Type;

// The vector at `p`, at any alignment that T may have.
template <typename V, typename T>
NEB_INLINE V loadLanes(const T *p) {
  V v;
  std::memcpy(&v, p, sizeof(V));
  return v;
}

template <typename V, typename T>
NEB_INLINE void storeLanes(T *p, V v) {
  std::memcpy(p, &v, sizeof(V));
}

}  // namespace qav
