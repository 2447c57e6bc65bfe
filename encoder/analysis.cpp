#include "encoder/analysis.h"

#include <array>
#include <bit>
#include <cstring>
#include <utility>

#include "base/attributes.h"
#include "base/lanes.h"
#include "base/wide_lanes.h"
#include "encoder/cosine_transform.h"
#include "format/window.h"

namespace qav {
namespace {

// With X[0] the newest of the 512 samples that end block t, and C the window:
//
//   Y[i] = sum of C[i + 64j] X[i + 64j] over j = 0 .. 7,  S[k] = sum of cos((2k + 1)(i - 16) pi / 64) Y[i], i = 0 .. 63
//
// The cosine is even about i = 16, odd about i = 48 and 0 there, so Y folds to 32 values,
//
//   F[0] = Y[16],  F[m] = Y[16 + m] + Y[16 - m] up to m = 16,  F[m] = Y[16 + m] - Y[80 - m] from there on,
//
// and S[k] is the sum of cos((2k + 1) m pi / 64) F[m] over m = 0 .. 31: the dct3 of F.
//
// Samples and window are whole numbers, C times 2^21 has at most 17 bits and a sign, so F is computed exactly, in 32-bit
// integers: a coefficient is 8 times its coarse part, which only the large ones in the middle have, plus its fine part.
// The transform is done in double precision, and rounded once.

constexpr int kTimes = int(kSubbandSamples);          // blocks of 32 samples in a frame
constexpr int kOldBlocks = int(kFilterHistory) / 32;  // blocks that are kept of earlier frames
constexpr int kBlocks = kOldBlocks + kTimes;          // a window ends with the block of its own time
constexpr int kPairs = kBlocks - 2;                   // of blocks b and b + 2, 64 samples apart
constexpr int kPhaseLength = (kPairs + 2) / 3;
constexpr int kTaps = 8;

// Sample r of block b and, in the same word, of block b + 2: all r apart, all b that are equal modulo 3 side by side. For
// what stands side by side at the output, every third time, the pairs under one tap then stand side by side too.
struct PairRows {
  int32_t pairs[32][3 * kPhaseLength];
  int32_t behind[8];  // what vectors read beyond the twelve pairs they need; before the end they read the next ones
};

constexpr int pairPlace(int b) { return b % 3 * kPhaseLength + b / 3; }

// Taps j + 1 and j: for the earlier and the later sample of a pair.
struct TapPair {
  int16_t earlier, later;
};

// One Y, or its negative: its taps 2n and 2n + 1 multiply pair `newest` - 4n of a row, taps 3 and 4, coarsely, the pair
// `newest` - 6.
struct PartialSum {
  std::array<TapPair, kTaps / 2> fine;
  TapPair coarse;
};

// What is made of row r: Y[31 - r] and Y[63 - r]. The late sum's taps lie a block further back.
struct RowWindow {
  PartialSum early, late;
};

constexpr int kNewestPair = kOldBlocks - 2;  // of the early sums at time 0

constexpr int32_t kCoarseUnit = 8;
constexpr double kFineUnit = 0x1p-36;  // of the fine sums: C counts 2^21, samples 2^15

struct Coefficient {
  int16_t coarse, fine;
};

constexpr Coefficient coefficient(int i, int j, int sign) {
  const int32_t c = sign * synthesisWindow65536[i + 64 * j];
  const int32_t coarse = j == 3 || j == 4 ? c / kCoarseUnit : 0;
  return {int16_t(coarse), int16_t(c - kCoarseUnit * coarse)};
}

constexpr PartialSum partialSum(int i, int sign) {
  PartialSum sum{};
  for (int n = 0; n < kTaps / 2; ++n)
    sum.fine[unsigned(n)] = {coefficient(i, 2 * n + 1, sign).fine, coefficient(i, 2 * n, sign).fine};
  sum.coarse = {coefficient(i, 4, sign).coarse, coefficient(i, 3, sign).coarse};
  return sum;
}

// The window in the order in which it is used, with the signs of the fold.
constexpr std::array<RowWindow, 32> ana_winTbl = [] {
  std::array<RowWindow, 32> table{};
  for (int r = 0; r < 32; ++r)
    table[unsigned(r)] = {partialSum(31 - r, 1), partialSum(63 - r, r < 15 ? -1 : r == 15 ? 0 : 1)};
  return table;
}();

constexpr int64_t magnitude(TapPair taps) {
  return (taps.earlier < 0 ? -taps.earlier : taps.earlier) + (taps.later < 0 ? -taps.later : taps.later);
}

// Whether the sums of an F made of two Y fit into 32 bits, whatever the samples are.
constexpr bool fits(const PartialSum &a, const PartialSum &b) {
  int64_t fine = 0;
  for (const TapPair taps : a.fine) fine += magnitude(taps);
  for (const TapPair taps : b.fine) fine += magnitude(taps);
  return fine * 32768 <= INT32_MAX && (magnitude(a.coarse) + magnitude(b.coarse)) * 32768 <= INT32_MAX;
}

constexpr bool allFit() {
  for (unsigned r = 0; r <= 15; ++r)
    if (!fits(ana_winTbl[r].early, ana_winTbl[30 - r].early) || !fits(ana_winTbl[r].late, ana_winTbl[30 - r].late))
      return false;
  return fits(ana_winTbl[31].early, ana_winTbl[31].late);
}
static_assert(allFit());

// F of all times: coarse * 8 + fine. Vectors may write four values beyond the last one.
struct FoldedFrame {
  int32_t fine[32][kTimes + 4];
  int32_t coarse[32][kTimes + 4];
};

#define QAV_LEVEL baseline
#define QAV_TARGET
#define QAV_LANES 4
#include "encoder/analysis_kernel.inl"

#ifdef QAV_TARGET_AVX2
#define QAV_LEVEL avx2
#define QAV_TARGET QAV_TARGET_AVX2
#define QAV_LANES 8
#include "encoder/analysis_kernel.inl"

#define QAV_LEVEL avx512
#define QAV_TARGET QAV_TARGET_AVX512
#define QAV_LANES 16
#include "encoder/analysis_kernel.inl"
#endif

}  // namespace

void window_filter_subband(const int16_t *samples, SubbandFrame &out) { baseline::analyse(samples, out); }

AnalysisFn analysisFor(CpuLevel level) {
#ifdef QAV_TARGET_AVX2
  if (level == CpuLevel::Avx512) return avx512::analyse;
  if (level == CpuLevel::Avx2) return avx2::analyse;
#endif
  static_cast<void>(level);
  return window_filter_subband;
}

}  // namespace qav
