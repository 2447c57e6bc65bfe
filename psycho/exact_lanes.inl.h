// ln and exp for the per-frame arithmetic of the model: the same bits on every machine, with a relative error below 3e-10,
// which is less than a hundredth of a unit of single precision.
//
// N vectors of D doubles go through each step together: the steps of one depend on one another, those of N do not.
#pragma once

#include <cstdint>

#include "base/lanes.h"

namespace qav {

// sum of coefficients[i] x^i, as two interleaved sums over x^2.
template <int D, int N, int Count>
NEB_INLINE void polynomial(const Lanes<double, D> (&x)[N], const double (&coefficients)[Count],
                           Lanes<double, D> (&result)[N]) {
  static_assert(Count % 2 == 0);
  Lanes<double, D> square[N], odd[N];
  for (int n = 0; n < N; ++n) {
    square[n] = x[n] * x[n];
    result[n] = square[n] * coefficients[Count - 2] + coefficients[Count - 4];
    odd[n] = square[n] * coefficients[Count - 1] + coefficients[Count - 3];
  }
  for (int i = Count - 6; i >= 0; i -= 2)
    for (int n = 0; n < N; ++n) {
      result[n] = result[n] * square[n] + coefficients[i];
      odd[n] = odd[n] * square[n] + coefficients[i + 1];
    }
  for (int n = 0; n < N; ++n) result[n] = odd[n] * x[n] + result[n];
}

// y = ln x for normal single-precision x > 0.
template <int D, int N>
NEB_INLINE void logLanes(const Lanes<float, D> (&x)[N], Lanes<double, D> (&y)[N]) {
  using Double = Lanes<double, D>;
  using Int = Lanes<int32_t, D>;
  constexpr int32_t kHalfRootBits = 0x3F3504F3;  // sqrt(1/2)
  static constexpr double kArtanh[6] = {1.0, 1.0 / 3.0, 1.0 / 5.0, 1.0 / 7.0, 1.0 / 9.0, 1.0 / 11.0};
  Double exponent[N], s[N], s2[N], series[N];
  for (int n = 0; n < N; ++n) {
    // x = 2^e m with m from sqrt(1/2) to sqrt(2).
    const Int bits = loadLanes<Int>(&x[n]);
    const Int e = (bits - kHalfRootBits) >> 23;
    const Int mantissaBits = bits - (e << 23);
    const Double m = __builtin_convertvector(loadLanes<Lanes<float, D>>(&mantissaBits), Double);
    exponent[n] = __builtin_convertvector(e, Double);
    s[n] = (m - 1.0) / (m + 1.0);  // ln m = 2 artanh s, |s| < 0.1716
    s2[n] = s[n] * s[n];
  }
  polynomial<D, N>(s2, kArtanh, series);
  for (int n = 0; n < N; ++n) y[n] = exponent[n] * 0.693147180559945309417 + (s[n] + s[n]) * series[n];
}

// y = e^x for |x| < 700.
template <int D, int N>
NEB_INLINE void expLanes(const Lanes<double, D> (&x)[N], Lanes<double, D> (&y)[N]) {
  using Double = Lanes<double, D>;
  using Int = Lanes<int64_t, D>;
  // Adding 1.5 x 2^52 leaves the whole number nearest to the other addend in the lowest bits.
  constexpr double kRounder = 0x1.8p+52;
  static constexpr double kSeries[10] = {1.0,         1.0,         1.0 / 2.0,    1.0 / 6.0,     1.0 / 24.0,
                                         1.0 / 120.0, 1.0 / 720.0, 1.0 / 5040.0, 1.0 / 40320.0, 1.0 / 362880.0};
  Double rounded[N], r[N], series[N];
  for (int n = 0; n < N; ++n) {
    rounded[n] = x[n] * 1.44269504088896340736 + kRounder;
    const Double k = rounded[n] - kRounder;
    // ln 2 in two parts; the first has trailing zero bits, so that its products with k are exact.
    r[n] = (x[n] - k * 0x1.62e42fee00000p-1) - k * 0x1.a39ef35793c76p-33;
  }
  polynomial<D, N>(r, kSeries, series);
  for (int n = 0; n < N; ++n) {
    const Int scaled = loadLanes<Int>(&series[n]) + (loadLanes<Int>(&rounded[n]) << 52);
    y[n] = loadLanes<Double>(&scaled);
  }
}

}  // namespace qav
