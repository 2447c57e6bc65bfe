// How loud samples are, and taking their channels apart.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tools/loudness/vector_level.h"

namespace qav::tool {

// A stretch of one channel's samples.
struct WaveLevels {
  int16_t least, greatest;
  uint32_t clipped;  // at either end of the range
  uint64_t energy;   // sum of the squares
};

// `count` is not 0, and below 65536.
WaveLevels levelsOf(const int16_t *samples, size_t count, VectorLevel level = widestVectors());

// Samples of one or two channels; `right` is not written to where there is one.
void separateChannels(const int16_t *interleaved, size_t channels, size_t count, int16_t *left, int16_t *right,
                      VectorLevel level = widestVectors());

}  // namespace qav::tool
