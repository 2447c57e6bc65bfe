#include "tools/inspect/frame_reader.h"

#include <utility>

namespace qav::tool {

FrameReader::FrameReader(const std::string &name, Options options)
    : input_(name, {.verifyChecks = false}),
      current_(std::make_unique<InspectedFrame>()),
      following_(std::make_unique<InspectedFrame>()),
      source_(input_, options.estimateMasking, options.threads) {}

const InspectedFrame *FrameReader::next() {
  if (!hasFollowing_ && !readOn()) return nullptr;
  std::swap(current_, following_);
  hasFollowing_ = false;
  readOn();
  return current_.get();
}

// Reads up to the next frame and takes it as the following one.
bool FrameReader::readOn() {
  while (!ended_) {
    InspectedEvent &found = source_.next();
    report_.observe(found.event);
    if (const auto *frame = std::get_if<FrameEvent>(&found.event)) {
      if (!found.frame->isGood()) report_.observeRefusal(*frame);
      std::swap(found.frame, following_);
      hasFollowing_ = true;
      return true;
    }
    if (const auto *end = std::get_if<EndEvent>(&found.event)) {
      ended_ = true;
      end_ = end->place;
    }
  }
  return false;
}

}  // namespace qav::tool
