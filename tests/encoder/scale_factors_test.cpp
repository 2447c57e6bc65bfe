#include "encoder/scale_factors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "format/scale_factors.h"
#include "tests/support/guarded.h"
#include "tests/support/random.h"

namespace qav {
namespace {

// The search of the standard: the smallest table value that is not below the largest magnitude.
uint32_t searchedIndex(const float subband[kSubbandSamples], uint32_t part) {
  float largest = 0;
  for (uint32_t t = 12 * part; t < 12 * part + 12; ++t) largest = std::max(largest, std::abs(subband[samplePlace(t)]));
  for (uint32_t i = 62; i > 0; --i)
    if (largest <= multiple[i]) return i;
  return 0;
}

class ScaleFactors : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override {
    if (GetParam() > detectCpuLevel()) GTEST_SKIP() << "this CPU is below " << cpuLevelName(GetParam());
  }

  void calculate(int32_t channels, int32_t sblimit) {
    const size_t shift = 4 * calls++;
    test::Guarded<SubbandFrame[2]> input(shift);
    test::Guarded<ScaleIndices[2]> output(shift / 16);
    std::memcpy(*input, samples, sizeof samples);
    scaleFactorsFor(GetParam())(*input, *output, channels, sblimit);
    ASSERT_TRUE(output.isIntact());
    std::memcpy(index, *output, sizeof index);
  }

  SubbandFrame samples[2] = {};
  ScaleIndices index[2];
  size_t calls = 0;  // each at another distance from aligned addresses
};

TEST_P(ScaleFactors, TheTableAndItsNeighbours) {
  // In turn a table value, the float above and the float below it, at every place of a part.
  for (uint32_t i = 0; i < 63; ++i) {
    const float value = multiple[i];
    for (const float m : {value, std::nextafter(value, 9.0f), std::nextafter(value, 0.0f)})
      for (uint32_t place = 0; place < 12; ++place) {
        std::memset(samples, 0, sizeof samples);
        samples[1][5][samplePlace(12 + place)] = place % 2 == 0 ? m : -m;
        calculate(2, 30);
        ASSERT_EQ(index[1][1][5], searchedIndex(samples[1][5], 1)) << "around entry " << i << ", place " << place;
        ASSERT_EQ(m == value ? index[1][1][5] : i, i);
        ASSERT_EQ(index[1][0][5], 62u);
      }
  }
}

TEST_P(ScaleFactors, EdgeCases) {
  samples[0][0][0] = 2.5f;    // above all scale factors
  samples[0][1][0] = 1e-30f;  // far below the smallest
  samples[0][2][0] = 1e-42f;  // denormal
  samples[0][3][0] = -2.0f;
  calculate(1, 8);
  EXPECT_EQ(index[0][0][0], 0u);
  EXPECT_EQ(index[0][0][1], 62u);
  EXPECT_EQ(index[0][0][2], 62u);
  EXPECT_EQ(index[0][0][3], 0u);
  EXPECT_EQ(index[0][0][4], 62u);  // silence
  for (int part = 0; part < 3; ++part)
    for (int sb = 8; sb < 32; ++sb) EXPECT_EQ(index[0][part][sb], 63u);
  EXPECT_EQ(index[1][0][0], 0x5A5A5A5Au) << "channel 1 of one is left alone";
}

TEST_P(ScaleFactors, RandomSamplesAgainstTheSearch) {
  constexpr unsigned kSeed = 21;
  test::Random random(kSeed);
  std::uniform_real_distribution<float> exponent(-24.0f, 1.5f), sign(-1.0f, 1.0f);
  for (int round = 0; round < 100; ++round) {
    for (auto &channel : samples)
      for (auto &subband : channel)
        for (float &x : subband) x = std::copysign(std::exp2(exponent(random)), sign(random));
    const int32_t sblimit = std::vector<int32_t>{0, 8, 12, 27, 30, 32}[random() % 6];
    calculate(2, sblimit);
    for (int ch = 0; ch < 2; ++ch)
      for (int part = 0; part < 3; ++part)
        for (int sb = 0; sb < 32; ++sb)
          ASSERT_EQ(index[ch][part][sb], sb < sblimit ? searchedIndex(samples[ch][sb], uint32_t(part)) : 63u)
              << "seed " << kSeed << ", round " << round;
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, ScaleFactors, testing::ValuesIn(kCpuLevels),
                         [](const testing::TestParamInfo<CpuLevel> &level) { return cpuLevelName(level.param); });

FrameParams frameOf(int32_t channels, int32_t sblimit) {
  FrameParams frame = {};
  frame.channels = channels;
  frame.sblimit = sblimit;
  return frame;
}

// The pattern table of the standard as it is printed, and what each of its entries asks for.
struct Chosen {
  uint32_t scfsi, s0, s1, s2;
};

Chosen expectedPattern(uint32_t s0, uint32_t s1, uint32_t s2) {
  const char *const table[5][5] = {{"123", "122", "122", "133", "123"},
                                   {"113", "111", "111", "444", "113"},
                                   {"111", "111", "111", "333", "113"},
                                   {"222", "222", "222", "333", "123"},
                                   {"123", "122", "122", "133", "123"}};
  const auto classOf = [](int d) { return d <= -3 ? 0 : d < 0 ? 1 : d == 0 ? 2 : d < 3 ? 3 : 4; };
  const std::string pattern = table[classOf(int(s0) - int(s1))][classOf(int(s1) - int(s2))];
  const uint32_t smaller = std::min(s0, s2);
  const std::map<char, uint32_t> source = {{'1', s0}, {'2', s1}, {'3', s2}, {'4', smaller}};
  const uint32_t scfsi = pattern == "123"                                       ? 0
                         : pattern[0] == pattern[1] && pattern[1] == pattern[2] ? 2
                         : pattern[0] == pattern[1]                             ? 1
                                                                                : 3;
  return {scfsi, source.at(pattern[0]), source.at(pattern[1]), source.at(pattern[2])};
}

TEST(TransmissionPattern, NamedCases) {
  ScaleIndices index[2] = {};
  uint32_t scfsi[2][32] = {};
  const uint32_t cases[][3] = {{10, 10, 10}, {10, 12, 10}, {10, 20, 30}};
  for (uint32_t i = 0; i < 3; ++i)
    for (uint32_t part = 0; part < 3; ++part) index[0][part][i] = cases[i][part];
  II_transmission_pattern(index, scfsi, frameOf(1, 8));
  EXPECT_EQ(scfsi[0][0], 2u);
  EXPECT_EQ(scfsi[0][1], 2u);
  EXPECT_EQ(index[0][0][1], 10u);
  EXPECT_EQ(index[0][1][1], 10u);
  EXPECT_EQ(index[0][2][1], 10u);
  EXPECT_EQ(scfsi[0][2], 0u);
  EXPECT_EQ(index[0][1][2], 20u);
}

TEST(TransmissionPattern, EveryTripleAgainstTheTable) {
  for (uint32_t s0 = 0; s0 < 63; ++s0)
    for (uint32_t s1 = 0; s1 < 63; ++s1)
      for (uint32_t s2 = 0; s2 < 63; ++s2) {
        ScaleIndices index[2] = {};
        uint32_t scfsi[2][32] = {};
        index[1][0][7] = s0;
        index[1][1][7] = s1;
        index[1][2][7] = s2;
        II_transmission_pattern(index, scfsi, frameOf(2, 8));
        const Chosen expected = expectedPattern(s0, s1, s2);
        ASSERT_EQ(scfsi[1][7], expected.scfsi) << s0 << ' ' << s1 << ' ' << s2;
        ASSERT_EQ(index[1][0][7], expected.s0) << s0 << ' ' << s1 << ' ' << s2;
        ASSERT_EQ(index[1][1][7], expected.s1) << s0 << ' ' << s1 << ' ' << s2;
        ASSERT_EQ(index[1][2][7], expected.s2) << s0 << ' ' << s1 << ' ' << s2;
      }
}

TEST(TransmissionPattern, LeavesWhatIsNotCodedAlone) {
  ScaleIndices index[2];
  uint32_t scfsi[2][32];
  std::memset(index, 0, sizeof index);
  std::memset(scfsi, 0x5A, sizeof scfsi);
  II_transmission_pattern(index, scfsi, frameOf(1, 12));
  EXPECT_EQ(scfsi[0][11], 2u);
  EXPECT_EQ(scfsi[0][12], 0x5A5A5A5Au);
  EXPECT_EQ(scfsi[1][0], 0x5A5A5A5Au);
}

TEST(EncodeScale, WritesSelectionThenIndicesOfAllocatedSubbands) {
  FrameParams frame = frameOf(2, 8);
  uint32_t allocation[2][32] = {}, scfsi[2][32] = {};
  ScaleIndices index[2] = {};
  const auto set = [&](uint32_t ch, uint32_t sb, uint32_t selection, uint32_t s0, uint32_t s1, uint32_t s2) {
    allocation[ch][sb] = 1;
    scfsi[ch][sb] = selection;
    index[ch][0][sb] = s0;
    index[ch][1][sb] = s1;
    index[ch][2][sb] = s2;
  };
  set(0, 0, 0, 1, 2, 3);
  set(1, 0, 1, 4, 4, 5);
  set(1, 2, 2, 6, 6, 6);
  set(0, 7, 3, 7, 8, 8);
  scfsi[0][3] = 1;  // not allocated: nothing of it is written

  uint8_t bytes[32] = {};
  BitWriter writer = {bytes, 0};
  II_encode_scale(allocation, scfsi, index, frame, writer);

  uint8_t expected[32] = {};
  BitWriter reference = {expected, 0};
  for (const uint32_t selection : {0u, 1u, 2u, 3u}) putbits(reference, selection, 2);
  for (const uint32_t scale : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u}) putbits(reference, scale, 6);
  EXPECT_EQ(writer.position, reference.position);
  EXPECT_EQ(std::memcmp(bytes, expected, sizeof bytes), 0);
}

}  // namespace
}  // namespace qav
