#include "encoder/formatting.h"

#include <algorithm>

#include "encoder/coded_channels.h"

namespace qav {

void writeHeader(const FrameParams &frame, BitWriter &writer) {
  putbits(writer, 0xFFF, 12);
  putbits(writer, uint32_t(frame.id), 1);
  putbits(writer, uint32_t(4 - frame.layer), 2);
  putbits(writer, frame.protection == 0, 1);
  putbits(writer, uint32_t(frame.bitrateIndex), 4);
  putbits(writer, uint32_t(frame.samplingIndex), 2);
  putbits(writer, uint32_t(frame.padding), 1);
  putbits(writer, uint32_t(frame.privateBit), 1);
  putbits(writer, uint32_t(frame.mode), 2);
  putbits(writer, uint32_t(frame.modeExt), 2);
  putbits(writer, uint32_t(frame.copyright), 1);
  putbits(writer, uint32_t(frame.original), 1);
  putbits(writer, uint32_t(frame.emphasis), 2);
}

void II_encode_bit_alloc(const uint32_t allocation[2][32], const FrameParams &frame, BitWriter &writer) {
  ShortFields fields;
  for (int32_t sb = 0; sb < frame.sblimit; ++sb)
    for (int32_t ch = 0; ch < codedChannels(frame); ++ch)
      append(fields, allocation[ch][sb], frame.allocTable[sb][0].bits, writer);
  flush(fields, writer);
}

void writeStuffing(int32_t bits, BitWriter &writer) {
  while (bits > 0) {
    const int32_t piece = std::min(bits, 24);
    putbits(writer, 0, uint32_t(piece));
    bits -= piece;
  }
}

}  // namespace qav
