// The discrete cosine transforms inside the synthesis filterbank, on vectors whose values are transformed side by side.
//
// They fold the input into sums and differences; the differences, turned by angles, become two transforms of half the
// length. All steps are additions and rotations, so the rounding errors do not grow as they do with the shortest
// factorisations, and 289 operations suffice for 32 points.
#pragma once

#include "base/attributes.h"
#include "base/exact_math.h"

namespace qav::kernels {

// The cosine and sine of (2k + 1) pi / 4n for k < n / 2, or k = 0 if n is 1.
template <int n>
struct Rotations {
  float cosine[(n + 1) / 2], sine[(n + 1) / 2];

  constexpr Rotations() : cosine(), sine() {
    for (int k = 0; k < (n + 1) / 2; ++k) {
      cosine[k] = float(exactCos((2 * k + 1) * kPi / (4 * n)));
      sine[k] = float(exactSin((2 * k + 1) * kPi / (4 * n)));
    }
  }
};

template <int n>
inline constexpr Rotations<n> kRotations;

template <int n, typename V>
NEB_INLINE void dct4(V *x);

// X[m] = sum over k = 0 .. n - 1 of x[k] cos(m (2k + 1) pi / 2n), in place.
template <int n, typename V>
NEB_INLINE void dct2(V *x) {
  if constexpr (n > 1) {
    V sum[n / 2], difference[n / 2];
#pragma GCC unroll 16
    for (int k = 0; k < n / 2; ++k) {
      sum[k] = x[k] + x[n - 1 - k];
      difference[k] = x[k] - x[n - 1 - k];
    }
    dct2<n / 2>(sum);
    dct4<n / 2>(difference);
#pragma GCC unroll 16
    for (int k = 0; k < n / 2; ++k) {
      x[2 * k] = sum[k];
      x[2 * k + 1] = difference[k];
    }
  }
}

// X[m] = sum over k = 0 .. n - 1 of x[k] cos((2m + 1) (2k + 1) pi / 4n), in place.
//
// With the angles t = (2k + 1) pi / 4n of its first half, x[n - 1 - k] meets cos((2m + 1) (pi / 2 - t)), which is plus or
// minus sin((2m + 1) t). Taking the single angle t out of (2m + 1) t as a rotation leaves multiples of 4t: cosines for
// u, and sines for v, which read backwards are cosines again with every other sign changed.
template <int n, typename V>
NEB_INLINE void dct4(V *x) {
  constexpr const Rotations<n> &turn = kRotations<n>;
  if constexpr (n == 1) {
    x[0] = x[0] * turn.cosine[0];
  } else {
    V u[n / 2], v[n / 2];
#pragma GCC unroll 16
    for (int k = 0; k < n / 2; ++k) {
      const V a = x[k], b = x[n - 1 - k];
      u[k] = a * turn.cosine[k] + b * turn.sine[k];
      v[k] = k % 2 == 0 ? a * turn.sine[k] - b * turn.cosine[k] : b * turn.cosine[k] - a * turn.sine[k];
    }
    dct2<n / 2>(u);
    dct2<n / 2>(v);
    x[0] = u[0];
    x[n - 1] = v[0];
#pragma GCC unroll 16
    for (int m = 1; m < n / 2; ++m) {
      x[2 * m - 1] = u[m] + v[n / 2 - m];
      x[2 * m] = u[m] - v[n / 2 - m];
    }
  }
}

}  // namespace qav::kernels
