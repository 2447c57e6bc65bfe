// How many channels are encoded.
#pragma once

#include <cstdint>

#include "include/qav.h"

namespace qav {

// Init takes any count of channels: what is neither 1 nor 2 must do no harm.
inline int32_t codedChannels(const FrameParams &frame) {
  return frame.channels < 0 ? 0 : frame.channels > 2 ? 2 : frame.channels;
}

}  // namespace qav
