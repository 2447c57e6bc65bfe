// The state of psychoacoustic model 2: one zeroed heap block.
#pragma once

#include <cstdint>

#include "include/qav.h"
#include "psycho/psycho_kernels.h"
#include "psycho/psycho_tables.h"

namespace qav {

inline constexpr int kFrameSamples = 1152;
inline constexpr int kKeptSamples = 480;  // samples of the previous frame under the first window

// What depends on the sampling rate. Partitions beyond the last used one have no lines and a norm of 0.
struct PsychoTables {
  const float *absthr;                           // threshold in quiet of lines 0 .. 512, energy; 0 up to the padding
  int32_t numlines[kPaddedPartitions];           // lines of each partition, in order; they add to 513
  int32_t smallPartitions;                       // the first partitions, none of which has more than four lines
  double bmax_part[kPaddedPartitions];           // least ratio of masker to noise in dB
  double tmn_minus_nmt[kPaddedPartitions];       // that ratio in dB for a tone less that for noise
  float norm[kPaddedPartitions];                 // 1 / (gain of the spreading x lines)
  float spread[kPartitions][kPaddedPartitions];  // row: masker; column: partition it spreads to
  uint8_t firstMasker[kPaddedPartitions / 4];    // per four columns: the rows with an entry other than 0
  uint8_t endMasker[kPaddedPartitions / 4];
};

// One analysed spectrum as the next two predictions need it. Line k at index k; lines 0 and 512, which are real, have the
// phase 0 whatever their sign.
struct LineHistory {
  float phaseRe[kPaddedLines], phaseIm[kPaddedLines];  // the line divided by its magnitude; (1, 0) for an empty line
  float magnitude[kPaddedLines];
};

struct PsychoChannel {
  int16_t kept[kKeptSamples];
  LineHistory history[2];  // of the last first pass and the last second pass
};

}  // namespace qav

struct PsychoState {
  // set at Init, never changed
  const qav::PsychoKernels *kernels;
  qav::PsychoTables tables;
  // per stream; Init sets what silence before the stream leaves behind
  qav::PsychoChannel channel[2];
};
