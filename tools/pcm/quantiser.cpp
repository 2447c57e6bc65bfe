#include "tools/pcm/quantiser.h"

#include <algorithm>
#include <cmath>

namespace qav::tool {

// xorshift64*; its upper and lower halves are two independent uniform numbers. Their sum is triangular, -1 .. 1.
double Quantiser::triangularNoise() {
  random_ ^= random_ >> 12;
  random_ ^= random_ << 25;
  random_ ^= random_ >> 27;
  const uint64_t word = random_ * 0x2545F4914F6CDD1D;
  return static_cast<double>((word >> 32) + (word & 0xFFFFFFFF)) * 0x1p-32 - 1.0;
}

void Quantiser::quantise(const double *from, int16_t *to, size_t frames) {
  const size_t count = frames * channels_;
  for (size_t i = 0; i < count; ++i) {
    const double exact = from[i] * 32768.0;
    double rounded = std::nearbyint(exact);
    if (rounded < -32768.0 || rounded > 32767.0) ++clipped_;
    if (dither_) {
      uint32_t &run = exact_[i % channels_];
      run = rounded == exact ? std::min(run + 1, kExactRun) : 0;
      if (run < kExactRun) {
        rounded = std::nearbyint(exact + triangularNoise());
        dithered_ = true;
      }
    }
    to[i] = static_cast<int16_t>(std::clamp(rounded, -32768.0, 32767.0));
  }
}

}  // namespace qav::tool
