// The greatest magnitude of a signal between its samples too, by interpolation (ITU-R BS.1770, annex 2).
#pragma once

#include <cstddef>
#include <cstdint>

#include "tools/loudness/vector_level.h"

namespace qav::tool {

// The weights of sample pairs around a place between two samples, the nearest pair first: half way, and a quarter of the
// way, there by what both of a pair have in common and by what they differ in.
struct PeakFilter {
  static constexpr size_t kMostPairs = 12;
  size_t pairs;
  bool hasQuarters;
  float half[kMostPairs], quarterSum[kMostPairs], quarterDifference[kMostPairs];
  float greatestGain;  // no place is greater than the greatest sample around it times this
};

// Four times the rate below 96 kHz, twice below 192 kHz; by a windowed sine over x of 49 weights.
PeakFilter peakFilterFor(uint32_t freqHz);

class TruePeak {
 public:
  TruePeak(uint32_t freqHz, unsigned channels, VectorLevel level = widestVectors());

  // `frames` samples have been put behind the ends of the channels' lines. The kHistory samples before the ends are still
  // there; before the first ones, silence.
  void add(const float *const *ends, size_t frames);
  void finish(const float *const *ends);  // silence follows

  double peak() const { return static_cast<double>(peak_); }  // of the louder channel; 1 is full scale

  static constexpr size_t kGroup = 32;                       // samples that are looked at together, or passed over
  static constexpr size_t kBefore = PeakFilter::kMostPairs;  // samples that a place depends on
  static constexpr size_t kBehind = PeakFilter::kMostPairs;
  static constexpr size_t kHistory = kBefore + kGroup + kBehind;

  // The greatest magnitude at and behind `count` samples, whole groups, if it is greater than `peak`; otherwise `peak`.
  // Samples before and behind them are read.
  using GreatestOf = float (*)(const PeakFilter &filter, const float *samples, size_t count, float peak);

 private:
  void look(const float *samples, size_t count);

  PeakFilter filter_;
  bool interpolates_;
  unsigned channels_;
  GreatestOf greatestOf_;
  size_t pending_ = 0;  // samples at the ends that have not been looked at
  float peak_ = 0.0f;
};

}  // namespace qav::tool
