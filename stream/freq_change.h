// The sampling-rate converter: linear interpolation in double precision. Its functions for 16-bit samples are in the
// public header; the one here takes bytes.
#pragma once

#include <cstdint>

#include "include/qav.h"
#include "stream/freq_change_kernels.h"

struct FreqChangeState {
  // set at Init, never changed
  double step;         // input frames per output frame; 0, infinite or NaN when a rate is 0
  uint64_t lastIndex;  // the last input frame of the stream; all ones: unknown
  uint32_t channels;   // 1 or 2
  qav::InterpolateFn interpolate;

  // per stream; zero = start of stream
  uint64_t consumed;   // input frames received, below 2^53
  uint64_t produced;   // output frames written, below 2^53
  uint8_t history[8];  // the last four samples received
};

namespace qav {

// NEB_freqChange() on samples of any alignment: `frames` input frames at `in`, output frames at `out`. Returns their
// number.
uint32_t changeRate(FreqChangeState &s, const uint8_t *in, uint32_t frames, uint8_t *out);

}  // namespace qav
