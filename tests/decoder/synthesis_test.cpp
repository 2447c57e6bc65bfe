#include "decoder/synthesis.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "decoder/kernels.h"
#include "decoder/synthesis_kernels.inl.h"
#include "format/window.h"
#include "tests/decoder/decoder_fixture.h"
#include "tests/support/one_in.h"

namespace qav::test {
namespace {

// The last channel of a stream of one or two, a frame at a time, in the standard's order of blocks.
template <int Channels>
struct ChannelOf {
  SynthesisHistory history[2] = {};
  SubbandSamples samples{};
  int16_t pcm[1152] = {};

  void set(int layer, int block, int sb, float value) {
    const int place = layer == 1 ? block : 12 * (block % 3) + block / 3;
    samples.value[sb][kChannelStride * (Channels - 1) + place] = value;
  }

  // `counting` blocks of the frame become history; all of them if it is negative.
  void run(int layer, CpuLevel level, int counting = -1) {
    const DecoderKernels &k = decoderKernelsFor(level);
    const int blocks = layer == 1 ? 12 : 36;
    int16_t out[2 * 1152];
    (layer == 1 ? k.I_SubBandSynthesis : k.II_SubBandSynthesis)[Channels - 1](samples, history, out);
    for (int i = 0; i < 32 * blocks; ++i) {
      pcm[i] = out[Channels * i + Channels - 1];
      if (Channels == 2) {
        EXPECT_EQ(out[2 * i], 0) << "the other channel is silent";
      }
    }
    for (SynthesisHistory &h : history) h.advance(counting < 0 ? blocks : counting);
  }
};

template <typename Channel>
void checkSilenceIsSilent(CpuLevel level) {
  for (const int layer : {1, 2}) {
    const auto channel = std::make_unique<Channel>();
    for (int16_t &v : channel->pcm) v = 99;
    channel->run(layer, level);
    for (int i = 0; i < (layer == 1 ? 384 : 1152); ++i) EXPECT_EQ(channel->pcm[i], 0);
  }
}

// One sample in subband 0 comes out as the window, turned with the subband's cosine, over sixteen blocks.
template <typename Channel>
void checkImpulseGivesTheWindow(CpuLevel level) {
  const auto channel = std::make_unique<Channel>();
  channel->set(2, 0, 0, 0.5f);
  channel->run(2, level);
  EXPECT_EQ(channel->pcm[0], 0);
  for (int n = 0; n < 1152; ++n) {
    // V[i] is cos((16 + i) pi / 64); output n is D times it where the window is, 0 beyond.
    const int i = n / 32, j = n % 32;
    const int v = i % 2 == 0 ? j : 32 + j;
    const double y = i < 16 ? synthesisWindow65536[n] * 0.25 * std::cos((16 + v) * M_PI / 64) : 0.0;
    EXPECT_NEAR(channel->pcm[n], y, 0.5001) << n;
  }
}

template <typename Channel>
void checkLoudInputIsClipped(CpuLevel level) {
  for (const int layer : {1, 2})
    for (const float sign : {1.0f, -1.0f}) {
      const auto channel = std::make_unique<Channel>();
      const int blocks = layer == 1 ? 12 : 36;
      for (int b = 0; b < blocks; ++b) channel->set(layer, b, 1, b / 3 % 2 == 0 ? sign * 2.0f : sign * -2.0f);
      channel->run(layer, level);
      int clipped[2] = {};
      for (int i = 0; i < 32 * blocks; ++i) {
        EXPECT_GE(channel->pcm[i], -32768);
        EXPECT_LE(channel->pcm[i], 32767);
        clipped[0] += channel->pcm[i] == -32768;
        clipped[1] += channel->pcm[i] == 32767;
      }
      EXPECT_GT(clipped[0], 0);
      EXPECT_GT(clipped[1], 0);
    }
}

// Random samples over several frames, with layers that change between frames, against cosine sums in double precision.
template <typename Channel>
void checkAgreesWithTheMatrixForm(CpuLevel level) {
  const unsigned seed = 32;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::normal_distribution<float> noise(0.0f, 0.05f);
  const auto channel = std::make_unique<Channel>();
  ReferenceSynthesis reference;
  for (int frame = 0; frame < 12; ++frame) {
    const int layer = frame % 5 == 3 ? 1 : 2, blocks = layer == 1 ? 12 : 36;
    std::vector<double> expected;
    for (int b = 0; b < blocks; ++b) {
      std::array<float, 32> s;
      for (int sb = 0; sb < 32; ++sb) channel->set(layer, b, sb, s[size_t(sb)] = noise(random));
      for (const double y : reference.block(s)) expected.push_back(y);
    }
    channel->run(layer, level);
    expectPcm(Samples(channel->pcm, channel->pcm + 32 * blocks), expected, layer, "matrix form");
  }
}

// A frame of which only the first granules count leaves the history as if the others had not been there.
template <typename Channel>
void checkHistoryAdvancesByWhatCounts(CpuLevel level) {
  const unsigned seed = 17;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> noise(-0.2f, 0.2f);
  for (int counting = 0; counting <= 36; counting += 3) {
    const auto cut = std::make_unique<Channel>();
    ReferenceSynthesis reference;
    for (int b = 0; b < 36; ++b) {
      std::array<float, 32> s;
      for (int sb = 0; sb < 32; ++sb) cut->set(2, b, sb, s[size_t(sb)] = noise(random));
      if (b < counting) reference.block(s);
    }
    cut->run(2, level, counting);
    cut->samples = SubbandSamples{};
    cut->run(2, level);
    std::vector<double> expected;
    for (int b = 0; b < 36; ++b)
      for (const double y : reference.block({})) expected.push_back(y);
    expectPcm(Samples(cut->pcm, cut->pcm + 1152), expected, 2, "after the cut");
  }
}

class Synthesis : public testing::TestWithParam<CpuLevel> {};

TEST_P(Synthesis, SilenceIsSilent) {
  checkSilenceIsSilent<ChannelOf<1>>(GetParam());
  checkSilenceIsSilent<ChannelOf<2>>(GetParam());
}

TEST_P(Synthesis, ImpulseGivesTheWindow) {
  checkImpulseGivesTheWindow<ChannelOf<1>>(GetParam());
  checkImpulseGivesTheWindow<ChannelOf<2>>(GetParam());
}

TEST_P(Synthesis, LoudInputIsClipped) {
  checkLoudInputIsClipped<ChannelOf<1>>(GetParam());
  checkLoudInputIsClipped<ChannelOf<2>>(GetParam());
}

TEST_P(Synthesis, AgreesWithTheMatrixForm) {
  checkAgreesWithTheMatrixForm<ChannelOf<1>>(GetParam());
  checkAgreesWithTheMatrixForm<ChannelOf<2>>(GetParam());
}

TEST_P(Synthesis, HistoryAdvancesByWhatCounts) {
  checkHistoryAdvancesByWhatCounts<ChannelOf<1>>(GetParam());
  checkHistoryAdvancesByWhatCounts<ChannelOf<2>>(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Levels, Synthesis, testing::ValuesIn(levelsHere()),
                         [](const auto &test) { return cpuLevelName(test.param); });

// In a vector of one, and of four, which are clamped in another way.
template <int Layer>
int32_t sampleOf(float y) {
  const Lanes<float, 1> one = {y};
  const Lanes<float, 4> four = {0.0f, 1.0f, y, 2.0f};
  const int32_t sample = kernels::toSamples<1, Layer>(one)[0];
  EXPECT_EQ((kernels::toSamples<4, Layer>(four)[2]), sample) << y;
  return sample;
}

TEST(SynthesisRounding, TellingValues) {
  EXPECT_EQ(sampleOf<2>(2.5f), 3);
  EXPECT_EQ(sampleOf<1>(2.5f), 2);
  EXPECT_EQ(sampleOf<2>(-2.5f), -3);
  EXPECT_EQ(sampleOf<1>(-2.5f), -2);
  EXPECT_EQ(sampleOf<2>(0.0f), 0);
  EXPECT_EQ(sampleOf<2>(-0.0f), 0);
  EXPECT_EQ(sampleOf<2>(0.5f), 1);
  EXPECT_EQ(sampleOf<2>(std::nextafter(0.5f, 0.0f)), 0);
  for (const float y : {1e9f, 3e38f, std::numeric_limits<float>::infinity(), 32767.5f, 32768.0f}) {
    EXPECT_EQ(sampleOf<1>(y), 32767);
    EXPECT_EQ(sampleOf<2>(y), 32767);
    EXPECT_EQ(sampleOf<1>(-y - 1.0f), -32768);
    EXPECT_EQ(sampleOf<2>(-y - 1.0f), -32768);
  }
}

// All floats around every border of rounding, and a walk through all the others.
TEST(SynthesisRounding, AgreesWithTheRule) {
  const auto check = [](float y) {
    ASSERT_EQ(sampleOf<2>(y), referenceSample(2, double(y))) << y;
    ASSERT_EQ(sampleOf<1>(y), referenceSample(1, double(y))) << y;
  };
  for (int n = -65600; n <= 65600; ++n) {
    float y = float(n) * 0.5f;
    for (int i = 0; i < 4; ++i) y = std::nextafter(y, -1e6f);
    for (int i = 0; i < 9; ++i, y = std::nextafter(y, 1e6f)) check(y);
  }
  for (uint32_t bits = 0; bits < 0x7F800000u; bits += 1013 * oneIn()) {
    check(std::bit_cast<float>(bits));
    check(std::bit_cast<float>(bits | 0x80000000u));
  }
}

TEST(Dct, AgreesWithItsDefinition) {
  const unsigned seed = 8;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
  double worst = 0.0;
  for (int round = 0; round < 1000; ++round) {
    float x[32], y[32];
    for (float &v : x) v = uniform(random);
    std::memcpy(y, x, sizeof x);
    kernels::dct2<32>(y);
    for (int m = 0; m < 32; ++m) {
      double sum = 0.0;
      for (int k = 0; k < 32; ++k) sum += double(x[k]) * std::cos(m * (2 * k + 1) * M_PI / 64);
      worst = std::max(worst, std::abs(double(y[m]) - sum));
    }
  }
  EXPECT_LT(worst, 1.5e-6);  // of sums up to 32
}

}  // namespace
}  // namespace qav::test
