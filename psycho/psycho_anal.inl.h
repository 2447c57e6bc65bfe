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
  const V sum = maximum<W>(magnitude + maximum<W>(predicted, -predicted), all<W>(kEmpty));
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

NEB_INLINE void groupLines(const LineEnergies (&lines)[2], const PsychoTables &tables, GroupedEnergies &grouped) {
  using V = Lanes<float, 4>;
  using Mask = Lanes<int32_t, 4>;
  static constexpr int32_t kFirst[8] = {-1, -1, -1, -1, 0, 0, 0, 0};
  const float *values[4] = {lines[0].energy, lines[0].weighted, lines[1].energy, lines[1].weighted};
  int line = 0;
  for (int p = 0; p < kPaddedPartitions; ++p) {
    const int end = line + tables.numlines[p];
    V sum[4] = {};
    for (; line + 4 <= end; line += 4)
      for (int i = 0; i < 4; ++i) sum[i] += loadLanes<V>(values[i] + line);
    const Mask rest = loadLanes<Mask>(kFirst + 4 - (end - line));
    for (int i = 0; i < 4; ++i) {
      const Mask last = loadLanes<Mask>(values[i] + line) & rest;
      sum[i] += loadLanes<V>(&last);
    }
    line = end;
    // The four lanes of each sum, side by side for all four.
    const V a =
        __builtin_shufflevector(sum[0], sum[1], 0, 4, 1, 5) + __builtin_shufflevector(sum[0], sum[1], 2, 6, 3, 7);
    const V b =
        __builtin_shufflevector(sum[2], sum[3], 0, 4, 1, 5) + __builtin_shufflevector(sum[2], sum[3], 2, 6, 3, 7);
    storeLanes(grouped.of[p], V(__builtin_shufflevector(a, b, 0, 1, 4, 5) + __builtin_shufflevector(a, b, 2, 3, 6, 7)));
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
  constexpr int D = W / 2;
  using Float = Lanes<float, D>;
  using Double = Lanes<double, D>;
  for (int p = 0; p < kPaddedPartitions; p += D) {
    const Float energy = loadLanes<Float>(&spread.energy[p]);
    const Float ratio = loadLanes<Float>(&spread.weighted[p]) / maximum<D>(energy, all<D>(FLT_MIN));
    const Float cb = minimum<D>(maximum<D>(ratio, all<D>(0.05f)), all<D>(0.5f));
    const Double tonality = logLanes<D>(cb) * -0.434294482 - 0.301029996;
    const Double wanted = tonality * __builtin_convertvector(loadLanes<Float>(&tables.tmn_minus_nmt[p]), Double) + 5.5;
    const Double least = __builtin_convertvector(loadLanes<Float>(&tables.bmax_part[p]), Double);
    const Double decibels = wanted > least ? wanted : least;
    const Double noise = __builtin_convertvector(energy, Double) * expLanes<D>(decibels * -0.2302585093) *
                         __builtin_convertvector(loadLanes<Float>(&tables.norm[p]), Double);
    storeLanes(nb + p, __builtin_convertvector(noise, Float));
  }
}

// ---- subbands

// Gives every line what its partition hides. The lanes beyond a partition's last line are overwritten by the next one's.
template <int W>
NEB_INLINE void noiseOfLines(const float *nb, const PsychoTables &tables, float *noise) {
  constexpr int L = W < 8 ? W : 8;
  int line = 0;
  for (int p = 0; p < kPartitions; ++p) {
    const Lanes<float, L> value = all<L>(nb[p]);
    for (int i = 0; i < tables.numlines[p]; i += L) storeLanes(noise + line + i, value);
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

template <int W>
NEB_INLINE void storeDecibels(const Lanes<float, W> &ratio, float *smr) {
  constexpr int D = W / 2;
  float values[W];
  storeLanes(values, ratio);
  for (int i = 0; i < W; i += D) {
    const auto decibels = logLanes<D>(loadLanes<Lanes<float, D>>(values + i)) * 4.342944819;
    storeLanes(smr + i, __builtin_convertvector(decibels, Lanes<float, D>));
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
  groupLines(lines, tables, grouped);
  SpreadEnergies spread[2];
  psy_mulSum<W>(grouped, tables, spread);

  alignas(64) float nb[kPaddedPartitions], noise[2][kPaddedLines];
  for (int pass = 0; pass < 2; ++pass) {
    permissibleNoise<W>(spread[pass], tables, nb);
    noiseOfLines<W>(nb, tables, noise[pass]);
  }
  for (int sb = 0; sb < kBands; sb += W) {
    const Lanes<float, W> first = bandRatios<W>(lines[0].energy, noise[0], tables.absthr, sb);
    const Lanes<float, W> second = bandRatios<W>(lines[1].energy, noise[1], tables.absthr, sb);
    storeDecibels<W>(maximum<W>(maximum<W>(first, second), all<W>(FLT_MIN)), smr + sb);
  }
}

}  // namespace qav
