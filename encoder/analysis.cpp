#include "encoder/analysis.h"

#include <array>
#include <bit>
#include <cstring>

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

// One Y, or its negative. For i < 32 its taps 2n and 2n + 1 multiply the pair t + 13 - 4n of the row, taps 3 and 4, coarsely,
// the pair t + 7; for the others it is one pair earlier each.
struct PartialSum {
  int row;
  std::array<TapPair, kTaps / 2> fine;
  TapPair coarse;
};

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
  PartialSum sum{31 - i % 32, {}, {}};
  for (int n = 0; n < kTaps / 2; ++n)
    sum.fine[unsigned(n)] = {coefficient(i, 2 * n + 1, sign).fine, coefficient(i, 2 * n, sign).fine};
  sum.coarse = {coefficient(i, 4, sign).coarse, coefficient(i, 3, sign).coarse};
  return sum;
}

// The window in the order in which it is used: the two halves of every F. F[0] has one; the other is 0 times something.
constexpr std::array<std::array<PartialSum, 2>, 32> ana_winTbl = [] {
  std::array<std::array<PartialSum, 2>, 32> table{};
  for (int m = 0; m < 32; ++m) {
    const int sign = m == 0 ? 0 : m <= 16 ? 1 : -1;
    table[unsigned(m)] = {partialSum(16 + m, 1), partialSum(m <= 16 ? 16 - m : 80 - m, sign)};
  }
  return table;
}();

constexpr int32_t magnitude(int32_t value) { return value < 0 ? -value : value; }
constexpr int32_t magnitude(TapPair taps) { return magnitude(taps.earlier) + magnitude(taps.later); }

constexpr bool sumsFit() {
  for (const auto &halves : ana_winTbl) {
    int64_t fine = 0, coarse = 0;
    for (const PartialSum &y : halves) {
      for (const TapPair taps : y.fine) fine += magnitude(taps);
      coarse += magnitude(y.coarse);
    }
    if (fine * 32768 > INT32_MAX || coarse * 32768 > INT32_MAX) return false;
  }
  return true;
}
static_assert(sumsFit());

constexpr int kNewestPair[2] = {kOldBlocks - 2, kOldBlocks - 3};  // of time 0, for i < 32 and i >= 32

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

void window_filter_subband(int16_t filterHist[2][kFilterHistory], const int16_t *pcm, uint32_t channel,
                           SubbandFrame &out) {
  baseline::analyse(filterHist, pcm, channel, out);
}

AnalysisFn analysisFor(CpuLevel level) {
#ifdef QAV_TARGET_AVX2
  if (level == CpuLevel::Avx512) return avx512::analyse;
  if (level == CpuLevel::Avx2) return avx2::analyse;
#endif
  static_cast<void>(level);
  return window_filter_subband;
}

}  // namespace qav
