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

#include "psycho/band_ratios.inl.h"
#include "psycho/partitions.inl.h"
#include "psycho/psycho_state.h"
#include "psycho/rdft1024.inl.h"
#include "psycho/unpredictability.inl.h"

namespace qav {

inline constexpr int kPassStep = 576;  // new samples of a pass

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
    const auto first = bandRatios<W>({lines[0].energy}, {noise[0], tables.absthr}, sb);
    const auto second = bandRatios<W>({lines[1].energy}, {noise[1], tables.absthr}, sb);
    storeLanes(&ratio[sb], maximum<W>(maximum<W>(first, second), all<W>(FLT_MIN)));
  }
  decibelsOf<W>(ratio, smr);
}

}  // namespace qav
