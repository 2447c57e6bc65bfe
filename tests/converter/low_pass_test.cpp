#include "converter/low_pass.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "tests/converter/converter_test.h"

namespace qav {
namespace {

using test::noise;
using test::Samples;

constexpr double kTwiceCutoff[7] = {0.48, 0.46, 0.44, 0.40, 0.30, 0.24, 0.20};

LpfState makeState(uint32_t level) {
  LpfState s;
  s.lpfLevel = level;
  ResetLPF(s);
  return s;
}

// One channel by the definition, one sample at a time; `past` receives the samples, newest first.
void filterPlainly(uint32_t level, float (&past)[31], int16_t *samples, size_t stride, size_t frames) {
  const auto &c = s_delayFacTbl[level - 1];
  for (size_t i = 0; i < frames; ++i) {
    int16_t &sample = samples[i * stride];
    past[0] = float(sample);
    double acc = double(past[15]) * c[15];
    for (size_t k = 0; k < 15; ++k) acc += double(past[k] + past[30 - k]) * c[k];
    for (size_t k = 30; k > 0; --k) past[k] = past[k - 1];
    sample = int16_t(uint16_t(uint32_t(int32_t(acc)) & 0xFFFF));
  }
}

TEST(LowPass, CoefficientsAreAWindowedSinc) {
  for (size_t r = 0; r < 7; ++r) {
    const auto &row = s_delayFacTbl[r];
    for (size_t k = 0; k < 15; ++k) {
      constexpr long double pi = std::numbers::pi_v<long double>;
      const long double n = 15.0L - static_cast<long double>(k);
      const long double expected = std::sin(pi * static_cast<long double>(kTwiceCutoff[r]) * n) / (pi * n) *
                                   (0.54L + 0.46L * std::cos(2 * pi * n / 30));
      EXPECT_NEAR(row[k], double(expected), 2e-16) << "row " << r << ", value " << k;
    }
    EXPECT_EQ(row[15], kTwiceCutoff[r]);
    double sum = row[15];
    for (size_t k = 0; k < 15; ++k) sum += 2 * row[k];
    EXPECT_NEAR(sum, 1.0, 0.003);
  }
  EXPECT_NEAR(s_delayFacTbl[0][14], 0.31448840420710411, 1e-15);
  EXPECT_NEAR(s_delayFacTbl[0][0], -0.0009978552360412141, 1e-15);
  EXPECT_NEAR(s_delayFacTbl[3][0], 0.0, 1e-17);
  EXPECT_EQ(s_delayFacTbl[7][15], 0.12);
}

TEST(LowPass, AnImpulseShowsTheTaps) {
  for (uint32_t level = 1; level <= 7; ++level) {
    LpfState s = makeState(level);
    Samples x(40);
    x[0] = 1000;
    ActLPF(s, x.data(), 1, 40);
    const auto &row = s_delayFacTbl[level - 1];
    for (size_t i = 0; i < 40; ++i) {
      const double tap = i > 30 ? 0.0 : row[i <= 15 ? i : 30 - i];
      EXPECT_EQ(x[i], int16_t(1000 * tap)) << "level " << level << ", sample " << i;
    }
  }
  LpfState s = makeState(4);
  Samples x(16);
  x[0] = 1000;
  ActLPF(s, x.data(), 1, 16);
  EXPECT_EQ(x[15], 400);
}

TEST(LowPass, AConstantSettlesAtTheSumOfTheTaps) {
  LpfState s = makeState(1);
  Samples x(100, 32512);
  ActLPF(s, x.data(), 1, 100);
  for (size_t i = 31; i < 100; ++i) EXPECT_EQ(x[i], 32522);
}

TEST(LowPass, AnOvershootWrapsAround) {
  LpfState s = makeState(1);
  Samples x;
  for (int i = 0; i < 400; ++i) x.push_back(i / 20 % 2 == 0 ? 32512 : -32768);
  const Samples before = x;
  ActLPF(s, x.data(), 1, 400);
  bool wrapped = false;
  for (size_t i = 15; i < 400; ++i) wrapped = wrapped || (before[i - 15] == 32512 && x[i] < -30000);
  EXPECT_TRUE(wrapped);
}

TEST(LowPass, ChannelsDoNotTouch) {
  LpfState s = makeState(2);
  Samples x(200);
  const Samples left = noise(100, 1);
  for (size_t i = 0; i < 100; ++i) x[2 * i] = left[i];
  ActLPF(s, x.data(), 2, 100);
  LpfState mono = makeState(2);
  Samples alone = left;
  ActLPF(mono, alone.data(), 1, 100);
  for (size_t i = 0; i < 100; ++i) {
    EXPECT_EQ(x[2 * i], alone[i]);
    EXPECT_EQ(x[2 * i + 1], 0);
  }
}

TEST(LowPass, FollowsTheDefinitionInBlocksOfAnySize) {
  constexpr unsigned kSeed = 99;
  std::mt19937 random(kSeed);
  for (uint32_t level = 1; level <= 7; ++level)
    for (const int32_t channels : {1, 2, 0, 3}) {
      const size_t stride = channels == 1 ? 1 : 2;
      LpfState s = makeState(level);
      float past[2][31] = {};
      for (int block = 0; block < 60; ++block) {
        const size_t frames = random() % (block % 5 == 0 ? 1000 : 40);
        Samples x = noise(frames * stride, unsigned(random()), 32767);
        Samples expected = x;
        for (size_t ch = 0; ch < stride; ++ch) filterPlainly(level, past[ch], expected.data() + ch, stride, frames);
        ActLPF(s, x.data(), channels, int32_t(frames));
        ASSERT_EQ(x, expected) << "seed " << kSeed << ", level " << level << ", " << channels << " channels";
      }
    }
}

TEST(LowPass, NoFramesAndFewerDoNothing) {
  LpfState s = makeState(3);
  int16_t sample = 123;
  ActLPF(s, &sample, 1, 0);
  ActLPF(s, &sample, 1, -5);
  ActLPF(s, nullptr, 2, INT32_MIN);
  EXPECT_EQ(sample, 123);
}

TEST(LowPass, ResetKeepsTheLevel) {
  LpfState s = makeState(5);
  Samples x = noise(100, 2);
  ActLPF(s, x.data(), 1, 100);
  ResetLPF(s);
  EXPECT_EQ(s.lpfLevel, 5u);
  Samples silence(100);
  ActLPF(s, silence.data(), 1, 100);
  EXPECT_EQ(silence, Samples(100));
}

}  // namespace
}  // namespace qav
