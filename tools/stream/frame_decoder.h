// The library's decoder for one stream.
#pragma once

#include <qav.h>
#include <qav_inspect.h>

#include <memory>
#include <new>

#include "tools/stream/stream_walker.h"

namespace qav::tool {

class FrameDecoder {
 public:
  FrameDecoder() { restart(); }

  // Silence is behind the next frame.
  void restart() {
    DecoderSession *session = nullptr;
    if (zo_mpeg_Decode1FrameInit(&session) != QAV_DECODE_OK) throw std::bad_alloc();
    session_.reset(session);
  }

  // Decode a whole frame to `samples`, with room for QAV_MAX_FRAME_PCM_BYTES, interleaved. False when the frame is refused.
  bool decode(const uint8_t *data, size_t bytes, int16_t *samples) {
    uint32_t outBytes = 0, consumed = 0;
    return zo_mpeg_Decode1Frame(session_.get(), data, static_cast<uint32_t>(bytes), samples, &outBytes, &consumed) ==
           QAV_DECODE_OK;
  }

  // The same, and what is in the frame. Returns NEB_INSPECT_...
  uint32_t inspect(const uint8_t *data, size_t bytes, int16_t *samples, NEB_InspectFrame &fields) {
    uint32_t outBytes = 0;
    return NEB_inspectDecode1Frame(session_.get(), data, static_cast<uint32_t>(bytes), samples, &outBytes, &fields);
  }

 private:
  struct Term {
    void operator()(DecoderSession *session) const { zo_mpeg_Decode1FrameTerm(session); }
  };
  std::unique_ptr<DecoderSession, Term> session_;
};

}  // namespace qav::tool
