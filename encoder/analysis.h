// The analysis filterbank (ISO/IEC 11172-3 Annex C, clause C.1.3): 1152 samples into 32 subbands of 36 samples.
#pragma once

#include <cstdint>

#include "base/cpu.h"
#include "encoder/frame_shapes.h"

namespace qav {

// `filterHist` holds the last samples of each channel before this frame and receives those of `pcm`, 1152 samples of
// channel `channel`.
using AnalysisFn = void (*)(int16_t filterHist[2][kFilterHistory], const int16_t *pcm, uint32_t channel,
                            SubbandFrame &out);

AnalysisFn analysisFor(CpuLevel level);

// The same at the level every CPU has.
void window_filter_subband(int16_t filterHist[2][kFilterHistory], const int16_t *pcm, uint32_t channel,
                           SubbandFrame &out);

}  // namespace qav
