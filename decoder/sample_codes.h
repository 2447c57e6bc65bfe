// The sample codes of a whole frame.
//
// A frame's samples stand in twelve granules of the same make-up: the codes of one subband lie at the same distance from
// the granule's start in each. So a frame is read subband by subband, all granules at once.
#pragma once

#include <cstdint>

#include "decoder/bit_reader.h"
#include "decoder/side_info.h"
#include "include/qav.h"

namespace qav {

inline constexpr int32_t kGranules = 12;

// The codes of one subband, of one channel or of both where they share them.
struct SubbandCodes {
  // Per granule, first bit on top: Layer I, its code; Layer II, its three codes, as many as 32 bits hold. What follows
  // them is of no meaning.
  alignas(64) uint32_t upper[16];
  // Layer II: the same from the third code on, when three do not fit into 32 bits.
  uint32_t lower[16];

  int32_t bits;    // of one code, 2 .. 16; of Layer II's grouped codes, what each takes after they were taken apart
  int32_t levels;  // Layer II: 3 .. 65535; the codes are 0 .. levels - 1 in a good stream
  int32_t quant;   // Layer II: quantisation class
  int32_t sb;
  int32_t firstChannel, lastChannel;
};

struct FrameCodes {
  SubbandCodes subbands[2 * 32];
  int32_t count;     // of them: those with an allocation
  int32_t granules;  // that are complete: kGranules but in a frame that runs out, where the others are of no meaning
};

void I_buffer_sample(BitReader &bits, const SideInfo &side, const FrameParams &frame, FrameCodes &codes);
void II_buffer_sample(BitReader &bits, const SideInfo &side, const FrameParams &frame, FrameCodes &codes);

}  // namespace qav
