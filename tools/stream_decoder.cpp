#include "tools/stream_decoder.h"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

#include "tools/frame_decoder.h"
#include "tools/ordered_work.h"
#include "tools/stretch_decoder.h"

namespace qav::tool {

namespace {

// `next` says where the samples of a frame are best put; null: it does not matter.
void decodeAlone(MpegInput &input, const TakeDecoded &take, const std::function<int16_t *()> &next) {
  FrameDecoder decoder;
  std::array<int16_t, QAV_MAX_FRAME_PCM_BYTES / 2> own;
  for (;;) {
    const Event &event = input.next();
    if (const auto *frame = std::get_if<FrameEvent>(&event)) {
      int16_t *const best = next();
      int16_t *const samples = best ? best : own.data();
      take(event, decoder.decode(frame->data, frame->header.frameBytes, samples) ? samples : nullptr);
      continue;
    }
    // What the old format left in the filterbank does not belong to the new one.
    if (std::holds_alternative<FormatChangeEvent>(event)) decoder.restart();
    take(event, nullptr);
    if (std::holds_alternative<EndEvent>(event)) return;
  }
}

}  // namespace

void decodeStream(MpegInput &input, StreamReport &report, const PcmReceiver &receiver, unsigned threads) {
  bool hasBegun = false;
  std::vector<Finding> held;  // until it is certain that this is a stream at all
  const TakeDecoded take = [&](const Event &event, const int16_t *samples) {
    std::optional<Finding> finding = report.observe(event);
    if (const auto *frame = std::get_if<FrameEvent>(&event)) {
      const FrameHeader &header = frame->header;
      if (receiver.at) receiver.at(frame->place);
      if (!hasBegun && receiver.begin) receiver.begin(header);
      hasBegun = true;
      if (receiver.tell) std::for_each(held.begin(), held.end(), receiver.tell);
      held.clear();
      if (samples) {
        if (receiver.write) receiver.write(samples, header.frameSamples);
      } else {
        finding = report.observeRefusal(*frame);
        if (receiver.silence) receiver.silence(header.frameSamples);
      }
    } else if (const auto *damage = std::get_if<DamageEvent>(&event)) {
      if (hasBegun && damage->lostSamples > 0 && receiver.silence) receiver.silence(damage->lostSamples);
    } else if (std::holds_alternative<FormatChangeEvent>(event)) {
      hasBegun = false;
    }
    if (finding && report.frames() == 0)
      held.push_back(*finding);
    else if (finding && receiver.tell)
      receiver.tell(*finding);
  };
  if (threads == 1)
    decodeAlone(input, take, [&] { return hasBegun && receiver.next ? receiver.next() : nullptr; });
  else
    decodeStretches(input, std::min(threads, kMostThreads), take);
}

}  // namespace qav::tool
