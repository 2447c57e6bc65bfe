// The model as a whole against its equations in double precision.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "psycho/psycho_state.h"
#include "tests/psycho/reference_model.h"

namespace qav {
namespace {

constexpr int kRates[3] = {44100, 48000, 32000};

struct Free {
  void operator()(PsychoState *s) const { std::free(s); }
};
using State = std::unique_ptr<PsychoState, Free>;

State stateFor(int samplingIndex) {
  FrameParams fp = {};
  fp.samplingIndex = samplingIndex;
  fp.freqHz = kRates[samplingIndex];
  return State(neb_psycho_analInit(&fp));
}

using Signal = std::function<double(int)>;

// Compares `frames` frames of two signals, one per channel, wherever the ratio is above -60 dB.
void compare(int samplingIndex, const Signal (&signals)[2], int frames, double toleranceDb) {
  const State state = stateFor(samplingIndex);
  reference::Model model(samplingIndex);
  for (int f = 0; f < frames; ++f)
    for (int ch = 0; ch < 2; ++ch) {
      int16_t samples[1152];
      for (int i = 0; i < 1152; ++i)
        samples[i] = int16_t(std::lround(std::min(32767.0, std::max(-32768.0, signals[ch](f * 1152 + i)))));
      float smr[32];
      neb_psycho_anal(samples, uint32_t(ch), smr, state.get());
      const std::vector<double> truth = model.analyse(samples, ch);
      for (size_t sb = 0; sb < 32; ++sb) {
        if (truth[sb] < -60.0) {
          EXPECT_LT(smr[sb], -55.0f) << "frame " << f << " channel " << ch << " subband " << sb;
          continue;
        }
        EXPECT_NEAR(smr[sb], truth[sb], toleranceDb) << "frame " << f << " channel " << ch << " subband " << sb;
      }
    }
}

// What encoding a stream in pieces rests on: after three frames nothing is left of what was before them, not even in the
// last bit. The first of them still has a window over the samples before. In the second a line's prediction, which is one
// divisor under its phase, and so decides how that is rounded, comes of that window.
TEST(PsychoModel, ThreeFramesDecideWhatIsKept) {
  std::mt19937 random(149);
  for (int trial = 0; trial < 60; ++trial) {
    const int period = 3 + int(random() % 200), noise = 1 << random() % 14;
    std::vector<int16_t> samples(4 * kFrameSamples);
    for (size_t i = 0; i < samples.size(); ++i)
      samples[i] = int16_t((int(i) / period % 2 == 0 ? 9000 : -9000) + int(random() % unsigned(noise)));
    const State one = stateFor(trial % 3), other = stateFor(trial % 3);
    float smr[32], unlike[32];
    neb_psycho_anal(samples.data() + 3 * kFrameSamples, 0, unlike, one.get());
    for (int frame = 0; frame < 3; ++frame) {
      neb_psycho_anal(samples.data() + frame * kFrameSamples, 0, smr, one.get());
      neb_psycho_anal(samples.data() + frame * kFrameSamples, 0, unlike, other.get());
    }
    ASSERT_EQ(std::memcmp(&one->channel[0], &other->channel[0], sizeof(PsychoChannel)), 0) << "trial " << trial;
  }
}

TEST(PsychoModel, Noise) {
  std::mt19937 random(99);
  std::normal_distribution<double> loud(0.0, 6000.0), soft(0.0, 3.0);
  for (int index = 0; index < 3; ++index)
    compare(index, {[&](int) { return loud(random); }, [&](int) { return soft(random); }}, 4, 0.001);
}

TEST(PsychoModel, FullScaleSquareAndSilence) {
  for (int index = 0; index < 3; ++index)
    compare(index, {[](int i) { return i / 50 % 2 == 0 ? 32767.0 : -32768.0; }, [](int) { return 0.0; }}, 3, 0.001);
}

// Bands far from a pure tone hold little but the rounding of the samples, which that of the transform comes close to.
TEST(PsychoModel, Sines) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> frequency(0.001, 0.45), amplitude(1.0, 4.5);
  for (int round = 0; round < 4; ++round) {
    const double f0 = frequency(random), f1 = frequency(random), f2 = frequency(random);
    const double a0 = std::pow(10.0, amplitude(random)), a1 = std::pow(10.0, amplitude(random));
    compare(round % 3,
            {[&](int i) { return a0 * std::sin(2.0 * M_PI * f0 * i); },
             [&](int i) { return a0 * std::sin(2.0 * M_PI * f1 * i) + a1 * std::cos(2.0 * M_PI * f2 * i); }},
            4, 0.01);
  }
}

TEST(PsychoModel, Impulses) {
  // One in each half of a frame, and one on every place of the window's first pass in turn.
  for (const int at : {0, 479, 543, 544, 575, 576, 1023, 1119, 1120, 1151})
    compare(0, {[=](int i) { return i == at ? 30000.0 : 0.0; }, [=](int i) { return i % 1152 == at ? -1.0 : 0.0; }}, 3,
            0.001);
}

// A decaying mixture with pauses: what the model meets in music.
TEST(PsychoModel, DecayingChordsWithPauses) {
  std::mt19937 random(2026);
  std::normal_distribution<double> breath(0.0, 2.0);
  const auto chord = [&](int i) {
    const double t = (i % 5000) / 5000.0;
    if (t > 0.8) return 0.0;
    double sum = 0.0;
    for (int h = 1; h <= 9; ++h) sum += 9000.0 / h * std::sin(0.031 * h * i + h);
    return sum * std::exp(-6.0 * t) + breath(random);
  };
  for (int index = 0; index < 3; ++index)
    compare(index, {chord, [&](int i) { return 0.25 * chord(i + 700); }}, 8, 0.001);
}

TEST(PsychoModel, SilenceIsTheFloor) {
  for (int index = 0; index < 3; ++index) {
    const State state = stateFor(index);
    const int16_t samples[1152] = {};
    for (int frame = 0; frame < 3; ++frame)
      for (uint32_t ch = 0; ch < 2; ++ch) {
        float smr[32];
        neb_psycho_anal(samples, ch, smr, state.get());
        for (const float ratio : smr) EXPECT_NEAR(ratio, -379.298f, 5e-4f);
      }
  }
}

TEST(PsychoModel, SteadySineIsMaskedByLessThanNoise) {
  const State state = stateFor(0);
  float smr[32];
  for (int f = 0; f < 4; ++f) {
    int16_t samples[1152];
    for (int i = 0; i < 1152; ++i)
      samples[i] = int16_t(std::lround(10000.0 * std::sin(2.0 * M_PI * 40.5 / 1024.0 * (f * 1152 + i))));
    neb_psycho_anal(samples, 0, smr, state.get());
  }
  // Line 40 lies in subband 2.
  smr[2] -= 6.0f;
  EXPECT_EQ(std::max_element(smr, smr + 32), smr + 2);
  EXPECT_GT(smr[2], 14.0f);
}

TEST(PsychoModel, AnImpulseInEitherHalfRaisesTheRatio) {
  for (const int at : {300, 900}) {
    const State state = stateFor(0);
    int16_t samples[1152] = {};
    samples[at] = 20000;
    float smr[32];
    neb_psycho_anal(samples, 0, smr, state.get());
    EXPECT_GT(smr[4], 0.0f) << at;
  }
}

TEST(PsychoModel, ChannelsDoNotMeet) {
  const State both = stateFor(0), alone = stateFor(0);
  std::mt19937 random(5);
  for (int f = 0; f < 5; ++f) {
    int16_t left[1152], right[1152];
    for (int i = 0; i < 1152; ++i) {
      left[i] = int16_t(random());
      right[i] = int16_t(random());
    }
    float smrLeft[32], smrRight[32], smrAlone[32];
    neb_psycho_anal(left, 0, smrLeft, both.get());
    neb_psycho_anal(right, 1, smrRight, both.get());
    neb_psycho_anal(right, 1, smrAlone, alone.get());
    for (int sb = 0; sb < 32; ++sb) EXPECT_EQ(smrRight[sb], smrAlone[sb]);
  }
}

TEST(PsychoModel, StateIsSmall) { EXPECT_LE(sizeof(PsychoState), size_t(70 * 1024)); }

}  // namespace
}  // namespace qav
