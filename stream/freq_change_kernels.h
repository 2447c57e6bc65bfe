// The inner loop of the sampling-rate converter, compiled for several CPUs.
#pragma once

#include <cstdint>

#include "base/cpu.h"

namespace qav {

// A run of output frames, every one between two input frames of one block. Output frame k of the run lies at
// (first + k) * step in the stream, which is that less `origin` in the block.
struct OutputRun {
  double first;   // output frames before the run, a whole number below 2^53
  double step;    // input frames per output frame
  double origin;  // input frames before the block, a whole number below 2^53
  uint32_t count;
};

// Writes `run.count` output frames to `out`, interpolated between the input frames at `in`, both of any alignment. All
// positions in the block are in [0, 2^31 - 1).
using InterpolateFn = void (*)(const uint8_t *in, const OutputRun &run, uint8_t *out);

InterpolateFn interpolateFor(CpuLevel level, uint32_t channels);

}  // namespace qav
