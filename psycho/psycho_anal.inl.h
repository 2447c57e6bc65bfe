// Psychoacoustic model 2 (ISO/IEC 11172-3 Annex D.2), one channel of one Layer II frame, with W lanes. The frame is
// analysed in two passes of 576 new samples; the result is the larger ratio of the two. Both passes go through each stage
// together.
//
// Departures from the standard: there is no control of pre-echoes, the least masking ratio is chosen by a partition's Bark
// value, and lines 0 and 512 are predicted from their magnitudes alone.
//
// Every value meets the same operations in the same order whatever W is.
#pragma once

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstring>

#include "base/lanes.h"
#include "psycho/exact_lanes.inl.h"
#include "psycho/psycho_state.h"
#include "psycho/rdft1024.inl.h"

namespace qav {

inline constexpr int kPassStep = 576;  // new samples of a pass
inline constexpr int kBands = 32;
inline constexpr int kMinimumBands =
    13;  // bands below this one take the least threshold of their lines, the others all
inline constexpr int kLinesPerBand = 17;  // each shares its last line with the next one's first

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

// ---- window and transform

// Windowed samples in pairs, from two stretches: `frontPairs` pairs of the first, then the second.
template <int W>
struct WindowedPairs {
  const int16_t *front;
  int frontPairs;  // a multiple of 16
  const int16_t *rest;

  NEB_INLINE ComplexLanes<W> operator()(int j) const {
    using Int = Lanes<int32_t, W>;
    using V = Lanes<float, W>;
    const Int pairs = loadLanes<Int>(j < frontPairs ? front + 2 * j : rest + 2 * (j - frontPairs));
    const Int low = (pairs << 16) >> 16, high = pairs >> 16;
    const bool little = std::endian::native == std::endian::little;
    return {loadLanes<V>(&analysisWindow.of[0][j]) * __builtin_convertvector(little ? low : high, V),
            loadLanes<V>(&analysisWindow.of[1][j]) * __builtin_convertvector(little ? high : low, V)};
  }
};

// Lines 0 and 512 enter the model with their magnitude: their sign is no phase.
template <int W>
NEB_INLINE void windowedSpectrum(const WindowedPairs<W> &pairs, Spectrum &spectrum) {
  rdft1024<W>(pairs, spectrum);
  spectrum.re[0] = std::fabs(spectrum.re[0]);
  spectrum.re[kLines - 1] = std::fabs(spectrum.re[kLines - 1]);
  std::memset(spectrum.re + kLines, 0, sizeof(float) * (kPaddedLines - kLines));
  std::memset(spectrum.im + kLines, 0, sizeof(float) * (kPaddedLines - kLines));
}

// ---- energy and unpredictability

// What the following stages need of the lines of one pass.
struct alignas(64) LineEnergies {
  float energy[kPaddedLines];
  float weighted[kPaddedLines];  // energy times unpredictability
};

template <int W>
struct LinePhase {
  Lanes<float, W> re, im, magnitude;
};

template <int W>
NEB_INLINE LinePhase<W> loadPhase(const LineHistory &history, int k) {
  using V = Lanes<float, W>;
  return {loadLanes<V>(&history.phaseRe[k]), loadLanes<V>(&history.phaseIm[k]), loadLanes<V>(&history.magnitude[k])};
}
template <int W>
NEB_INLINE void storePhase(LineHistory &history, int k, const LinePhase<W> &phase) {
  storeLanes(&history.phaseRe[k], phase.re);
  storeLanes(&history.phaseIm[k], phase.im);
  storeLanes(&history.magnitude[k], phase.magnitude);
}

// Predicts lines from the two passes before: the magnitude goes on in a straight line and so does the phase. The
// unpredictability is the distance of the line from its prediction, over the sum of the two magnitudes. Phases are kept
// as unit vectors, so that no angle is ever computed: the predicted one is old^2 / oldest.
template <int W>
NEB_INLINE LinePhase<W> predictLines(const Spectrum &spectrum, int k, const LinePhase<W> &old,
                                     const LinePhase<W> &oldest, LineEnergies &lines) {
  using V = Lanes<float, W>;
  // A line this weak is empty: far below what any sample but zero leaves. It also bounds what is divided by.
  constexpr float kEmpty = 0x1p-100f;
  const V re = loadLanes<V>(&spectrum.re[k]), im = loadLanes<V>(&spectrum.im[k]);
  const V energy = re * re + im * im;
  const V magnitude = squareRoot<W>(energy);
  const V predicted = (old.magnitude + old.magnitude) - oldest.magnitude;
  const V squareRe = old.re * old.re - old.im * old.im, squareIm = (old.re + old.re) * old.im;
  const V phaseRe = squareRe * oldest.re + squareIm * oldest.im;
  const V phaseIm = squareIm * oldest.re - squareRe * oldest.im;
  const V offRe = re - predicted * phaseRe, offIm = im - predicted * phaseIm;
  const V distance = squareRoot<W>(offRe * offRe + offIm * offIm);
  const V sum = (magnitude + maximum<W>(predicted, -predicted)) + kEmpty;
  // One division for both quotients: by the sum, and by the magnitude, where that is not 0.
  const V one = energy < kEmpty ? all<W>(1.0f) : all<W>(0.0f);
  const V divisor = magnitude + one;
  const V inverse = 1.0f / (divisor * sum);
  const V inverseMagnitude = inverse * sum, inverseSum = inverse * divisor;
  storeLanes(&lines.energy[k], energy);
  storeLanes(&lines.weighted[k], V(energy * (distance * inverseSum)));
  return {(re + one) * inverseMagnitude, im * inverseMagnitude, magnitude};
}

// Both passes; the first is predicted from the two of the previous frame.
template <int W>
NEB_INLINE void predictFrame(const Spectrum (&spectra)[2], LineHistory (&history)[2], LineEnergies (&lines)[2]) {
  for (int k = 0; k < kPaddedLines; k += W) {
    const LinePhase<W> oldest = loadPhase<W>(history[0], k), old = loadPhase<W>(history[1], k);
    const LinePhase<W> first = predictLines<W>(spectra[0], k, old, oldest, lines[0]);
    const LinePhase<W> second = predictLines<W>(spectra[1], k, first, old, lines[1]);
    storePhase<W>(history[0], k, first);
    storePhase<W>(history[1], k, second);
  }
}

// ---- partitions

// Per partition: energy and weighted energy of the first pass, then of the second.
struct alignas(64) GroupedEnergies {
  float of[kPaddedPartitions][4];
};

// The values at `p` where `wanted` is -1, and 0 where it is 0.
template <int L>
NEB_INLINE Lanes<float, L> wantedValues(const float *p, const int32_t *wanted) {
  using Mask = Lanes<int32_t, L>;
  const Mask values = loadLanes<Mask>(p) & loadLanes<Mask>(wanted);
  return loadLanes<Lanes<float, L>>(&values);
}

// The sums of the four lanes of each sum.
NEB_INLINE void foldSums(const Lanes<float, 4> (&sum)[4], float *result) {
  using V = Lanes<float, 4>;
  const V a = __builtin_shufflevector(sum[0], sum[1], 0, 4, 1, 5) + __builtin_shufflevector(sum[0], sum[1], 2, 6, 3, 7);
  const V b = __builtin_shufflevector(sum[2], sum[3], 0, 4, 1, 5) + __builtin_shufflevector(sum[2], sum[3], 2, 6, 3, 7);
  storeLanes(result, V(__builtin_shufflevector(a, b, 0, 1, 4, 5) + __builtin_shufflevector(a, b, 2, 3, 6, 7)));
}

// Sums the lines of each partition: line i of eight in a row with i + 8 and so on, then the eight. Most partitions have at
// most four lines; they come first and need no loop.
template <int W>
NEB_INLINE void groupLines(const LineEnergies (&lines)[2], const PsychoTables &tables, GroupedEnergies &grouped) {
  using Four = Lanes<float, 4>;
  static constexpr int32_t kWanted[16] = {-1, -1, -1, -1, -1, -1, -1, -1};
  const float *const values[4] = {lines[0].energy, lines[0].weighted, lines[1].energy, lines[1].weighted};
  int line = 0, p = 0;
  Four sum[4];
  for (; p < tables.smallPartitions; ++p) {
    const int count = tables.numlines[p];
    for (int i = 0; i < 4; ++i) sum[i] = wantedValues<4>(values[i] + line, kWanted + 8 - count);
    foldSums(sum, grouped.of[p]);
    line += count;
  }
  for (; p < kPaddedPartitions; ++p) {
    constexpr int L = W < 8 ? 4 : 8, H = 8 / L;
    const int end = line + tables.numlines[p];
    Lanes<float, L> eight[4][H] = {};
    for (; line + 8 <= end; line += 8)
      for (int i = 0; i < 4; ++i)
        for (int h = 0; h < H; ++h) eight[i][h] += loadLanes<Lanes<float, L>>(values[i] + line + h * L);
    for (int i = 0; i < 4; ++i) {
      for (int h = 0; h < H; ++h)
        eight[i][h] += wantedValues<L>(values[i] + line + h * L, kWanted + 8 - (end - line) + h * L);
      if constexpr (H == 2)
        sum[i] = eight[i][0] + eight[i][1];
      else
        sum[i] = __builtin_shufflevector(eight[i][0], eight[i][0], 0, 1, 2, 3) +
                 __builtin_shufflevector(eight[i][0], eight[i][0], 4, 5, 6, 7);
    }
    foldSums(sum, grouped.of[p]);
    line = end;
  }
}

struct alignas(64) SpreadEnergies {
  float energy[kPaddedPartitions];
  float weighted[kPaddedPartitions];
};

// Spreads the energies over the neighbouring partitions; every sum runs in the order of the maskers. Maskers whose entry is
// 0 for all lanes are left out, which changes no sum.
template <int W>
NEB_INLINE void psy_mulSum(const GroupedEnergies &grouped, const PsychoTables &tables, SpreadEnergies (&result)[2]) {
  using V = Lanes<float, W>;
  for (int p = 0; p < kPaddedPartitions; p += W) {
    int first = kPartitions, end = 0;
    for (int quad = p / 4; quad < (p + W) / 4; ++quad) {
      if (tables.firstMasker[quad] < first) first = tables.firstMasker[quad];
      if (tables.endMasker[quad] > end) end = tables.endMasker[quad];
    }
    V sum[4] = {};
    for (int k = first; k < end; ++k) {
      const V spread = loadLanes<V>(&tables.spread[k][p]);
      for (int i = 0; i < 4; ++i) sum[i] += spread * grouped.of[k][i];
    }
    storeLanes(&result[0].energy[p], sum[0]);
    storeLanes(&result[0].weighted[p], sum[1]);
    storeLanes(&result[1].energy[p], sum[2]);
    storeLanes(&result[1].weighted[p], sum[3]);
  }
}

// The noise energy per line that each partition hides.
template <int W>
NEB_INLINE void permissibleNoise(const SpreadEnergies &spread, const PsychoTables &tables, float *nb) {
  constexpr int D = W / 2, N = 4;
  using Float = Lanes<float, D>;
  using Double = Lanes<double, D>;
  for (int p = 0; p < kPaddedPartitions; p += N * D) {
    Float energy[N], cb[N];
    Double tonality[N], attenuation[N], factor[N];
    for (int n = 0; n < N; ++n) {
      energy[n] = loadLanes<Float>(&spread.energy[p + n * D]);
      const Float ratio = loadLanes<Float>(&spread.weighted[p + n * D]) / (energy[n] + FLT_MIN);
      cb[n] = minimum<D>(maximum<D>(ratio, all<D>(0.05f)), all<D>(0.5f));
    }
    logLanes<D, N>(cb, tonality);
    for (int n = 0; n < N; ++n) {
      const Double tone = loadLanes<Double>(&tables.tmn_minus_nmt[p + n * D]);
      const Double least = loadLanes<Double>(&tables.bmax_part[p + n * D]);
      const Double decibels = (tonality[n] * -0.434294482 - 0.301029996) * tone + 5.5;
      attenuation[n] = (decibels > least ? decibels : least) * -0.2302585093;
    }
    expLanes<D, N>(attenuation, factor);
    for (int n = 0; n < N; ++n) {
      const Float norm = loadLanes<Float>(&tables.norm[p + n * D]);
      storeLanes(nb + p + n * D, Float(energy[n] * __builtin_convertvector(factor[n], Float) * norm));
    }
  }
}

// ---- subbands

// Gives every line what its partition hides, for both passes. The lanes beyond a partition's last line are overwritten by
// the next one's.
template <int W>
NEB_INLINE void noiseOfLines(const float (&nb)[2][kPaddedPartitions], const PsychoTables &tables,
                             float (&noise)[2][kPaddedLines]) {
  constexpr int L = W < 8 ? W : 8;
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
  const auto band = [&](int sb) __attribute__((always_inline)) { return bandLanes<W, Op>(lineAt, 16 * sb); };
  V even, odd;
  if constexpr (W == 4) {
    return band(first);
  } else if constexpr (W == 8) {
    separateQuads<W>(band(first), band(first + 4), even, odd);
    return Op::template of<W>(even, odd);
  } else {
    const auto halves = [](const V &a, const V &b) __attribute__((always_inline)) {
      return Op::template of<W>(
          __builtin_shufflevector(a, b, 0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23),
          __builtin_shufflevector(a, b, 8, 9, 10, 11, 12, 13, 14, 15, 24, 25, 26, 27, 28, 29, 30, 31));
    };
    separateQuads<W>(halves(band(first), band(first + 4)), halves(band(first + 8), band(first + 12)), even, odd);
    return Op::template of<W>(even, odd);
  }
}

// Bands first .. first + W - 1, one a lane.
template <int W, typename Op, typename LineAt>
NEB_INLINE Lanes<float, W> bands(const LineAt &lineAt, int first) {
  using V = Lanes<float, W>;
  const auto pairs = [](const V &a, const V &b) __attribute__((always_inline)) {
    if constexpr (W == 4)
      return Op::template of<W>(__builtin_shufflevector(a, b, 0, 1, 4, 5), __builtin_shufflevector(a, b, 2, 3, 6, 7));
    else if constexpr (W == 8)
      return Op::template of<W>(__builtin_shufflevector(a, b, 0, 1, 8, 9, 4, 5, 12, 13),
                                __builtin_shufflevector(a, b, 2, 3, 10, 11, 6, 7, 14, 15));
    else
      return Op::template of<W>(
          __builtin_shufflevector(a, b, 0, 1, 16, 17, 4, 5, 20, 21, 8, 9, 24, 25, 12, 13, 28, 29),
          __builtin_shufflevector(a, b, 2, 3, 18, 19, 6, 7, 22, 23, 10, 11, 26, 27, 14, 15, 30, 31));
  };
  const auto singles = [](const V &a, const V &b) __attribute__((always_inline)) {
    if constexpr (W == 4)
      return Op::template of<W>(__builtin_shufflevector(a, b, 0, 2, 4, 6), __builtin_shufflevector(a, b, 1, 3, 5, 7));
    else if constexpr (W == 8)
      return Op::template of<W>(__builtin_shufflevector(a, b, 0, 2, 8, 10, 4, 6, 12, 14),
                                __builtin_shufflevector(a, b, 1, 3, 9, 11, 5, 7, 13, 15));
    else
      return Op::template of<W>(
          __builtin_shufflevector(a, b, 0, 2, 16, 18, 4, 6, 20, 22, 8, 10, 24, 26, 12, 14, 28, 30),
          __builtin_shufflevector(a, b, 1, 3, 17, 19, 5, 7, 21, 23, 9, 11, 25, 27, 13, 15, 29, 31));
  };
  return singles(pairs(bandQuads<W, Op>(lineAt, first), bandQuads<W, Op>(lineAt, first + 1)),
                 pairs(bandQuads<W, Op>(lineAt, first + 2), bandQuads<W, Op>(lineAt, first + 3)));
}

// Energy over threshold of bands first .. first + W - 1. FLT_MIN keeps a band without a threshold from dividing by zero.
template <int W>
NEB_INLINE Lanes<float, W> bandRatios(const float *energy, const float *noise, const float *absthr, int first) {
  using V = Lanes<float, W>;
  const auto energyAt = [=](int line) __attribute__((always_inline)) { return loadLanes<V>(energy + line); };
  // The threshold of a line: what its partition hides, but at least the threshold in quiet.
  const auto thresholdAt = [=](int line) __attribute__((always_inline)) {
    return maximum<W>(loadLanes<V>(noise + line), loadLanes<V>(absthr + line));
  };
  V threshold = {};
  if (first + W > kMinimumBands) threshold = bands<W, Sum>(thresholdAt, first);
  if (first < kMinimumBands) {
    Lanes<int32_t, W> band;
    for (int i = 0; i < W; ++i) band[i] = first + i;
    threshold = band < kMinimumBands ? bands<W, Minimum>(thresholdAt, first) * float(kLinesPerBand) : threshold;
  }
  return bands<W, Sum>(energyAt, first) / (threshold + FLT_MIN);
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

// ---- the frame

template <int W>
NEB_INLINE void analyseFrame(const int16_t *samples, const PsychoTables &tables, PsychoChannel &channel, float *smr) {
  Spectrum spectra[2];
  // The second window begins 576 samples after the first, which is within the frame.
  windowedSpectrum<W>({channel.kept, kKeptSamples / 2, samples}, spectra[0]);
  windowedSpectrum<W>({nullptr, 0, samples + kPassStep - kKeptSamples}, spectra[1]);
  std::memcpy(channel.kept, samples + kFrameSamples - kKeptSamples, sizeof(channel.kept));

  LineEnergies lines[2];
  predictFrame<W>(spectra, channel.history, lines);
  GroupedEnergies grouped;
  groupLines<W>(lines, tables, grouped);
  SpreadEnergies spread[2];
  psy_mulSum<W>(grouped, tables, spread);

  alignas(64) float nb[2][kPaddedPartitions], noise[2][kPaddedLines], ratio[kBands];
  for (int pass = 0; pass < 2; ++pass) permissibleNoise<W>(spread[pass], tables, nb[pass]);
  noiseOfLines<W>(nb, tables, noise);
  for (int sb = 0; sb < kBands; sb += W) {
    const Lanes<float, W> first = bandRatios<W>(lines[0].energy, noise[0], tables.absthr, sb);
    const Lanes<float, W> second = bandRatios<W>(lines[1].energy, noise[1], tables.absthr, sb);
    storeLanes(&ratio[sb], maximum<W>(maximum<W>(first, second), all<W>(FLT_MIN)));
  }
  decibelsOf<W>(ratio, smr);
}

}  // namespace qav
