// The shapes of what the stages of one frame hand to one another. Lanes run along the samples of a subband: subbands that
// get no bits then cost nothing, and what a frame's twelve granules have in common is worked out once.
#pragma once

#include <cstdint>

#include "include/qav.h"

namespace qav {

inline constexpr uint32_t kChannelSamples = QAV_SAMPLES_PER_FRAME;  // samples of one channel
inline constexpr uint32_t kSubbandSamples = kChannelSamples / 32;   // samples of one subband of one channel
inline constexpr uint32_t kParts = 3;                               // stretches of a frame with a scale factor each
inline constexpr uint32_t kPartSamples = kSubbandSamples / kParts;
inline constexpr uint32_t kGranules = kSubbandSamples / 3;  // triples of samples of one subband
inline constexpr uint32_t kFilterHistory = 512;             // samples that the filterbank keeps of earlier frames

using SubbandFrame = float[32][kSubbandSamples];       // [subband][time]
using QuantizedFrame = uint32_t[32][kSubbandSamples];  // [subband][time]
using ScaleIndices = uint32_t[kParts][32];             // [part][subband], 0 .. 63

}  // namespace qav
