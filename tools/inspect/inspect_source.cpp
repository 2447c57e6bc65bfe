#include "tools/inspect/inspect_source.h"

namespace qav::tool {

InspectSource::InspectSource(MpegInput &input, bool estimateMasking, unsigned threads)
    : reader_(input), line_(work(estimateMasking), kChunks, threads) {}

StageLine::Work InspectSource::work(bool estimateMasking) {
  StageLine::Work work;
  work.read = [this](size_t slot) { return reader_.read(chunks_[slot]); };
  if (estimateMasking) work.stages.push_back([this](size_t slot) { masking_.estimate(chunks_[slot]); });
  work.stages.push_back([this](size_t slot) { loudness_.measure(chunks_[slot]); });
  return work;
}

InspectedEvent &InspectSource::next() {
  while (!current_ || taken_ == current_->count) {
    if (current_ && current_->failure) std::rethrow_exception(current_->failure);
    current_ = &chunks_[line_.next()];
    taken_ = 0;
  }
  return current_->events[taken_++];
}

}  // namespace qav::tool
