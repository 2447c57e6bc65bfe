#include "tools/loudness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace qav::tool {
namespace {

constexpr uint32_t kFreqHz = 48000;

// A sine of 997 Hz in both channels: by the definition of the unit its loudness in LUFS is its peak in dBFS.
std::vector<double> sine(double peakDb, double seconds) {
  std::vector<double> samples(2 * static_cast<size_t>(seconds * kFreqHz));
  const double peak = std::pow(10.0, peakDb / 20.0);
  for (size_t i = 0; i < samples.size(); i += 2)
    samples[i] = samples[i + 1] =
        peak * std::sin(2.0 * std::numbers::pi * 997.0 * static_cast<double>(i / 2) / kFreqHz);
  return samples;
}

LoudnessMeter metered(const std::vector<double> &samples, size_t block) {
  LoudnessMeter meter(kFreqHz, 2, samples.size() / 2);
  meter.followMaxima();
  for (size_t at = 0; at < samples.size(); at += 2 * block)
    meter.add(samples.data() + at, std::min(block, (samples.size() - at) / 2));
  return meter;
}

TEST(Loudness, TheGreatestOfEachWindow) {
  // Half a second of a loud tone within a soft one.
  std::vector<double> samples = sine(-40.0, 5.0);
  const std::vector<double> loud = sine(-20.0, 0.5), rest = sine(-40.0, 5.0);
  samples.insert(samples.end(), loud.begin(), loud.end());
  samples.insert(samples.end(), rest.begin(), rest.end());
  const double ofThreeSeconds = 10.0 * std::log10((0.5 * std::pow(10.0, -2.0) + 2.5 * std::pow(10.0, -4.0)) / 3.0);
  for (const size_t block : {size_t{1}, size_t{1152}, size_t{2048}, samples.size()}) {
    const LoudnessMeter meter = metered(samples, block);
    EXPECT_NEAR(meter.greatestMomentaryLufs(), -20.0, 0.1) << block;
    EXPECT_NEAR(meter.greatestShortTermLufs(), ofThreeSeconds, 0.1) << block;
  }
}

TEST(Loudness, NoWindowNoValue) {
  EXPECT_EQ(metered(sine(-20.0, 0.39), 1152).greatestMomentaryLufs(), -HUGE_VAL);
  EXPECT_NEAR(metered(sine(-20.0, 0.41), 1152).greatestMomentaryLufs(), -20.0, 0.1);
  EXPECT_EQ(metered(sine(-20.0, 2.9), 1152).greatestShortTermLufs(), -HUGE_VAL);
  EXPECT_EQ(metered(std::vector<double>(2 * kFreqHz), 1152).greatestMomentaryLufs(), -HUGE_VAL);
}

}  // namespace
}  // namespace qav::tool
