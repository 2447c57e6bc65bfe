#include "tools/k_weighting.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <utility>

namespace qav::tool {

namespace {

constexpr size_t kLanes = KWeighting::kLanes;

// Keeps what rings on into digital silence from falling to numbers that CPUs are slow with. The high-pass takes it out.
constexpr double kOffset = 1e-30;
// Of 100 ms, less than which is none: what the offset leaves.
constexpr double kLeastEnergy = 1e-50;

// `kVectors` vectors of `kWidth` lanes, from a lane on.
template <size_t kWidth, size_t kVectors>
QAV_ALWAYS_INLINE void weighLanes(const KFilter &filter, KWeighting::State &state, const float (*rows)[kLanes],
                                  size_t count, double *energies, size_t lane) {
  typedef typename VectorOf<double, kWidth>::Type Doubles;
  typedef typename VectorOf<float, kWidth>::Type Floats;
  const KFilter f = filter;
  Doubles shelf1[kVectors], shelf2[kVectors], highPass1[kVectors], highPass2[kVectors], energy[kVectors];
  std::memcpy(shelf1, state.shelf1 + lane, sizeof shelf1);
  std::memcpy(shelf2, state.shelf2 + lane, sizeof shelf2);
  std::memcpy(highPass1, state.highPass1 + lane, sizeof highPass1);
  std::memcpy(highPass2, state.highPass2 + lane, sizeof highPass2);
  std::memcpy(energy, energies + lane, sizeof energy);
  for (size_t i = 0; i < count; ++i) {
#pragma GCC unroll 4
    for (size_t v = 0; v < kVectors; ++v) {
      Floats row;
      std::memcpy(&row, rows[i] + lane + v * kWidth, sizeof row);
      const Doubles x = __builtin_convertvector(row, Doubles) + kOffset;
      const Doubles y = f.shelfB0 * x + shelf1[v];
      shelf1[v] = (f.shelfB1 * x + shelf2[v]) - f.shelfA1 * y;
      shelf2[v] = f.shelfB2 * x - f.shelfA2 * y;
      const Doubles z = y + highPass1[v];
      highPass1[v] = (highPass2[v] - (y + y)) - f.highPassA1 * z;
      highPass2[v] = y - f.highPassA2 * z;
      energy[v] += z * z;
    }
  }
  std::memcpy(state.shelf1 + lane, shelf1, sizeof shelf1);
  std::memcpy(state.shelf2 + lane, shelf2, sizeof shelf2);
  std::memcpy(state.highPass1 + lane, highPass1, sizeof highPass1);
  std::memcpy(state.highPass2 + lane, highPass2, sizeof highPass2);
  std::memcpy(energies + lane, energy, sizeof energy);
}

void weighRowsBaseline(const KFilter &filter, KWeighting::State &state, const float (*rows)[kLanes], size_t count,
                       double *energies) {
  weighLanes<2, 2>(filter, state, rows, count, energies, 0);
  weighLanes<2, 2>(filter, state, rows, count, energies, 4);
}

#ifdef QAV_VECTOR_LEVELS
QAV_FOR_AVX2 void weighRowsAvx2(const KFilter &filter, KWeighting::State &state, const float (*rows)[kLanes],
                                size_t count, double *energies) {
  weighLanes<4, 2>(filter, state, rows, count, energies, 0);
}
QAV_FOR_AVX512 void weighRowsAvx512(const KFilter &filter, KWeighting::State &state, const float (*rows)[kLanes],
                                    size_t count, double *energies) {
  weighLanes<8, 1>(filter, state, rows, count, energies, 0);
}
#endif

KWeighting::WeighRows weighRowsFor(VectorLevel level) {
#ifdef QAV_VECTOR_LEVELS
  if (level == VectorLevel::avx512) return weighRowsAvx512;
  if (level == VectorLevel::avx2) return weighRowsAvx2;
#endif
  (void)level;
  return weighRowsBaseline;
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

KWeighting::KWeighting(uint32_t freqHz, unsigned channels, TakeStep take, VectorLevel level)
    : channels_(channels),
      segments_(kLanes / channels),
      stepFrames_((freqHz + 5) / 10),
      filter_(kFilterFor(freqHz)),
      take_(std::move(take)),
      weighRows_(weighRowsFor(level)),
      samples_((kWarmUpSteps + segments_ * kSegmentSteps) * stepFrames_ * channels),
      filled_(kWarmUpSteps * stepFrames_ * channels) {}

void KWeighting::add(const float *samples, size_t frames) {
  for (size_t count = frames * channels_; count > 0;) {
    const size_t n = std::min(count, samples_.size() - filled_);
    std::copy_n(samples, n, samples_.data() + filled_);
    samples += n;
    count -= n;
    filled_ += n;
    if (filled_ < samples_.size()) break;
    weighBatch(segments_ * kSegmentSteps);
    filled_ = kWarmUpSteps * stepFrames_ * channels_;
    std::copy(samples_.end() - static_cast<std::ptrdiff_t>(filled_), samples_.end(), samples_.begin());
  }
}

void KWeighting::finish() {
  const size_t steps = filled_ / (stepFrames_ * channels_) - kWarmUpSteps;
  std::fill(samples_.begin() + static_cast<std::ptrdiff_t>(filled_), samples_.end(), 0.0f);
  weighBatch(steps);
}

// One step of every segment.
void KWeighting::weigh(State &state, size_t step, double *energies) const {
  constexpr size_t kRows = 64;
  float rows[kRows][kLanes];
  const size_t segmentSamples = kSegmentSteps * stepFrames_ * channels_;
  const float *from = samples_.data() + step * stepFrames_ * channels_;
  for (size_t at = 0; at < stepFrames_; at += kRows) {
    const size_t count = std::min(kRows, stepFrames_ - at);
    for (size_t s = 0; s < segments_; ++s) {
      const float *own = from + s * segmentSamples + at * channels_;
      if (channels_ == 2)
        for (size_t i = 0; i < count; ++i) {
          rows[i][2 * s] = own[2 * i];
          rows[i][2 * s + 1] = own[2 * i + 1];
        }
      else
        for (size_t i = 0; i < count; ++i) rows[i][s] = own[i];
    }
    weighRows_(filter_, state, rows, count, energies);
  }
}

// `steps`: those to be told of.
void KWeighting::weighBatch(size_t steps) {
  State state{};
  double energies[kSegmentSteps][kLanes] = {}, unused[kLanes] = {};
  for (size_t i = 0; i < kWarmUpSteps; ++i) weigh(state, i, unused);
  for (size_t i = 0; i < kSegmentSteps; ++i) weigh(state, kWarmUpSteps + i, energies[i]);
  for (size_t step = 0; step < steps; ++step) {
    const double *lanes = &energies[step % kSegmentSteps][step / kSegmentSteps * channels_];
    const double energy = channels_ == 2 ? lanes[0] + lanes[1] : lanes[0];
    take_(energy < kLeastEnergy ? 0.0 : energy);
  }
}

}  // namespace qav::tool
