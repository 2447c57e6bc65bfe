#include "encoder/analysis.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "format/window.h"
#include "tests/support/guarded.h"
#include "tests/support/random.h"

namespace qav {
namespace {

constexpr int kTimes = int(kSubbandSamples);

// The formulas of ISO/IEC 11172-3 clause C.1.3 as they stand, in double precision, over the whole signal.
std::vector<double> directAnalysis(const std::vector<int16_t> &signal) {
  static const std::vector<double> cosines = [] {
    std::vector<double> table(32 * 64);
    for (int k = 0; k < 32; ++k)
      for (int i = 0; i < 64; ++i) table[size_t(k * 64 + i)] = std::cos((2 * k + 1) * (i - 16) * M_PI / 64);
    return table;
  }();
  const int times = int(signal.size()) / 32;
  std::vector<double> out(size_t(times) * 32);
  for (int t = 0; t < times; ++t) {
    double y[64] = {};
    for (int i = 0; i < 512; ++i) {
      const int at = 32 * t + 31 - i;
      if (at >= 0) y[i % 64] += synthesisWindow65536[i] / 65536.0 / 32 * signal[size_t(at)] / 32768;
    }
    for (int k = 0; k < 32; ++k)
      for (int i = 0; i < 64; ++i) out[size_t(t * 32 + k)] += cosines[size_t(k * 64 + i)] * y[i];
  }
  return out;
}

// The synthesis of clause 2.4.3.2.2, in double precision.
std::vector<double> directSynthesis(const std::vector<double> &subbands) {
  const size_t times = subbands.size() / 32;
  std::vector<double> v(1024, 0.0), out;
  for (size_t t = 0; t < times; ++t) {
    v.insert(v.begin(), 64, 0.0);
    v.resize(1024);
    for (int i = 0; i < 64; ++i)
      for (int k = 0; k < 32; ++k)
        v[size_t(i)] += std::cos((16 + i) * (2 * k + 1) * M_PI / 64) * subbands[t * 32 + size_t(k)];
    for (size_t j = 0; j < 32; ++j) {
      double sum = 0;
      for (size_t i = 0; i < 8; ++i) {
        sum += synthesisWindow65536[i * 64 + j] / 65536.0 * v[i * 128 + j];
        sum += synthesisWindow65536[i * 64 + 32 + j] / 65536.0 * v[i * 128 + 96 + j];
      }
      out.push_back(sum);
    }
  }
  return out;
}

class Analysis : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override {
    if (GetParam() > detectCpuLevel()) GTEST_SKIP() << "this CPU is below " << cpuLevelName(GetParam());
  }

  // All whole frames of the signal, time by time; what comes before it is silence.
  std::vector<float> analyse(const std::vector<int16_t> &signal) {
    std::vector<int16_t> input(kFilterHistory, 0);
    input.insert(input.end(), signal.begin(), signal.end());
    std::vector<float> out;
    for (size_t at = 0; at + kInputSamples <= input.size(); at += kChannelSamples) {
      SubbandFrame frame;
      analysisFor(GetParam())(input.data() + at, frame);
      for (int t = 0; t < kTimes; ++t)
        for (int k = 0; k < 32; ++k) out.push_back(frame[k][samplePlace(uint32_t(t))]);
    }
    return out;
  }
};

TEST_P(Analysis, FollowsTheFormulaOnFullRangeNoise) {
  constexpr unsigned kSeed = 11;
  test::Random random(kSeed);
  std::vector<int16_t> signal(40 * kChannelSamples);
  for (int16_t &s : signal) s = int16_t(random());
  const std::vector<double> expected = directAnalysis(signal);
  const std::vector<float> actual = analyse(signal);
  ASSERT_EQ(actual.size(), expected.size());
  double worst = 0;
  for (size_t i = 0; i < actual.size(); ++i) worst = std::max(worst, std::abs(double(actual[i]) - expected[i]));
  EXPECT_LT(worst, 2e-8) << "seed " << kSeed;
  RecordProperty("worst_deviation", std::to_string(worst * 1e9) + "e-9");
}

TEST_P(Analysis, IsTheFormulaRoundedOnce) {
  // Quiet and loud, and what makes the window sums largest: signs that follow the window's.
  constexpr unsigned kSeed = 12;
  test::Random random(kSeed);
  std::vector<std::vector<int16_t>> signals(5, std::vector<int16_t>(4 * kChannelSamples));
  for (size_t i = 0; i < signals[0].size(); ++i) {
    signals[0][i] = int16_t(random() % 3 - 1);
    signals[1][i] = i % 64 < 32 ? INT16_MIN : INT16_MAX;
    signals[2][i] = INT16_MIN;
    signals[3][i] = synthesisWindow65536[511 - i % 512] < 0 ? INT16_MIN : INT16_MAX;
    signals[4][i] = synthesisWindow65536[511 - i % 512] < 0 ? INT16_MAX : INT16_MIN;
  }
  for (const std::vector<int16_t> &signal : signals) {
    const std::vector<double> expected = directAnalysis(signal);
    const std::vector<float> actual = analyse(signal);
    for (size_t i = 0; i < actual.size(); ++i)
      ASSERT_NEAR(double(actual[i]), expected[i], std::abs(expected[i]) * 0x1p-24 + 1e-14) << "seed " << kSeed;
  }
}

TEST_P(Analysis, SilenceGivesExactZerosUntilSomethingIsHeard) {
  std::vector<int16_t> signal(3 * kChannelSamples, 0);
  for (size_t i = kChannelSamples; i < 2 * kChannelSamples; ++i) signal[i] = int16_t(i % 2 == 0 ? 20000 : -20000);
  const std::vector<float> out = analyse(signal);
  for (int i = 0; i < kTimes * 32; ++i) EXPECT_EQ(out[size_t(i)], 0.0f);
  float first = 0, last = 0;  // the third frame is silent again: its history sounds in its first 15 blocks alone
  for (int k = 0; k < 32; ++k) {
    first = std::max(first, std::abs(out[size_t(2 * kTimes * 32 + k)]));
    for (int t = 16; t < kTimes; ++t) last = std::max(last, std::abs(out[size_t((2 * kTimes + t) * 32 + k)]));
  }
  EXPECT_GT(first, 1e-3f);
  EXPECT_EQ(last, 0.0f);
}

TEST_P(Analysis, ASineStaysInItsSubbandAndItsNeighbours) {
  for (int k = 0; k < 32; ++k) {
    std::vector<int16_t> signal(3 * kChannelSamples);
    for (size_t i = 0; i < signal.size(); ++i)
      signal[i] = int16_t(32767 * std::sin((2 * k + 1) * M_PI / 64 * double(i)));
    const std::vector<float> out = analyse(signal);
    for (int sb = 0; sb < 32; ++sb) {
      float loudest = 0;
      for (int t = 2 * kTimes; t < 3 * kTimes; ++t) loudest = std::max(loudest, std::abs(out[size_t(t * 32 + sb)]));
      if (sb == k) {
        EXPECT_GT(loudest, 0.6f) << "subband " << k;
      } else if (std::abs(sb - k) > 1) {
        EXPECT_LT(loudest, 1e-4f) << "subband " << sb << " of a sine in " << k;
      }
    }
  }
}

TEST_P(Analysis, WithTheStandardsSynthesisReconstructsTones) {
  for (const double cycles : {0.01, 0.05, 0.1, 0.123, 0.2, 0.3, 0.377, 0.45}) {
    std::vector<int16_t> signal(4 * kChannelSamples);
    for (size_t i = 0; i < signal.size(); ++i)
      signal[i] = int16_t(std::lround(30000 * std::sin(2 * M_PI * cycles * double(i))));
    const std::vector<float> out = analyse(signal);
    const std::vector<double> back = directSynthesis({out.begin(), out.end()});
    constexpr size_t kDelay = 481;
    double energy = 0, error = 0;
    for (size_t i = 1000; i < back.size(); ++i) {
      const double in = signal[i - kDelay] / 32768.0;
      energy += in * in;
      error += (back[i] - in) * (back[i] - in);
    }
    EXPECT_GT(10 * std::log10(energy / error), 80) << "at " << cycles << " of the sampling rate";
  }
}

TEST_P(Analysis, EveryLevelGivesThePlainBits) {
  constexpr unsigned kSeed = 14;
  test::Random random(kSeed);
  for (int round = 0; round < 200; ++round) {
    test::Guarded<int16_t[kInputSamples]> input(2 * size_t(round));
    auto &pcm = *input;
    const uint32_t range = 1u << (random() % 17);
    for (int16_t &s : pcm) {
      const int32_t value = int32_t(random() % range) - int32_t(range / 2);
      s = int16_t(range > 1 ? value : random() % 2 == 0 ? INT16_MIN : INT16_MAX);
    }
    test::Guarded<SubbandFrame> frame(4 * (random() % 16));
    SubbandFrame plain;
    window_filter_subband(pcm, plain);
    analysisFor(GetParam())(pcm, *frame);
    ASSERT_EQ(std::memcmp(plain, *frame, sizeof plain), 0) << "seed " << kSeed << ", round " << round;
    ASSERT_TRUE(frame.isIntact() && input.isIntact()) << "seed " << kSeed << ", round " << round;
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, Analysis, testing::ValuesIn(kCpuLevels),
                         [](const testing::TestParamInfo<CpuLevel> &level) { return cpuLevelName(level.param); });

}  // namespace
}  // namespace qav
