#include "tools/loudness/k_weighting.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <utility>

namespace qav::tool {

namespace {

constexpr size_t kLanes = KWeighting::kLanes;

// Keeps what rings on into digital silence from falling to numbers that CPUs are slow with. The high-pass takes it out.
constexpr float kOffset = 1e-10f;
// Of 100 ms, less than which is none: what the offset leaves.
constexpr double kLeastEnergy = 1e-20;

template <size_t kWidth, size_t kDistance>
struct Exchange {
  // Lanes of the first vector where the distance is not in their number, of the second one, from so far down, elsewhere.
  static constexpr int first(size_t lane) {
    return static_cast<int>((lane & kDistance) == 0 ? lane : kWidth + lane - kDistance);
  }
  static constexpr int second(size_t lane) {
    return static_cast<int>((lane & kDistance) == 0 ? lane + kDistance : kWidth + lane);
  }
};

template <size_t kDistance, typename Floats, size_t... kLane>
QAV_ALWAYS_INLINE void exchange(Floats &a, Floats &b, std::index_sequence<kLane...>) {
  using To = Exchange<sizeof...(kLane), kDistance>;
  const Floats first = __builtin_shufflevector(a, b, To::first(kLane)...);
  b = __builtin_shufflevector(a, b, To::second(kLane)...);
  a = first;
}

// Makes lanes of rows and rows of lanes.
template <size_t kWidth, size_t kDistance = kWidth / 2, typename Floats>
QAV_ALWAYS_INLINE void transpose(Floats (&rows)[kWidth]) {
#pragma GCC unroll 16
  for (size_t i = 0; i < kWidth; ++i)
    if ((i & kDistance) == 0) exchange<kDistance>(rows[i], rows[i + kDistance], std::make_index_sequence<kWidth>());
  if constexpr (kDistance > 1) transpose<kWidth, kDistance / 2>(rows);
}

// Some lanes of the filter.
template <typename Floats>
struct FilterLanes {
  Floats shelf1, shelf2, below, band;
  Floats energy;

  QAV_ALWAYS_INLINE void weigh(const KWeighting::Coefficients &c, const Floats &sample) {
    const Floats x = sample + kOffset;
    const Floats y = c.shelfB0 * x + shelf1;
    shelf1 = (c.shelfB1 * x + shelf2) - c.shelfA1 * y;
    shelf2 = c.shelfB2 * x - c.shelfA2 * y;
    const Floats z = y - below;
    below = (below + c.belowOfBand * band) + c.belowOfResult * z;
    band += c.bandOfResult * z;
    energy += z * z;
  }
};

// `kWidth` lanes, from a lane on.
template <size_t kWidth>
QAV_ALWAYS_INLINE void weighLanes(const KWeighting::Coefficients &coefficients, KWeighting::State &state,
                                  const float *const *lines, size_t count, float *energies, size_t lane) {
  typedef typename VectorOf<float, kWidth>::Type Floats;
  const KWeighting::Coefficients c = coefficients;
  FilterLanes<Floats> filter{};
  std::memcpy(&filter.shelf1, state.shelf1 + lane, sizeof filter.shelf1);
  std::memcpy(&filter.shelf2, state.shelf2 + lane, sizeof filter.shelf2);
  std::memcpy(&filter.below, state.below + lane, sizeof filter.below);
  std::memcpy(&filter.band, state.band + lane, sizeof filter.band);
  size_t i = 0;
  for (; i + kWidth <= count; i += kWidth) {
    Floats rows[kWidth];
    for (size_t l = 0; l < kWidth; ++l) std::memcpy(&rows[l], lines[lane + l] + i, sizeof rows[l]);
    transpose<kWidth>(rows);
    for (size_t row = 0; row < kWidth; ++row) filter.weigh(c, rows[row]);
  }
  for (; i < count; ++i) {
    Floats row;
    for (size_t l = 0; l < kWidth; ++l) row[l] = lines[lane + l][i];
    filter.weigh(c, row);
  }
  std::memcpy(state.shelf1 + lane, &filter.shelf1, sizeof filter.shelf1);
  std::memcpy(state.shelf2 + lane, &filter.shelf2, sizeof filter.shelf2);
  std::memcpy(state.below + lane, &filter.below, sizeof filter.below);
  std::memcpy(state.band + lane, &filter.band, sizeof filter.band);
  std::memcpy(energies + lane, &filter.energy, sizeof filter.energy);
}

template <size_t kWidth>
QAV_ALWAYS_INLINE void weighAllLanes(const KWeighting::Coefficients &coefficients, KWeighting::State &state,
                                     const float *const *lines, size_t count, float *energies) {
  for (size_t lane = 0; lane < kLanes; lane += kWidth)
    weighLanes<kWidth>(coefficients, state, lines, count, energies, lane);
}

void weighBaseline(const KWeighting::Coefficients &coefficients, KWeighting::State &state, const float *const *lines,
                   size_t count, float *energies) {
  weighAllLanes<4>(coefficients, state, lines, count, energies);
}

#ifdef QAV_VECTOR_LEVELS
QAV_FOR_AVX2 void weighAvx2(const KWeighting::Coefficients &coefficients, KWeighting::State &state,
                            const float *const *lines, size_t count, float *energies) {
  weighAllLanes<8>(coefficients, state, lines, count, energies);
}
QAV_FOR_AVX512 void weighAvx512(const KWeighting::Coefficients &coefficients, KWeighting::State &state,
                                const float *const *lines, size_t count, float *energies) {
  weighAllLanes<16>(coefficients, state, lines, count, energies);
}
#endif

KWeighting::Weigh weighFor(VectorLevel level) {
#ifdef QAV_VECTOR_LEVELS
  if (level == VectorLevel::avx512) return weighAvx512;
  if (level == VectorLevel::avx2) return weighAvx2;
#endif
  (void)level;
  return weighBaseline;
}

}  // namespace

// The constants are those of the analogue filters that the recommendation's coefficients for 48 kHz come from.
KFilter kFilterFor(uint32_t freqHz) {
  const auto warped = [&](double hz) { return std::tan(std::numbers::pi * hz / freqHz); };
  KFilter filter;
  {
    const double k = warped(1681.974450955533), q = 0.7071752369554196;
    const double high = std::pow(10.0, 3.999843853973347 / 20.0), band = std::pow(high, 0.4996667741545416);
    const double scale = 1.0 / (1.0 + k / q + k * k);
    filter.shelfB0 = (high + band * k / q + k * k) * scale;
    filter.shelfB1 = 2.0 * (k * k - high) * scale;
    filter.shelfB2 = (high - band * k / q + k * k) * scale;
    filter.shelfA1 = 2.0 * (k * k - 1.0) * scale;
    filter.shelfA2 = (1.0 - k / q + k * k) * scale;
  }
  const double k = warped(38.13547087602444), q = 0.5003270373238773;
  const double scale = 1.0 / (1.0 + k / q + k * k);
  filter.highPassA1 = 2.0 * (k * k - 1.0) * scale;
  filter.highPassA2 = (1.0 - k / q + k * k) * scale;
  return filter;
}

// The high-pass as what it takes away: y - z follows from the band-pass that the two recurrences make of z. Its own
// recurrence would lose in floats what the steps of 100 ms are told by: its poles are too near to 1.
KWeighting::Coefficients KWeighting::coefficientsOf(const KFilter &filter) {
  const double bandOfResult = 1.0 - filter.highPassA2;
  const double belowOfBand = (1.0 + filter.highPassA1 + filter.highPassA2) / bandOfResult;
  return {.shelfB0 = static_cast<float>(filter.shelfB0),
          .shelfB1 = static_cast<float>(filter.shelfB1),
          .shelfB2 = static_cast<float>(filter.shelfB2),
          .shelfA1 = static_cast<float>(filter.shelfA1),
          .shelfA2 = static_cast<float>(filter.shelfA2),
          .belowOfBand = static_cast<float>(belowOfBand),
          .belowOfResult = static_cast<float>(bandOfResult * (1.0 + belowOfBand)),
          .bandOfResult = static_cast<float>(bandOfResult)};
}

KWeighting::KWeighting(uint32_t freqHz, unsigned channels, TakeStep take, VectorLevel level)
    : channels_(channels),
      segments_(kLanes / channels),
      stepFrames_((freqHz + 5) / 10),
      coefficients_(coefficientsOf(kFilterFor(freqHz))),
      take_(std::move(take)),
      weigh_(weighFor(level)),
      lines_(channels, std::vector<float>((kWarmUpSteps + segments_ * kSegmentSteps) * stepFrames_)),
      filled_(kWarmUpSteps * stepFrames_) {}

void KWeighting::advance(size_t frames) {
  filled_ += frames;
  if (room() > 0) return;
  weighBatch(segments_ * kSegmentSteps);
  filled_ = kWarmUpSteps * stepFrames_;
  for (std::vector<float> &line : lines_)
    std::copy(line.end() - static_cast<std::ptrdiff_t>(filled_), line.end(), line.begin());
}

void KWeighting::finish() {
  const size_t steps = filled_ / stepFrames_ - kWarmUpSteps;
  for (std::vector<float> &line : lines_)
    std::fill(line.begin() + static_cast<std::ptrdiff_t>(filled_), line.end(), 0.0f);
  weighBatch(steps);
}

// One step of every segment.
void KWeighting::weighStep(State &state, size_t step, double *energies) const {
  constexpr size_t kRows = 64;  // so many squares are added up as floats
  for (size_t at = 0; at < stepFrames_; at += kRows) {
    const float *from[kLanes];
    for (size_t lane = 0; lane < kLanes; ++lane)
      from[lane] = lines_[lane % channels_].data() + (lane / channels_ * kSegmentSteps + step) * stepFrames_ + at;
    float rows[kLanes];
    weigh_(coefficients_, state, from, std::min(kRows, stepFrames_ - at), rows);
    for (size_t lane = 0; lane < kLanes; ++lane) energies[lane] += static_cast<double>(rows[lane]);
  }
}

// `steps`: those to be told of.
void KWeighting::weighBatch(size_t steps) {
  State state{};
  double energies[kSegmentSteps][kLanes] = {}, unused[kLanes] = {};
  for (size_t i = 0; i < kWarmUpSteps; ++i) weighStep(state, i, unused);
  for (size_t i = 0; i < kSegmentSteps; ++i) weighStep(state, kWarmUpSteps + i, energies[i]);
  for (size_t step = 0; step < steps; ++step) {
    const double *lanes = &energies[step % kSegmentSteps][step / kSegmentSteps * channels_];
    const double energy = channels_ == 2 ? lanes[0] + lanes[1] : lanes[0];
    take_(energy < kLeastEnergy ? 0.0 : energy);
  }
}

}  // namespace qav::tool
