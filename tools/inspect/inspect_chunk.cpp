#include "tools/inspect/inspect_chunk.h"

#include <utility>

namespace qav::tool {

namespace {

constexpr size_t kEvents = 16;  // of a chunk, at least
constexpr size_t kMostEvents = 1024;

// Swaps the events, so that the memory of frames is used again.
void append(InspectChunk &chunk, InspectedEvent &event) {
  if (chunk.count == chunk.events.size()) chunk.events.emplace_back();
  std::swap(chunk.events[chunk.count++], event);
}

}  // namespace

// ------------------------------------------------------------------------------------------------------ reading ----

bool ChunkReader::read(InspectChunk &chunk) {
  chunk.count = 0;
  chunk.following = nullptr;
  try {
    return gather(chunk);
  } catch (...) {
    chunk.failure = std::current_exception();
    return false;
  }
}

// A chunk ends before a frame, which the model needs for the last one of the chunk.
bool ChunkReader::gather(InspectChunk &chunk) {
  if (std::exchange(hasAhead_, false)) append(chunk, ahead_);
  for (;;) {
    readAhead();
    if (std::holds_alternative<FrameEvent>(ahead_.event) && chunk.count >= kEvents) {
      hasAhead_ = true;
      chunk.following = ahead_.frame.get();
      return true;
    }
    const bool isEnd = std::holds_alternative<EndEvent>(ahead_.event);
    append(chunk, ahead_);
    if (isEnd) return false;
    // So much between two frames is no stream that goes on.
    if (chunk.count >= kMostEvents) return true;
  }
}

void ChunkReader::readAhead() {
  ahead_.event = input_.next();
  if (std::holds_alternative<FormatChangeEvent>(ahead_.event)) inFormat_ = false;
  auto *const frame = std::get_if<FrameEvent>(&ahead_.event);
  if (!frame) return;
  if (!std::exchange(inFormat_, true)) decoder_.restart();
  if (!ahead_.frame) ahead_.frame = std::make_unique<InspectedFrame>();
  readFrame(decoder_, *frame, *ahead_.frame);
  frame->data = ahead_.frame->data.data();
}

// ------------------------------------------------------------------------------------------------------ masking ----

void ChunkMasking::estimate(InspectChunk &chunk) {
  InspectedFrame *last = nullptr;  // waits for the one that follows it
  for (size_t i = 0; i < chunk.count; ++i) {
    const InspectedEvent &one = chunk.events[i];
    if (std::holds_alternative<FormatChangeEvent>(one.event)) {
      estimateFrame(std::exchange(last, nullptr), nullptr);
      inFormat_ = false;
    }
    if (!std::holds_alternative<FrameEvent>(one.event)) continue;
    estimateFrame(std::exchange(last, one.frame.get()), one.frame.get());
    if (std::exchange(inFormat_, true)) continue;
    model_.reset();
    if (hasMaskingModel(last->header)) model_.emplace(last->header.freqHz);
  }
  estimateFrame(last, chunk.following);
}

void ChunkMasking::estimateFrame(InspectedFrame *frame, const InspectedFrame *next) {
  if (!frame || !model_ || !hasMaskingModel(frame->header) || !frame->isGood()) return;
  const bool goesOn =
      next && next->place.frame == frame->place.frame + 1 && sameFormatAndChannels(next->header, frame->header);
  model_->estimate(*frame, goesOn ? next : nullptr);
}

// ----------------------------------------------------------------------------------------------------- loudness ----

void ChunkLoudness::measure(const InspectChunk &chunk) {
  for (size_t i = 0; i < chunk.count; ++i) {
    const InspectedEvent &one = chunk.events[i];
    if (const auto *frame = std::get_if<FrameEvent>(&one.event)) {
      if (!std::exchange(inFormat_, true)) joiner_.begin(frame->header.freqHz, frame->header.channels);
      joiner_.write(one.frame->pcm.data(), frame->header.frameSamples);
    } else if (const auto *damage = std::get_if<DamageEvent>(&one.event)) {
      if (inFormat_) joiner_.silence(damage->lostSamples);
    } else if (std::holds_alternative<FormatChangeEvent>(one.event)) {
      inFormat_ = false;
    } else if (std::holds_alternative<EndEvent>(one.event)) {
      joiner_.finish();
    }
  }
}

}  // namespace qav::tool
