// One frame from bytes to PCM (ISO/IEC 11172-3 clause 2.4.3).
#include <cstring>

#include "decoder/bit_reader.h"
#include "decoder/decoder_session.h"
#include "decoder/inspect.h"
#include "decoder/kernels.h"
#include "decoder/sample_codes.h"
#include "decoder/side_info.h"
#include "format/format.h"

namespace qav {
namespace {

// Decodes the frame whose header is in the session. A frame that runs out among its samples gives those of its complete
// granules, and is refused all the same. `samples` receives the number of samples written, all channels together, and
// `inspected`, if it is not null, the fields of a frame that is not refused; its header is there already.
uint32_t decFrame(DecoderSession &s, BitReader &bits, int16_t *out, uint32_t &samples, NEB_InspectFrame *inspected) {
  const FrameParams &frame = s.frame;
  const bool layer1 = frame.layer == 1;
  samples = 0;
  if (frame.layer == 0) return QAV_DECODE_OK;  // no header yet
  // A refused header may have named a layer while nothing of the rest is known.
  if (frame.channels == 0 || (!layer1 && frame.allocTable == nullptr)) return QAV_DECODE_REFUSED;

  // Only a frame whose side information is whole and fits its check word is worth decoding.
  SideInfo side;
  BitReader::Place place;
  const CheckWords check = readSideInfo(bits, place, frame, side);
  if (!bits.hasByteAt(place.lastRead) || check.given != check.computed) return QAV_DECODE_REFUSED;

  FrameCodes codes;
  SubbandSamples subbands;
  const DecoderKernels &kernels = *s.kernels;
  for (int32_t ch = 0; ch < frame.channels; ++ch) kernels.clearUnallocated(side.allocation[ch], ch, subbands);
  if (layer1) {
    I_buffer_sample(bits, place.bit, side, frame, codes);
    kernels.I_dequantize_sample(codes, side, subbands);
  } else {
    II_buffer_sample(bits, place.bit, side, frame, codes);
    kernels.II_dequantize_sample(codes, side, subbands);
  }

  const auto synthesis = (layer1 ? kernels.I_SubBandSynthesis : kernels.II_SubBandSynthesis)[frame.channels - 1];
  const int32_t blocks = codes.granules * (layer1 ? 1 : 3);
  if (codes.granules == kGranules) {
    synthesis(subbands, s.synthesis, out);
  } else {
    int16_t whole[2 * 32 * kMaxBlocks];
    synthesis(subbands, s.synthesis, whole);
    std::memcpy(out, whole, sizeof(int16_t) * size_t(32 * blocks * frame.channels));
  }
  for (int32_t ch = 0; ch < frame.channels; ++ch) s.synthesis[ch].advance(blocks);
  samples = uint32_t(32 * blocks * frame.channels);
  if (codes.granules != kGranules) return QAV_DECODE_REFUSED;
  if (inspected != nullptr) {
    describeSideInfo(check, side, place.bit, *inspected);
    describeSamples(codes, *inspected, nullptr);
  }
  return QAV_DECODE_OK;
}

}  // namespace
}  // namespace qav

using namespace qav;

extern "C" {

uint32_t zo_mpeg_Decode1Frame(DecoderSession *s, const uint8_t *data, uint32_t available, int16_t *out,
                              uint32_t *outBytes, uint32_t *consumed) {
  *outBytes = 0;
  *consumed = 0;
  if (available < kHeaderBytes) return QAV_DECODE_INCOMPLETE;
  const int32_t frameBytes = NEB_mpeg_get1FrameSize(data, s);
  if (frameBytes < 0) return QAV_DECODE_REFUSED;
  if (uint32_t(frameBytes) > available) return QAV_DECODE_INCOMPLETE;
  *consumed = uint32_t(frameBytes);
  return zo_mpeg_Decode1FrameWithoutHeader(s, data + kHeaderBytes, *consumed - kHeaderBytes, out, outBytes);
}

uint32_t zo_mpeg_Decode1FrameWithoutHeader(DecoderSession *s, const uint8_t *payload, uint32_t payloadLen, int16_t *out,
                                           uint32_t *outBytes) {
  BitReader bits(payload, payloadLen);
  uint32_t samples;
  const uint32_t result = decFrame(*s, bits, out, samples, nullptr);
  *outBytes = result == QAV_DECODE_OK ? samples * uint32_t(sizeof(int16_t)) : 0;
  return result;
}

uint32_t NEB_inspectDecode1Frame(DecoderSession *s, const uint8_t *data, uint32_t available, int16_t *out,
                                 uint32_t *outBytes, NEB_InspectFrame *frame) {
  *outBytes = 0;
  const int32_t frameBytes = available < kHeaderBytes ? -1 : NEB_mpeg_get1FrameSize(data, s);
  if (frameBytes >= 0 && uint32_t(frameBytes) <= available) {
    *frame = {};
    frame->header = s->frame;
    if (s->frame.layer == 1) frame->header.allocTable = nullptr;  // it is that of an earlier frame
    describeHeader(uint32_t(frameBytes), *frame);
    BitReader bits(data + kHeaderBytes, uint32_t(frameBytes) - kHeaderBytes);
    uint32_t samples;
    if (decFrame(*s, bits, out, samples, frame) == QAV_DECODE_OK) {
      *outBytes = samples * uint32_t(sizeof(int16_t));
      return NEB_INSPECT_GOOD;
    }
  }
  return NEB_inspectFrame(data, available, frame, nullptr);
}

}  // extern "C"
