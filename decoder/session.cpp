// Sessions, and what they answer about the stream.
#include <cstdlib>

#include "decoder/decoder_session.h"
#include "decoder/kernels.h"

namespace qav {

uint32_t initDecoder(DecoderSession **out, CpuLevel level) {
  *out = nullptr;
  constexpr size_t kAlignment = alignof(SynthesisHistory);
  void *const block = std::calloc(1, sizeof(DecoderSession) + kAlignment - 1 + 2 * sizeof(SynthesisHistory));
  if (block == nullptr) return QAV_DECODE_NO_MEMORY;

  auto *const s = static_cast<DecoderSession *>(block);
  auto *const behind = reinterpret_cast<uint8_t *>(s + 1);
  const size_t gap = (kAlignment - reinterpret_cast<uintptr_t>(behind) % kAlignment) % kAlignment;
  s->synthesis = reinterpret_cast<SynthesisHistory *>(behind + gap);
  s->kernels = &decoderKernelsFor(level);
  *out = s;
  return QAV_DECODE_OK;
}

}  // namespace qav

using namespace qav;

extern "C" {

uint32_t zo_mpeg_Decode1FrameInit(DecoderSession **out) { return initDecoder(out, detectCpuLevel()); }

uint32_t zo_mpeg_Decode1FrameTerm(DecoderSession *s) {
  std::free(s);
  return QAV_DECODE_OK;
}

int32_t NEB_mpeg_get1FrameSize(const uint8_t *header, DecoderSession *session) {
  return parseFrameHeader(header, session->frame);
}

uint32_t NEB_mpeg_getFreqHz(const DecoderSession *s) { return uint32_t(s->frame.freqHz); }
uint32_t NEB_mpeg_getChannel(const DecoderSession *s) { return uint32_t(s->frame.channels); }
uint32_t NEB_mpeg_getKbps(const DecoderSession *s) { return uint32_t(s->frame.kbps); }

}  // extern "C"
