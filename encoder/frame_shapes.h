// The shapes of what the stages of one frame hand to one another.
//
// Lanes run along the samples of a subband: subbands that get no bits then cost nothing. The twelve granules of a frame,
// triples of samples one after the other in time, are laid out in the stream all alike; so the first samples of all
// granules stand side by side, then the second, then the third ones.
#pragma once

#include <cstdint>

#include "include/qav.h"

namespace qav {

inline constexpr uint32_t kChannelSamples = QAV_SAMPLES_PER_FRAME;  // samples of one channel
inline constexpr uint32_t kSubbandSamples = kChannelSamples / 32;   // samples of one subband of one channel
inline constexpr uint32_t kGranules = kSubbandSamples / 3;
inline constexpr uint32_t kParts = 3;  // stretches of a frame with a scale factor each
inline constexpr uint32_t kPartGranules = kGranules / kParts;
inline constexpr uint32_t kFilterHistory = 480;  // samples that the filterbank keeps of earlier frames
inline constexpr uint32_t kInputSamples = kFilterHistory + kChannelSamples;

// Where sample `t` of a subband, in the order of time, stands among its 36.
constexpr uint32_t samplePlace(uint32_t t) { return t % 3 * kGranules + t / 3; }

using SubbandFrame = float[32][kSubbandSamples];       // [subband][place]
using QuantizedFrame = uint32_t[32][kSubbandSamples];  // [subband][place]
using ScaleIndices = uint32_t[kParts][32];             // [part][subband], 0 .. 63

}  // namespace qav
