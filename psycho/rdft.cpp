// A real transform of n points is a complex one of n/2 points, whose real parts are the even samples and whose imaginary
// parts are the odd ones, and a pass that takes the two interleaved spectra apart.
//
// The complex transform is of the decimation-in-frequency kind: the data are put into bit-reversed order first, each
// radix-4 stage then joins blocks of `span` values to blocks of 4 `span`, and the result is in order. In this
// arrangement all butterflies of one block share their twiddle factors, and the factors of block b stand at place b of a
// table in bit-reversed order, whatever the stage and whatever the length the table was built for.
#include "psycho/rdft.h"

#include <bit>

#include "base/exact_math.h"
#include "include/qav.h"
#include "psycho/psycho_kernels.h"
#include "psycho/psycho_tables.h"

namespace qav {
namespace {

struct Complex {
  float re, im;
};

constexpr Complex operator+(Complex a, Complex b) { return {a.re + b.re, a.im + b.im}; }
constexpr Complex operator-(Complex a, Complex b) { return {a.re - b.re, a.im - b.im}; }
constexpr Complex operator*(Complex a, Complex b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }
constexpr Complex timesI(Complex a) { return {-a.im, a.re}; }

Complex load(const float *a, int32_t i) { return {a[2 * i], a[2 * i + 1]}; }
void store(float *a, int32_t i, Complex z) {
  a[2 * i] = z.re;
  a[2 * i + 1] = z.im;
}

// Puts `count` complex values, a power of two, into bit-reversed order.
void bitrv2(int32_t count, float *a) {
  for (int32_t i = 0, j = 0; i < count; ++i) {
    if (i < j) {
      const Complex z = load(a, i);
      store(a, i, load(a, j));
      store(a, j, z);
    }
    int32_t bit = count >> 1;
    while (bit > 0 && (j & bit) != 0) {
      j ^= bit;
      bit >>= 1;
    }
    j |= bit;
  }
}

// exp(i pi/2 b / (nw / 2)) for b = 0 .. nw/2 - 1, in bit-reversed order: the first quarter of the circle.
void makewt(int32_t nw, int32_t *ip, float *w) {
  ip[0] = nw;
  ip[1] = 1;
  if (nw <= 2) return;
  const int32_t nwh = nw / 2;
  const double delta = kPi / 4 / nwh;
  store(w, 0, {1.0f, 0.0f});
  w[nwh] = w[nwh + 1] = float(exactCos(delta * nwh));
  for (int32_t j = 2; j < nwh; j += 2) {
    const float x = float(exactCos(delta * j)), y = float(exactSin(delta * j));
    store(w, j / 2, {x, y});
    store(w, (nw - j) / 2, {y, x});
  }
  bitrv2(nwh, w);
}

// Half the cosine and, from the end, half the sine of multiples of pi/4 / (nc / 2).
void makect(int32_t nc, int32_t *ip, float *c) {
  ip[1] = nc;
  if (nc <= 1) return;
  const int32_t nch = nc / 2;
  const double delta = kPi / 4 / nch;
  c[0] = float(exactCos(delta * nch));
  c[nch] = 0.5f * c[0];
  for (int32_t j = 1; j < nch; ++j) {
    c[j] = float(0.5 * exactCos(delta * j));
    c[nc - j] = float(0.5 * exactSin(delta * j));
  }
}

// The butterfly of four values a quarter of a period apart; {sum, wave 1, wave 2, wave 3}.
struct Butterfly {
  Complex y0, y1, y2, y3;
};

Butterfly butterfly(const float *a, int32_t j, int32_t span) {
  const Complex a0 = load(a, j), a1 = load(a, j + span), a2 = load(a, j + 2 * span), a3 = load(a, j + 3 * span);
  const Complex x0 = a0 + a1, x1 = a0 - a1, x2 = a2 + a3, x3 = timesI(a2 - a3);
  return {x0 + x2, x1 + x3, x0 - x2, x1 - x3};
}

// One radix-4 stage on `count` values; w holds at least count / (4 span) factors.
void cftmdl(int32_t count, int32_t span, float *a, const float *w) {
  for (int32_t block = 0; block * 4 * span < count; ++block) {
    // The square of factor b is factor b/2, a quarter of the circle on for odd b.
    const Complex w1 = load(w, block), half = load(w, block / 2);
    const Complex w2 = block % 2 != 0 ? timesI(half) : half;
    const Complex w3 = w1 * w2;
    for (int32_t j = block * 4 * span; j < block * 4 * span + span; ++j) {
      const Butterfly b = butterfly(a, j, span);
      store(a, j, b.y0);
      store(a, j + span, b.y1 * w1);
      store(a, j + 2 * span, b.y2 * w2);
      store(a, j + 3 * span, b.y3 * w3);
    }
  }
}

// The complex transform of `count` values in bit-reversed order.
void cftfsub(int32_t count, float *a, const float *w) {
  int32_t span = 1;
  for (; 4 * span < count; span *= 4) cftmdl(count, span, a, w);
  if (4 * span == count) {
    for (int32_t j = 0; j < span; ++j) {
      const Butterfly b = butterfly(a, j, span);
      store(a, j, b.y0);
      store(a, j + span, b.y1);
      store(a, j + 2 * span, b.y2);
      store(a, j + 3 * span, b.y3);
    }
  } else {
    for (int32_t j = 0; j < span; ++j) {
      const Complex a0 = load(a, j), a1 = load(a, j + span);
      store(a, j, a0 + a1);
      store(a, j + span, a0 - a1);
    }
  }
}

// Takes the spectra of even and odd samples apart and joins them to that of the real data.
void rftfsub(int32_t n, float *a, int32_t nc, const float *c) {
  const int32_t step = 2 * nc / (n / 2);
  int32_t kk = 0;
  for (int32_t j = 1; j < n / 4; ++j) {
    kk += step;
    const Complex weight = {0.5f - c[nc - kk], c[kk]};
    const Complex front = load(a, j), back = load(a, n / 2 - j);
    const Complex y = Complex{front.re - back.re, front.im + back.im} * weight;
    store(a, j, front - y);
    store(a, n / 2 - j, {back.re + y.re, back.im - y.im});
  }
}

}  // namespace

void buildTables(int32_t n, int32_t *ip, float *w, CpuLevel level) {
  ip[2] = int32_t(level);
  if (n / 4 > ip[0]) makewt(n / 4, ip, w);
  if (n / 4 > ip[1]) makect(n / 4, ip, w + ip[0]);
}

}  // namespace qav

using namespace qav;

void neb_rdft(int32_t n, int32_t isgn, float *a, int32_t *ip, float *w) {
  if (n < 4 || !std::has_single_bit(uint32_t(n))) return;
  if (n / 4 > ip[0]) buildTables(n, ip, w, detectCpuLevel());
  if (isgn < 0) return;
  if (n == kTransformSize) {
    psychoKernels(CpuLevel(ip[2])).rdft1024(a);
    return;
  }
  if (n > 4) bitrv2(n / 2, a);
  cftfsub(n / 2, a, w);
  if (n > 4) rftfsub(n, a, ip[1], w + ip[0]);
  const float even = a[0], odd = a[1];
  a[0] = even + odd;
  a[1] = even - odd;
}
