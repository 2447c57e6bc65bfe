#include "tools/loudness.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace qav::tool {

namespace {

// A megabyte of levels.
constexpr uint64_t kExactSeconds = 3600;

int modeFor(uint32_t freqHz, std::optional<uint64_t> frames) {
  const bool exact = frames && *frames <= kExactSeconds * freqHz;
  return EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK | (exact ? 0 : EBUR128_MODE_HISTOGRAM);
}

}  // namespace

LoudnessMeter::LoudnessMeter(uint32_t freqHz, unsigned channels, std::optional<uint64_t> frames)
    : state_(ebur128_init(channels, freqHz, modeFor(freqHz, frames))) {
  if (!state_) throw std::bad_alloc();
}

void LoudnessMeter::add(const int16_t *samples, size_t frames) {
  addInSteps(samples, frames, ebur128_add_frames_short);
}

void LoudnessMeter::add(const double *samples, size_t frames) {
  addInSteps(samples, frames, ebur128_add_frames_double);
}

template <typename Sample>
void LoudnessMeter::addInSteps(const Sample *samples, size_t frames,
                               int (*take)(ebur128_state *, const Sample *, size_t)) {
  if (!followsMaxima_) {
    take(state_.get(), samples, frames);
    return;
  }
  const uint64_t step = std::max<uint64_t>(1, state_->samplerate / 10);
  while (frames > 0) {
    const auto n = static_cast<size_t>(std::min<uint64_t>(frames, step - frames_ % step));
    take(state_.get(), samples, n);
    samples += n * state_->channels;
    frames -= n;
    frames_ += n;
    if (frames_ % step == 0) lookForMaxima();
  }
}

void LoudnessMeter::lookForMaxima() {
  double value = 0.0;
  if (frames_ * 10 >= uint64_t{state_->samplerate} * 4 && ebur128_loudness_momentary(state_.get(), &value) == 0)
    greatestMomentary_ = std::max(greatestMomentary_, value);
  if (frames_ >= uint64_t{state_->samplerate} * 3 && ebur128_loudness_shortterm(state_.get(), &value) == 0)
    greatestShortTerm_ = std::max(greatestShortTerm_, value);
}

double LoudnessMeter::integratedLufs() const {
  double value = -HUGE_VAL;
  ebur128_loudness_global(state_.get(), &value);
  return value;
}

double LoudnessMeter::rangeLu() const {
  double value = 0.0;
  ebur128_loudness_range(state_.get(), &value);
  return value;
}

double LoudnessMeter::truePeakDbtp() const {
  double peak = 0.0;
  for (unsigned c = 0; c < state_->channels; ++c) {
    double one = 0.0;
    ebur128_true_peak(state_.get(), c, &one);
    peak = std::max(peak, one);
  }
  return 20.0 * std::log10(peak);
}

}  // namespace qav::tool
