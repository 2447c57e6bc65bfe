#include "decoder/side_info.h"

#include "format/format.h"

namespace qav {

void I_decode_bitalloc(BitReader &bits, const FrameParams &frame, SideInfo &side) {
  for (int32_t sb = 0; sb < kSubbands; ++sb) {
    const bool joint = sb >= frame.jsbound;
    side.allocation[0][sb] = bits.getbits(4);
    if (frame.channels == 2) side.allocation[1][sb] = joint ? side.allocation[0][sb] : bits.getbits(4);
  }
}

void I_decode_scale(BitReader &bits, const FrameParams &frame, SideInfo &side) {
  for (int32_t sb = 0; sb < kSubbands; ++sb)
    for (int32_t ch = 0; ch < frame.channels; ++ch) {
      const uint32_t index = side.allocation[ch][sb] != 0 ? bits.getbits(6) : kNoScaleFactor;
      for (auto &part : side.scaleFactor[ch]) part[sb] = index;
    }
}

void II_decode_bitalloc(BitReader &bits, const FrameParams &frame, SideInfo &side) {
  // The joint bound may lie beyond the last subband. The rows up to it have fields of no width; they are read all the
  // same, so that a frame that ends here counts as run out.
  const int32_t end = frame.sblimit > frame.jsbound ? frame.sblimit : frame.jsbound;
  for (int32_t sb = 0; sb < end; ++sb) {
    const uint32_t width = frame.allocTable[sb][0].bits;
    const bool joint = sb >= frame.jsbound;
    side.allocation[0][sb] = bits.getbits(width);
    if (frame.channels == 2) side.allocation[1][sb] = joint ? side.allocation[0][sb] : bits.getbits(width);
  }
  for (int32_t sb = frame.sblimit; sb < kSubbands; ++sb) side.allocation[0][sb] = side.allocation[1][sb] = 0;
}

void II_decode_scale(BitReader &bits, const FrameParams &frame, SideInfo &side) {
  for (int32_t sb = 0; sb < frame.sblimit; ++sb)
    for (int32_t ch = 0; ch < frame.channels; ++ch)
      side.scfsi[ch][sb] = side.allocation[ch][sb] != 0 ? bits.getbits(2) : 0;

  // Which of the indices sent belongs to the second and third part, by selection information; the first is always the
  // first, and the third part's the last.
  static constexpr uint8_t second[4] = {1, 0, 0, 1};
  static constexpr uint8_t last[4] = {2, 1, 0, 1};
  for (int32_t sb = 0; sb < frame.sblimit; ++sb)
    for (int32_t ch = 0; ch < frame.channels; ++ch) {
      auto &part = side.scaleFactor[ch];
      if (side.allocation[ch][sb] == 0) {
        part[0][sb] = part[1][sb] = part[2][sb] = kNoScaleFactor;
        continue;
      }
      const uint32_t selection = side.scfsi[ch][sb];
      uint32_t sent[3] = {};
      for (uint32_t i = 0; i <= last[selection]; ++i) sent[i] = bits.getbits(6);
      part[0][sb] = sent[0];
      part[1][sb] = sent[second[selection]];
      part[2][sb] = sent[last[selection]];
    }
}

}  // namespace qav
