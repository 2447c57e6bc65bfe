// What the walker finds in a stream, its frames taken apart, decoded and measured, ahead of whoever asks where there are
// threads for it.
#pragma once

#include <array>

#include "tools/inspect/inspect_chunk.h"
#include "tools/threads/stage_line.h"

namespace qav::tool {

class InspectSource {
 public:
  // What is given does not depend on the number of threads. Takes all events of `input`.
  InspectSource(MpegInput &input, bool estimateMasking, unsigned threads);

  // The next event, up to an EndEvent; valid until the next call. Its frame may be swapped for another. Throws what
  // reading threw.
  InspectedEvent &next();

  const std::optional<Loudness> &loudness() const { return loudness_.result(); }  // behind the EndEvent

 private:
  static constexpr size_t kChunks = 6;  // one more than stages are, and one to be asked for

  StageLine::Work work(bool estimateMasking);

  ChunkReader reader_;
  ChunkMasking masking_;
  ChunkLoudness loudness_;
  std::array<InspectChunk, kChunks> chunks_;
  InspectChunk *current_ = nullptr;  // is given out
  size_t taken_ = 0;                 // of its events
  StageLine line_;                   // the last to begin and the first to end: its threads use all of the others
};

}  // namespace qav::tool
