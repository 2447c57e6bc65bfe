// Decoded PCM without what the codec has put around it: its delay at the head, and the last frame's padding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "tools/pcm/pcm_target.h"

namespace qav::tool {

class TrimmedTarget final : public PcmTarget {
 public:
  // Leave out the first `delay` sample frames, and what comes behind `length` more, where that is known.
  TrimmedTarget(PcmTarget &target, uint64_t delay, std::optional<uint64_t> length)
      : target_(target), delay_(delay), length_(length) {}

  // What follows is not of the length that was given.
  void forgetLength() { length_.reset(); }

  void open(uint32_t freqHz, uint32_t channels) override;
  void write(const int16_t *samples, size_t frames) override;
  void close() override { target_.close(); }

  // Sample frames left out at the end.
  uint64_t padding() const { return padding_; }

 private:
  PcmTarget &target_;
  uint64_t delay_;  // still to be left out
  std::optional<uint64_t> length_;
  uint32_t channels_ = 0;
  uint64_t written_ = 0;
  uint64_t padding_ = 0;
};

}  // namespace qav::tool
