#include "tools/loudness/k_weighting.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "tests/tools/loudness_support.h"

namespace qav::tool {
namespace {

using test::Random;

// One sample after the other, from the definition.
std::vector<double> plainSteps(const std::vector<float> &samples, uint32_t freqHz, unsigned channels) {
  const KFilter f = kFilterFor(freqHz);
  const size_t stepFrames = freqHz / 10;
  std::vector<double> steps(samples.size() / channels / stepFrames);
  for (unsigned c = 0; c < channels; ++c) {
    double x1 = 0, x2 = 0, y1 = 0, y2 = 0, z1 = 0, z2 = 0;
    for (size_t i = 0; i < steps.size() * stepFrames; ++i) {
      const double x = static_cast<double>(samples[i * channels + c]);
      const double y = f.shelfB0 * x + f.shelfB1 * x1 + f.shelfB2 * x2 - f.shelfA1 * y1 - f.shelfA2 * y2;
      const double z = y - 2 * y1 + y2 - f.highPassA1 * z1 - f.highPassA2 * z2;
      x2 = x1, x1 = x, y2 = y1, y1 = y, z2 = z1, z1 = z;
      steps[i / stepFrames] += z * z;
    }
  }
  return steps;
}

std::vector<double> steps(const std::vector<float> &samples, uint32_t freqHz, unsigned channels, size_t block,
                          VectorLevel level = widestVectors()) {
  std::vector<double> steps;
  KWeighting weighting(
      freqHz, channels, [&](double energy) { steps.push_back(energy); }, level);
  const size_t frames = samples.size() / channels;
  for (size_t at = 0; at < frames;) {
    const size_t n = std::min({block, frames - at, weighting.room()});
    for (unsigned c = 0; c < channels; ++c)
      for (size_t i = 0; i < n; ++i) weighting.end(c)[i] = samples[(at + i) * channels + c];
    weighting.advance(n);
    at += n;
  }
  weighting.finish();
  return steps;
}

// Noise on a large offset, with a gap, so that both the offset and the gap have edges.
std::vector<float> noise(size_t frames, unsigned channels) {
  Random random(7);
  std::vector<float> samples(frames * channels);
  for (size_t i = 0; i < samples.size(); ++i)
    if (i < samples.size() / 3 || i > samples.size() / 2)
      samples[i] = 0.5f + 0.25f * static_cast<float>(uniform(random, -1.0, 1.0));
  return samples;
}

TEST(KWeighting, ItsFilterAt48KilohertzIsTheRecommendationsOwn) {
  const KFilter f = kFilterFor(48000);
  EXPECT_NEAR(f.shelfB0, 1.53512485958697, 1e-13);
  EXPECT_NEAR(f.shelfB1, -2.69169618940638, 1e-13);
  EXPECT_NEAR(f.shelfB2, 1.19839281085285, 1e-13);
  EXPECT_NEAR(f.shelfA1, -1.69065929318241, 1e-13);
  EXPECT_NEAR(f.shelfA2, 0.73248077421585, 1e-13);
  EXPECT_NEAR(f.highPassA1, -1.99004745483398, 1e-13);
  EXPECT_NEAR(f.highPassA2, 0.99007225036621, 1e-13);
}

double gainDb(const KFilter &f, double hz, uint32_t freqHz) {
  const std::complex<double> z = std::polar(1.0, -2.0 * std::numbers::pi * hz / freqHz), z2 = z * z;
  const auto shelf = (f.shelfB0 + f.shelfB1 * z + f.shelfB2 * z2) / (1.0 + f.shelfA1 * z + f.shelfA2 * z2);
  const auto highPass = (1.0 - 2.0 * z + z2) / (1.0 + f.highPassA1 * z + f.highPassA2 * z2);
  return 20.0 * std::log10(std::abs(shelf * highPass));
}

TEST(KWeighting, EveryRateHearsTheSame) {
  for (const uint32_t freqHz : {32000u, 44100u, 96000u})
    for (const double hz : {20.0, 50.0, 200.0, 997.0, 2000.0, 4000.0})
      EXPECT_NEAR(gainDb(kFilterFor(freqHz), hz, freqHz), gainDb(kFilterFor(48000), hz, 48000), 0.05)
          << freqHz << " " << hz;
}

TEST(KWeighting, SegmentsAddUpAsOneRunDoes) {
  for (const unsigned channels : {1u, 2u})
    for (const uint32_t freqHz : {32000u, 44100u}) {
      // More than two batches, and a part of a step.
      const std::vector<float> samples = noise(41 * freqHz + 1234, channels);
      const std::vector<double> expected = plainSteps(samples, freqHz, channels);
      ASSERT_EQ(expected.size(), 410u);
      for (const VectorLevel level : vectorLevels()) {
        const std::vector<double> measured = steps(samples, freqHz, channels, 1152, level);
        ASSERT_EQ(measured.size(), expected.size());
        for (size_t i = 0; i < expected.size(); ++i)
          ASSERT_NEAR(measured[i], expected[i], 1e-5 * expected[i] + 1e-10) << freqHz << " " << channels << " " << i;
      }
    }
}

TEST(KWeighting, BlocksAndVectorsChangeNothing) {
  for (const unsigned channels : {1u, 2u}) {
    const std::vector<float> samples = noise(12 * 32000, channels);
    const std::vector<double> expected = steps(samples, 32000, channels, samples.size());
    for (const VectorLevel level : vectorLevels())
      for (const size_t block : {1u, 1000u, 100000u})
        EXPECT_EQ(steps(samples, 32000, channels, block, level), expected) << block;
  }
}

TEST(KWeighting, LessThanAStepIsNone) {
  EXPECT_TRUE(steps(noise(4799, 2), 48000, 2, 4799).empty());
  EXPECT_EQ(steps(noise(4800, 2), 48000, 2, 4800).size(), 1u);
  EXPECT_TRUE(steps({}, 48000, 2, 1).empty());
}

}  // namespace
}  // namespace qav::tool
