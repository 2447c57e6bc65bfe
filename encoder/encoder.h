// The Layer II encoder: one frame of PCM in, one frame of the stream out. What other folders use is in the public
// header, zo_mpeg_Encode1FrameInit(), zo_mpeg_Encode1Frame() and zo_mpeg_Encode1FrameTerm(); tests and benchmarks also
// choose the CPU level here.
#pragma once

#include <cstdint>

#include "base/cpu.h"
#include "include/qav.h"

namespace qav {

// zo_mpeg_Encode1FrameInit() with the kernels of `level`, which the CPU must have. Every level writes the same bytes.
uint32_t initEncoder(EncoderSession **session, uint32_t samplingRateHz, uint32_t bitrateKbps, uint32_t channels,
                     const uint32_t *options, CpuLevel level);

}  // namespace qav
