#include "encoder/coded_channels.h"
#include "encoder/encoder.h"
#include "encoder/encoder_session.h"
#include "encoder/formatting.h"

namespace qav {
namespace {

// A frame is one byte longer when the bytes that the frames so far have fallen short add up to one. The accumulator's
// bits decide, so its arithmetic may not be rearranged.
void choosePadding(EncoderSession &s) {
  if (s.slotLag > s.fracSlots - 1.0) {
    s.frame.padding = 0;
    s.slotLag -= s.fracSlots;
  } else {
    s.frame.padding = 1;
    s.slotLag += 1.0 - s.fracSlots;
  }
}

}  // namespace
}  // namespace qav

using namespace qav;

extern "C" int32_t zo_mpeg_Encode1Frame(EncoderSession *session, const int16_t *pcm, uint32_t samplesPerChannel,
                                        uint8_t *out, uint32_t *outBytes) {
  EncoderSession &s = *session;
  const FrameParams &frame = s.frame;
  const int32_t channels = codedChannels(frame);
  BitWriter writer = {out, 0};
  out[0] = 0;
  *outBytes = 0;
  if (samplesPerChannel == 0) return -1;

  readEncFrame(uint32_t(frame.channels), s.pcmBuf, pcm, samplesPerChannel, s.byteSwap);
  choosePadding(s);
  int32_t bitsAvailable = (int32_t(s.slotsPerFrame) + frame.padding) * 8;

  ScaleIndices scaleIndex[2];
  uint32_t scfsi[2][32];
  float smr[2][32];
  for (int32_t ch = 0; ch < channels; ++ch) s.kernels.analysis(s.pcmBuf[ch], s.sbSample[ch]);
  s.kernels.scaleFactors(s.sbSample, scaleIndex, channels, frame.sblimit);
  for (int32_t ch = 0; ch < channels; ++ch)
    neb_psycho_anal(s.pcmBuf[ch] + kFilterHistory, uint32_t(ch), smr[ch], s.psycho);
  II_transmission_pattern(scaleIndex, scfsi, frame);

  uint32_t allocation[2][32];
  s.kernels.allocation(smr, scfsi, allocation, bitsAvailable, s.allocationPlan);

  writeHeader(frame, writer);
  if (frame.protection != 0) {
    uint32_t crc = 0;
    neb_II_CRC_calc(&frame, allocation, scfsi, &crc);
    putbits(writer, crc, 16);
  }
  II_encode_bit_alloc(allocation, frame, writer);
  II_encode_scale(allocation, scfsi, scaleIndex, frame, writer);

  QuantizedFrame quantized[2];
  s.kernels.quantization(scaleIndex, s.sbSample, allocation, quantized, frame);
  s.kernels.sampleEncoding(quantized, allocation, frame, writer);
  writeStuffing(bitsAvailable, writer);
  *outBytes = writer.position / 8;
  return 0;
}
