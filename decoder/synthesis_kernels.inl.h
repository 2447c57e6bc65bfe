// The bodies of the synthesis filterbank: matrixing, windowing, rounding.
#pragma once

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <bit>
#include <cstdint>

#include "base/attributes.h"
#include "base/lanes.h"
#include "decoder/dct.inl.h"
#include "decoder/synthesis.h"
#include "decoder/transpose.inl.h"
#include "format/window.h"

namespace qav::kernels {

template <int Layer>
inline constexpr int32_t kBlocks = Layer == 1 ? 12 : 36;

// The row, counted from channel 0's first, of the block whose samples stand at each place of SubbandSamples.
template <int Layer>
struct RowOfPlace {
  uint8_t row[2 * kChannelStride];

  constexpr RowOfPlace() : row() {
    constexpr int32_t rows = kHistoryRows + kMaxBlocks + 1;
    for (int32_t i = 0; i < 2 * kChannelStride; ++i) {
      const int32_t channel = i / kChannelStride, place = i % kChannelStride;
      const int32_t block = Layer == 1 ? place : 3 * (place % 12) + place / 12;
      row[i] = uint8_t(rows * channel + kHistoryRows + (place < kBlocks<Layer> ? block : kMaxBlocks));
    }
  }
};

template <int Layer>
inline constexpr RowOfPlace<Layer> kRowOfPlace;

// Matrixing of the N blocks whose samples stand from `place` on.
template <int N, int Layer>
NEB_INLINE void matrixLanes(const SubbandSamples &samples, int32_t place, float (*rows)[kRow]) {
  using V = Lanes<float, N>;
  V x[32];
#pragma GCC unroll 32
  for (int sb = 0; sb < 32; ++sb) x[sb] = loadLanes<V>(samples.value[sb] + place);
  dct2<32>(x);
#pragma GCC unroll 32
  for (int m = 0; m < 32; m += N) {
    transpose<N>(x + m);
#pragma GCC unroll 16
    for (int l = 0; l < N; ++l) {
      float *const middle = rows[kRowOfPlace<Layer>.row[place + l]] + kRow / 2;
      storeLanes(middle + m, x[m + l]);
      storeLanes(middle - m - (N - 1), reversed<N>(x[m + l]));
    }
  }
}

// `Count` places from `place` on, as many at a time as are left, N at most.
template <int N, int Layer, int Count>
NEB_INLINE void matrixRange(const SubbandSamples &samples, int32_t place, float (*rows)[kRow]) {
  constexpr int kWhole = Count / N * N;
  if constexpr (kWhole > 0)
    for (const int32_t end = place + kWhole; place < end; place += N) matrixLanes<N, Layer>(samples, place, rows);
  if constexpr (kWhole < Count) matrixRange<N / 2, Layer, Count - kWhole>(samples, place, rows);
}

template <int N, int Layer, int Channels>
NEB_INLINE void matrixBody(const SubbandSamples &samples, float (*rows)[kRow]) {
  if constexpr (Layer == 2 && Channels == 2 && N >= 8) {
    matrixRange<N, Layer, 2 * kChannelStride>(samples, 0, rows);
  } else {
    for (int32_t ch = 0; ch < Channels; ++ch) matrixRange<N, Layer, kBlocks<Layer>>(samples, kChannelStride * ch, rows);
  }
}

// D[j + 32 i] for output j and the row i blocks back, with the sign that the row leaves to it, and 32768 for the range
// of the samples. Exact: the coefficients are multiples of 2^-16.
struct Taps {
  alignas(64) float value[16][32];

  constexpr Taps() : value() {
    for (int i = 0; i < 16; ++i)
      for (int j = 0; j < 32; ++j) {
        const bool negative = i % 2 == 1 || j > 16;
        value[i][j] = float(synthesisWindow65536[j + 32 * i] * (negative ? -1 : 1)) * 0.5f;
      }
  }
};

inline constexpr Taps kTaps;

// `y` or the nearest value that a sample can have. Compilers make the two instructions of this that there are neither of
// comparisons of floats nor, with SSE2, of integers; so it is told in their own words where they can be had everywhere,
// and elsewhere with integers: the bits of floats are ordered as integers, signed ones among positive values, unsigned
// ones among negative values, and of each comparison the values of the other sign are on the right side.
template <int N>
NEB_INLINE Lanes<float, N> clampToRange(Lanes<float, N> y) {
#ifdef __SSE2__
  if constexpr (N == 4)
    return (Lanes<float, 4>)_mm_max_ps(_mm_min_ps((__m128)y, _mm_set1_ps(32767.0f)), _mm_set1_ps(-32768.0f));
#endif
  using Signed = Lanes<int32_t, N>;
  using Unsigned = Lanes<uint32_t, N>;
  const Signed most = Signed{} + std::bit_cast<int32_t>(32767.0f);
  const Unsigned least = Unsigned{} + std::bit_cast<uint32_t>(-32768.0f);
  const Signed above = (Signed)y < most ? (Signed)y : most;
  const Unsigned both = (Unsigned)above < least ? (Unsigned)above : least;
  return (Lanes<float, N>)both;
}

// Layer II rounds to the nearest, halves away from zero; Layer I towards zero. `y` is clamped first, which changes no
// result and keeps the conversion defined. Adding the float just below 1/2 and dropping the fraction is the exact
// rounding: 1/2 itself would carry the float just below 1/2 up to 1.
template <int N, int Layer>
NEB_INLINE Lanes<int32_t, N> toSamples(Lanes<float, N> y) {
  using V = Lanes<float, N>;
  y = clampToRange<N>(y);
  if constexpr (Layer == 2) {
    using Bits = Lanes<uint32_t, N>;
    const Bits half = (Bits)(V{} + 0x0.ffffffp-1f);
    y += (V)(((Bits)y & 0x80000000u) | half);
  }
  return __builtin_convertvector(y, Lanes<int32_t, N>);
}

// Outputs j .. j + N - 1 of one block into place.
template <int N, int Layer>
NEB_INLINE void storeMono(Lanes<float, N> y, int16_t *out) {
  storeLanes(out, __builtin_convertvector(toSamples<N, Layer>(y), Lanes<int16_t, N>));
}

template <int N, int Layer>
NEB_INLINE void storeStereo(Lanes<float, N> y0, Lanes<float, N> y1, int16_t *out) {
  using Frames = Lanes<uint32_t, N>;  // the two samples of a time are one word
  const Frames left = (Frames)toSamples<N, Layer>(y0), right = (Frames)toSamples<N, Layer>(y1);
  constexpr bool little = std::endian::native == std::endian::little;
  const Frames first = little ? left : right, second = little ? right : left;
  storeLanes(out, (first & 0xFFFFu) | second << 16);
}

// One term of the window's sums for `Tile` blocks of each channel: outputs j .. j + 2N - 1. `row` is the first block's, the
// outputs' part of it begins at `at`.
template <int N, int Channels, int Tile, bool First>
NEB_INLINE void addTerm(const float *row, int32_t at, const float *taps, Lanes<float, N> (&sum)[Channels][Tile][2]) {
  using V = Lanes<float, N>;
  constexpr int32_t kChannel = sizeof(SynthesisHistory) / sizeof(float);
  const V tap[2] = {loadLanes<V>(taps), loadLanes<V>(taps + N)};
  const float *const part[2] = {row + at, row + (at + N) % kRow};
#pragma GCC unroll 2
  for (int ch = 0; ch < Channels; ++ch)
#pragma GCC unroll 16
    for (int b = 0; b < Tile; ++b)
#pragma GCC unroll 2
      for (int half = 0; half < 2; ++half) {
        const V product = tap[half] * loadLanes<V>(part[half] + kChannel * ch + kRow * b);
        sum[ch][b][half] = First ? product : sum[ch][b][half] + product;
      }
}

// Windowing of `Tile` blocks of each channel: outputs j .. j + 2N - 1, every sum in the order of i. The loop must stay
// one: unrolled, compilers see rows that several blocks have in common, and load them long before they are wanted.
template <int N, int Layer, int Channels, int Tile>
NEB_INLINE void windowTile(const SynthesisHistory *history, int32_t block, int32_t j, int16_t *out) {
  Lanes<float, N> sum[Channels][Tile][2];
  const float *row = history[0].row[kHistoryRows + block];
  const float *taps = kTaps.value[0] + j;
  const int32_t even = (48 + j) % kRow, odd = 16 + j;
  addTerm<N, Channels, Tile, true>(row, even, taps, sum);
  addTerm<N, Channels, Tile, false>(row - kRow, odd, taps + 32, sum);
#pragma GCC unroll 1
  for (int i = 2; i < 16; i += 2) {
    row -= 2 * kRow;
    taps += 2 * 32;
    __asm__("" : "+r"(row));
    addTerm<N, Channels, Tile, false>(row, even, taps, sum);
    addTerm<N, Channels, Tile, false>(row - kRow, odd, taps + 32, sum);
  }
#pragma GCC unroll 16
  for (int b = 0; b < Tile; ++b)
#pragma GCC unroll 2
    for (int half = 0; half < 2; ++half) {
      int16_t *const to = out + Channels * (32 * (block + b) + j + half * N);
      if constexpr (Channels == 1)
        storeMono<N, Layer>(sum[0][b][half], to);
      else
        storeStereo<N, Layer>(sum[0][b][half], sum[1][b][half], to);
    }
}

template <int N, int Layer, int Channels>
NEB_INLINE void synthesisBody(const SubbandSamples &samples, SynthesisHistory *history, int16_t *out) {
  constexpr int kTile = 6 / Channels;
  matrixBody<N, Layer, Channels>(samples, history[0].row);
  for (int32_t block = 0; block < kBlocks<Layer>; block += kTile)
    for (int32_t j = 0; j < 32; j += 2 * N) windowTile<N, Layer, Channels, kTile>(history, block, j, out);
}

}  // namespace qav::kernels
