#include "encoder/quantization.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "format/alloc_tables.h"
#include "format/scale_factors.h"
#include "tests/support/guarded.h"
#include "tests/support/one_in.h"
#include "tests/support/random.h"

namespace qav {
namespace {

bool roundsAsIfOnce(float x, float r) { return productPlusOne(x, r) == std::fma(x, r, 1.0f); }

// Where rounding twice could show: a sum next to the middle between two floats that is not exact in double precision. It is
// exact where |x * r| >= 1/32, since a product of two floats has 48 bits, and near 1 where the product is tiny. Returns how
// many of the products next to the other middles come out wrong.
int wrongNextToMiddles(float r) {
  int wrong = 0;
  for (const double halfStep : {0x1p-24, -0x1p-25})  // above and below 1
    for (int32_t odd = 1; odd < 1 << 20; odd += 2) {
      const float x = float(odd * halfStep / double(r));
      for (const float near : {x, std::nextafter(x, 9.0f), std::nextafter(x, -9.0f)}) wrong += !roundsAsIfOnce(near, r);
    }
  return wrong;
}

TEST(ProductPlusOne, RoundsAsIfOnceForEveryScaleFactor) {
  for (size_t i = 3; i < 63; ++i)
    ASSERT_EQ(reciprocalScaleFactors[i], 2 * reciprocalScaleFactors[i - 3]) << "else each must be looked at";
  for (const size_t i : {0u, 1u, 2u, 63u}) EXPECT_EQ(wrongNextToMiddles(reciprocalScaleFactors[i]), 0) << i;
}

TEST(ProductPlusOne, RoundsTwiceForOtherFactors) {
  for (const float r : {0x1.1361a2p0f, 0x1.dbc466p0f, 0x1.3b8b32p0f})
    EXPECT_GT(wrongNextToMiddles(r), 0) << "what is looked at could not show it";
}

TEST(ProductPlusOne, RandomProducts) {
  constexpr unsigned kSeed = 41;
  SCOPED_TRACE(kSeed);
  test::Random random(kSeed);
  std::uniform_real_distribution<float> exponent(-140.0f, 30.0f), mantissa(-2.0f, 2.0f);
  for (uint32_t i = 0; i < 2000000; i += test::oneIn()) {
    const float r = reciprocalScaleFactors[random() % 63], scale = 1.0f / r;
    for (const float x : {mantissa(random) * scale,                        // what quantisation sees
                          mantissa(random) * std::exp2(exponent(random)),  // any magnitude
                          mantissa(random) * std::exp2(-float(random() % 32)) * scale})
      ASSERT_TRUE(roundsAsIfOnce(x, r)) << std::hexfloat << x << " * " << r << " + 1";
  }
}

TEST(ProductPlusOne, TheReciprocalsAreThoseOfTheScaleFactors) {
  for (uint32_t i = 0; i < 63; ++i) EXPECT_EQ(reciprocalScaleFactors[i], float(std::exp2(double(i) / 3 - 1))) << i;
  EXPECT_EQ(reciprocalScaleFactors[63], 1.0e20f);
}

class Quantization : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override {
    if (GetParam() > detectCpuLevel()) GTEST_SKIP() << "this CPU is below " << cpuLevelName(GetParam());
    frame.channels = 2;
    frame.sblimit = 30;
    frame.allocTable = al_table1.rows;
    std::memset(quantized, 0x5A, sizeof quantized);
  }

  void quantize() { quantizationFor(GetParam())(index, samples, allocation, quantized, frame); }

  FrameParams frame = {};
  ScaleIndices index[2] = {};
  SubbandFrame samples[2] = {};
  uint32_t allocation[2][32] = {};
  QuantizedFrame quantized[2];
};

TEST_P(Quantization, NamedCases) {
  index[0][0][0] = index[0][1][0] = index[0][2][0] = 3;  // scale factor 1
  allocation[0][0] = 1;                                  // 3 levels
  samples[0][0][samplePlace(1)] = 1.0f;
  samples[0][0][samplePlace(2)] = -1.0f;
  quantize();
  EXPECT_EQ(quantized[0][0][0], 1u);
  EXPECT_EQ(quantized[0][0][samplePlace(1)], 3u) << "one past the largest code, and not clamped";
  EXPECT_EQ(quantized[0][0][samplePlace(2)], 0u);
  EXPECT_EQ(quantized[1][0][0], 0x5A5A5A5Au) << "subbands without bits are left alone";
  EXPECT_EQ(quantized[0][1][0], 0x5A5A5A5Au);
}

// What the standard prescribes, in double precision: A x + B, the first bits of its two's complement fraction, and the
// first of them inverted.
uint32_t standardCode(double x, uint32_t levels) {
  uint32_t bits = 0;
  while ((1u << bits) < levels) ++bits;
  const double half = std::ldexp(1.0, int(bits) - 1);
  const double a = levels / (2 * half), b = a - 1;
  const double y = a * x + b;
  return uint32_t(std::floor(y * half) + half);
}

TEST_P(Quantization, EveryQuantiserFollowsTheStandard) {
  constexpr unsigned kSeed = 43;
  test::Random random(kSeed);
  std::uniform_real_distribution<double> unit(-0.99999, 0.99999);
  uint64_t same = 0, all = 0;
  for (int round = 0; round < 300; ++round) {
    for (int ch = 0; ch < 2; ++ch)
      for (int sb = 0; sb < 30; ++sb) {
        allocation[ch][sb] = random() % (1u << frame.allocTable[sb][0].bits);
        for (uint32_t part = 0; part < 3; ++part) {
          index[ch][part][sb] = random() % 63;
          for (uint32_t j = 0; j < 12; ++j)
            samples[ch][sb][samplePlace(12 * part + j)] = float(unit(random) * double(multiple[index[ch][part][sb]]));
        }
      }
    quantize();
    for (int ch = 0; ch < 2; ++ch)
      for (int sb = 0; sb < 30; ++sb) {
        if (allocation[ch][sb] == 0) continue;
        const uint32_t levels = frame.allocTable[sb][allocation[ch][sb]].steps;
        for (uint32_t t = 0; t < 36; ++t) {
          const uint32_t place = samplePlace(t);
          const double x = double(samples[ch][sb][place]) / double(multiple[index[ch][t / 12][sb]]);
          const uint32_t expected = standardCode(x, levels), actual = quantized[ch][sb][place];
          // A value within rounding of a border between two codes may fall to either side.
          ASSERT_LE(std::abs(int64_t(expected) - int64_t(actual)), 1)
              << "seed " << kSeed << ", " << levels << " levels";
          ASSERT_LT(actual, levels);
          same += expected == actual;
          ++all;
        }
      }
  }
  EXPECT_GT(double(same) / double(all), 0.997) << "seed " << kSeed;
}

TEST_P(Quantization, EveryLevelGivesThePlainBits) {
  constexpr unsigned kSeed = 44;
  test::Random random(kSeed);
  std::uniform_real_distribution<float> unit(-2.5f, 2.5f);
  for (int round = 0; round < 300; ++round) {
    frame.channels = 1 + int32_t(random() % 2);
    const int table = int(random() % 4);
    frame.allocTable = allocTables[table];
    frame.sblimit = std::vector<int32_t>{27, 30, 8, 12}[size_t(table)];
    for (int ch = 0; ch < 2; ++ch)
      for (int sb = 0; sb < 32; ++sb) {
        allocation[ch][sb] = sb < frame.sblimit ? random() % (1u << frame.allocTable[sb][0].bits) : 0;
        for (uint32_t part = 0; part < 3; ++part) {
          index[ch][part][sb] = random() % 64;
          for (uint32_t j = 0; j < 12; ++j) {
            float &x = samples[ch][sb][samplePlace(12 * part + j)];
            x = unit(random) * multiple[index[ch][part][sb]];
            if (random() % 8 == 0) x = std::bit_cast<float>(random() & 0x807FFFFF);  // denormal or zero
            // Next to the middle of two floats, where rounding twice would show.
            if (random() % 4 == 0)
              x = float(std::ldexp(double(2 * (random() >> (8 + random() % 24)) + 1), -24) *
                        double(multiple[index[ch][part][sb]]));
          }
        }
      }
    QuantizedFrame plain[2];
    std::memset(plain, 0x5A, sizeof plain);
    II_subband_quantization(index, samples, allocation, plain, frame);
    test::Guarded<SubbandFrame[2]> input(4 * size_t(round));
    test::Guarded<QuantizedFrame[2]> output(4 * (random() % 16));
    std::memcpy(*input, samples, sizeof samples);
    quantizationFor(GetParam())(index, *input, allocation, *output, frame);
    ASSERT_EQ(std::memcmp(plain, *output, sizeof plain), 0) << "seed " << kSeed << ", round " << round;
    ASSERT_TRUE(output.isIntact()) << "seed " << kSeed << ", round " << round;
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, Quantization, testing::ValuesIn(kCpuLevels),
                         [](const testing::TestParamInfo<CpuLevel> &level) { return cpuLevelName(level.param); });

}  // namespace
}  // namespace qav
