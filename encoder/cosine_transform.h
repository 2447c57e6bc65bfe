// Fast cosine transforms of a power of two of points, on values of any arithmetic type or vector of them.
//
//   dct2  y[k] = sum of x[m] cos(k (2m + 1) pi / 2N)
//   dct3  y[k] = sum of x[m] cos((2k + 1) m pi / 2N)
//   dct4  y[k] = sum of x[m] cos((2k + 1) (2m + 1) pi / 4N)        sums over m = 0 .. N - 1
//
// Each splits into transforms of half the length: dct2 and dct3 into the even and odd halves, dct4 by one layer of
// rotations. All coefficients are sines of multiples of pi/64, so N is at most 32 (dct2, dct3) or 16 (dct4). The order of
// the operations is fixed.
#pragma once

#include <array>

#include "base/attributes.h"
#include "base/exact_math.h"

namespace qav {

inline constexpr std::array<double, 33> s_sinTbl = [] {
  std::array<double, 33> table{};
  for (int k = 0; k <= 32; ++k) table[unsigned(k)] = exactSin(k * kPi / 64);
  return table;
}();

// sin and cos of j pi / 64, 0 <= j <= 32.
constexpr double sin64(int j) { return s_sinTbl[unsigned(j)]; }
constexpr double cos64(int j) { return s_sinTbl[unsigned(32 - j)]; }

template <int N, typename V>
NEB_INLINE void dct2(const V *x, V *y);

template <int N, typename V>
NEB_INLINE void dct4(const V *x, V *y) {
  if constexpr (N == 1) {
    y[0] = x[0] * cos64(16);
  } else if constexpr (N == 2) {
    y[0] = x[0] * cos64(8) + x[1] * sin64(8);
    y[1] = x[0] * sin64(8) - x[1] * cos64(8);
  } else {
    // With a = (2m + 1) pi / 4N: x[m] and x[N - 1 - m] meet cos((2k + 1) a) and +-sin((2k + 1) a), and 2k + 1 is 4l + 1
    // or 4l - 1. Turned by a, they meet cos 4la and +-sin 4la; the sines from the other end are cosines again.
    constexpr int H = N / 2;
    V u[H], v[H], cosSum[H], sinSum[H];
    for (int m = 0; m < H; ++m) {
      const int angle = (2 * m + 1) * 16 / N;
      u[m] = x[m] * cos64(angle) + x[N - 1 - m] * sin64(angle);
      if (m % 2 == 0)
        v[m] = x[m] * sin64(angle) - x[N - 1 - m] * cos64(angle);
      else
        v[m] = x[N - 1 - m] * cos64(angle) - x[m] * sin64(angle);
    }
    dct2<H>(u, cosSum);
    dct2<H>(v, sinSum);
    y[0] = cosSum[0];
    for (int l = 1; l < H; ++l) {
      y[2 * l - 1] = cosSum[l] + sinSum[H - l];
      y[2 * l] = cosSum[l] - sinSum[H - l];
    }
    y[N - 1] = sinSum[0];
  }
}

template <int N, typename V>
NEB_INLINE void dct2(const V *x, V *y) {
  if constexpr (N == 1) {
    y[0] = x[0];
  } else {
    constexpr int H = N / 2;
    V sum[H], difference[H], even[H], odd[H];
    for (int m = 0; m < H; ++m) {
      sum[m] = x[m] + x[N - 1 - m];
      difference[m] = x[m] - x[N - 1 - m];
    }
    dct2<H>(sum, even);
    dct4<H>(difference, odd);
    for (int k = 0; k < H; ++k) {
      y[2 * k] = even[k];
      y[2 * k + 1] = odd[k];
    }
  }
}

template <int N, typename V>
NEB_INLINE void dct3(const V *x, V *y) {
  if constexpr (N == 1) {
    y[0] = x[0];
  } else {
    constexpr int H = N / 2;
    V xEven[H], xOdd[H], even[H], odd[H];
    for (int m = 0; m < H; ++m) {
      xEven[m] = x[2 * m];
      xOdd[m] = x[2 * m + 1];
    }
    dct3<H>(xEven, even);
    dct4<H>(xOdd, odd);
    for (int k = 0; k < H; ++k) {
      y[k] = even[k] + odd[k];
      y[N - 1 - k] = even[k] - odd[k];
    }
  }
}

}  // namespace qav
