#include "stream/freq_change_kernels.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace qav {
namespace {

constexpr uint8_t kGuard = 0x5A;
constexpr size_t kGuardBytes = 64;

// One value at a time.
std::vector<uint8_t> plain(const uint8_t *in, const OutputRun &run, uint32_t channels) {
  std::vector<uint8_t> out;
  for (uint32_t k = 0; k < run.count; ++k) {
    const double x = (run.first + k) * run.step;
    const uint64_t i = uint64_t(x);
    const double f = x - double(i);
    for (uint32_t ch = 0; ch < channels; ++ch) {
      int16_t a, b;
      const uint8_t *const at = in + ((i - uint64_t(run.origin)) * channels + ch) * 2;
      std::memcpy(&a, at, 2);
      std::memcpy(&b, at + 2 * channels, 2);
      const double y = (1.0 - f) * a + f * b;
      const int16_t sample = int16_t(int32_t(y >= 0 ? y + 0.5 : y - 0.5));
      uint8_t bytes[2];
      std::memcpy(bytes, &sample, 2);
      out.insert(out.end(), bytes, bytes + 2);
    }
  }
  return out;
}

class InterpolateKernel : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override {
    if (GetParam() > detectCpuLevel()) GTEST_SKIP() << "this CPU is below " << cpuLevelName(GetParam());
  }
};

TEST_P(InterpolateKernel, GivesThePlainBits) {
  constexpr unsigned kSeed = 4711;
  std::mt19937 random(kSeed);
  const double steps[] = {44100.0 / 48000, 48000.0 / 44100, 1.0 / 24, 4.0, 1.0 / 3, 1.0, 0.5, 1e-9, 1 / 1.1};
  for (const uint32_t channels : {1u, 2u})
    for (const double step : steps)
      for (uint32_t count = 0; count < 200; count += count < 70 ? 1 : 13) {
        const double first = random() % 2 == 0 ? 0.0 : double(uint64_t(random()) * (random() % 4096));
        const double origin = double(uint64_t(first * step));
        const size_t inFrames = size_t((first + count) * step - origin) + 2;
        const size_t inShift = random() % 64, outShift = random() % 64;
        std::vector<uint8_t> in(inShift + inFrames * channels * 2);
        for (uint8_t &byte : in) byte = uint8_t(random() % 4 == 0 ? (random() % 2 ? 0x7F : 0x80) : random());
        const OutputRun run = {first, step, origin, count};
        const std::vector<uint8_t> expected = plain(in.data() + inShift, run, channels);

        std::vector<uint8_t> out(outShift + expected.size() + kGuardBytes, kGuard);
        interpolateFor(GetParam(), channels)(in.data() + inShift, run, out.data() + outShift);
        std::vector<uint8_t> whole(outShift, kGuard);
        whole.insert(whole.end(), expected.begin(), expected.end());
        whole.insert(whole.end(), kGuardBytes, kGuard);
        ASSERT_EQ(out, whole) << "seed " << kSeed << ", step " << step << ", count " << count << ", first " << first;
      }
}

INSTANTIATE_TEST_SUITE_P(Levels, InterpolateKernel, testing::ValuesIn(kCpuLevels),
                         [](const testing::TestParamInfo<CpuLevel> &level) { return cpuLevelName(level.param); });

}  // namespace
}  // namespace qav
