#include "tools/loudness.h"

#include <algorithm>
#include <cmath>

namespace qav::tool {

LoudnessMeter::LoudnessMeter(uint32_t freqHz, unsigned channels)
    : channels_(channels),
      weighting_(freqHz, channels, [this](double energy) { blocks_.add(energy); }),
      blocks_(weighting_.stepFrames()),
      peak_(freqHz, channels) {}

void LoudnessMeter::add(const int16_t *samples, size_t frames) { addScaled(samples, frames, 0x1p-15f); }

void LoudnessMeter::add(const double *samples, size_t frames) { addScaled(samples, frames, 1.0f); }

template <typename Sample>
void LoudnessMeter::addScaled(const Sample *samples, size_t frames, float scale) {
  constexpr size_t kBlock = 1024;
  float scaled[kBlock * 2];
  while (frames > 0) {
    const size_t n = std::min(frames, kBlock);
    for (size_t i = 0; i < n * channels_; ++i) scaled[i] = static_cast<float>(samples[i]) * scale;
    weighting_.add(scaled, n);
    peak_.add(scaled, n);
    samples += n * channels_;
    frames -= n;
  }
}

Loudness LoudnessMeter::finish() {
  weighting_.finish();
  peak_.finish();
  return {.integratedLufs = blocks_.integratedLufs(),
          .rangeLu = blocks_.rangeLu(),
          .truePeakDbtp = 20.0 * std::log10(peak_.peak()),
          .greatestMomentaryLufs = blocks_.greatestMomentaryLufs(),
          .greatestShortTermLufs = blocks_.greatestShortTermLufs()};
}

}  // namespace qav::tool
