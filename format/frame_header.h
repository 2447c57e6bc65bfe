// The frame header: parsing, derived values, frame length (ISO/IEC 11172-3 clause 2.4.1.3 and 2.4.2.3).
#pragma once

#include <cstdint>

#include "include/qav.h"

namespace qav {

inline constexpr int32_t kSubbands = 32;
inline constexpr uint32_t kHeaderBytes = 4;

inline constexpr int32_t kModeStereo = 0;
inline constexpr int32_t kModeJointStereo = 1;
inline constexpr int32_t kModeDualChannel = 2;
inline constexpr int32_t kModeSingleChannel = 3;

// Sampling rates in Hz by id * 3 + samplingIndex.
extern const int32_t freqHzTbl[6];

// Bitrates in kbit/s by id * 30 + (layer - 1) * 15 + bitrateIndex, for both versions; index 0 (free format) is 0.
extern const int32_t bitrateLSF[60];

// Parse the four bytes at `header` into `fp` and derive the rest. Returns the whole frame's length in bytes, -1 when
// the header is refused; the fields read until then stay stored.
int32_t parseFrameHeader(const uint8_t *header, FrameParams &fp);

// Choose the Layer II allocation table by id, rate and bitrate per channel (ISO/IEC 11172-3 clause 2.4.3.3.1). Returns
// its number of subbands.
int32_t pick_table(FrameParams &fp);

}  // namespace qav
