// From sample codes to subband samples.
#pragma once

#include <cstdint>

#include "decoder/sample_codes.h"
#include "decoder/side_info.h"
#include "include/qav.h"

namespace qav {

inline constexpr int32_t kMaxBlocks = 36;
inline constexpr int32_t kSampleStride = 48;

// The samples of a frame by channel and subband, scaled. Those of one subband stand side by side: Layer I, sample of
// granule g at [g]; Layer II, sample k of granule g at [12 k + g], as they come out of the codes. What follows the 12 or
// 36 samples of a subband is of no meaning.
struct SubbandSamples {
  alignas(64) float value[2][32][kSampleStride];
};

// The scale factor of each granule, by channel and subband.
struct GranuleScales {
  alignas(64) float value[2][32][16];
};

void spreadScaleFactors(const SideInfo &side, const FrameParams &frame, GranuleScales &scales);

// Silences the subbands that have no samples: the dequantisers write only those that have.
void clearUnallocated(const SideInfo &side, const FrameParams &frame, SubbandSamples &samples);

}  // namespace qav
