#include "tools/pcm/quantiser.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace qav::tool {
namespace {

std::vector<int16_t> quantised(Quantiser &quantiser, const std::vector<double> &values) {
  std::vector<int16_t> out(values.size());
  quantiser.quantise(values.data(), out.data(), values.size());
  return out;
}

TEST(Quantiser, RoundsToTheNearestWithoutDither) {
  Quantiser quantiser(1, false);
  const double step = 1.0 / 32768.0;
  EXPECT_EQ(quantised(quantiser, {0.0, 0.4 * step, 0.6 * step, -0.6 * step, 32767 * step, -1.0}),
            (std::vector<int16_t>{0, 0, 1, -1, 32767, -32768}));
  EXPECT_EQ(quantiser.clippedSamples(), 0u);
  EXPECT_FALSE(quantiser.hasDithered());
}

TEST(Quantiser, ClipsAndCounts) {
  for (const bool dither : {false, true}) {
    Quantiser quantiser(1, dither);
    const std::vector<int16_t> out = quantised(quantiser, {1.0, -1.0, 1.5, -2.0, 1e300, -1e300, 0.999});
    for (size_t i : {0u, 2u, 4u}) EXPECT_GE(out[i], 32766);
    for (size_t i : {1u, 3u, 5u}) EXPECT_LE(out[i], -32766);
    EXPECT_EQ(quantiser.clippedSamples(), 5u);
  }
}

TEST(Quantiser, SixteenBitsInAWiderContainerComeOutAsTheyAre) {
  Quantiser quantiser(2, true);
  std::vector<double> values;
  std::vector<int16_t> expected;
  for (int sample = -32768; sample < 32768; ++sample) {
    values.push_back(sample / 32768.0);
    expected.push_back(static_cast<int16_t>(sample));
  }
  std::vector<int16_t> out(values.size());
  quantiser.quantise(values.data(), out.data(), values.size() / 2);
  EXPECT_EQ(out, expected);
  EXPECT_FALSE(quantiser.hasDithered());
}

TEST(Quantiser, SilenceAfterSoundBecomesSilenceAgain) {
  Quantiser quantiser(1, true);
  quantised(quantiser, std::vector<double>(100, 0.00001));
  EXPECT_TRUE(quantiser.hasDithered());
  const std::vector<int16_t> out = quantised(quantiser, std::vector<double>(10000, 0.0));
  EXPECT_TRUE(std::all_of(out.end() - 7000, out.end(), [](int16_t sample) { return sample == 0; }));
}

// Triangular dither keeps mean and power of the error independent of the signal: the mean is the value itself, the
// power a quarter of a squared step (1/12 of rounding and 2/12 of the noise).
TEST(Quantiser, TheErrorDoesNotFollowTheSignal) {
  constexpr size_t kCount = 200000;
  for (const double value : {0.001, 0.25, 0.5, 0.75, 1000.3, -77.9}) {
    SCOPED_TRACE(value);
    Quantiser quantiser(1, true);
    const std::vector<int16_t> out = quantised(quantiser, std::vector<double>(kCount, value / 32768.0));
    double sum = 0.0, power = 0.0, successive = 0.0;
    for (size_t i = 0; i < kCount; ++i) {
      const double error = out[i] - value;
      sum += error;
      power += error * error;
      if (i > 0) successive += error * (out[i - 1] - value);
    }
    EXPECT_NEAR(sum / kCount, 0.0, 0.005);
    EXPECT_NEAR(power / kCount, 0.25, 0.005);
    EXPECT_NEAR(successive / kCount, 0.0, 0.003);  // white
  }
}

TEST(Quantiser, EveryRunIsTheSame) {
  std::mt19937 random(3);
  std::vector<double> values(5000);
  for (double &value : values) value = (static_cast<double>(random()) / 4294967296.0 - 0.5);
  Quantiser a(1, true), b(1, true);
  EXPECT_EQ(quantised(a, values), quantised(b, values));
}

}  // namespace
}  // namespace qav::tool
