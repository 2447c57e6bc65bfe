// From the lines' energies to the noise that each partition hides (ISO/IEC 11172-3 Annex D.2), with W lanes.
#pragma once

#include <cfloat>

#include "psycho/exact_lanes.inl.h"
#include "psycho/lane_math.inl.h"
#include "psycho/psycho_state.h"
#include "psycho/unpredictability.inl.h"

namespace qav {

// Per partition: energy and weighted energy of the first pass, then of the second.
struct alignas(64) GroupedEnergies {
  float of[kPaddedPartitions][4];
};

// The values at `p` where `wanted` is -1, and 0 where it is 0.
template <int L>
NEB_INLINE Lanes<float, L> wantedValues(const float *p, const int32_t *wanted) {
  using Mask = Lanes<int32_t, L>;
  const Mask values = loadLanes<Mask>(p) & loadLanes<Mask>(wanted);
  return loadLanes<Lanes<float, L>>(&values);
}

// The sums of the four lanes of each sum.
NEB_INLINE void foldSums(const Lanes<float, 4> (&sum)[4], float *result) {
  Lanes<float, 4> low, high, first, second;
  interleaveQuads<4>(sum[0], sum[1], low, high);
  const Lanes<float, 4> a = low + high;
  interleaveQuads<4>(sum[2], sum[3], low, high);
  const Lanes<float, 4> b = low + high;
  separatePairs<4>(a, b, first, second);
  storeLanes(result, Lanes<float, 4>(first + second));
}

// Sums the lines of each partition: line i of eight in a row with i + 8 and so on, then the eight. Most partitions have at
// most four lines; they come first and need no loop.
template <int W>
NEB_INLINE void groupLines(const LineEnergies (&lines)[2], const PsychoTables &tables, GroupedEnergies &grouped) {
  using Four = Lanes<float, 4>;
  static constexpr int32_t kWanted[16] = {-1, -1, -1, -1, -1, -1, -1, -1};
  const float *const values[4] = {lines[0].energy, lines[0].weighted, lines[1].energy, lines[1].weighted};
  int line = 0, p = 0;
  Four sum[4];
  for (; p < tables.smallPartitions; ++p) {
    const int count = tables.numlines[p];
    for (int i = 0; i < 4; ++i) sum[i] = wantedValues<4>(values[i] + line, kWanted + 8 - count);
    foldSums(sum, grouped.of[p]);
    line += count;
  }
  for (; p < kPaddedPartitions; ++p) {
    constexpr int L = W < 8 ? 4 : 8, H = 8 / L;
    const int end = line + tables.numlines[p];
    Lanes<float, L> eight[4][H] = {};
    for (; line + 8 <= end; line += 8)
      for (int i = 0; i < 4; ++i)
        for (int h = 0; h < H; ++h) eight[i][h] += loadLanes<Lanes<float, L>>(values[i] + line + h * L);
    for (int i = 0; i < 4; ++i) {
      for (int h = 0; h < H; ++h)
        eight[i][h] += wantedValues<L>(values[i] + line + h * L, kWanted + 8 - (end - line) + h * L);
      if constexpr (H == 2)
        sum[i] = eight[i][0] + eight[i][1];
      else
        sum[i] = __builtin_shufflevector(eight[i][0], eight[i][0], 0, 1, 2, 3) +
                 __builtin_shufflevector(eight[i][0], eight[i][0], 4, 5, 6, 7);
    }
    foldSums(sum, grouped.of[p]);
    line = end;
  }
}

struct alignas(64) SpreadEnergies {
  float energy[kPaddedPartitions];
  float weighted[kPaddedPartitions];
};

// Spreads the energies over the neighbouring partitions; every sum runs in the order of the maskers. Maskers whose entry is
// 0 for all lanes are left out, which changes no sum.
template <int W>
NEB_INLINE void psy_mulSum(const GroupedEnergies &grouped, const PsychoTables &tables, SpreadEnergies (&result)[2]) {
  using V = Lanes<float, W>;
  for (int p = 0; p < kPaddedPartitions; p += W) {
    int first = kPartitions, end = 0;
    for (int quad = p / 4; quad < (p + W) / 4; ++quad) {
      if (tables.firstMasker[quad] < first) first = tables.firstMasker[quad];
      if (tables.endMasker[quad] > end) end = tables.endMasker[quad];
    }
    V sum[4] = {};
    for (int k = first; k < end; ++k) {
      const V spread = loadLanes<V>(&tables.spread[k][p]);
      for (int i = 0; i < 4; ++i) sum[i] += spread * grouped.of[k][i];
    }
    storeLanes(&result[0].energy[p], sum[0]);
    storeLanes(&result[0].weighted[p], sum[1]);
    storeLanes(&result[1].energy[p], sum[2]);
    storeLanes(&result[1].weighted[p], sum[3]);
  }
}

// The noise energy per line that each partition hides.
template <int W>
NEB_INLINE void permissibleNoise(const SpreadEnergies &spread, const PsychoTables &tables, float *nb) {
  constexpr int D = W / 2, N = 4;
  using Float = Lanes<float, D>;
  using Double = Lanes<double, D>;
  for (int p = 0; p < kPaddedPartitions; p += N * D) {
    Float energy[N], cb[N];
    Double tonality[N], attenuation[N], factor[N];
    for (int n = 0; n < N; ++n) {
      energy[n] = loadLanes<Float>(&spread.energy[p + n * D]);
      const Float ratio = loadLanes<Float>(&spread.weighted[p + n * D]) / (energy[n] + FLT_MIN);
      cb[n] = minimum<D>(maximum<D>(ratio, all<D>(0.05f)), all<D>(0.5f));
    }
    logLanes<D, N>(cb, tonality);
    for (int n = 0; n < N; ++n) {
      const Double tone = loadLanes<Double>(&tables.tmn_minus_nmt[p + n * D]);
      const Double least = loadLanes<Double>(&tables.bmax_part[p + n * D]);
      const Double decibels = (tonality[n] * -0.434294482 - 0.301029996) * tone + 5.5;
      attenuation[n] = (decibels > least ? decibels : least) * -0.2302585093;
    }
    expLanes<D, N>(attenuation, factor);
    for (int n = 0; n < N; ++n) {
      const Float norm = loadLanes<Float>(&tables.norm[p + n * D]);
      storeLanes(nb + p + n * D, Float(energy[n] * __builtin_convertvector(factor[n], Float) * norm));
    }
  }
}

}  // namespace qav
