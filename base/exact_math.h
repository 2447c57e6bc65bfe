// Elementary functions that give the same bits on every CPU, compiler and C library.
//
// The C library's own differ in the last bit from version to version and pick their code by CPU. These are built from
// IEEE additions, multiplications and divisions alone, so they also run at compile time. Their error stays below 4
// units in the last place of a double: far below half a unit of the single precision that results are rounded to.
#pragma once

#include <bit>
#include <cstdint>

namespace qav {

inline constexpr double kPi = 3.14159265358979323846;

namespace exact_math_detail {

// pi/2 and ln 2 in two parts; the first part has trailing zero bits, so that its products with small integers are
// exact.
inline constexpr double kHalfPiHigh = 0x1.921fb54400000p+0;
inline constexpr double kHalfPiLow = 0x1.0b4611a626331p-34;
inline constexpr double kLn2High = 0x1.62e42fee00000p-1;
inline constexpr double kLn2Low = 0x1.a39ef35793c76p-33;

constexpr int64_t roundToInt(double x) { return int64_t(x < 0 ? x - 0.5 : x + 0.5); }

// 2^k for -1022 <= k <= 1023.
constexpr double powerOfTwo(int64_t k) { return std::bit_cast<double>(uint64_t(k + 1023) << 52); }

// sin and cos of |x| <= pi/4 by their Taylor series.
constexpr double sinCore(double x) {
  const double x2 = x * x;
  double sum = 0.0;
  for (int n = 19; n >= 3; n -= 2) sum = (1.0 + sum) * -x2 / double(n * (n - 1));
  return x + x * sum;
}

constexpr double cosCore(double x) {
  const double x2 = x * x;
  double sum = 0.0;
  for (int n = 20; n >= 2; n -= 2) sum = (1.0 + sum) * -x2 / double(n * (n - 1));
  return 1.0 + sum;
}

constexpr double sinQuadrant(double x, int64_t shift) {
  const int64_t quadrant = roundToInt(x / (kPi / 2));
  const double r = (x - double(quadrant) * kHalfPiHigh) - double(quadrant) * kHalfPiLow;
  switch ((quadrant + shift) & 3) {
    case 0: return sinCore(r);
    case 1: return cosCore(r);
    case 2: return -sinCore(r);
    default: return -cosCore(r);
  }
}

}  // namespace exact_math_detail

// sin x and cos x, |x| <= 2^16.
constexpr double exactSin(double x) { return exact_math_detail::sinQuadrant(x, 0); }
constexpr double exactCos(double x) { return exact_math_detail::sinQuadrant(x, 1); }

// e^x. Results below the smallest normal number are 0, those above the largest are the largest power of two.
constexpr double exactExp(double x) {
  using namespace exact_math_detail;
  if (x < -708.0) return 0.0;
  if (x > 709.0) return powerOfTwo(1023);
  const int64_t k = roundToInt(x / (kLn2High + kLn2Low));
  const double r = (x - double(k) * kLn2High) - double(k) * kLn2Low;
  double sum = 0.0;
  for (int n = 14; n >= 1; --n) sum = (1.0 + sum) * r / double(n);
  return (1.0 + sum) * powerOfTwo(k);
}

// ln x for normal x > 0.
constexpr double exactLog(double x) {
  using namespace exact_math_detail;
  const uint64_t bits = std::bit_cast<uint64_t>(x);
  int64_t exponent = int64_t(bits >> 52) - 1023;
  double mantissa = std::bit_cast<double>((bits & 0xFFFFFFFFFFFFFu) | 0x3FF0000000000000u);
  if (mantissa > 1.4142135623730951) {
    mantissa *= 0.5;
    ++exponent;
  }
  const double s = (mantissa - 1.0) / (mantissa + 1.0);  // ln m = 2 artanh s, |s| < 0.1716
  const double s2 = s * s;
  double sum = 0.0;
  for (int n = 23; n >= 3; n -= 2) sum = (sum + 1.0 / double(n)) * s2;
  return double(exponent) * kLn2High + (2.0 * s + (2.0 * s * sum + double(exponent) * kLn2Low));
}

}  // namespace qav
