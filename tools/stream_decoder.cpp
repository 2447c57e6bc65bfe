#include "tools/stream_decoder.h"

#include <algorithm>
#include <array>
#include <new>
#include <optional>
#include <vector>

namespace qav::tool {

namespace {

struct Term {
  void operator()(DecoderSession *session) const { zo_mpeg_Decode1FrameTerm(session); }
};
using Decoder = std::unique_ptr<DecoderSession, Term>;

Decoder makeDecoder() {
  DecoderSession *session = nullptr;
  if (zo_mpeg_Decode1FrameInit(&session) != QAV_DECODE_OK) throw std::bad_alloc();
  return Decoder(session);
}

}  // namespace

void decodeStream(MpegInput &input, StreamReport &report, const PcmReceiver &receiver) {
  Decoder decoder = makeDecoder();
  bool hasBegun = false;
  std::vector<Finding> held;  // until it is certain that this is a stream at all
  std::array<int16_t, QAV_MAX_FRAME_PCM_BYTES / 2> pcm;
  for (;;) {
    const Event &event = input.next();
    std::optional<Finding> finding = report.observe(event);
    if (const auto *frame = std::get_if<FrameEvent>(&event)) {
      if (receiver.at) receiver.at(frame->place);
      if (!hasBegun && receiver.begin) receiver.begin(frame->header);
      hasBegun = true;
      if (receiver.tell) std::for_each(held.begin(), held.end(), receiver.tell);
      held.clear();
      uint32_t outBytes = 0, consumed = 0;
      const uint32_t result =
          zo_mpeg_Decode1Frame(decoder.get(), frame->data, frame->header.frameBytes, pcm.data(), &outBytes, &consumed);
      if (result == QAV_DECODE_OK) {
        if (receiver.write) receiver.write(pcm.data(), outBytes / 2 / frame->header.channels);
      } else {
        finding = report.observeRefusal(*frame);
        if (receiver.silence) receiver.silence(frame->header.frameSamples);
      }
    } else if (const auto *damage = std::get_if<DamageEvent>(&event)) {
      if (hasBegun && damage->lostSamples > 0 && receiver.silence) receiver.silence(damage->lostSamples);
    } else if (std::get_if<FormatChangeEvent>(&event)) {
      // What the old format left in the filterbank does not belong to the new one.
      decoder = makeDecoder();
      hasBegun = false;
    }
    if (finding && report.frames() == 0)
      held.push_back(*finding);
    else if (finding && receiver.tell)
      receiver.tell(*finding);
    if (std::holds_alternative<EndEvent>(event)) return;
  }
}

}  // namespace qav::tool
