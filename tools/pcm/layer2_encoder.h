// The library's encoder for one stream.
#pragma once

#include <qav.h>

#include <memory>
#include <new>

#include "tools/pcm/codec_delay.h"
#include "tools/pcm/layer2_format.h"

namespace qav::tool {

// Frames after which a decoder has put out all of `samples` sample frames.
constexpr uint64_t framesFor(uint64_t samples) {
  return (samples + kCodecDelay + QAV_SAMPLES_PER_FRAME - 1) / QAV_SAMPLES_PER_FRAME;
}

class Layer2Encoder {
 public:
  Layer2Encoder(const StreamFormat &format, const StreamRequest &request) {
    const uint32_t options[5] = {request.emphasis, request.copyright, request.original, request.checkWord, 0};
    EncoderSession *session = nullptr;
    if (zo_mpeg_Encode1FrameInit(&session, format.freqHz, format.kbps, format.channels, options) != QAV_ENCODE_OK)
      throw std::bad_alloc();  // the format is a legal one
    session_.reset(session);
  }

  // Encode 1152 sample frames; returns the bytes of the frame.
  uint32_t encode(const int16_t *samples) {
    uint32_t bytes = 0;
    zo_mpeg_Encode1Frame(session_.get(), samples, QAV_SAMPLES_PER_FRAME, frame_, &bytes);
    return bytes;
  }
  const uint8_t *frame() const { return frame_; }

 private:
  struct Term {
    void operator()(EncoderSession *session) const { zo_mpeg_Encode1FrameTerm(session); }
  };
  std::unique_ptr<EncoderSession, Term> session_;
  uint8_t frame_[QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES] = {};
};

}  // namespace qav::tool
