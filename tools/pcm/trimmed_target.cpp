#include "tools/pcm/trimmed_target.h"

#include <algorithm>

namespace qav::tool {

void TrimmedTarget::open(uint32_t freqHz, uint32_t channels) {
  channels_ = channels;
  target_.open(freqHz, channels);
}

void TrimmedTarget::write(const int16_t *samples, size_t frames) {
  const auto skipped = static_cast<size_t>(std::min<uint64_t>(delay_, frames));
  delay_ -= skipped;
  samples += skipped * channels_;
  frames -= skipped;
  const uint64_t room = length_ ? *length_ - std::min(*length_, written_) : frames;
  const auto wanted = static_cast<size_t>(std::min<uint64_t>(room, frames));
  padding_ += frames - wanted;
  written_ += wanted;
  if (wanted > 0) target_.write(samples, wanted);
}

}  // namespace qav::tool
