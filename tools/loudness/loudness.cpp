#include "tools/loudness/loudness.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <utility>

namespace qav::tool {

namespace {

constexpr float kScale = 0x1p-15f;

// Samples of two channels, to a line of floats for each.
template <size_t kWidth>
QAV_ALWAYS_INLINE void separatePairs(const int16_t *pairs, size_t count, float *left, float *right) {
  typedef typename VectorOf<int32_t, kWidth>::Type Ints;
  typedef typename VectorOf<float, kWidth>::Type Floats;
  size_t i = 0;
  for (; i + kWidth <= count; i += kWidth) {
    Ints both;
    std::memcpy(&both, pairs + 2 * i, sizeof both);
    Ints first = (both << 16) >> 16, second = both >> 16;
    if constexpr (std::endian::native == std::endian::big) std::swap(first, second);
    const Floats l = __builtin_convertvector(first, Floats) * kScale,
                 r = __builtin_convertvector(second, Floats) * kScale;
    std::memcpy(left + i, &l, sizeof l);
    std::memcpy(right + i, &r, sizeof r);
  }
  for (; i < count; ++i) {
    left[i] = static_cast<float>(pairs[2 * i]) * kScale;
    right[i] = static_cast<float>(pairs[2 * i + 1]) * kScale;
  }
}

void separatePairsBaseline(const int16_t *pairs, size_t count, float *left, float *right) {
  separatePairs<4>(pairs, count, left, right);
}
#ifdef QAV_VECTOR_LEVELS
QAV_FOR_AVX2 void separatePairsAvx2(const int16_t *pairs, size_t count, float *left, float *right) {
  separatePairs<8>(pairs, count, left, right);
}
QAV_FOR_AVX512 void separatePairsAvx512(const int16_t *pairs, size_t count, float *left, float *right) {
  separatePairs<16>(pairs, count, left, right);
}
#endif

LoudnessMeter::SeparatePairs separatePairsFor(VectorLevel level) {
#ifdef QAV_VECTOR_LEVELS
  if (level == VectorLevel::avx512) return separatePairsAvx512;
  if (level == VectorLevel::avx2) return separatePairsAvx2;
#endif
  (void)level;
  return separatePairsBaseline;
}

}  // namespace

LoudnessMeter::LoudnessMeter(uint32_t freqHz, unsigned channels)
    : channels_(channels),
      separatePairs_(separatePairsFor(widestVectors())),
      weighting_(freqHz, channels, [this](double energy) { blocks_.add(energy); }),
      blocks_(weighting_.stepFrames()),
      peak_(freqHz, channels) {}

void LoudnessMeter::add(const int16_t *samples, size_t frames) { addSamples(samples, frames); }

void LoudnessMeter::add(const double *samples, size_t frames) { addSamples(samples, frames); }

template <typename Sample>
void LoudnessMeter::addSamples(const Sample *samples, size_t frames) {
  while (frames > 0) {
    const size_t n = std::min(frames, weighting_.room());
    float *const lines[] = {weighting_.end(0), weighting_.end(channels_ - 1)};
    separate(samples, n, lines);
    peak_.add(lines, n);
    weighting_.advance(n);
    samples += n * channels_;
    frames -= n;
  }
}

void LoudnessMeter::separate(const int16_t *samples, size_t frames, float *const *lines) const {
  if (channels_ == 2)
    separatePairs_(samples, frames, lines[0], lines[1]);
  else
    for (size_t i = 0; i < frames; ++i) lines[0][i] = samples[i] * kScale;
}

void LoudnessMeter::separate(const double *samples, size_t frames, float *const *lines) const {
  for (size_t i = 0; i < frames; ++i)
    for (unsigned c = 0; c < channels_; ++c) lines[c][i] = static_cast<float>(samples[i * channels_ + c]);
}

Loudness LoudnessMeter::finish() {
  const float *const lines[] = {weighting_.end(0), weighting_.end(channels_ - 1)};
  peak_.finish(lines);
  weighting_.finish();
  return {.integratedLufs = blocks_.integratedLufs(),
          .rangeLu = blocks_.rangeLu(),
          .truePeakDbtp = 20.0 * std::log10(peak_.peak()),
          .greatestMomentaryLufs = blocks_.greatestMomentaryLufs(),
          .greatestShortTermLufs = blocks_.greatestShortTermLufs()};
}

}  // namespace qav::tool
