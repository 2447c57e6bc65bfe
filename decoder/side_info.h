// What stands before the samples of a frame: allocation, scale factor selection, scale factors.
#pragma once

#include <cstdint>

#include "decoder/bit_reader.h"
#include "include/qav.h"

namespace qav {

struct SideInfo {
  uint32_t allocation[2][32];      // 0: no samples; else, the allocation index
  uint32_t scfsi[2][32];           // Layer II, 0 .. 3; only where the allocation is not 0
  uint32_t scaleFactor[2][3][32];  // indices by third of the frame (all the same in Layer I); kNoScaleFactor without
                                   // samples
};

// How many scale factors this selection information sends for a subband of Layer II.
uint32_t scaleFactorsSent(uint32_t scfsi);

struct CheckWords {
  uint32_t given, computed;  // the same without protection
};

// All of it: from the check word to the scale factors.
CheckWords readSideInfo(const BitReader &bits, BitReader::Place &place, const FrameParams &frame, SideInfo &side);

// Its parts. Each reads on from `place` and leaves there where it ended.

// Layer I (ISO/IEC 11172-3 clause 2.4.1.5).
void I_decode_bitalloc(const BitReader &bits, BitReader::Place &place, const FrameParams &frame, SideInfo &side);
void I_decode_scale(const BitReader &bits, BitReader::Place &place, const FrameParams &frame, SideInfo &side);

// Layer II (ISO/IEC 11172-3 clause 2.4.1.6).
void II_decode_bitalloc(const BitReader &bits, BitReader::Place &place, const FrameParams &frame, SideInfo &side);
void II_decode_scale(const BitReader &bits, BitReader::Place &place, const FrameParams &frame, SideInfo &side);

}  // namespace qav
