// The bodies of the synthesis filterbank: matrixing, windowing, rounding.
#pragma once

#include <cstdint>

#include "base/attributes.h"
#include "base/lanes.h"
#include "decoder/dct.inl.h"
#include "decoder/synthesis.h"
#include "decoder/transpose.inl.h"
#include "format/window.h"

namespace qav::kernels {

// Which block of the frame is sample `lane` of a subband's samples.
template <int Layer>
NEB_INLINE int32_t blockOf(int32_t lane) {
  return Layer == 1 ? lane : 3 * (lane % kGranules) + lane / kGranules;
}

template <int Layer>
inline constexpr int32_t kBlocks = Layer == 1 ? kGranules : 3 * kGranules;

// Matrixing of N blocks, `lane` and the following ones.
template <int N, int Layer>
NEB_INLINE void matrixLanes(const float (*samples)[kSampleStride], int32_t lane, float (*rows)[kRow]) {
  using V = Lanes<float, N>;
  V x[32];
#pragma GCC unroll 32
  for (int sb = 0; sb < 32; ++sb) x[sb] = loadLanes<V>(samples[sb] + lane);
  dct2<32>(x);
#pragma GCC unroll 32
  for (int m = 0; m < 32; m += N) {
    transpose<N>(x + m);
#pragma GCC unroll 16
    for (int l = 0; l < N; ++l) {
      float *const middle = rows[blockOf<Layer>(lane + l)] + kRow / 2;
      storeLanes(middle + m, x[m + l]);
      storeLanes(middle - m - (N - 1), reversed<N>(x[m + l]));
    }
  }
}

// All blocks, as many at a time as are left, N at most.
template <int N, int Layer>
NEB_INLINE void matrixBody(const float (*samples)[kSampleStride], float (*rows)[kRow], int32_t lane = 0) {
  for (; lane + N <= kBlocks<Layer>; lane += N) matrixLanes<N, Layer>(samples, lane, rows);
  if constexpr (N > 4) matrixBody<N / 2, Layer>(samples, rows, lane);
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

// Layer II rounds to the nearest, halves away from zero; Layer I towards zero. `y` is clamped first, which changes no
// result and keeps the conversion defined. Adding the float just below 1/2 and dropping the fraction is the exact
// rounding: 1/2 itself would carry the float just below 1/2 up to 1.
template <int N, int Layer>
NEB_INLINE Lanes<int32_t, N> toSamples(Lanes<float, N> y) {
  using V = Lanes<float, N>;
  const V most = V{} + 32767.0f, least = V{} - 32768.0f;
  y = y < most ? y : most;
  y = y > least ? y : least;
  if constexpr (Layer == 2) {
    using Bits = Lanes<uint32_t, N>;
    const Bits half = (Bits)(V{} + 0x0.ffffffp-1f);
    y += (V)(((Bits)y & 0x80000000u) | half);
  }
  return __builtin_convertvector(y, Lanes<int32_t, N>);
}

// Windowing of `Tile` blocks: outputs j .. j + 2N - 1 of each, every sum in the order of i.
template <int N, int Layer, int Tile>
NEB_INLINE void windowTile(const float (*rows)[kRow], int32_t j, int32_t *pcm) {
  using V = Lanes<float, N>;
  V sum[Tile][2];
#pragma GCC unroll 16
  for (int i = 0; i < 16; ++i) {
    const int32_t at = i % 2 == 0 ? (48 + j) % kRow : 16 + j;
    const V tap0 = loadLanes<V>(kTaps.value[i] + j), tap1 = loadLanes<V>(kTaps.value[i] + j + N);
#pragma GCC unroll 16
    for (int b = 0; b < Tile; ++b) {
      const float *const row = rows[b - i];
      const V product0 = tap0 * loadLanes<V>(row + at);
      const V product1 = tap1 * loadLanes<V>(row + (at + N) % kRow);
      sum[b][0] = i == 0 ? product0 : sum[b][0] + product0;
      sum[b][1] = i == 0 ? product1 : sum[b][1] + product1;
    }
  }
#pragma GCC unroll 16
  for (int b = 0; b < Tile; ++b) {
    storeLanes(pcm + 32 * b + j, toSamples<N, Layer>(sum[b][0]));
    storeLanes(pcm + 32 * b + j + N, toSamples<N, Layer>(sum[b][1]));
  }
}

template <int N, int Layer>
NEB_INLINE void synthesisBody(const float (*samples)[kSampleStride], SynthesisHistory &history, ChannelPcm &pcm) {
  constexpr int kTile = 6;
  float(*const rows)[kRow] = history.row + kHistoryRows;
  matrixBody<N, Layer>(samples, rows);
  for (int32_t block = 0; block < kBlocks<Layer>; block += kTile)
    for (int32_t j = 0; j < 32; j += 2 * N) windowTile<N, Layer, kTile>(rows + block, j, pcm.sample + 32 * block);
}

}  // namespace qav::kernels
