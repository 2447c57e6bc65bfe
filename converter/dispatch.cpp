// QAV_convert(): 8-bit input is widened and filtered, then the block goes the way of the mode.
#include <cstring>

#include "converter/handle.h"
#include "stream/stream.h"

namespace qav {
namespace {

// The samples of `scratch` that a byte may reach: the filter takes a byte for a sample frame, of two channels at most.
constexpr uint32_t kScratchPerByte = 2;

uint32_t widen(QAV_Handle *h, const uint8_t *in, uint32_t inBytes) {
  if (h->scratch == nullptr) return QAV_BAD_STATE;
  if (inBytes > h->bufferSize / 2 || inBytes > h->scratchSamples / kScratchPerByte) return QAV_TOO_LONG;
  for (uint32_t i = 0; i < inBytes; ++i) h->scratch[i] = int16_t((in[i] - 128) * 256);
  // With two channels the filter runs on beyond the block, over what earlier blocks left there: no such sample is put
  // out, but they are the past that the next block's first ones see.
  if (h->lpf.lpfLevel != 0) ActLPF(h->lpf, h->scratch, int32_t(h->channels), int32_t(inBytes));
  return QAV_OK;
}

uint32_t resample(QAV_Handle *h, const uint8_t *in, uint32_t inBytes, uint8_t *out, uint32_t *outBytes) {
  if (inBytes == 0) return QAV_OK;
  if (h->resampler == nullptr) {
    std::memmove(out, in, inBytes);
    *outBytes = inBytes;
    return QAV_OK;
  }
  const uint32_t frameBytes = h->resampler->channels * kSampleBytes;
  *outBytes = changeRate(*h->resampler, in, inBytes / frameBytes, out) * frameBytes;
  return QAV_OK;
}

}  // namespace
}  // namespace qav

extern "C" uint32_t QAV_convert(QAV_Handle *h, const uint8_t *in, uint32_t inBytes, uint8_t *out, uint32_t *outBytes) {
  if (h == nullptr || h->state == qav::State::NotDetected) return QAV_BAD_STATE;
  if (h->input8bit == 1) {
    const uint32_t result = qav::widen(h, in, inBytes);
    if (result != QAV_OK) return result;
    in = reinterpret_cast<const uint8_t *>(h->scratch);
    inBytes *= 2;
  }
  switch (h->mode) {
    case qav::Mode::Encode: return qav::encode(h, in, inBytes, out, outBytes);
    case qav::Mode::Decode: return qav::decode(h, in, inBytes, out, outBytes);
    case qav::Mode::Resample: return qav::resample(h, in, inBytes, out, outBytes);
  }
  return QAV_BAD_STATE;
}
