#include "tools/loudness/true_peak.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

namespace qav::tool {

namespace {

template <typename Floats>
QAV_ALWAYS_INLINE Floats load(const float *from) {
  Floats v;
  std::memcpy(&v, from, sizeof v);
  return v;
}

template <typename Floats>
QAV_ALWAYS_INLINE Floats magnitudes(Floats v) {
  typedef typename VectorOf<int32_t, sizeof(Floats) / sizeof(float)>::Type Ints;
  return Floats(Ints(v) & 0x7FFFFFFF);
}

template <typename Floats>
QAV_ALWAYS_INLINE Floats greater(Floats a, Floats b) {
  return a > b ? a : b;
}

template <typename Floats>
QAV_ALWAYS_INLINE float greatest(Floats v) {
  constexpr size_t kWidth = sizeof(Floats) / sizeof(float);
  if constexpr (kWidth == 16) {
    v = greater(v, __builtin_shufflevector(v, v, 8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7));
    v = greater(v, __builtin_shufflevector(v, v, 4, 5, 6, 7, 0, 1, 2, 3, 12, 13, 14, 15, 8, 9, 10, 11));
  } else if constexpr (kWidth == 8) {
    v = greater(v, __builtin_shufflevector(v, v, 4, 5, 6, 7, 0, 1, 2, 3));
  }
  const float a = v[0] > v[1] ? v[0] : v[1], b = v[2] > v[3] ? v[2] : v[3];
  return a > b ? a : b;
}

// The filter's shape is known where it is compiled.
template <size_t kWidth, size_t kPairs, bool kQuarters>
QAV_ALWAYS_INLINE float greatestOf(const PeakFilter &filter, const float *samples, size_t count, float peak) {
  typedef typename VectorOf<float, kWidth>::Type Floats;
  constexpr size_t kGroup = TruePeak::kGroup;
  Floats most{};
  for (const float *group = samples; group < samples + count; group += kGroup) {
    // Of all samples that these places depend on.
    const float *const last = group + kGroup - kWidth + kPairs;
    Floats around = magnitudes(load<Floats>(last));
    for (const float *from = group - (kPairs - 1); from < last; from += kWidth)
      around = greater(around, magnitudes(load<Floats>(from)));
    if (greatest(around) * filter.greatestGain <= peak) continue;
    for (const float *at = group; at < group + kGroup; at += kWidth) {
      Floats half{}, sums{}, differences{};
      for (size_t pair = 0; pair < kPairs; ++pair) {
        const Floats left = load<Floats>(at - pair), right = load<Floats>(at + 1 + pair);
        const Floats sum = left + right;
        half += filter.half[pair] * sum;
        if (kQuarters) {
          sums += filter.quarterSum[pair] * sum;
          differences += filter.quarterDifference[pair] * (left - right);
        }
      }
      most = greater(most, greater(magnitudes(load<Floats>(at)), magnitudes(half)));
      // A quarter before and behind the middle are the sum and the difference of the two.
      if (kQuarters) most = greater(most, magnitudes(sums) + magnitudes(differences));
    }
  }
  const float found = greatest(most);
  return found > peak ? found : peak;
}

template <size_t kWidth>
QAV_ALWAYS_INLINE float greatestOfAny(const PeakFilter &filter, const float *samples, size_t count, float peak) {
  return filter.hasQuarters ? greatestOf<kWidth, 6, true>(filter, samples, count, peak)
                            : greatestOf<kWidth, 12, false>(filter, samples, count, peak);
}

float greatestBaseline(const PeakFilter &filter, const float *samples, size_t count, float peak) {
  return greatestOfAny<4>(filter, samples, count, peak);
}

#ifdef QAV_VECTOR_LEVELS
QAV_FOR_AVX2 float greatestAvx2(const PeakFilter &filter, const float *samples, size_t count, float peak) {
  return greatestOfAny<8>(filter, samples, count, peak);
}
QAV_FOR_AVX512 float greatestAvx512(const PeakFilter &filter, const float *samples, size_t count, float peak) {
  return greatestOfAny<16>(filter, samples, count, peak);
}
#endif

TruePeak::GreatestOf greatestFor(VectorLevel level) {
#ifdef QAV_VECTOR_LEVELS
  if (level == VectorLevel::avx512) return greatestAvx512;
  if (level == VectorLevel::avx2) return greatestAvx2;
#endif
  (void)level;
  return greatestBaseline;
}

}  // namespace

PeakFilter peakFilterFor(uint32_t freqHz) {
  constexpr double pi = std::numbers::pi;
  const double factor = freqHz < 96000 ? 4.0 : 2.0;
  // At a distance in samples of the interpolated rate.
  const auto weight = [&](double distance) {
    const double x = pi * distance / factor;
    return std::sin(x) / x * 0.5 * (1.0 + std::cos(pi * distance / 24.0));
  };
  PeakFilter filter{};
  filter.hasQuarters = factor == 4.0;
  filter.pairs = filter.hasQuarters ? 6 : 12;
  double halfGain = 0.0, quarterGain = 0.0;
  for (size_t pair = 0; pair < filter.pairs; ++pair) {
    const double distance = factor * (static_cast<double>(pair) + 0.5);
    const double half = weight(distance);
    filter.half[pair] = static_cast<float>(half);
    halfGain += 2.0 * std::fabs(half);
    if (!filter.hasQuarters) continue;
    const double near = weight(distance - 1.0), far = weight(distance + 1.0);
    filter.quarterSum[pair] = static_cast<float>((near + far) / 2.0);
    filter.quarterDifference[pair] = static_cast<float>((near - far) / 2.0);
    quarterGain += std::fabs(near) + std::fabs(far);
  }
  // And no less than 1, for the samples themselves; with room for rounding.
  filter.greatestGain = static_cast<float>(std::max({1.0, halfGain, quarterGain}) * 1.00001);
  return filter;
}

TruePeak::TruePeak(uint32_t freqHz, unsigned channels, VectorLevel level)
    : filter_(peakFilterFor(freqHz)),
      interpolates_(freqHz < 192000),
      channels_(channels),
      greatestOf_(greatestFor(level)) {}

void TruePeak::add(const float *const *ends, size_t frames) {
  pending_ += frames;
  if (pending_ < kGroup + kBehind) return;
  const size_t count = (pending_ - kBehind) / kGroup * kGroup;
  for (unsigned c = 0; c < channels_; ++c) look(ends[c] + frames - pending_, count);
  pending_ -= count;
}

void TruePeak::finish(const float *const *ends) {
  // What is pending, and the silence behind that still depends on it.
  const size_t count = (pending_ + kBehind + kGroup - 1) / kGroup * kGroup;
  std::vector<float> line(kBefore + count + kBehind);
  for (unsigned c = 0; c < channels_; ++c) {
    std::copy_n(ends[c] - pending_ - kBefore, kBefore + pending_, line.begin());
    look(line.data() + kBefore, count);
  }
}

void TruePeak::look(const float *samples, size_t count) {
  if (interpolates_)
    peak_ = greatestOf_(filter_, samples, count, peak_);
  else
    for (size_t i = 0; i < count; ++i) peak_ = std::max(peak_, std::fabs(samples[i]));
}

}  // namespace qav::tool
