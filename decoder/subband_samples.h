// The samples of a frame on their way from the codes to the filterbank.
#pragma once

#include <cstdint>

namespace qav {

inline constexpr int32_t kMaxBlocks = 36;      // of 32 subband samples of a channel: 12 in Layer I, 36 in Layer II
inline constexpr int32_t kChannelStride = 40;  // from a channel's samples of a subband to the other's

// By subband, scaled. Side by side stand the samples of channel 0 and then, from kChannelStride on, those of channel 1:
// Layer I, the sample of granule g at [g]; Layer II, sample k of granule g at [12 k + g], as they come out of the codes.
// The places between and behind them may be written and read with the others, and are of no meaning.
struct SubbandSamples {
  alignas(64) float value[32][2 * kChannelStride];
};

}  // namespace qav
