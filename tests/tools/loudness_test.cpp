#include "tools/loudness/loudness.h"

#include <ebur128.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/loudness_support.h"

namespace qav::tool {
namespace {

using test::Random;

constexpr uint32_t kFreqHz = 48000;
constexpr double kPi = std::numbers::pi;

struct Piece {
  double peakDb, seconds;
};

// Sines of 1 kHz in both channels, one after the other: by the definition of the unit the loudness in LUFS is nearly the
// peak in dBFS.
std::vector<double> sines(const std::vector<Piece> &pieces) {
  std::vector<double> samples;
  for (const Piece &piece : pieces) {
    const double peak = std::pow(10.0, piece.peakDb / 20.0);
    for (auto left = static_cast<size_t>(std::lround(piece.seconds * kFreqHz)); left > 0; --left) {
      const double value = peak * std::sin(2.0 * kPi * 1000.0 * static_cast<double>(samples.size() / 2) / kFreqHz);
      samples.insert(samples.end(), {value, value});
    }
  }
  return samples;
}

template <typename Sample>
Loudness metered(const std::vector<Sample> &samples, size_t block = 1152, uint32_t freqHz = kFreqHz,
                 unsigned channels = 2) {
  LoudnessMeter meter(freqHz, channels);
  for (size_t at = 0; at < samples.size(); at += channels * block)
    meter.add(samples.data() + at, std::min(block, (samples.size() - at) / channels));
  return meter.finish();
}

// The synthetic stereo signals of EBU Tech 3341, and what a meter must make of them.
TEST(Loudness, IntegratedOfTheBroadcastersTest) {
  for (const auto &[pieces, lufs] : std::vector<std::pair<std::vector<Piece>, double>>{
           {{{-23, 20}}, -23},
           {{{-33, 20}}, -33},
           {{{-36, 10}, {-23, 60}, {-36, 10}}, -23},
           {{{-72, 10}, {-36, 10}, {-23, 60}, {-36, 10}, {-72, 10}}, -23},
           {{{-26, 20}, {-20, 20.1}, {-26, 20}}, -23}})
    EXPECT_NEAR(metered(sines(pieces)).integratedLufs, lufs, 0.1);
}

TEST(Loudness, MomentaryAndShortTermOfTheBroadcastersTest) {
  std::vector<Piece> threeSeconds, fourTenths;
  for (int i = 0; i < 5; ++i) threeSeconds.insert(threeSeconds.end(), {{-20, 1.34}, {-30, 1.66}});
  for (int i = 0; i < 25; ++i) fourTenths.insert(fourTenths.end(), {{-20, 0.18}, {-30, 0.22}});
  EXPECT_NEAR(metered(sines(threeSeconds)).greatestShortTermLufs, -23.0, 0.1);
  EXPECT_NEAR(metered(sines(fourTenths)).greatestMomentaryLufs, -23.0, 0.1);
  const Loudness tone = metered(sines({{-23, 20}}));
  EXPECT_NEAR(tone.greatestMomentaryLufs, -23.0, 0.1);
  EXPECT_NEAR(tone.greatestShortTermLufs, -23.0, 0.1);
}

// Those of EBU Tech 3342.
TEST(Loudness, RangeOfTheBroadcastersTest) {
  for (const auto &[pieces, lu] : std::vector<std::pair<std::vector<Piece>, double>>{
           {{{-20, 20}, {-30, 20}}, 10},
           {{{-20, 20}, {-15, 20}}, 5},
           {{{-40, 20}, {-20, 20}}, 20},
           {{{-50, 20}, {-35, 20}, {-20, 20}, {-35, 20}, {-50, 20}}, 15}})
    EXPECT_NEAR(metered(sines(pieces)).rangeLu, lu, 1.0);
}

TEST(Loudness, TheGreatestOfEachWindow) {
  // Half a second of a loud tone within a soft one.
  const std::vector<double> samples = sines({{-40, 5}, {-20, 0.5}, {-40, 5}});
  const double ofThreeSeconds = 10.0 * std::log10((0.5 * std::pow(10.0, -2.0) + 2.5 * std::pow(10.0, -4.0)) / 3.0);
  for (const size_t block : {size_t{1}, size_t{1152}, size_t{2048}, samples.size()}) {
    const Loudness loudness = metered(samples, block);
    EXPECT_NEAR(loudness.greatestMomentaryLufs, -20.0, 0.1) << block;
    EXPECT_NEAR(loudness.greatestShortTermLufs, ofThreeSeconds, 0.1) << block;
  }
}

TEST(Loudness, NoWindowNoValue) {
  EXPECT_EQ(metered(sines({{-20, 0.39}})).greatestMomentaryLufs, -HUGE_VAL);
  EXPECT_EQ(metered(sines({{-20, 0.39}})).integratedLufs, -HUGE_VAL);
  EXPECT_NEAR(metered(sines({{-20, 0.41}})).greatestMomentaryLufs, -20.0, 0.1);
  EXPECT_EQ(metered(sines({{-20, 2.9}})).greatestShortTermLufs, -HUGE_VAL);
  EXPECT_EQ(metered(sines({{-20, 2.9}})).rangeLu, 0.0);
}

TEST(Loudness, SilenceHasNone) {
  const Loudness silence = metered(std::vector<int16_t>(2 * 5 * kFreqHz));
  EXPECT_EQ(silence.integratedLufs, -HUGE_VAL);
  EXPECT_EQ(silence.truePeakDbtp, -HUGE_VAL);
  EXPECT_EQ(silence.greatestMomentaryLufs, -HUGE_VAL);
  EXPECT_EQ(silence.rangeLu, 0.0);
}

TEST(Loudness, WhatIsNoNumberIsPassedOver) {
  std::vector<double> samples = sines({{-20, 30}});
  samples[1000] = std::numeric_limits<double>::quiet_NaN();
  samples[2000] = HUGE_VAL;
  metered(samples);  // the sanitizers look on
  samples[2000] = 0.0;
  EXPECT_NEAR(metered(samples).integratedLufs, -20.0, 0.1);
}

// A list of blocks, as the recommendation has it, against the classes.
TEST(LoudnessBlocks, GatesAsAListOfBlocksDoes) {
  Random random(11);
  for (int round = 0; round < 20; ++round) {
    LoudnessBlocks blocks(4800);
    std::vector<double> steps;
    double lufs = -30.0;
    for (int i = 0; i < 3000; ++i) {
      lufs = std::clamp(lufs + uniform(random, -1.5, 1.5), -90.0, 5.0);
      steps.push_back(4800 * std::pow(10.0, (lufs + 0.691) / 10.0));
      blocks.add(steps.back());
    }
    const auto means = [&](size_t length, size_t every) {
      std::vector<double> energies;
      for (size_t end = length; end <= steps.size(); end += every) {
        double sum = 0.0;
        for (size_t i = end - length; i < end; ++i) sum += steps[i];
        energies.push_back(sum / static_cast<double>(4800 * length));
      }
      return energies;
    };
    const auto mean = [](const std::vector<double> &energies) {
      double sum = 0.0;
      for (const double energy : energies) sum += energy;
      return sum / static_cast<double>(energies.size());
    };
    const auto gate = [](std::vector<double> &energies, double least) {
      std::erase_if(energies, [&](double energy) { return energy < least; });
    };
    const double absolute = std::pow(10.0, (-70.0 + 0.691) / 10.0);
    std::vector<double> momentary = means(4, 1), shortTerm = means(30, 10);
    gate(momentary, absolute);
    gate(momentary, mean(momentary) / 10.0);
    EXPECT_NEAR(blocks.integratedLufs(), 10.0 * std::log10(mean(momentary)) - 0.691, 0.01);
    gate(shortTerm, absolute);
    gate(shortTerm, mean(shortTerm) / 100.0);
    std::sort(shortTerm.begin(), shortTerm.end());
    const auto at = [&](double fraction) {
      return shortTerm[static_cast<size_t>(std::lround(static_cast<double>(shortTerm.size() - 1) * fraction))];
    };
    EXPECT_NEAR(blocks.rangeLu(), 10.0 * std::log10(at(0.95) / at(0.10)), 0.02);
  }
}

struct Signal {
  std::string name;
  std::function<double(size_t frame, unsigned channel)> at;
};

std::vector<Signal> signals(uint32_t freqHz, Random &random) {
  const auto seconds = [=](size_t frame) { return static_cast<double>(frame) / freqHz; };
  const auto tone = [=](double hz, size_t frame) { return std::sin(2.0 * kPi * hz * seconds(frame)); };
  return {
      {"noise", [&random](size_t, unsigned) { return uniform(random, -0.5, 0.5); }},
      {"high tone", [=](size_t i, unsigned c) { return (0.8 - 0.3 * c) * tone(freqHz * 0.23, i); }},
      {"low tone", [=](size_t i, unsigned) { return 0.3 * tone(31.0, i); }},
      // Syllables, words and pauses of a voice with overtones, nearly all of it on the left.
      {"speech",
       [=](size_t i, unsigned c) {
         const double t = seconds(i);
         const double word = std::fmod(t, 2.7) < 1.9 ? std::pow(std::sin(kPi * std::fmod(t * 4.3, 1.0)), 2.0) : 0.001;
         return (c == 0 ? 0.5 : 0.05) * word *
                (tone(130.0 + 20.0 * std::sin(t), i) + 0.5 * tone(710.0, i) + 0.2 * tone(2300.0, i));
       }},
      {"programme",
       [&random, seconds](size_t i, unsigned) {
         const double levelDb = -10.0 - 25.0 * (1.0 + std::sin(seconds(i) / 3.0));
         return std::pow(10.0, levelDb / 20.0) * uniform(random, -1.0, 1.0);
       }},
      {"nearly silent", [&random](size_t, unsigned) { return uniform(random, -1e-4, 1e-4); }},
  };
}

double peakOf(ebur128_state *state) {
  double greatest = 0.0;
  for (unsigned c = 0; c < state->channels; ++c) {
    double one = 0.0;
    EXPECT_EQ(ebur128_true_peak(state, c, &one), 0);
    greatest = std::max(greatest, one);
  }
  return 20.0 * std::log10(greatest);
}

// libebur128 on the same samples, and on the silence behind that our interpolation reckons with.
template <typename Sample>
void compareWithLibrary(const std::vector<Sample> &samples, uint32_t freqHz, unsigned channels,
                        int (*add)(ebur128_state *, const Sample *, size_t), const std::string &what) {
  const Loudness ours = metered(samples, 1152, freqHz, channels);
  ebur128_state *state = ebur128_init(channels, freqHz, EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK);
  ASSERT_EQ(add(state, samples.data(), samples.size() / channels), 0);
  double integrated = 0.0, range = 0.0;
  EXPECT_EQ(ebur128_loudness_global(state, &integrated), 0);
  EXPECT_EQ(ebur128_loudness_range(state, &range), 0);
  const std::vector<Sample> silence(48 * channels);
  EXPECT_EQ(add(state, silence.data(), 48), 0);
  if (std::isfinite(integrated)) {
    EXPECT_NEAR(ours.integratedLufs, integrated, 0.01) << what;
  } else {
    EXPECT_EQ(ours.integratedLufs, integrated) << what;
  }
  EXPECT_NEAR(ours.rangeLu, range, 0.01) << what;
  EXPECT_NEAR(ours.truePeakDbtp, peakOf(state), 0.001) << what;
  ebur128_destroy(&state);
}

TEST(Loudness, AgreesWithLibebur128) {
  Random random(5);
  for (const uint32_t freqHz : {32000u, 44100u, 48000u, 96000u})
    for (const unsigned channels : {1u, 2u})
      for (const Signal &signal : signals(freqHz, random)) {
        const size_t frames = 17 * freqHz + 777;
        std::vector<double> samples(frames * channels);
        for (size_t i = 0; i < samples.size(); ++i)
          samples[i] = signal.at(i / channels, static_cast<unsigned>(i % channels));
        const std::string what = signal.name + " " + std::to_string(freqHz) + " " + std::to_string(channels);
        compareWithLibrary(samples, freqHz, channels, ebur128_add_frames_double, what);
        std::vector<int16_t> rounded(samples.size());
        std::transform(samples.begin(), samples.end(), rounded.begin(),
                       [](double sample) { return static_cast<int16_t>(std::lrint(sample * 32767.0)); });
        compareWithLibrary(rounded, freqHz, channels, ebur128_add_frames_short, what);
      }
}

}  // namespace
}  // namespace qav::tool
