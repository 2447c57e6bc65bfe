// Layer I and II frames into PCM, one session per stream. Its functions are public: zo_mpeg_Decode1Frame... and the
// queries NEB_mpeg_... of include/qav.h, and NEB_inspect...() of include/qav_inspect.h.
#pragma once

#include "base/cpu.h"
#include "include/qav.h"

namespace qav {

// zo_mpeg_Decode1FrameInit() for a CPU level that this machine has.
uint32_t initDecoder(DecoderSession **out, CpuLevel level);

}  // namespace qav
