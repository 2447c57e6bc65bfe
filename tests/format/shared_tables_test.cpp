// The constants that decoder and encoder share, against the rules behind them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "format/scale_factors.h"
#include "format/window.h"

namespace qav {
namespace {

TEST(ScaleFactors, ArePowersOfTheCubeRootOfTwo) {
  for (int i = 0; i < 63; ++i) {
    const long double truth = exp2l(1.0L - i / 3.0L);
    EXPECT_EQ(multiple[size_t(i)], float(truth)) << i;
    // The value lies far enough from the middle of two floats that no way of computing it rounds to the other.
    const long double below = std::nextafter(multiple[size_t(i)], 0.0f),
                      above = std::nextafter(multiple[size_t(i)], 3.0f);
    EXPECT_GT(truth - (below + (long double)multiple[size_t(i)]) / 2, truth * 0x1p-48L) << i;
    EXPECT_GT((above + (long double)multiple[size_t(i)]) / 2 - truth, truth * 0x1p-48L) << i;
  }
  EXPECT_EQ(multiple[63], 1.0e-20f);
}

TEST(Window, TellingValues) {
  const auto &d = synthesisWindow65536;
  EXPECT_EQ(d[0], 0);
  EXPECT_EQ(d[1], -1);
  EXPECT_EQ(d[64], 213);
  EXPECT_EQ(d[128], 2037);
  EXPECT_EQ(d[192], 6574);
  EXPECT_EQ(d[255], -74992);
  EXPECT_EQ(d[256], 75038);
  EXPECT_EQ(d[257], 74992);
  EXPECT_EQ(d[511], 1);
}

TEST(Window, IsSymmetricButForSigns) {
  for (int i = 1; i < 512; ++i)
    EXPECT_EQ(std::abs(synthesisWindow65536[i]), std::abs(synthesisWindow65536[512 - i])) << i;
  for (int i = 0; i < 512; ++i) EXPECT_LE(std::abs(synthesisWindow65536[i]), synthesisWindow65536[256]) << i;
}

// With the alternating signs of its 64-sample blocks removed the window is a low-pass prototype: the filterbank is
// nearly free of gain error, so the squares of the taps 32 apart add to the same value for every phase.
TEST(Window, IsPowerComplementary) {
  for (int phase = 0; phase < 32; ++phase) {
    double power = 0.0;
    for (int i = phase; i < 512; i += 32) power += std::pow(synthesisWindow65536[i] / 65536.0, 2);
    EXPECT_NEAR(power, 2.0, 0.001) << phase;
  }
}

}  // namespace
}  // namespace qav
