#include "tools/loudness/wave_levels.h"

#include <algorithm>
#include <limits>

namespace qav::tool {

namespace {

constexpr int16_t kLeastSample = std::numeric_limits<int16_t>::min();
constexpr int16_t kGreatestSample = std::numeric_limits<int16_t>::max();

// Loops that compilers make vectors of.

QAV_ALWAYS_INLINE WaveLevels levels(const int16_t *samples, size_t count) {
  WaveLevels levels{kGreatestSample, kLeastSample, 0, 0};
  // The halves of the squares, which add up in 32 bits each.
  uint32_t low = 0, high = 0;
  for (size_t i = 0; i < count; ++i) {
    const int16_t x = samples[i];
    levels.least = std::min(levels.least, x);
    levels.greatest = std::max(levels.greatest, x);
    const auto square = static_cast<uint32_t>(int32_t{x} * x);
    low += square & 0xFFFF;
    high += square >> 16;
  }
  levels.energy = (uint64_t{high} << 16) + low;
  if (levels.least > kLeastSample && levels.greatest < kGreatestSample) return levels;
  for (size_t i = 0; i < count; ++i) levels.clipped += samples[i] == kLeastSample || samples[i] == kGreatestSample;
  return levels;
}

QAV_ALWAYS_INLINE void separate(const int16_t *interleaved, size_t channels, size_t count, int16_t *left,
                                int16_t *right) {
  if (channels == 1) {
    std::copy_n(interleaved, count, left);
    return;
  }
  for (size_t i = 0; i < count; ++i) {
    left[i] = interleaved[2 * i];
    right[i] = interleaved[2 * i + 1];
  }
}

#ifdef QAV_VECTOR_LEVELS
QAV_FOR_AVX2 WaveLevels levelsAvx2(const int16_t *samples, size_t count) { return levels(samples, count); }
QAV_FOR_AVX2 void separateAvx2(const int16_t *interleaved, size_t channels, size_t count, int16_t *left,
                               int16_t *right) {
  separate(interleaved, channels, count, left, right);
}
QAV_FOR_AVX512 void separateAvx512(const int16_t *interleaved, size_t channels, size_t count, int16_t *left,
                                   int16_t *right) {
  separate(interleaved, channels, count, left, right);
}
#endif

}  // namespace

WaveLevels levelsOf(const int16_t *samples, size_t count, VectorLevel level) {
#ifdef QAV_VECTOR_LEVELS
  // Wider vectors do not pay for as few samples as a point has.
  if (level >= VectorLevel::avx2) return levelsAvx2(samples, count);
#endif
  (void)level;
  return levels(samples, count);
}

void separateChannels(const int16_t *interleaved, size_t channels, size_t count, int16_t *left, int16_t *right,
                      VectorLevel level) {
#ifdef QAV_VECTOR_LEVELS
  if (level == VectorLevel::avx512) return separateAvx512(interleaved, channels, count, left, right);
  if (level == VectorLevel::avx2) return separateAvx2(interleaved, channels, count, left, right);
#endif
  (void)level;
  separate(interleaved, channels, count, left, right);
}

}  // namespace qav::tool
