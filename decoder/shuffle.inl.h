// Vectors put together from the values of two others.
#pragma once

#include <cstddef>
#include <utility>

#include "base/attributes.h"

namespace qav::kernels {

// The vector of N values whose value l is value Pattern::at(l) of those of a followed by those of b.
template <typename Pattern, typename V, size_t... l>
NEB_INLINE auto shuffle(V a, V b, std::index_sequence<l...>) {
  return __builtin_shufflevector(a, b, Pattern::at(int(l))...);
}

template <typename Pattern, int N, typename V>
NEB_INLINE auto shuffle(V a, V b) {
  return shuffle<Pattern>(a, b, std::make_index_sequence<size_t(N)>());
}

}  // namespace qav::kernels
