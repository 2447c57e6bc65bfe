// The real transform of 1024 points, with W lanes.
//
// The 512 complex values z[j] = a[2j] + i a[2j+1] are transformed as 8 x 8 x 8. With j = 64 q + 8 u + v and
// k = r + 8 t + 64 x, all of 0 .. 7:
//   pass 1: sums over q, for every r; lanes run across (u, v)
//   pass 2: sums over u, for every t; lanes run across (r, v)
//   pass 3: sums over v, for every x; lanes run across (t, r), which is the order of the spectrum
// A final pass takes the spectra of even and odd samples apart. Every value meets the same operations in the same order
// whatever W is.
#pragma once

#include <array>

#include "base/exact_math.h"
#include "base/lanes.h"
#include "psycho/lane_math.inl.h"
#include "psycho/spectrum.h"

namespace qav {

struct Rdft1024Tables {
  float pass1[8][2][64];  // exp(2 pi i r m / 512) for r, and m = 8 u + v: real parts, imaginary parts
  float pass2[8][2][16];  // exp(2 pi i t v / 64) for t, and v twice over
  float split[2][256];    // (1 - sin(2 pi k / 1024)) / 2 and cos(2 pi k / 1024) / 2
};

constexpr Rdft1024Tables makeRdft1024Tables() {
  Rdft1024Tables tables = {};
  for (int r = 0; r < 8; ++r)
    for (int m = 0; m < 64; ++m) {
      tables.pass1[r][0][m] = float(exactCos(2.0 * kPi * (r * m) / 512.0));
      tables.pass1[r][1][m] = float(exactSin(2.0 * kPi * (r * m) / 512.0));
    }
  for (int t = 0; t < 8; ++t)
    for (int lane = 0; lane < 16; ++lane) {
      tables.pass2[t][0][lane] = float(exactCos(2.0 * kPi * (t * (lane % 8)) / 64.0));
      tables.pass2[t][1][lane] = float(exactSin(2.0 * kPi * (t * (lane % 8)) / 64.0));
    }
  for (int k = 0; k < 256; ++k) {
    tables.split[0][k] = float(0.5 - 0.5 * exactSin(2.0 * kPi * k / 1024.0));
    tables.split[1][k] = float(0.5 * exactCos(2.0 * kPi * k / 1024.0));
  }
  return tables;
}

alignas(64) inline constexpr Rdft1024Tables rdft1024Tables = makeRdft1024Tables();

template <int W>
struct ComplexLanes {
  Lanes<float, W> re, im;
};

template <int W>
NEB_INLINE ComplexLanes<W> operator+(const ComplexLanes<W> &a, const ComplexLanes<W> &b) {
  return {a.re + b.re, a.im + b.im};
}
template <int W>
NEB_INLINE ComplexLanes<W> operator-(const ComplexLanes<W> &a, const ComplexLanes<W> &b) {
  return {a.re - b.re, a.im - b.im};
}
template <int W>
NEB_INLINE ComplexLanes<W> operator*(const ComplexLanes<W> &a, const ComplexLanes<W> &b) {
  return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}
template <int W>
NEB_INLINE ComplexLanes<W> timesI(const ComplexLanes<W> &a) {
  return {-a.im, a.re};
}

// y[s] = sum of z[j] exp(2 pi i j s / 8).
template <int W>
NEB_INLINE void transform8(const ComplexLanes<W> (&z)[8], ComplexLanes<W> (&y)[8]) {
  constexpr float kHalfRoot = 0x1.6a09e6p-1f;  // sqrt(1/2)
  using C = ComplexLanes<W>;
  const C a0 = z[0] + z[4], a1 = z[1] + z[5], a2 = z[2] + z[6], a3 = z[3] + z[7];
  const C b0 = z[0] - z[4], b1 = z[1] - z[5], b2 = z[2] - z[6], b3 = z[3] - z[7];
  const C c0 = a0 + a2, c1 = a1 + a3, d0 = a0 - a2, d1 = a1 - a3;
  y[0] = c0 + c1;
  y[4] = c0 - c1;
  y[2] = {d0.re - d1.im, d0.im + d1.re};
  y[6] = {d0.re + d1.im, d0.im - d1.re};
  // The odd outputs are the transform of b[j] exp(2 pi i j / 8).
  const C e1 = {(b1.re - b1.im) * kHalfRoot, (b1.re + b1.im) * kHalfRoot};
  const C e3 = {(b3.re + b3.im) * kHalfRoot, (b3.re - b3.im) * kHalfRoot};  // (-re, im)
  const C f0 = {b0.re - b2.im, b0.im + b2.re}, f1 = {e1.re - e3.re, e1.im + e3.im};
  const C g0 = {b0.re + b2.im, b0.im - b2.re}, g1 = {e1.re + e3.re, e1.im - e3.im};
  y[1] = f0 + f1;
  y[5] = f0 - f1;
  y[3] = {g0.re - g1.im, g0.im + g1.re};
  y[7] = {g0.re + g1.im, g0.im - g1.re};
}

// Values between the passes. Of pass 1: [u][place of (r, v)]; of pass 2: [t][place of (r, v)].
struct alignas(64) Rdft1024Work {
  float re[8][64], im[8][64];
};

// Where pass 2 keeps (r, v): so that pass 3 finds in one vector what it takes apart last.
constexpr int placeOf(int r, int v) { return r % 4 * 16 + r / 4 * 8 + v; }

// Lanes 8 u + v of one r.
template <int W>
NEB_INLINE void storePass1(float (&out)[8][64], int r, int m, const Lanes<float, W> &y) {
  if constexpr (W == 16) {
    float both[16];
    storeLanes(both, y);
    std::memcpy(&out[m / 8][placeOf(r, 0)], both, 8 * sizeof(float));
    std::memcpy(&out[m / 8 + 1][placeOf(r, 0)], both + 8, 8 * sizeof(float));
  } else {
    storeLanes(&out[m / 8][placeOf(r, m % 8)], y);
  }
}

// `source(j)` gives z[j .. j + W - 1].
template <int W, typename Source>
NEB_INLINE void rdft1024Pass1(const Source &source, Rdft1024Work &work) {
  using V = Lanes<float, W>;
  for (int m = 0; m < 64; m += W) {
    ComplexLanes<W> z[8], y[8];
    for (int q = 0; q < 8; ++q) z[q] = source(64 * q + m);
    transform8<W>(z, y);
    for (int r = 0; r < 8; ++r) {
      if (r > 0)
        y[r] = y[r] * ComplexLanes<W>{loadLanes<V>(&rdft1024Tables.pass1[r][0][m]),
                                      loadLanes<V>(&rdft1024Tables.pass1[r][1][m])};
      storePass1<W>(work.re, r, m, y[r].re);
      storePass1<W>(work.im, r, m, y[r].im);
    }
  }
}

template <int W>
NEB_INLINE void rdft1024Pass2(Rdft1024Work &work) {
  using V = Lanes<float, W>;
  for (int place = 0; place < 64; place += W) {
    ComplexLanes<W> z[8], y[8];
    for (int u = 0; u < 8; ++u) z[u] = {loadLanes<V>(&work.re[u][place]), loadLanes<V>(&work.im[u][place])};
    transform8<W>(z, y);
    for (int t = 0; t < 8; ++t) {
      if (t > 0)
        y[t] = y[t] * ComplexLanes<W>{loadLanes<V>(&rdft1024Tables.pass2[t][0][place % 16]),
                                      loadLanes<V>(&rdft1024Tables.pass2[t][1][place % 16])};
      storeLanes(&work.re[t][place], y[t].re);
      storeLanes(&work.im[t][place], y[t].im);
    }
  }
}

// z[v] for outputs k = g W .. g W + W - 1 of one x: the (r, v) of pass 2, turned so that lanes run across (t, r).
template <int W>
NEB_INLINE void gatherPass3(const float (&work)[8][64], int g, Lanes<float, W> (&z)[8]) {
  using V = Lanes<float, W>;
  V rows[4][2];  // [r % 4][t, r / 4 or v / 4, whichever does not lie in the lanes]
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 2; ++j) {
      const int t = W == 16 ? 2 * g + j : W == 8 ? g : g / 2;
      const int place = 16 * i + (W == 16 ? 0 : W == 8 ? 8 * j : 8 * (g % 2) + 4 * j);
      rows[i][j] = loadLanes<V>(&work[t][place]);
    }
  for (int j = 0; j < 2; ++j) {
    V a[2][2], b[2][2];
    for (int i = 0; i < 2; ++i) interleaveQuads<W>(rows[i][j], rows[i + 2][j], a[0][i], a[1][i]);
    for (int v1 = 0; v1 < 2; ++v1) interleaveQuads<W>(a[v1][0], a[v1][1], b[v1][0], b[v1][1]);
    for (int v = 0; v < 4; ++v) z[4 * j + v] = b[v / 2][v % 2];
  }
  if constexpr (W > 4) {
    for (int v = 0; v < 4; ++v) {
      const V first = z[v], second = z[4 + v];
      separateQuads<W>(first, second, z[v], z[4 + v]);
    }
  }
}

template <int W>
NEB_INLINE void rdft1024Pass3(const Rdft1024Work &work, Spectrum &out) {
  for (int g = 0; g < 64 / W; ++g) {
    Lanes<float, W> re[8], im[8];
    gatherPass3<W>(work.re, g, re);
    gatherPass3<W>(work.im, g, im);
    ComplexLanes<W> z[8], y[8];
    for (int v = 0; v < 8; ++v) z[v] = {re[v], im[v]};
    transform8<W>(z, y);
    for (int x = 0; x < 8; ++x) {
      storeLanes(&out.re[64 * x + g * W], y[x].re);
      storeLanes(&out.im[64 * x + g * W], y[x].im);
    }
  }
}

template <int W>
NEB_INLINE Lanes<float, W> reversed(const Lanes<float, W> &a) {
  if constexpr (W == 4)
    return __builtin_shufflevector(a, a, 3, 2, 1, 0);
  else if constexpr (W == 8)
    return __builtin_shufflevector(a, a, 7, 6, 5, 4, 3, 2, 1, 0);
  else
    return __builtin_shufflevector(a, a, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
}

// Turns the transform F of z into lines 0 .. 512 of the real data's: lines k and 512 - k come of F[k] and F[512 - k],
// which for k = 0 are the same value. Line 256 is F[256].
template <int W>
NEB_INLINE void rdft1024Split(Spectrum &s) {
  using V = Lanes<float, W>;
  s.re[512] = s.re[0];
  s.im[512] = s.im[0];
  for (int k = 0; k < 256; k += W) {
    const int back = 512 - k - (W - 1);
    const V frontRe = loadLanes<V>(&s.re[k]), frontIm = loadLanes<V>(&s.im[k]);
    const V backRe = reversed<W>(loadLanes<V>(&s.re[back])), backIm = reversed<W>(loadLanes<V>(&s.im[back]));
    const ComplexLanes<W> weight = {loadLanes<V>(&rdft1024Tables.split[0][k]),
                                    loadLanes<V>(&rdft1024Tables.split[1][k])};
    const ComplexLanes<W> y = ComplexLanes<W>{frontRe - backRe, frontIm + backIm} * weight;
    storeLanes(&s.re[k], V(frontRe - y.re));
    storeLanes(&s.im[k], V(frontIm - y.im));
    storeLanes(&s.re[back], reversed<W>(backRe + y.re));
    storeLanes(&s.im[back], reversed<W>(backIm - y.im));
  }
}

// Lines 0 .. 512 of the real data whose pairs `source` gives; what is beyond line 512 stays.
template <int W, typename Source>
NEB_INLINE void rdft1024(const Source &source, Spectrum &spectrum) {
  Rdft1024Work work;
  rdft1024Pass1<W>(source, work);
  rdft1024Pass2<W>(work);
  rdft1024Pass3<W>(work, spectrum);
  rdft1024Split<W>(spectrum);
}

// Pairs of real samples that stand side by side.
template <int W>
struct AdjacentPairs {
  const float *a;

  NEB_INLINE ComplexLanes<W> operator()(int j) const {
    const auto first = loadLanes<Lanes<float, W>>(a + 2 * j), second = loadLanes<Lanes<float, W>>(a + 2 * j + W);
    if constexpr (W == 4)
      return {__builtin_shufflevector(first, second, 0, 2, 4, 6), __builtin_shufflevector(first, second, 1, 3, 5, 7)};
    else if constexpr (W == 8)
      return {__builtin_shufflevector(first, second, 0, 2, 4, 6, 8, 10, 12, 14),
              __builtin_shufflevector(first, second, 1, 3, 5, 7, 9, 11, 13, 15)};
    else
      return {__builtin_shufflevector(first, second, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30),
              __builtin_shufflevector(first, second, 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31)};
  }
};

// The opposite: re and im alternating.
template <int W>
NEB_INLINE void storePairs(float *a, const Lanes<float, W> &re, const Lanes<float, W> &im) {
  if constexpr (W == 4) {
    storeLanes(a, __builtin_shufflevector(re, im, 0, 4, 1, 5));
    storeLanes(a + W, __builtin_shufflevector(re, im, 2, 6, 3, 7));
  } else if constexpr (W == 8) {
    storeLanes(a, __builtin_shufflevector(re, im, 0, 8, 1, 9, 2, 10, 3, 11));
    storeLanes(a + W, __builtin_shufflevector(re, im, 4, 12, 5, 13, 6, 14, 7, 15));
  } else {
    storeLanes(a, __builtin_shufflevector(re, im, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
    storeLanes(a + W, __builtin_shufflevector(re, im, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31));
  }
}

// neb_rdft() of 1024 points.
template <int W>
NEB_INLINE void rdft1024InPlace(float *a) {
  Spectrum s;
  rdft1024<W>(AdjacentPairs<W>{a}, s);
  s.im[0] = s.re[512];
  for (int k = 0; k < 512; k += W)
    storePairs<W>(a + 2 * k, loadLanes<Lanes<float, W>>(&s.re[k]), loadLanes<Lanes<float, W>>(&s.im[k]));
}

}  // namespace qav
