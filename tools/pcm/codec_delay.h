// How far decoded samples lag behind those that were encoded.
#pragma once

#include <cstdint>

namespace qav::tool {

// Sample frames, of analysis and synthesis filterbank together.
inline constexpr uint64_t kCodecDelay = 481;

}  // namespace qav::tool
