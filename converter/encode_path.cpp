// PCM cut anywhere, to a Layer II stream: blocks of 1152 sample frames, resampled where the rates differ.
#include <algorithm>
#include <cstring>

#include "converter/handle.h"
#include "stream/stream.h"

namespace qav {
namespace {

constexpr int32_t kNothingToEncode = -1;  // the frame encoder's answer to an empty frame

// Encodes up to 1152 sample frames at the stream's rate.
int32_t encodeFrame(QAV_Handle *h, const uint8_t *pcm, uint32_t frames, uint8_t *out, uint32_t *outBytes) {
  ++h->frameCount;
  if (isSampleAligned(pcm))
    return zo_mpeg_Encode1Frame(h->encoder, reinterpret_cast<const int16_t *>(pcm), frames, out, outBytes);
  int16_t aligned[2 * kFrameSamples];
  std::memcpy(aligned, pcm, size_t(frames) * h->channels * kSampleBytes);
  return zo_mpeg_Encode1Frame(h->encoder, aligned, frames, out, outBytes);
}

// Takes one frame, or what there is, from the resampled PCM and encodes it.
int32_t encodeResampled(QAV_Handle *h, uint8_t *out, uint32_t *outBytes) {
  const uint8_t *pcm;
  const uint32_t bytes = uint32_t(NEB_bufferingGet(h->resampledFifo, h->frameBytes, &pcm));
  uint32_t written = 0;
  const int32_t result = encodeFrame(h, pcm, bytes / (h->channels * kSampleBytes), out + *outBytes, &written);
  *outBytes += written;
  return result;
}

// Resamples a block and encodes the frames that are whole then; behind a short block also the rest, be it nothing. The
// block is resampled in stretches that keep the work area small, at most rates in one.
uint32_t encodeBlockAtOtherRate(QAV_Handle *h, const uint8_t *block, uint32_t frames, bool isShort, uint8_t *out,
                                uint32_t *outBytes) {
  const uint32_t sampleFrameBytes = h->channels * kSampleBytes;
  // n frames give n * outFreqHz / inFreqHz, up to the next whole number, and one more where its position is rounded.
  const uint32_t roomFrames = kWorkBytes / sampleFrameBytes - 1;
  const uint32_t stretchFrames = uint32_t(uint64_t(roomFrames) * h->inFreqHz / h->outFreqHz);
  alignas(int16_t) uint8_t work[kWorkBytes];
  *outBytes = 0;
  while (frames > 0) {
    const uint32_t n = std::min(frames, stretchFrames);
    const uint32_t resampled = changeRate(*h->resampler, block, n, work);
    NEB_bufferingLock(h->resampledFifo, work, resampled * sampleFrameBytes);
    int32_t result = 0;
    while (result == 0 && uint32_t(NEB_bufferingGetSize(h->resampledFifo)) >= h->frameBytes)
      result = encodeResampled(h, out, outBytes);
    NEB_bufferingUnlock(h->resampledFifo);
    if (result != 0) return QAV_BAD_STATE;
    block += n * sampleFrameBytes;
    frames -= n;
  }
  if (isShort) encodeResampled(h, out, outBytes);
  return QAV_OK;
}

// Encodes one block: 1152 sample frames, or at the end of the stream fewer. `*outBytes` is written on success.
uint32_t encodeFixedSize(QAV_Handle *h, const uint8_t *block, uint32_t bytes, uint8_t *out, uint32_t *outBytes) {
  if (h->state == State::Detected) h->state = State::Running;
  const bool isShort = bytes != h->frameBytes;
  if (isShort) {
    if (h->state != State::Running) return QAV_ENDED;
    h->state = State::Ended;
  }
  const uint32_t frames = bytes / (h->channels * kSampleBytes);
  if (h->resampledFifo != nullptr) return encodeBlockAtOtherRate(h, block, frames, isShort, out, outBytes);
  const int32_t result = encodeFrame(h, block, frames, out, outBytes);
  return result == 0 || result == kNothingToEncode ? QAV_OK : QAV_BAD_STATE;
}

}  // namespace

uint32_t encode(QAV_Handle *h, const uint8_t *pcm, uint32_t bytes, uint8_t *out, uint32_t *outBytes) {
  if (bytes > h->bufferSize) return QAV_TOO_LONG;
  NEB_bufferingLock(h->inputFifo, pcm, bytes);
  const bool isEnd = bytes == 0;
  uint32_t produced = 0;
  uint32_t result = QAV_OK;
  for (;;) {
    const uint32_t readable = uint32_t(NEB_bufferingGetSize(h->inputFifo));
    if (readable == 0 || (!isEnd && readable < h->frameBytes)) break;
    const uint8_t *block;
    const uint32_t blockBytes = uint32_t(NEB_bufferingGet(h->inputFifo, h->frameBytes, &block));
    uint32_t written = 0;
    result = encodeFixedSize(h, block, blockBytes, out + produced, &written);
    if (result != QAV_OK) break;
    produced += written;
  }
  NEB_bufferingUnlock(h->inputFifo);
  *outBytes = produced;
  return result;
}

}  // namespace qav
