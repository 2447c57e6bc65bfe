#include "tools/loudness/true_peak.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "tests/tools/loudness_support.h"

namespace qav::tool {
namespace {

using test::Random;

constexpr double kPi = std::numbers::pi;

double measured(const std::vector<float> &samples, uint32_t freqHz, unsigned channels, size_t block,
                VectorLevel level = widestVectors()) {
  TruePeak peak(freqHz, channels, level);
  const size_t frames = samples.size() / channels;
  std::vector<float> lines[2];
  for (std::vector<float> &line : lines) line.resize(TruePeak::kHistory);
  for (size_t i = 0; i < samples.size(); ++i) lines[i % channels].push_back(samples[i]);
  const auto put = [&](size_t at, auto what) {
    const float *const ends[] = {lines[0].data() + TruePeak::kHistory + at,
                                 lines[channels - 1].data() + TruePeak::kHistory + at};
    what(ends);
  };
  for (size_t at = 0; at < frames; at += block)
    put(at, [&](const float *const *ends) { peak.add(ends, std::min(block, frames - at)); });
  put(frames, [&](const float *const *ends) { peak.finish(ends); });
  return peak.peak();
}

// Every place of the interpolated signal, with silence before and behind it.
double plain(const std::vector<float> &samples, uint32_t freqHz, unsigned channels) {
  const int factor = freqHz < 96000 ? 4 : freqHz < 192000 ? 2 : 1;
  const int frames = static_cast<int>(samples.size() / channels);
  double greatest = 0.0;
  for (unsigned c = 0; c < channels; ++c)
    for (int place = 0; place < frames * factor; ++place) {
      double sum = 0.0;
      for (int i = place / factor - 12; i <= place / factor + 12; ++i) {
        const int distance = place - i * factor;
        if (i < 0 || i >= frames || std::abs(distance) > 24) continue;
        const double x = kPi * distance / factor;
        const double weight = (distance == 0 ? 1.0 : std::sin(x) / x) * 0.5 * (1.0 + std::cos(kPi * distance / 24.0));
        sum += weight * static_cast<double>(samples[static_cast<size_t>(i) * channels + c]);
      }
      greatest = std::max(greatest, std::fabs(sum));
    }
  return greatest;
}

std::vector<float> noise(Random &random, size_t frames, unsigned channels) {
  std::vector<float> samples(frames * channels);
  // Swells and fades, so that some of it needs no interpolation.
  for (size_t i = 0; i < samples.size(); ++i)
    samples[i] =
        static_cast<float>(uniform(random, -1.0, 1.0) * (1.0 + std::sin(static_cast<double>(i) / 700.0)) / 2.0);
  return samples;
}

TEST(TruePeak, IsThatOfEveryPlaceInterpolated) {
  Random random(3);
  for (const uint32_t freqHz : {32000u, 44100u, 48000u, 96000u, 192000u})
    for (const unsigned channels : {1u, 2u})
      for (const size_t frames : {1u, 5u, 13u, 100u, 1023u, 1048u, 1060u, 5000u}) {
        const std::vector<float> samples = noise(random, frames, channels);
        const double expected = plain(samples, freqHz, channels);
        for (const VectorLevel level : vectorLevels())
          EXPECT_NEAR(measured(samples, freqHz, channels, frames, level), expected, 1e-6 * expected)
              << freqHz << " " << channels << " " << frames;
      }
}

TEST(TruePeak, BlocksAndVectorsChangeNothing) {
  Random random(4);
  for (const uint32_t freqHz : {48000u, 96000u}) {
    const std::vector<float> samples = noise(random, 10000, 2);
    const double expected = measured(samples, freqHz, 2, 10000);
    for (const VectorLevel level : vectorLevels())
      for (const size_t block : {1u, 7u, 1024u, 1152u})
        EXPECT_EQ(measured(samples, freqHz, 2, block, level), expected) << block;
  }
}

TEST(TruePeak, TheLastSamplesCount) {
  for (const size_t frames : {3u, 1024u, 1048u, 2000u, 3000u}) {
    std::vector<float> samples(frames, 0.25f);
    samples.back() = -0.75f;
    EXPECT_GE(measured(samples, 48000, 1, 1152), 0.75) << frames;
  }
}

// The sines of EBU Tech 3341, whose peaks lie between the samples.
TEST(TruePeak, SinesOfTheBroadcastersTest) {
  struct Case {
    double rateOver, peak, degrees, expectedDb;
  };
  for (const Case &one : {Case{4, 0.5, 0, -6}, Case{4, 0.5, 45, -6}, Case{6, 0.5, 60, -6}, Case{8, 0.5, 67.5, -6},
                          Case{4, 1.41, 45, 3}}) {
    std::vector<float> samples(48000);
    for (size_t i = 0; i < samples.size(); ++i) {
      // Faded in and out: a sine that is cut has peaks that are no sine's.
      const double n = static_cast<double>(i), fade = std::min({1.0, n / 4800, (48000 - n) / 4800});
      samples[i] = static_cast<float>(fade * one.peak * std::sin(2 * kPi * n / one.rateOver + one.degrees * kPi / 180));
    }
    const double db = 20 * std::log10(measured(samples, 48000, 1, 1152));
    EXPECT_LE(db, one.expectedDb + 0.2);
    EXPECT_GE(db, one.expectedDb - 0.4);
  }
}

}  // namespace
}  // namespace qav::tool
