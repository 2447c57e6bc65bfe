#include "tools/inspect_source.h"

#include <system_error>
#include <utility>

namespace qav::tool {

InspectSource::InspectSource(MpegInput &input, bool estimateMasking, unsigned threads)
    : input_(input), estimateMasking_(estimateMasking) {
  if (threads == 1) return;
  try {
    thread_ = std::thread([this] { readAhead(); });
  } catch (const std::system_error &) {
    // The system grants no more threads; this one does as well.
  }
}

InspectSource::~InspectSource() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

InspectedEvent &InspectSource::next() {
  while (!current_ || taken_ == current_->count) {
    if (current_ && current_->failure) std::rethrow_exception(current_->failure);
    takeNextChunk();
  }
  return current_->events[taken_++];
}

void InspectSource::takeNextChunk() {
  taken_ = 0;
  if (!thread_.joinable()) {
    current_ = &chunks_[0];
    fill(*current_);
    return;
  }
  std::unique_lock lock(mutex_);
  if (current_) {
    ++given_;
    changed_.notify_all();
  }
  changed_.wait(lock, [&] { return given_ < filled_; });
  current_ = &chunks_[given_ % kChunks];
}

void InspectSource::readAhead() {
  for (bool ended = false; !ended;) {
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [&] { return stopped_ || filled_ - given_ < kChunks; });
      if (stopped_) return;
    }
    Chunk &chunk = chunks_[filled_ % kChunks];
    fill(chunk);
    ended = chunk.failure || std::holds_alternative<EndEvent>(chunk.events[chunk.count - 1].event);
    const std::lock_guard lock(mutex_);
    ++filled_;
    changed_.notify_all();
  }
}

void InspectSource::fill(Chunk &chunk) {
  chunk.count = 0;
  try {
    gather(chunk);
  } catch (...) {
    chunk.failure = std::current_exception();
  }
}

// A chunk ends before a frame, so that its last one has been estimated when it is given out.
void InspectSource::gather(Chunk &chunk) {
  if (std::exchange(hasAhead_, false)) append(chunk, ahead_);
  for (bool ended = false; !ended;) {
    read(input_.next());
    ended = std::holds_alternative<EndEvent>(ahead_.event);
    if (std::holds_alternative<FrameEvent>(ahead_.event) && chunk.count >= kEvents) {
      hasAhead_ = true;
      return;
    }
    append(chunk, ahead_);
    // So much between two frames is no stream that goes on.
    if (chunk.count >= kMostEvents) ended = true;
  }
  estimateLast(nullptr);
}

// Swaps the events, so that the memory of frames is used again.
void InspectSource::append(Chunk &chunk, InspectedEvent &event) {
  if (chunk.count == chunk.events.size()) chunk.events.emplace_back();
  InspectedEvent &own = chunk.events[chunk.count++];
  std::swap(own, event);
  if (std::holds_alternative<FrameEvent>(own.event)) last_ = own.frame.get();
}

void InspectSource::read(const Event &event) {
  ahead_.event = event;
  if (std::holds_alternative<FormatChangeEvent>(event)) inFormat_ = false;
  auto *const frame = std::get_if<FrameEvent>(&ahead_.event);
  if (!frame) return;
  if (!inFormat_) {
    estimateLast(nullptr);
    inFormat_ = true;
    decoder_.restart();
    model_.reset();
    if (estimateMasking_ && hasMaskingModel(frame->header)) model_.emplace(frame->header.freqHz);
  }
  if (!ahead_.frame) ahead_.frame = std::make_unique<InspectedFrame>();
  ahead_.isDecoded = readFrame(decoder_, *frame, *ahead_.frame);
  frame->data = ahead_.frame->data.data();
  const bool continues =
      last_ && frame->place.frame == last_->place.frame + 1 && sameFormatAndChannels(last_->header, frame->header);
  estimateLast(continues ? ahead_.frame.get() : nullptr);
}

void InspectSource::estimateLast(const InspectedFrame *next) {
  InspectedFrame *const last = std::exchange(last_, nullptr);
  if (last && model_ && hasMaskingModel(last->header) && last->isGood()) model_->estimate(*last, next);
}

}  // namespace qav::tool
