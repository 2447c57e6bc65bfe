// The state of psychoacoustic model 2: one zeroed heap block.
#pragma once

#include <cstdint>

#include "include/qav.h"
#include "psycho/psycho_tables.h"

namespace qav {

// One analysed spectrum as the next two predictions need it. Line k at index k; lines 0 and 512, which are real, have the
// phase 0 whatever their sign.
struct LineHistory {
  float phaseRe[kPaddedLines], phaseIm[kPaddedLines];  // the line divided by its magnitude; (1, 0) for an empty line
  float magnitude[kPaddedLines];
};

}  // namespace qav

struct PsychoState {
  // set at Init, never changed
  const float *absthr;                          // threshold in quiet of lines 0 .. 512, energy; 0 up to the padding
  int32_t numlines[qav::kPaddedPartitions];     // lines of each partition, in order; they add to 513
  float bmax_part[qav::kPaddedPartitions];      // least masking ratio in dB
  float tmn_minus_nmt[qav::kPaddedPartitions];  // ratio in dB for a tone less that for noise
  float norm[qav::kPaddedPartitions];           // 1 / (gain of the spreading x lines); 0 for an unused partition
  float spread[qav::kPartitions][qav::kPaddedPartitions];  // row: masker; column: partition it spreads to

  // per stream; zero is silence before the stream, but for the phases, which Init sets to (1, 0)
  int16_t savebuf[2][480];         // per channel the last samples of the previous frame
  qav::LineHistory history[2][2];  // per channel and pass: the pass of that number analysed last
  float fft_w[512];                // tables of the transform, built by the first one
  int32_t fft_ip[32];
};
