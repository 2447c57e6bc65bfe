#include "tools/threads/stream_decoder.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "tools/stream/frame_decoder.h"
#include "tools/threads/ordered_work.h"
#include "tools/threads/stretch_decoder.h"

namespace qav::tool {

namespace {

// `next` says where the samples of a frame are best put; null: it does not matter.
void decodeAlone(MpegInput &input, const TakeDecoded &taker, const std::function<int16_t *()> &next) {
  FrameDecoder decoder;
  std::array<int16_t, QAV_MAX_FRAME_PCM_BYTES / 2> own;
  for (;;) {
    const Event &event = input.next();
    if (const auto *frame = std::get_if<FrameEvent>(&event)) {
      int16_t *const best = next();
      int16_t *const samples = best ? best : own.data();
      taker.take(event, decoder.decode(frame->data, frame->header.frameBytes, samples) ? samples : nullptr);
      taker.settle();
      continue;
    }
    // What the old format left in the filterbank does not belong to the new one.
    if (std::holds_alternative<FormatChangeEvent>(event)) decoder.restart();
    taker.take(event, nullptr);
    if (std::holds_alternative<EndEvent>(event)) return;
  }
}

// Samples of consecutive frames that lie one behind the other, written as one.
class Run {
 public:
  explicit Run(const PcmReceiver &receiver) : receiver_(receiver) {}

  void add(const int16_t *samples, const FrameHeader &header) {
    if (!receiver_.write) return;
    if (frames_ > 0 && samples != end_) write();
    if (frames_ == 0) begin_ = samples;
    frames_ += header.frameSamples;
    end_ = samples + size_t{header.frameSamples} * header.channels;
  }
  void write() {
    if (frames_ > 0) receiver_.write(begin_, std::exchange(frames_, 0));
  }

 private:
  const PcmReceiver &receiver_;
  const int16_t *begin_ = nullptr, *end_ = nullptr;
  size_t frames_ = 0;
};

}  // namespace

void decodeStream(MpegInput &input, StreamReport &report, const PcmReceiver &receiver, unsigned threads) {
  bool hasBegun = false;
  std::vector<Finding> held;  // until it is certain that this is a stream at all
  Run run(receiver);
  const auto silence = [&](uint64_t frames) {
    run.write();
    if (receiver.silence) receiver.silence(frames);
  };
  const auto take = [&](const Event &event, const int16_t *samples) {
    std::optional<Finding> finding = report.observe(event);
    if (const auto *frame = std::get_if<FrameEvent>(&event)) {
      const FrameHeader &header = frame->header;
      if (receiver.at) receiver.at(frame->place);
      if (!hasBegun && receiver.begin) receiver.begin(header);
      hasBegun = true;
      if (receiver.tell) std::for_each(held.begin(), held.end(), receiver.tell);
      held.clear();
      if (samples) {
        run.add(samples, header);
      } else {
        finding = report.observeRefusal(*frame);
        silence(header.frameSamples);
      }
    } else if (const auto *damage = std::get_if<DamageEvent>(&event)) {
      if (hasBegun && damage->lostSamples > 0) silence(damage->lostSamples);
    } else if (std::holds_alternative<FormatChangeEvent>(event)) {
      run.write();
      hasBegun = false;
    }
    if (finding && report.frames() == 0) {
      held.push_back(*finding);
    } else if (finding && receiver.tell) {
      run.write();
      receiver.tell(*finding);
    }
  };
  const TakeDecoded taker{.take = take, .settle = [&] { run.write(); }};
  if (threads == 1)
    decodeAlone(input, taker, [&] { return hasBegun && receiver.next ? receiver.next() : nullptr; });
  else
    decodeStretches(input, std::min(threads, kMostThreads), taker);
}

}  // namespace qav::tool
