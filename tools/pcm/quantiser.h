// From numbers of any precision to 16-bit samples.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace qav::tool {

// Rounds to 16 bits. With dither, triangular noise of two quantisation steps (TPDF) is added before, which turns rounding
// errors that follow the signal into steady noise. It is added only where bits are lost: digital silence, and samples
// that are of 16 bits in a wider container, come out as they are. The noise is the same in every run.
class Quantiser {
 public:
  Quantiser(unsigned channels, bool dither) : channels_(channels), dither_(dither) { exact_.fill(kExactRun); }

  // -1 .. 1 is full scale; what lies beyond is clipped and counted. The values must be finite.
  void quantise(const double *from, int16_t *to, size_t frames);

  uint64_t clippedSamples() const { return clipped_; }

  // Whether any sample was dithered.
  bool hasDithered() const { return dithered_; }

 private:
  double triangularNoise();

  // So many samples in a row that need no rounding are taken for a signal that is of 16 bits.
  static constexpr uint32_t kExactRun = 2048;

  unsigned channels_;
  bool dither_;
  bool dithered_ = false;
  uint64_t clipped_ = 0;
  uint64_t random_ = 0x9E3779B97F4A7C15;
  std::array<uint32_t, 2> exact_;  // samples in a row that needed no rounding, of each channel
};

}  // namespace qav::tool
