// Verifying a frame's check word without decoding its samples (ISO/IEC 11172-3 clause 2.4.3.1).
#pragma once

#include <cstdint>

#include "tools/stream/frame_header.h"

namespace qav::tool {

enum class Check { none, good, bad };

// `frame` holds header.frameBytes bytes.
Check verifyCheckWord(const uint8_t *frame, const FrameHeader &header);

}  // namespace qav::tool
