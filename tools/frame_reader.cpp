#include "tools/frame_reader.h"

#include <utility>

namespace qav::tool {

FrameReader::FrameReader(const std::string &name, Options options)
    : input_(name, {.verifyChecks = false}),
      options_(options),
      meter_(loudness_),
      joiner_(meter_),
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
    if (std::holds_alternative<FrameEvent>(found.event)) {
      take(found);
      hasFollowing_ = true;
      return true;
    }
    if (const auto *damage = std::get_if<DamageEvent>(&found.event)) {
      if (options_.measureLoudness && inFormat_ && damage->lostSamples > 0) joiner_.silence(damage->lostSamples);
    } else if (std::holds_alternative<FormatChangeEvent>(found.event)) {
      inFormat_ = false;
    } else if (const auto *end = std::get_if<EndEvent>(&found.event)) {
      ended_ = true;
      end_ = end->place;
      if (options_.measureLoudness) joiner_.finish();
    }
  }
  return false;
}

void FrameReader::take(InspectedEvent &found) {
  const auto &event = std::get<FrameEvent>(found.event);
  if (!inFormat_ && options_.measureLoudness) joiner_.begin(event.header.freqHz, event.header.channels);
  inFormat_ = true;
  if (!found.isDecoded) report_.observeRefusal(event);
  std::swap(found.frame, following_);
  if (options_.measureLoudness) joiner_.write(following_->pcm.data(), event.header.frameSamples);
}

}  // namespace qav::tool
