#include "base/exact_math.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>

#include "tests/support/one_in.h"

namespace qav {
namespace {

// The distance of `got` from `truth` in units in the last place of a double of `scale`.
double ulps(long double truth, double got, long double scale) {
  int exponent = 0;
  std::frexp(scale, &exponent);
  return double(std::fabs(truth - (long double)got) / std::ldexp(1.0L, exponent - DBL_MANT_DIG));
}

static_assert(exactSin(0.0) == 0.0 && exactCos(0.0) == 1.0 && exactExp(0.0) == 1.0 && exactLog(1.0) == 0.0);

TEST(ExactMath, SineAndCosineStayWithinFourUlps) {
  const unsigned seed = 20261121;
  SCOPED_TRACE(seed);
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> angle(-7.0, 7.0);
  for (uint32_t i = 0; i < 300000; i += test::oneIn()) {
    const double x = angle(random);
    // Near a zero of the function the error is bounded absolutely, as any single-precision use needs.
    ASSERT_LE(ulps(sinl(x), exactSin(x), std::max(fabsl(sinl(x)), 0.5L)), 4.0) << x;
    ASSERT_LE(ulps(cosl(x), exactCos(x), std::max(fabsl(cosl(x)), 0.5L)), 4.0) << x;
  }
}

TEST(ExactMath, SineIsAccurateOverItsWholeRange) {
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> angle(-65536.0, 65536.0);
  for (uint32_t i = 0; i < 100000; i += test::oneIn()) {
    const double x = angle(random);
    ASSERT_NEAR(double(sinl(x)), exactSin(x), 1e-15) << x;
    ASSERT_NEAR(double(cosl(x)), exactCos(x), 1e-15) << x;
  }
}

TEST(ExactMath, ExponentialAndLogarithmStayWithinFourUlps) {
  const unsigned seed = 4711;
  SCOPED_TRACE(seed);
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> exponent(-700.0, 700.0), ratio(0.04, 2.0);
  for (uint32_t i = 0; i < 300000; i += test::oneIn()) {
    const double x = exponent(random);
    ASSERT_LE(ulps(expl(x), exactExp(x), expl(x)), 4.0) << x;
    const double y = exactExp(x);
    ASSERT_LE(ulps(logl(y), exactLog(y), fabsl(logl(y))), 4.0) << y;
    const double z = ratio(random);
    ASSERT_LE(ulps(logl(z), exactLog(z), fabsl(logl(z))), 4.0) << z;
  }
}

TEST(ExactMath, EndsOfTheRange) {
  EXPECT_EQ(exactExp(-1000.0), 0.0);
  EXPECT_EQ(exactExp(1000.0), std::ldexp(1.0, 1023));
  EXPECT_LE(ulps(expl(-708.0L), exactExp(-708.0), expl(-708.0L)), 4.0);
  EXPECT_LE(ulps(expl(709.0L), exactExp(709.0), expl(709.0L)), 4.0);
  EXPECT_NEAR(exactLog(FLT_MIN), std::log(double(FLT_MIN)), 1e-13);
  EXPECT_NEAR(exactLog(DBL_MIN), std::log(DBL_MIN), 1e-12);
}

}  // namespace
}  // namespace qav
