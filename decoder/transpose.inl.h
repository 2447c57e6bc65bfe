// Turning N vectors of N values about the diagonal.
#pragma once

#include "base/attributes.h"
#include "base/lanes.h"
#include "decoder/shuffle.inl.h"

namespace qav::kernels {

// Within each four values (what the shuffle units of all CPUs do best): pieces of `Size` values, taken in turn from the
// lower or the upper half of a's four and of b's.
template <int N, int Size, bool Upper>
struct Zip {
  static constexpr int at(int l) {
    const int inFour = l % 4, piece = inFour / Size;
    return l - inFour + (Upper ? 2 : 0) + piece / 2 * Size + inFour % Size + (piece % 2 == 0 ? 0 : N);
  }
};

// Whole fours: the lower or upper half of a's, then of b's.
template <int N, bool Upper>
struct JoinHalves {
  static constexpr int at(int l) { return l % (N / 2) + (Upper ? N / 2 : 0) + (l < N / 2 ? 0 : N); }
};

// Whole fours: the even or odd ones of a, then of b.
template <int N, bool Odd>
struct JoinAlternate {
  static constexpr int at(int l) {
    const int four = l % (N / 2) / 4;
    return (2 * four + (Odd ? 1 : 0)) * 4 + l % 4 + (l < N / 2 ? 0 : N);
  }
};

template <int N>
struct Backwards {
  static constexpr int at(int l) { return N - 1 - l; }
};

template <int N, typename V>
NEB_INLINE V reversed(V v) {
  if constexpr (N == 1) {
    return v;
  } else {
    return shuffle<Backwards<N>, N>(v, v);
  }
}

// Fours of rows into their columns: afterwards, four q of x[4p + c] is column 4q + c of rows 4p .. 4p + 3.
template <int N, typename V>
NEB_INLINE void transposeFours(V *x) {
#pragma GCC unroll 4
  for (int p = 0; p < N; p += 4) {
    V *const r = x + p;
    const V low01 = shuffle<Zip<N, 1, false>, N>(r[0], r[1]), high01 = shuffle<Zip<N, 1, true>, N>(r[0], r[1]);
    const V low23 = shuffle<Zip<N, 1, false>, N>(r[2], r[3]), high23 = shuffle<Zip<N, 1, true>, N>(r[2], r[3]);
    r[0] = shuffle<Zip<N, 2, false>, N>(low01, low23);
    r[1] = shuffle<Zip<N, 2, true>, N>(low01, low23);
    r[2] = shuffle<Zip<N, 2, false>, N>(high01, high23);
    r[3] = shuffle<Zip<N, 2, true>, N>(high01, high23);
  }
}

// N is 1, 4, 8 or 16.
template <int N, typename V>
NEB_INLINE void transpose(V *x) {
  if constexpr (N > 1) transposeFours<N>(x);
  if constexpr (N == 8) {
#pragma GCC unroll 4
    for (int c = 0; c < 4; ++c) {
      const V a = x[c], b = x[4 + c];
      x[c] = shuffle<JoinHalves<N, false>, N>(a, b);
      x[4 + c] = shuffle<JoinHalves<N, true>, N>(a, b);
    }
  }
  if constexpr (N == 16) {
#pragma GCC unroll 4
    for (int c = 0; c < 4; ++c) {
      const V low01 = shuffle<JoinHalves<N, false>, N>(x[c], x[4 + c]);
      const V high01 = shuffle<JoinHalves<N, true>, N>(x[c], x[4 + c]);
      const V low23 = shuffle<JoinHalves<N, false>, N>(x[8 + c], x[12 + c]);
      const V high23 = shuffle<JoinHalves<N, true>, N>(x[8 + c], x[12 + c]);
      x[c] = shuffle<JoinAlternate<N, false>, N>(low01, low23);
      x[4 + c] = shuffle<JoinAlternate<N, true>, N>(low01, low23);
      x[8 + c] = shuffle<JoinAlternate<N, false>, N>(high01, high23);
      x[12 + c] = shuffle<JoinAlternate<N, true>, N>(high01, high23);
    }
  }
}

}  // namespace qav::kernels
