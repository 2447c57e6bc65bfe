#include "converter/low_pass.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "base/exact_math.h"

namespace qav {
namespace {

constexpr int kHalf = kLpfTaps / 2;
constexpr int kPast = kLpfTaps - 1;
constexpr int kLanes = 256;  // outputs that are summed together

// A sinc under a Hamming window. The sum of the taps is within 0.3 % of 1 and left so.
constexpr std::array<double, kHalf + 1> makeRow(double twiceCutoff) {
  std::array<double, kHalf + 1> row{};
  for (int k = 0; k < kHalf; ++k) {
    const double n = kHalf - k;
    row[size_t(k)] =
        exactSin(kPi * twiceCutoff * n) / (kPi * n) * (0.54 + 0.46 * exactCos(2.0 * kPi * n / (kLpfTaps - 1)));
  }
  row[kHalf] = twiceCutoff;
  return row;
}

// One block of one channel: `count` <= kLanes samples, `stride` apart. Each output adds its taps in the same order, from
// the centre, then from the ends inwards.
void filterBlock(const double *row, float *history, int16_t *samples, size_t stride, int count) {
  float x[kPast + kLanes];
  double sum[kLanes];
  std::memcpy(x, history, kPast * sizeof *x);
  for (int i = 0; i < count; ++i) x[kPast + i] = float(samples[size_t(i) * stride]);

  for (int i = 0; i < count; ++i) sum[i] = double(x[i + kHalf]) * row[kHalf];
  for (int k = 0; k < kHalf; ++k)
    for (int i = 0; i < count; ++i) sum[i] += double(x[i + kPast - k] + x[i + k]) * row[k];

  for (int i = 0; i < count; ++i) samples[size_t(i) * stride] = int16_t(int32_t(sum[i]));
  std::memcpy(history, x + count, kPast * sizeof *x);
}

}  // namespace

constexpr std::array<std::array<double, 16>, 8> s_delayFacTbl = {
    makeRow(0.48), makeRow(0.46), makeRow(0.44), makeRow(0.40),
    makeRow(0.30), makeRow(0.24), makeRow(0.20), makeRow(0.12),  // the last one is beyond the levels
};

void ResetLPF(LpfState &s) { std::memset(s.history, 0, sizeof s.history); }

void ActLPF(LpfState &s, int16_t *samples, int32_t channels, int32_t frames) {
  const size_t stride = channels == 1 ? 1 : 2;
  const double *const row = s_delayFacTbl[s.lpfLevel - 1].data();
  for (size_t ch = 0; ch < stride; ++ch)
    for (int32_t done = 0; done < frames; done += kLanes)
      filterBlock(row, s.history[ch], samples + size_t(done) * stride + ch, stride, std::min(kLanes, frames - done));
}

}  // namespace qav
