// The analysis filterbank (ISO/IEC 11172-3 Annex C, clause C.1.3): 1152 samples into 32 subbands of 36 samples.
#pragma once

#include <cstdint>

#include "base/cpu.h"
#include "encoder/frame_shapes.h"

namespace qav {

// `samples` are the 480 of the channel before this frame, then the frame's 1152.
using AnalysisFn = void (*)(const int16_t *samples, SubbandFrame &out);

AnalysisFn analysisFor(CpuLevel level);

// The same at the level every CPU has.
void window_filter_subband(const int16_t *samples, SubbandFrame &out);

}  // namespace qav
