// An MPEG stream cut anywhere, to PCM: finds the frames, hands them to the decoder, counts what is lost.
#include <cstring>

#include "converter/handle.h"
#include "format/format.h"

namespace qav {
namespace {

uint32_t readable(const QAV_Handle *h) { return uint32_t(NEB_bufferingGetSize(h->inputFifo)); }

const uint8_t *take(QAV_Handle *h, uint32_t bytes) {
  const uint8_t *unit;
  NEB_bufferingGet(h->inputFifo, bytes, &unit);
  return unit;
}

// A frame of `size` bytes begins with this header. The first one tells what the stream is.
void enterFrame(QAV_Handle *h, const uint8_t *header, int32_t size) {
  h->frameBytes = uint32_t(size) - kHeaderBytes;
  if (h->state != State::Detected) return;
  h->state = State::Running;
  h->channels = NEB_mpeg_getChannel(h->decoder);
  h->inFreqHz = NEB_mpeg_getFreqHz(h->decoder);
  std::memcpy(h->refHeader, header, kHeaderBytes);
}

// Whether the hunt may try the four bytes it saw last: a sync word, and once the stream is known, its version, layer,
// protection, bitrate and sampling rate. A stream that was ended is not taken up again.
bool isCandidate(const QAV_Handle *h) {
  const uint8_t *const b = h->syncBytes;
  if (b[0] != 0xFF || (b[1] & 0xF0) != 0xF0) return false;
  if (h->state == State::Running) return b[1] == h->refHeader[1] && ((b[2] ^ h->refHeader[2]) & 0xFC) == 0;
  return h->state == State::Detected;
}

// Looks for a header byte by byte, in what is readable now.
void hunt(QAV_Handle *h) {
  for (uint32_t left = readable(h); left > 0; --left) {
    std::memmove(h->syncBytes, h->syncBytes + 1, 3);
    h->syncBytes[3] = *take(h, 1);
    ++h->skippedBytes;
    if (!isCandidate(h)) continue;
    const int32_t size = NEB_mpeg_get1FrameSize(h->syncBytes, h->decoder);
    if (size == -1) continue;
    enterFrame(h, h->syncBytes, size);
    h->resync = false;
    return;
  }
}

// Decodes the current frame from the bytes after its header.
uint32_t decodeBody(QAV_Handle *h, const uint8_t *body, uint8_t *out, uint32_t *pcmBytes) {
  if (isSampleAligned(out))
    return zo_mpeg_Decode1FrameWithoutHeader(h->decoder, body, h->frameBytes, reinterpret_cast<int16_t *>(out),
                                             pcmBytes);
  int16_t pcm[QAV_MAX_FRAME_PCM_BYTES / kSampleBytes];
  const uint32_t result = zo_mpeg_Decode1FrameWithoutHeader(h->decoder, body, h->frameBytes, pcm, pcmBytes);
  std::memcpy(out, pcm, *pcmBytes);
  return result;
}

enum class Stop { NeedsBytes, LostSync };

// Decodes frame after frame. `produced` advances by the bytes written behind it.
Stop decodeFrames(QAV_Handle *h, uint8_t *out, uint32_t &produced) {
  for (;;) {
    if (readable(h) < kHeaderBytes) return Stop::NeedsBytes;
    if (h->frameBytes == 0) {
      const uint8_t *const header = take(h, kHeaderBytes);
      const int32_t size = NEB_mpeg_get1FrameSize(header, h->decoder);
      if (size == -1) {
        ++h->badFrames;
        std::memcpy(h->syncBytes, header, kHeaderBytes);  // the next header may begin among these bytes
        return Stop::LostSync;
      }
      enterFrame(h, header, size);
    }
    if (readable(h) < h->frameBytes) return Stop::NeedsBytes;
    uint32_t pcmBytes = 0;
    if (decodeBody(h, take(h, h->frameBytes), out + produced, &pcmBytes) != QAV_DECODE_OK) {
      std::memset(h->syncBytes, 0, kHeaderBytes);
      h->skippedBytes += h->frameBytes + kHeaderBytes;
      ++h->badFrames;
      return Stop::LostSync;
    }
    ++h->frameCount;
    h->frameBytes = 0;
    produced += pcmBytes;
  }
}

}  // namespace

uint32_t decode(QAV_Handle *h, const uint8_t *in, uint32_t inBytes, uint8_t *out, uint32_t *outBytes) {
  if (inBytes > h->bufferSize) return QAV_TOO_LONG;
  uint32_t produced = 0;
  if (inBytes == 0) {
    h->state = State::Ended;
  } else {
    NEB_bufferingLock(h->inputFifo, in, inBytes);
    if (h->resync) hunt(h);
    while (decodeFrames(h, out, produced) == Stop::LostSync) {
      h->resync = true;
      hunt(h);
    }
    NEB_bufferingUnlock(h->inputFifo);
  }
  *outBytes = produced;
  return QAV_OK;
}

}  // namespace qav
