// The frames of a stream on their way into a report, some at a time: what is done to each chunk of them, stage by stage.
#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <vector>

#include "tools/inspect/inspect_frames.h"
#include "tools/loudness/loudness.h"
#include "tools/pcm/pcm_target.h"
#include "tools/stream/mpeg_input.h"
#include "tools/threads/stretch_joiner.h"

namespace qav::tool {

struct InspectedEvent {
  Event event;
  std::unique_ptr<InspectedFrame> frame;  // of a FrameEvent, whose bytes are in it
};

struct InspectChunk {
  std::vector<InspectedEvent> events;
  size_t count = 0;                           // of the events; memory of the others is kept
  const InspectedFrame *following = nullptr;  // the frame that the next chunk begins with
  std::exception_ptr failure;                 // behind the events; nothing follows
};

// Finds the frames, takes them apart and decodes them.
class ChunkReader {
 public:
  explicit ChunkReader(MpegInput &input) : input_(input) {}

  // False: that was the end.
  bool read(InspectChunk &chunk);

 private:
  bool gather(InspectChunk &chunk);
  void readAhead();

  MpegInput &input_;
  FrameDecoder decoder_;
  bool inFormat_ = false;
  InspectedEvent ahead_{};  // read last
  bool hasAhead_ = false;   // and not yet in a chunk
};

// Estimates what frames had to mask.
class ChunkMasking {
 public:
  void estimate(InspectChunk &chunk);

 private:
  void estimateFrame(InspectedFrame *frame, const InspectedFrame *next);

  std::optional<MaskingModel> model_;
  bool inFormat_ = false;
};

// Hears all formats as one.
class ChunkLoudness {
 public:
  ChunkLoudness() : meter_(result_), joiner_(meter_) {}

  void measure(const InspectChunk &chunk);

  const std::optional<Loudness> &result() const { return result_; }  // when the end was in a chunk

 private:
  class Meter final : public PcmTarget {
   public:
    explicit Meter(std::optional<Loudness> &result) : result_(result) {}
    void open(uint32_t freqHz, uint32_t channels) override { meter_.emplace(freqHz, channels); }
    void write(const int16_t *samples, size_t frames) override { meter_->add(samples, frames); }
    void close() override { result_ = meter_->finish(); }

   private:
    std::optional<Loudness> &result_;
    std::optional<LoudnessMeter> meter_;
  };

  std::optional<Loudness> result_;
  Meter meter_;
  StretchJoiner joiner_;
  bool inFormat_ = false;
};

}  // namespace qav::tool
