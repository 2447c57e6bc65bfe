// From the noise that each partition hides to the signal-to-mask ratio of each subband (ISO/IEC 11172-3 Annex D.2), with W
// lanes.
#pragma once

#include <algorithm>
#include <cfloat>

#include "psycho/exact_lanes.inl.h"
#include "psycho/lane_math.inl.h"
#include "psycho/psycho_state.h"

namespace qav {

inline constexpr int kBands = 32;
inline constexpr int kMinimumBands =
    13;  // bands below this one take the least threshold of their lines, the others all
inline constexpr int kLinesPerBand = 17;  // each shares its last line with the next one's first

// Gives every line what its partition hides, for both passes. The lanes beyond a partition's last line are overwritten by
// the next one's.
template <int W>
NEB_INLINE void noiseOfLines(const float (&nb)[2][kPaddedPartitions], const PsychoTables &tables,
                             float (&noise)[2][kPaddedLines]) {
  constexpr int L = std::min(W, 8);
  int line = 0, p = 0;
  for (; p < tables.smallPartitions; ++p) {
    storeLanes(&noise[0][line], all<L>(nb[0][p]));
    storeLanes(&noise[1][line], all<L>(nb[1][p]));
    line += tables.numlines[p];
  }
  for (; p < kPartitions; ++p) {
    const Lanes<float, L> first = all<L>(nb[0][p]), second = all<L>(nb[1][p]);
    for (int i = 0; i < tables.numlines[p]; i += L) {
      storeLanes(&noise[0][line + i], first);
      storeLanes(&noise[1][line + i], second);
    }
    line += tables.numlines[p];
  }
}

struct Sum {
  template <int W>
  static NEB_INLINE Lanes<float, W> of(const Lanes<float, W> &a, const Lanes<float, W> &b) {
    return a + b;
  }
  static constexpr float neutral = 0.0f;
};

struct Minimum {
  template <int W>
  static NEB_INLINE Lanes<float, W> of(const Lanes<float, W> &a, const Lanes<float, W> &b) {
    return minimum<W>(a, b);
  }
  static constexpr float neutral = FLT_MAX;
};

// The 17 lines of a band, folded to W lanes: line i with i + 8, then with i + 4; the last line joins the first.
// `lineAt(l)` gives lines l .. l + W - 1.
template <int W, typename Op, typename LineAt>
NEB_INLINE Lanes<float, W> bandLanes(const LineAt &lineAt, int line) {
  using V = Lanes<float, W>;
  Lanes<int32_t, W> isFirst = {-1};
  const V front = Op::template of<W>(lineAt(line), isFirst ? lineAt(line + 16) : all<W>(Op::neutral));
  if constexpr (W == 16)
    return front;
  else if constexpr (W == 8)
    return Op::template of<W>(front, lineAt(line + 8));
  else
    return Op::template of<W>(Op::template of<W>(front, lineAt(line + 8)),
                              Op::template of<W>(lineAt(line + 4), lineAt(line + 12)));
}

// Bands first, first + 4, ... as many as W has quads, each folded to four lanes.
template <int W, typename Op, typename LineAt>
NEB_INLINE Lanes<float, W> bandQuads(const LineAt &lineAt, int first) {
  using V = Lanes<float, W>;
  const V a = bandLanes<W, Op>(lineAt, 16 * first);
  if constexpr (W == 4) {
    return a;
  } else {
    V left = a, right = bandLanes<W, Op>(lineAt, 16 * (first + 4)), even, odd;
    if constexpr (W == 16) {
      const V c = bandLanes<W, Op>(lineAt, 16 * (first + 8)), d = bandLanes<W, Op>(lineAt, 16 * (first + 12));
      separateHalves(a, right, even, odd);
      left = Op::template of<W>(even, odd);
      separateHalves(c, d, even, odd);
      right = Op::template of<W>(even, odd);
    }
    separateQuads<W>(left, right, even, odd);
    return Op::template of<W>(even, odd);
  }
}

// Bands first .. first + W - 1, one a lane.
template <int W, typename Op, typename LineAt>
NEB_INLINE Lanes<float, W> bands(const LineAt &lineAt, int first) {
  using V = Lanes<float, W>;
  V a, b;
  separatePairs<W>(bandQuads<W, Op>(lineAt, first), bandQuads<W, Op>(lineAt, first + 1), a, b);
  const V left = Op::template of<W>(a, b);
  separatePairs<W>(bandQuads<W, Op>(lineAt, first + 2), bandQuads<W, Op>(lineAt, first + 3), a, b);
  const V right = Op::template of<W>(a, b);
  separateSingles<W>(left, right, a, b);
  return Op::template of<W>(a, b);
}

template <int W>
struct Energies {
  const float *energy;

  NEB_INLINE Lanes<float, W> operator()(int line) const { return loadLanes<Lanes<float, W>>(energy + line); }
};

// What the line's partition hides, but at least the threshold in quiet.
template <int W>
struct Thresholds {
  const float *noise, *absthr;

  NEB_INLINE Lanes<float, W> operator()(int line) const {
    using V = Lanes<float, W>;
    return maximum<W>(loadLanes<V>(noise + line), loadLanes<V>(absthr + line));
  }
};

// Energy over threshold of bands first .. first + W - 1. FLT_MIN keeps a band without a threshold from dividing by zero.
template <int W>
NEB_INLINE Lanes<float, W> bandRatios(const Energies<W> &energies, const Thresholds<W> &thresholds, int first) {
  using V = Lanes<float, W>;
  V threshold = {};
  if (first + W > kMinimumBands) threshold = bands<W, Sum>(thresholds, first);
  if (first < kMinimumBands) {
    Lanes<int32_t, W> band;
    for (int i = 0; i < W; ++i) band[i] = first + i;
    threshold = band < kMinimumBands ? bands<W, Minimum>(thresholds, first) * float(kLinesPerBand) : threshold;
  }
  return bands<W, Sum>(energies, first) / (threshold + FLT_MIN);
}

// 10 log10 of the ratios of all bands.
template <int W>
NEB_INLINE void decibelsOf(const float (&ratio)[kBands], float *smr) {
  constexpr int D = W / 2, N = 4;
  for (int sb = 0; sb < kBands; sb += N * D) {
    Lanes<float, D> x[N];
    Lanes<double, D> y[N];
    for (int n = 0; n < N; ++n) x[n] = loadLanes<Lanes<float, D>>(&ratio[sb + n * D]);
    logLanes<D, N>(x, y);
    for (int n = 0; n < N; ++n)
      storeLanes(smr + sb + n * D, __builtin_convertvector(y[n] * 4.342944819, Lanes<float, D>));
  }
}

}  // namespace qav
