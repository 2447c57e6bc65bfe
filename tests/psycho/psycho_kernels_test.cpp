// Every CPU level against the baseline, bit for bit, and ln and exp of the kernels against the C library's.
#include "psycho/psycho_kernels.h"

#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "psycho/exact_lanes.inl.h"
#include "psycho/psycho.h"
#include "psycho/psycho_state.h"
#include "psycho/rdft.h"

namespace qav {
namespace {

struct Free {
  void operator()(PsychoState *s) const { std::free(s); }
};
using State = std::unique_ptr<PsychoState, Free>;

State stateFor(int samplingIndex, CpuLevel level) {
  FrameParams fp = {};
  fp.samplingIndex = samplingIndex;
  fp.freqHz = std::vector<int>{44100, 48000, 32000}[size_t(samplingIndex)];
  return State(initPsycho(fp, level));
}

class PsychoKernelsAt : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override {
    if (GetParam() > detectCpuLevel()) GTEST_SKIP() << "this CPU has no " << cpuLevelName(GetParam());
  }
};

// Signals by name: loud and soft noise, sparse clicks, tones that come and go, extremes.
int16_t sampleOf(int signal, int i, std::mt19937 &random) {
  switch (signal) {
    case 0: return int16_t(random());
    case 1: return int16_t(int(random() % 5) - 2);
    case 2: return random() % 700 == 0 ? int16_t(random()) : int16_t(0);
    case 3: return i / 3000 % 2 == 0 ? int16_t((i * 37 % 256 - 128) * 200) : int16_t(0);
    case 4: return i % 2 == 0 ? INT16_MAX : INT16_MIN;
    default: return int16_t(i / 1152 % 3 == 0 ? INT16_MIN : i % 4 - 2);
  }
}

TEST_P(PsychoKernelsAt, ModelEqualsTheBaseline) {
  const unsigned seed = 19;
  for (int index = 0; index < 3; ++index)
    for (int signal = 0; signal < 6; ++signal) {
      SCOPED_TRACE(testing::Message() << "rate " << index << ", signal " << signal << ", seed " << seed);
      const State baseline = stateFor(index, CpuLevel::Baseline), other = stateFor(index, GetParam());
      std::mt19937 random(seed);
      for (int frame = 0; frame < 12; ++frame)
        for (uint32_t ch = 0; ch < 2; ++ch) {
          // At every alignment that samples may have.
          int16_t memory[1152 + 32];
          int16_t *const samples = memory + frame % 32;
          for (int i = 0; i < 1152; ++i) samples[i] = sampleOf(signal, frame * 1152 + i, random);
          float expected[32], guarded[32 + 16];
          std::memset(guarded, 0x5A, sizeof guarded);
          neb_psycho_anal(samples, ch, expected, baseline.get());
          neb_psycho_anal(samples, ch, guarded + frame % 8, other.get());
          ASSERT_EQ(std::memcmp(expected, guarded + frame % 8, sizeof expected), 0) << "frame " << frame;
          for (int i = 0; i < 48; ++i)
            if (i < frame % 8 || i >= frame % 8 + 32) {
              uint32_t bits;
              std::memcpy(&bits, &guarded[i], sizeof bits);
              ASSERT_EQ(bits, 0x5A5A5A5Au) << i;
            }
          ASSERT_EQ(std::memcmp(baseline->channel, other->channel, sizeof baseline->channel), 0) << "frame " << frame;
        }
    }
}

TEST_P(PsychoKernelsAt, TransformEqualsTheBaseline) {
  const unsigned seed = 31;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
  int32_t ip[18] = {}, baselineIp[18] = {};
  float w[512];
  buildTables(1024, ip, w, GetParam());
  buildTables(1024, baselineIp, w, CpuLevel::Baseline);
  for (int round = 0; round < 200; ++round) {
    float expected[1024], memory[1024 + 32];
    std::memset(memory, 0x5A, sizeof memory);
    float *const a = memory + round % 16;
    for (int i = 0; i < 1024; ++i) {
      switch (round % 4) {
        case 0: expected[i] = unit(random); break;
        case 1: expected[i] = std::ldexp(unit(random), int(random() % 60) - 30); break;
        case 2: expected[i] = random() % 100 == 0 ? unit(random) * 1e30f : 0.0f; break;
        default: expected[i] = unit(random) * FLT_MIN; break;
      }
      a[i] = expected[i];
    }
    neb_rdft(1024, 1, expected, baselineIp, w);
    neb_rdft(1024, 1, a, ip, w);
    ASSERT_EQ(std::memcmp(a, expected, sizeof expected), 0) << round;
    for (int i = 0; i < 1024 + 32; ++i)
      if (i < round % 16 || i >= round % 16 + 1024) {
        uint32_t bits;
        std::memcpy(&bits, &memory[i], sizeof bits);
        ASSERT_EQ(bits, 0x5A5A5A5Au) << i;
      }
  }
}

// One hash for every compiler, optimisation and CPU level.
TEST_P(PsychoKernelsAt, EveryBuildGivesTheSameBits) {
  uint64_t hash = 0xCBF29CE484222325u;
  for (int index = 0; index < 3; ++index) {
    const State state = stateFor(index, GetParam());
    uint32_t noise = 1;
    for (int frame = 0; frame < 20; ++frame) {
      int16_t samples[1152];
      for (int i = 0; i < 1152; ++i) {
        noise = noise * 1664525 + 1013904223;
        const int t = frame * 1152 + i;
        samples[i] = int16_t(int(noise >> 22) - 512 + (t * 23 % 512 - 256) * (t / 2000 % 7) * 15);
      }
      float smr[32];
      neb_psycho_anal(samples, 0, smr, state.get());
      for (const float ratio : smr) hash = (hash ^ std::bit_cast<uint32_t>(ratio)) * 0x100000001B3u;
    }
  }
  EXPECT_EQ(hash, 3618306329761743706u);
}

INSTANTIATE_TEST_SUITE_P(EveryLevel, PsychoKernelsAt, testing::ValuesIn(kCpuLevels),
                         [](const auto &level) { return cpuLevelName(level.param); });

constexpr double kFarBelowSingle = 3e-10;  // a unit of single precision is 6e-8 to 1.2e-7

TEST(ExactLanes, LogarithmIsFarMoreExactThanSinglePrecision) {
  using Float = Lanes<float, 2>;
  std::mt19937 random(3);
  std::uniform_real_distribution<float> ratio(0.04f, 2.0f), exponent(-126.0f, 127.0f);
  Lanes<double, 2> y[2];
  for (int i = 0; i < 200000; ++i) {
    const Float x[2] = {{ratio(random), std::exp2(exponent(random))}, {ratio(random), ratio(random)}};
    logLanes<2, 2>(x, y);
    for (int n = 0; n < 2; ++n)
      for (int lane = 0; lane < 2; ++lane) {
        const double truth = std::log(double(x[n][lane]));
        ASSERT_NEAR(y[n][lane], truth, kFarBelowSingle * std::abs(truth)) << x[n][lane];
      }
  }
  const Float ends[1] = {{FLT_MIN, 1.0f}};
  Lanes<double, 2> logs[1];
  logLanes<2, 1>(ends, logs);
  EXPECT_NEAR(logs[0][0], std::log(double(FLT_MIN)), 1e-7);
  EXPECT_EQ(logs[0][1], 0.0);
}

TEST(ExactLanes, ExponentialIsFarMoreExactThanSinglePrecision) {
  std::mt19937 random(4);
  std::uniform_real_distribution<double> attenuation(-12.0, 0.0), any(-600.0, 600.0);
  Lanes<double, 2> y[2];
  for (int i = 0; i < 200000; ++i) {
    const Lanes<double, 2> x[2] = {{attenuation(random), any(random)}, {any(random), attenuation(random)}};
    expLanes<2, 2>(x, y);
    for (int n = 0; n < 2; ++n)
      for (int lane = 0; lane < 2; ++lane) ASSERT_NEAR(y[n][lane] / std::exp(x[n][lane]), 1.0, kFarBelowSingle);
  }
  const Lanes<double, 2> zero[1] = {};
  Lanes<double, 2> one[1];
  expLanes<2, 1>(zero, one);
  EXPECT_EQ(one[0][0], 1.0);
}

}  // namespace
}  // namespace qav
