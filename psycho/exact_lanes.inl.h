// ln and exp of vectors of doubles, for the per-frame arithmetic of the model: the same bits on every machine, with an
// error far below half a unit of single precision.
#pragma once

#include <cstdint>

#include "base/lanes.h"

namespace qav {

// ln x for normal single-precision x > 0; relative error below 1e-12 but near 1, where it is absolute.
template <int D>
NEB_INLINE Lanes<double, D> logLanes(const Lanes<float, D> &x) {
  using Double = Lanes<double, D>;
  using Int = Lanes<int32_t, D>;
  constexpr int32_t kHalfRootBits = 0x3F3504F3;  // sqrt(1/2)
  const Int bits = loadLanes<Int>(&x);
  // x = 2^exponent m with m from sqrt(1/2) to sqrt(2).
  const Int exponent = (bits - kHalfRootBits) >> 23;
  const Int mantissaBits = bits - (exponent << 23);
  const Double m = __builtin_convertvector(loadLanes<Lanes<float, D>>(&mantissaBits), Double);
  const Double s = (m - 1.0) / (m + 1.0);  // ln m = 2 artanh s, |s| < 0.1716
  const Double s2 = s * s;
  Double sum = s2 * (1.0 / 15.0) + 1.0 / 13.0;
  sum = sum * s2 + 1.0 / 11.0;
  sum = sum * s2 + 1.0 / 9.0;
  sum = sum * s2 + 1.0 / 7.0;
  sum = sum * s2 + 1.0 / 5.0;
  sum = sum * s2 + 1.0 / 3.0;
  sum = sum * s2 + 1.0;
  return __builtin_convertvector(exponent, Double) * 0.693147180559945309417 + (s + s) * sum;
}

// e^x for |x| < 700; relative error below 1e-12.
template <int D>
NEB_INLINE Lanes<double, D> expLanes(const Lanes<double, D> &x) {
  using Double = Lanes<double, D>;
  using Int = Lanes<int64_t, D>;
  // Adding 1.5 x 2^52 leaves the whole number nearest to the sum's other part in the lowest bits.
  constexpr double kRounder = 0x1.8p+52;
  const Double rounded = x * 1.44269504088896340736 + kRounder;
  const Double k = rounded - kRounder;
  // ln 2 in two parts; the first has trailing zero bits, so that its products with k are exact.
  const Double r = (x - k * 0x1.62e42fee00000p-1) - k * 0x1.a39ef35793c76p-33;
  Double sum = r * (1.0 / 3628800.0) + 1.0 / 362880.0;
  sum = sum * r + 1.0 / 40320.0;
  sum = sum * r + 1.0 / 5040.0;
  sum = sum * r + 1.0 / 720.0;
  sum = sum * r + 1.0 / 120.0;
  sum = sum * r + 1.0 / 24.0;
  sum = sum * r + 1.0 / 6.0;
  sum = sum * r + 0.5;
  sum = sum * r + 1.0;
  sum = sum * r + 1.0;
  const Int scaled = loadLanes<Int>(&sum) + (loadLanes<Int>(&rounded) << 52);
  return loadLanes<Double>(&scaled);
}

}  // namespace qav
