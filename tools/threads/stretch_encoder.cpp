#include "tools/threads/stretch_encoder.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <vector>

#include "tools/pcm/layer2_encoder.h"
#include "tools/threads/ordered_work.h"

namespace qav::tool {

namespace {

constexpr size_t kPaddingPeriod = 49;
constexpr size_t kWarmUpFrames = 3;
// So many frames, those to warm up included, that warming up costs little more than two parts in a hundred.
constexpr size_t kLeastFrames = 3 * kPaddingPeriod;
constexpr size_t kMostFrames = kLeastFrames + kPaddingPeriod;

void encodeAlone(const StreamFormat &format, const StreamRequest &request, const NextFrame &next,
                 const TakeEncoded &take) {
  Layer2Encoder encoder(format, request);
  std::vector<int16_t> samples(QAV_SAMPLES_PER_FRAME * format.channels);
  while (next(samples.data())) {
    const uint32_t bytes = encoder.encode(samples.data());
    take(samples.data(), encoder.frame(), bytes);
  }
}

struct Stretch {
  std::optional<Layer2Encoder> encoder;
  size_t framesInEncoder = 0;  // that it will have encoded when this stretch is done
  size_t warmUpFrames = 0;
  size_t frames = 0;                 // those included
  std::vector<int16_t> samples;      // of all frames
  std::vector<uint8_t> bytes;        // encoded frames, one behind the other
  std::vector<uint32_t> frameBytes;  // of each
};

class Encoding {
 public:
  Encoding(const StreamFormat &format, const StreamRequest &request, unsigned threads, const NextFrame &next,
           const TakeEncoded &take)
      : format_(format),
        request_(request),
        next_(next),
        take_(take),
        frameSamples_(QAV_SAMPLES_PER_FRAME * format.channels),
        stretches_(slotsFor(threads)) {}

  bool read(size_t slot) {
    if (failure_) std::rethrow_exception(failure_);
    Stretch &stretch = stretches_[slot];
    stretch.samples.resize(kMostFrames * frameSamples_);
    std::copy(lastFrames_.begin(), lastFrames_.end(), stretch.samples.begin());
    stretch.frames = stretch.warmUpFrames = lastFrames_.size() / frameSamples_;
    try {
      while (!ended_ && !isFull(stretch, stretches_[(slot + 1) % stretches_.size()])) {
        if (next_(samplesOf(stretch, stretch.frames)))
          ++stretch.frames;
        else
          ended_ = true;
      }
    } catch (...) {
      // What came before the failure is a stretch of its own.
      failure_ = std::current_exception();
      if (stretch.frames == stretch.warmUpFrames) throw;
    }
    const size_t newFrames = stretch.frames - stretch.warmUpFrames;
    if (newFrames == 0) return false;
    read_ += newFrames;
    stretch.framesInEncoder += stretch.frames;
    if (stretch.frames >= kWarmUpFrames)
      lastFrames_.assign(samplesOf(stretch, stretch.frames - kWarmUpFrames), samplesOf(stretch, stretch.frames));
    return true;
  }

  void work(size_t slot) {
    Stretch &stretch = stretches_[slot];
    if (!stretch.encoder) stretch.encoder.emplace(format_, request_);
    Layer2Encoder &encoder = *stretch.encoder;
    stretch.bytes.clear();
    stretch.frameBytes.clear();
    for (size_t i = 0; i < stretch.frames; ++i) {
      const uint32_t bytes = encoder.encode(samplesOf(stretch, i));
      if (i < stretch.warmUpFrames) continue;
      stretch.bytes.insert(stretch.bytes.end(), encoder.frame(), encoder.frame() + bytes);
      stretch.frameBytes.push_back(bytes);
    }
  }

  void write(size_t slot) {
    Stretch &stretch = stretches_[slot];
    const uint8_t *frame = stretch.bytes.data();
    size_t number = stretch.warmUpFrames;
    for (const uint32_t bytes : stretch.frameBytes) {
      take_(samplesOf(stretch, number++), frame, bytes);
      frame += bytes;
    }
  }

 private:
  // Whether the next stretch can begin: its encoder pads the frames that warm it up as they were padded here.
  bool isFull(const Stretch &stretch, const Stretch &next) const {
    if (stretch.frames < kLeastFrames) return false;
    const size_t begin = read_ + stretch.frames - stretch.warmUpFrames - kWarmUpFrames;
    return begin % kPaddingPeriod == next.framesInEncoder % kPaddingPeriod;
  }

  int16_t *samplesOf(Stretch &stretch, size_t frame) const { return stretch.samples.data() + frame * frameSamples_; }

  const StreamFormat &format_;
  const StreamRequest &request_;
  const NextFrame &next_;
  const TakeEncoded &take_;
  size_t frameSamples_;  // all channels together
  std::vector<Stretch> stretches_;
  size_t read_ = 0;                  // frames of the stream
  std::vector<int16_t> lastFrames_;  // warm up the next stretch
  std::exception_ptr failure_;
  bool ended_ = false;
};

}  // namespace

void encodeStretches(const StreamFormat &format, const StreamRequest &request, unsigned threads, const NextFrame &next,
                     const TakeEncoded &take) {
  if (threads == 1) return encodeAlone(format, request, next, take);
  threads = std::min(threads, kMostThreads);
  Encoding encoding(format, request, threads, next, take);
  runInOrder(threads, {.read = [&](size_t slot) { return encoding.read(slot); },
                       .work = [&](size_t slot) { encoding.work(slot); },
                       .write = [&](size_t slot) { encoding.write(slot); }});
}

}  // namespace qav::tool
