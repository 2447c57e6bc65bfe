// What the walker finds in a stream, its frames taken apart and decoded: ahead of whoever asks, on a thread of its own.
#pragma once

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "tools/inspect_frames.h"
#include "tools/mpeg_input.h"

namespace qav::tool {

struct InspectedEvent {
  Event event;
  std::unique_ptr<InspectedFrame> frame;  // of a FrameEvent, whose bytes are in it
  bool isDecoded;                         // the frame, not counting as silence
};

class InspectSource {
 public:
  // With a second thread where there may be one; what is given is the same. Takes all events of `input`.
  InspectSource(MpegInput &input, bool estimateMasking, unsigned threads);
  ~InspectSource();
  InspectSource(const InspectSource &) = delete;
  InspectSource &operator=(const InspectSource &) = delete;

  // The next event, up to an EndEvent; valid until the next call. Its frame may be swapped for another. Throws what
  // reading threw.
  InspectedEvent &next();

 private:
  static constexpr size_t kChunks = 4;
  static constexpr size_t kEvents = 16;  // of a chunk, at least
  static constexpr size_t kMostEvents = 1024;

  struct Chunk {
    std::vector<InspectedEvent> events;
    size_t count = 0;
    std::exception_ptr failure;  // behind the events
  };

  void readAhead();
  void takeNextChunk();
  void fill(Chunk &chunk);
  void gather(Chunk &chunk);
  void append(Chunk &chunk, InspectedEvent &event);
  void read(const Event &event);
  void estimateLast(const InspectedFrame *next);

  MpegInput &input_;
  bool estimateMasking_;
  FrameDecoder decoder_;
  std::optional<MaskingModel> model_;
  bool inFormat_ = false;
  InspectedEvent ahead_{};          // read last
  bool hasAhead_ = false;           // and not yet in a chunk
  InspectedFrame *last_ = nullptr;  // waits for what follows it, for the model

  Chunk chunks_[kChunks];
  Chunk *current_ = nullptr;  // is given out
  size_t taken_ = 0;          // of its events
  // Chunks since the start. Only the reading thread counts the first, only the asking one the second.
  size_t filled_ = 0, given_ = 0;
  bool stopped_ = false;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::thread thread_;
};

}  // namespace qav::tool
