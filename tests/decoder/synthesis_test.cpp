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

namespace qav::test {
namespace {

// One channel, a frame at a time, in the standard's order of blocks.
struct Channel {
  SynthesisHistory history{};
  SubbandSamples samples{};
  ChannelPcm pcm{};

  static int slot(int layer, int block) { return layer == 1 ? block : 12 * (block % 3) + block / 3; }

  void set(int layer, int block, int sb, float value) { samples.value[0][sb][slot(layer, block)] = value; }

  void run(int layer, CpuLevel level) {
    const DecoderKernels &k = decoderKernelsFor(level);
    (layer == 1 ? k.I_SubBandSynthesis : k.II_SubBandSynthesis)(samples.value[0], history, pcm);
    history.advance(layer == 1 ? 12 : 36);
  }
};

using ChannelPtr = std::unique_ptr<Channel>;

class Synthesis : public testing::TestWithParam<CpuLevel> {};

TEST_P(Synthesis, SilenceIsSilent) {
  for (const int layer : {1, 2}) {
    const ChannelPtr channel = std::make_unique<Channel>();
    for (int32_t &v : channel->pcm.sample) v = 99;
    channel->run(layer, GetParam());
    for (int i = 0; i < (layer == 1 ? 384 : 1152); ++i) EXPECT_EQ(channel->pcm.sample[i], 0);
  }
}

// One sample in subband 0 comes out as the window, turned with the subband's cosine, over sixteen blocks.
TEST_P(Synthesis, ImpulseGivesTheWindow) {
  const ChannelPtr channel = std::make_unique<Channel>();
  channel->set(2, 0, 0, 0.5f);
  channel->run(2, GetParam());
  EXPECT_EQ(channel->pcm.sample[0], 0);
  for (int n = 0; n < 1152; ++n) {
    // V[i] is cos((16 + i) pi / 64); output n is D times it where the window is, 0 beyond.
    const int i = n / 32, j = n % 32;
    const int v = i % 2 == 0 ? j : 32 + j;
    const double y = i < 16 ? synthesisWindow65536[n] * 0.25 * std::cos((16 + v) * M_PI / 64) : 0.0;
    EXPECT_NEAR(channel->pcm.sample[n], y, 0.5001) << n;
  }
}

TEST_P(Synthesis, LoudInputIsClipped) {
  for (const int layer : {1, 2})
    for (const float sign : {1.0f, -1.0f}) {
      const ChannelPtr channel = std::make_unique<Channel>();
      const int blocks = layer == 1 ? 12 : 36;
      for (int b = 0; b < blocks; ++b) channel->set(layer, b, 1, b / 3 % 2 == 0 ? sign * 2.0f : sign * -2.0f);
      channel->run(layer, GetParam());
      int clipped[2] = {};
      for (int i = 0; i < 32 * blocks; ++i) {
        EXPECT_GE(channel->pcm.sample[i], -32768);
        EXPECT_LE(channel->pcm.sample[i], 32767);
        clipped[0] += channel->pcm.sample[i] == -32768;
        clipped[1] += channel->pcm.sample[i] == 32767;
      }
      EXPECT_GT(clipped[0], 0);
      EXPECT_GT(clipped[1], 0);
    }
}

// Random samples over several frames, with layers that change between frames, against cosine sums in double precision.
TEST_P(Synthesis, AgreesWithTheMatrixForm) {
  const unsigned seed = 32;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::normal_distribution<float> noise(0.0f, 0.05f);
  const ChannelPtr channel = std::make_unique<Channel>();
  ReferenceSynthesis reference;
  for (int frame = 0; frame < 12; ++frame) {
    const int layer = frame % 5 == 3 ? 1 : 2, blocks = layer == 1 ? 12 : 36;
    std::vector<double> expected;
    for (int b = 0; b < blocks; ++b) {
      std::array<float, 32> s;
      for (int sb = 0; sb < 32; ++sb) channel->set(layer, b, sb, s[size_t(sb)] = noise(random));
      for (const double y : reference.block(s)) expected.push_back(y);
    }
    channel->run(layer, GetParam());
    expectPcm(Samples(channel->pcm.sample, channel->pcm.sample + 32 * blocks), expected, layer, "matrix form");
  }
}

// A frame of which only the first granules count leaves the history as if the others had not been there.
TEST_P(Synthesis, HistoryAdvancesByWhatCounts) {
  const unsigned seed = 17;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> noise(-0.2f, 0.2f);
  for (int counting = 0; counting <= 36; counting += 3) {
    const ChannelPtr cut = std::make_unique<Channel>();
    ReferenceSynthesis reference;
    for (int b = 0; b < 36; ++b) {
      std::array<float, 32> s;
      for (int sb = 0; sb < 32; ++sb) cut->set(2, b, sb, s[size_t(sb)] = noise(random));
      if (b < counting) reference.block(s);
    }
    decoderKernelsFor(GetParam()).II_SubBandSynthesis(cut->samples.value[0], cut->history, cut->pcm);
    cut->history.advance(counting);
    cut->samples = SubbandSamples{};
    cut->run(2, GetParam());
    std::vector<double> expected;
    for (int b = 0; b < 36; ++b)
      for (const double y : reference.block({})) expected.push_back(y);
    expectPcm(Samples(cut->pcm.sample, cut->pcm.sample + 1152), expected, 2, "after the cut");
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, Synthesis, testing::ValuesIn(levelsHere()),
                         [](const auto &test) { return cpuLevelName(test.param); });

template <int Layer>
int32_t sampleOf(float y) {
  const Lanes<float, 1> v = {y};
  return kernels::toSamples<1, Layer>(v)[0];
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
  for (uint32_t bits = 0; bits < 0x7F800000u; bits += 1013) {
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
