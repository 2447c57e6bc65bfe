#include "decoder/side_info.h"

#include "format/format.h"

namespace qav {

using Place = BitReader::Place;

void I_decode_bitalloc(const BitReader &bits, Place &place, const FrameParams &frame, SideInfo &side) {
  Place at = place;
  for (int32_t sb = 0; sb < kSubbands; ++sb) {
    const bool joint = sb >= frame.jsbound;
    side.allocation[0][sb] = bits.getbits(at, 4);
    if (frame.channels == 2) side.allocation[1][sb] = joint ? side.allocation[0][sb] : bits.getbits(at, 4);
  }
  place = at;
}

void I_decode_scale(const BitReader &bits, Place &place, const FrameParams &frame, SideInfo &side) {
  Place at = place;
  for (int32_t sb = 0; sb < kSubbands; ++sb)
    for (int32_t ch = 0; ch < frame.channels; ++ch) {
      const uint32_t index = side.allocation[ch][sb] != 0 ? bits.getbits(at, 6) : kNoScaleFactor;
      for (auto &part : side.scaleFactor[ch]) part[sb] = index;
    }
  place = at;
}

void II_decode_bitalloc(const BitReader &bits, Place &place, const FrameParams &frame, SideInfo &side) {
  // The joint bound may lie beyond the last subband. The rows up to it have fields of no width; they are read all the
  // same, so that a frame that ends here counts as run out.
  Place at = place;
  const int32_t end = frame.sblimit > frame.jsbound ? frame.sblimit : frame.jsbound;
  for (int32_t sb = 0; sb < end; ++sb) {
    const uint32_t width = frame.allocTable[sb][0].bits;
    const bool joint = sb >= frame.jsbound;
    side.allocation[0][sb] = bits.getbits(at, width);
    if (frame.channels == 2) side.allocation[1][sb] = joint ? side.allocation[0][sb] : bits.getbits(at, width);
  }
  for (int32_t sb = frame.sblimit; sb < kSubbands; ++sb) side.allocation[0][sb] = side.allocation[1][sb] = 0;
  place = at;
}

namespace {

// How the scale factors of a subband are sent, by selection information: how many, and which of them each third of the
// frame has, told by how far it stands above the last bit when all bits but 18 are shifted out.
struct Selection {
  uint8_t sent;
  uint8_t shift[3];
};

constexpr Selection selections[4] = {{3, {12, 6, 0}}, {2, {12, 12, 6}}, {1, {12, 12, 12}}, {2, {12, 6, 6}}};

}  // namespace

uint32_t scaleFactorsSent(uint32_t scfsi) { return selections[scfsi].sent; }

void II_decode_scale(const BitReader &bits, Place &place, const FrameParams &frame, SideInfo &side) {
  Place at = place;
  for (int32_t sb = 0; sb < frame.sblimit; ++sb)
    for (int32_t ch = 0; ch < frame.channels; ++ch)
      side.scfsi[ch][sb] = side.allocation[ch][sb] != 0 ? bits.getbits(at, 2) : 0;

  for (int32_t sb = 0; sb < frame.sblimit; ++sb)
    for (int32_t ch = 0; ch < frame.channels; ++ch) {
      auto &part = side.scaleFactor[ch];
      if (side.allocation[ch][sb] == 0) {
        part[0][sb] = part[1][sb] = part[2][sb] = kNoScaleFactor;
        continue;
      }
      // All that there may be is looked at, then as much is passed over as there is: a branch on the selection would
      // mostly be guessed wrong.
      const Selection &selection = selections[side.scfsi[ch][sb]];
      const uint32_t three = uint32_t(bits.wordAt(at.bit) >> (64 - 18));
      for (int i = 0; i < 3; ++i) part[i][sb] = three >> selection.shift[i] & 63;
      at.bit += 6u * selection.sent;
      at.lastRead = at.bit - 6;
    }
  place = at;
}

CheckWords readSideInfo(const BitReader &bits, Place &place, const FrameParams &frame, SideInfo &side) {
  CheckWords check;
  check.given = check.computed = frame.protection != 0 ? bits.getbits(place, 16) : 0;
  if (frame.layer == 1) {
    I_decode_bitalloc(bits, place, frame, side);
    I_decode_scale(bits, place, frame, side);
    if (frame.protection != 0) neb_I_CRC_calc(&frame, side.allocation, &check.computed);
  } else {
    II_decode_bitalloc(bits, place, frame, side);
    II_decode_scale(bits, place, frame, side);
    if (frame.protection != 0) neb_II_CRC_calc(&frame, side.allocation, side.scfsi, &check.computed);
  }
  return check;
}

}  // namespace qav
