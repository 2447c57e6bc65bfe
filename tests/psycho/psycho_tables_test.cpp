// The tables of the model against the rules behind them, and that no library could round an entry otherwise.
#include "psycho/psycho_tables.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>

#include "psycho/psycho_state.h"
#include "tests/psycho/reference_model.h"

namespace qav {
namespace {

constexpr int kRates[3] = {44100, 48000, 32000};

struct Free {
  void operator()(PsychoState *s) const { std::free(s); }
};

std::unique_ptr<PsychoState, Free> stateFor(int samplingIndex) {
  FrameParams fp = {};
  fp.samplingIndex = samplingIndex;
  fp.freqHz = kRates[samplingIndex];
  return std::unique_ptr<PsychoState, Free>(neb_psycho_analInit(&fp));
}

// `truth` rounds to `entry`, and lies so far from the middle between two floats that an error of 64 units in the last place
// of a double would not change it.
void expectFarFromBorder(long double truth, float entry) {
  ASSERT_EQ(entry, float(truth));
  const long double magnitude = fabsl(truth);
  for (const float neighbour : {std::nextafter(entry, -INFINITY), std::nextafter(entry, INFINITY)})
    ASSERT_GT(fabsl((static_cast<long double>(neighbour) + static_cast<long double>(entry)) / 2 - truth),
              magnitude * 0x1p-47L)
        << entry;
}

TEST(PsychoTables, AbsoluteThresholdFollowsItsRule) {
  constexpr int kFirstCapped[3] = {464, 428, 480};
  for (int index = 0; index < 3; ++index)
    for (int line = 0; line < kLines; ++line) {
      SCOPED_TRACE(testing::Message() << kRates[index] << " Hz, line " << line);
      const int bin = line + 1, step = bin <= 48 ? 1 : bin <= 96 ? 2 : bin <= 192 ? 4 : 8;
      const double f = (bin + step - 1) / step * step * double(kRates[index]) / 1024.0 / 1000.0;
      const double db = std::min(
          68.0, 3.64 * std::pow(f, -0.8) - 6.5 * std::exp(-0.6 * std::pow(f - 3.3, 2)) + 0.001 * std::pow(f, 4));
      int hundredths = line >= kFirstCapped[index] ? 9600 : int(std::lround(db * 100.0));
      if (index == 0 && line >= 100 && line <= 103) {
        EXPECT_EQ(hundredths, -132);
        hundredths = -133;
      }
      EXPECT_EQ(absoluteThresholdHundredths[index][line], hundredths);
    }
}

TEST(PsychoTables, TellingThresholds) {
  EXPECT_EQ(absthrTbl[0][512], 60776765194240.0f);
  EXPECT_EQ(absoluteThresholdHundredths[0][0], 4505);
  EXPECT_EQ(absoluteThresholdHundredths[1][0], 4210);
  EXPECT_EQ(absoluteThresholdHundredths[2][0], 5823);
  EXPECT_EQ(absoluteThresholdHundredths[0][100], -133);
  EXPECT_EQ(absoluteThresholdHundredths[1][100], 12);
  EXPECT_EQ(absoluteThresholdHundredths[2][100], -496);
  for (const auto &table : absthrTbl)
    for (size_t line = kLines; line < table.size(); ++line) EXPECT_EQ(table[line], 0.0f);
}

TEST(PsychoTables, NoLinearThresholdIsNearARoundingBorder) {
  for (int index = 0; index < 3; ++index)
    for (size_t line = 0; line < kLines; ++line)
      expectFarFromBorder(powl(10.0L, (absoluteThresholdHundredths[index][line] / 100.0L + 41.8373758L) / 10.0L),
                          absthrTbl[index][line]);
}

TEST(PsychoTables, NoWindowEntryIsNearARoundingBorder) {
  for (int i = 0; i < kTransformSize; ++i)
    expectFarFromBorder(0.5L * (1.0L - cosl(6.28318530717958L * (i - 0.5L) / 1024.0L)),
                        analysisWindow.of[i % 2][i / 2]);
}

TEST(PsychoTables, CriticalBandsRise) {
  for (int i = 1; i < 27; ++i) EXPECT_GT(crit_band[i], crit_band[i - 1]);
  EXPECT_EQ(crit_band[0], 0.0f);
  EXPECT_EQ(crit_band[26], 30000.0f);
}

TEST(PsychoInit, DividesTheLinesIntoPartitions) {
  constexpr int kUsed[3] = {63, 63, 59};
  for (int index = 0; index < 3; ++index) {
    const auto state = stateFor(index);
    const reference::Model model(index);
    EXPECT_EQ(model.partitions, kUsed[index]);
    int sum = 0;
    for (size_t p = 0; p < kPartitions; ++p) {
      EXPECT_EQ(state->tables.numlines[p], model.numlines[p]) << p;
      EXPECT_EQ(state->tables.numlines[p] == 0, int(p) >= kUsed[index]) << p;
      sum += state->tables.numlines[p];
    }
    EXPECT_EQ(sum, kLines);
    EXPECT_EQ(state->tables.numlines[0], index == 2 ? 2 : 1);
    EXPECT_GT(state->tables.numlines[kUsed[index] - 2], 24);
  }
}

TEST(PsychoInit, DependentTablesEqualTheEquations) {
  for (int index = 0; index < 3; ++index) {
    const auto state = stateFor(index);
    const reference::Model model(index);
    for (size_t p = 0; p < kPartitions; ++p) {
      SCOPED_TRACE(testing::Message() << kRates[index] << " Hz, partition " << p);
      EXPECT_NEAR(state->tables.norm[p], model.norm[p], 4e-6 * model.norm[p]);
      EXPECT_NEAR(state->tables.tmn_minus_nmt[p], model.tmn[p] - 5.5, 1e-5);
      EXPECT_EQ(state->tables.bmax_part[p], float(model.leastRatio[p]));
      for (size_t k = 0; k < kPartitions; ++k)
        EXPECT_NEAR(state->tables.spread[k][p], model.spread[p][k], 5e-5 * model.spread[p][k]) << k;
      EXPECT_NEAR(state->tables.spread[p][p],
                  std::pow(10.0, (15.811389 + 7.5 * 0.474 - 17.5 * std::sqrt(1.0 + 0.474 * 0.474)) / 10.0), 1e-6);
    }
    for (size_t k = 0; k < kPartitions; ++k) EXPECT_EQ(state->tables.spread[k][63], 0.0f);
  }
}

TEST(PsychoInit, OtherRatesAreRefused) {
  for (const int index : {-1, 0, 1, 2, 3})
    for (const int rate : {-1, 0, 16000, 22050, 24000, 44099, 96000, 0x7FFFFFFF}) {
      FrameParams fp = {};
      fp.samplingIndex = index;
      fp.freqHz = rate;
      EXPECT_EQ(neb_psycho_analInit(&fp), nullptr) << index << ' ' << rate;
    }
}

TEST(PsychoInit, UnusedPartitionsAreHarmless) {
  const auto state = stateFor(2);
  for (size_t p = 59; p < kPartitions; ++p) {
    EXPECT_EQ(state->tables.norm[p], 0.0f);
    EXPECT_EQ(state->tables.bmax_part[p], 20.0f);
  }
}

// The exponential of every entry is taken of one number in double precision: repeated in long double from the same mean
// Bark values, none may lie near a border.
TEST(PsychoInit, NoSpreadingEntryIsNearARoundingBorder) {
  for (int index = 0; index < 3; ++index) {
    const auto state = stateFor(index);
    // The mean Bark values in the single precision that the set-up uses.
    float bark[kPartitions] = {};
    const float lineHz = float(kRates[index]) * (1.0f / 1024.0f);
    int line = 0;
    for (int p = 0; p < kPartitions && state->tables.numlines[p] > 0; ++p) {
      float sum = 0.0f;
      for (int i = 0; i < state->tables.numlines[p]; ++i, ++line) {
        const float f = float(line) * lineHz;
        int j = 1;
        while (f > crit_band[j]) ++j;
        sum += float(j - 1) + (f - crit_band[j - 1]) / (crit_band[j] - crit_band[j - 1]);
      }
      bark[p] = sum / float(state->tables.numlines[p]);
    }
    for (int k = 0; k < kPartitions; ++k)
      for (int p = 0; p < kPartitions; ++p) {
        const long double dz = (static_cast<long double>(bark[p]) - static_cast<long double>(bark[k])) * 1.05L;
        const long double x = dz >= 0.5L && dz <= 2.5L ? 8 * ((dz - 0.5L) * (dz - 0.5L) - 2 * (dz - 0.5L)) : 0.0L;
        const long double t = dz + 0.474L, y = 15.811389L + 7.5L * t - 17.5L * sqrtl(1 + t * t);
        ASSERT_GT(fabsl(y + 100), 1e-9L);
        if (y > -100)
          expectFarFromBorder(expl((x + y) * 0.2302585093L), state->tables.spread[k][p]);
        else
          ASSERT_EQ(state->tables.spread[k][p], 0.0f);
      }
  }
}

TEST(PsychoInit, LinesDoNotFallOnPartitionBorders) {
  // The partitions are divided in single precision; the nearest line must be farther from the limit than its rounding.
  for (const int rate : kRates) {
    double lowest = 0.0, margin = 1.0;
    for (int line = 1; line < kLines; ++line) {
      const double f = line * double(rate) / 1024.0;
      size_t j = 1;
      while (f > double(crit_band[j])) ++j;
      const double bark =
          double(j - 1) + (f - double(crit_band[j - 1])) / (double(crit_band[j]) - double(crit_band[j - 1]));
      margin = std::min(margin, std::abs(bark - lowest - 0.33));
      if (bark - lowest > 0.33) lowest = bark;
    }
    EXPECT_GT(margin, 1e-5) << rate;
  }
}

}  // namespace
}  // namespace qav
