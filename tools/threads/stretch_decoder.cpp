#include "tools/threads/stretch_decoder.h"

#include <algorithm>
#include <array>
#include <exception>
#include <utility>
#include <vector>

#include "tools/stream/frame_decoder.h"
#include "tools/threads/ordered_work.h"

namespace qav::tool {

namespace {

// A stretch ends with the first of these: long enough that warming up costs one part in a hundred, and short enough that
// the last ones of a stream keep all threads busy.
constexpr size_t kStretchSamples = 96 * QAV_SAMPLES_PER_FRAME;
constexpr size_t kStretchEvents = 1024;

// Frames before a stretch among which enough must be good.
constexpr size_t kWarmUpFrames = 8;

// A frame kept beyond the event it came with.
struct KeptFrame {
  std::array<uint8_t, QAV_MAX_FRAME_BYTES> data;
  size_t bytes = 0;
  uint32_t layer = 0;
};

// The last frames of one format.
class RecentFrames {
 public:
  void add(const FrameEvent &frame) {
    KeptFrame &kept = frames_[count_++ % kWarmUpFrames];
    kept.bytes = frame.header.frameBytes;
    kept.layer = frame.header.layer;
    std::copy_n(frame.data, kept.bytes, kept.data.data());
  }
  void clear() { count_ = 0; }

  size_t size() const { return std::min(count_, kWarmUpFrames); }
  const KeptFrame &operator[](size_t i) const { return frames_[(count_ - size() + i) % kWarmUpFrames]; }
  bool reachBackToTheStart() const { return count_ <= kWarmUpFrames; }

 private:
  std::array<KeptFrame, kWarmUpFrames> frames_;
  size_t count_ = 0;
};

struct Stretch {
  RecentFrames before;
  std::vector<Event> events;
  std::vector<uint8_t> bytes;    // the events' frames, one behind the other
  std::vector<int16_t> samples;  // decoded, with room for those of refused frames
  std::vector<uint8_t> isGood;   // by frame
  FrameDecoder decoder;          // as the last frame left it
  bool isDecoded = false;
};

// Samples of one frame, all channels together.
size_t roomFor(const FrameHeader &header) { return size_t{header.frameSamples} * header.channels; }

// How many of some frames are good; they pass through the decoder.
size_t feed(FrameDecoder &decoder, const RecentFrames &frames, size_t first) {
  std::array<int16_t, QAV_MAX_FRAME_PCM_BYTES / 2> unused;
  size_t good = 0;
  for (size_t i = first; i < frames.size(); ++i)
    if (decoder.decode(frames[i].data.data(), frames[i].bytes, unused.data())) ++good;
  return good;
}

// Bring a stretch's decoder into the state that decoding everything before would. False when the frames before do not
// suffice for that.
bool warmUp(Stretch &stretch) {
  const RecentFrames &before = stretch.before;
  const size_t wanted = before.size() > 0 && before[0].layer == 1 ? 2 : 1;
  // Mostly the very last frames suffice, whatever the decoder did before them.
  if (before.size() >= wanted && feed(stretch.decoder, before, before.size() - wanted) == wanted) return true;
  if (before.reachBackToTheStart()) {
    stretch.decoder.restart();
    feed(stretch.decoder, before, 0);
    return true;
  }
  return feed(stretch.decoder, before, 0) >= wanted;
}

void decodeFrames(Stretch &stretch) {
  stretch.isGood.clear();
  size_t at = 0;
  for (const Event &event : stretch.events) {
    if (const auto *frame = std::get_if<FrameEvent>(&event)) {
      stretch.isGood.push_back(
          stretch.decoder.decode(frame->data, frame->header.frameBytes, stretch.samples.data() + at));
      at += roomFor(frame->header);
    } else if (std::holds_alternative<FormatChangeEvent>(event)) {
      stretch.decoder.restart();
    }
  }
}

class Decoding {
 public:
  Decoding(MpegInput &input, unsigned threads, const TakeDecoded &take)
      : input_(input), take_(take), stretches_(slotsFor(threads)) {}

  bool read(Stretch &stretch) {
    if (failure_) std::rethrow_exception(failure_);
    if (ended_) return false;
    stretch.before = recent_;
    stretch.events.clear();
    stretch.bytes.clear();
    try {
      gather(stretch);
    } catch (...) {
      // What came before the failure is a stretch of its own.
      if (stretch.events.empty()) throw;
      failure_ = std::current_exception();
    }
    const uint8_t *data = stretch.bytes.data();
    size_t room = 0;
    for (Event &event : stretch.events) {
      if (auto *frame = std::get_if<FrameEvent>(&event)) {
        frame->data = data;
        data += frame->header.frameBytes;
        room += roomFor(frame->header);
      }
    }
    if (stretch.samples.size() < room) stretch.samples.resize(room);
    return true;
  }

  void write(Stretch &stretch) {
    if (!stretch.isDecoded) {
      std::swap(stretch.decoder, previous_);
      decodeFrames(stretch);
    }
    auto isGood = stretch.isGood.begin();
    const int16_t *samples = stretch.samples.data();
    for (const Event &event : stretch.events) {
      const auto *frame = std::get_if<FrameEvent>(&event);
      take_.take(event, frame && *isGood++ ? samples : nullptr);
      if (frame) samples += roomFor(frame->header);
    }
    take_.settle();
    std::swap(previous_, stretch.decoder);
  }

  Stretch &operator[](size_t slot) { return stretches_[slot]; }

 private:
  void gather(Stretch &stretch) {
    for (size_t samples = 0; samples < kStretchSamples && stretch.events.size() < kStretchEvents && !ended_;) {
      const Event &event = input_.next();
      stretch.events.push_back(event);
      if (const auto *frame = std::get_if<FrameEvent>(&event)) {
        stretch.bytes.insert(stretch.bytes.end(), frame->data, frame->data + frame->header.frameBytes);
        recent_.add(*frame);
        samples += frame->header.frameSamples;
      } else if (std::holds_alternative<FormatChangeEvent>(event)) {
        recent_.clear();
      } else if (std::holds_alternative<EndEvent>(event)) {
        ended_ = true;
      }
    }
  }

  MpegInput &input_;
  const TakeDecoded &take_;
  std::vector<Stretch> stretches_;
  RecentFrames recent_;
  FrameDecoder previous_;
  std::exception_ptr failure_;
  bool ended_ = false;
};

}  // namespace

void decodeStretches(MpegInput &input, unsigned threads, const TakeDecoded &take) {
  Decoding decoding(input, threads, take);
  const auto work = [&](size_t slot) {
    Stretch &stretch = decoding[slot];
    stretch.isDecoded = warmUp(stretch);
    if (stretch.isDecoded) decodeFrames(stretch);
  };
  runInOrder(threads, {.read = [&](size_t slot) { return decoding.read(decoding[slot]); },
                       .work = work,
                       .write = [&](size_t slot) { decoding.write(decoding[slot]); }});
}

}  // namespace qav::tool
