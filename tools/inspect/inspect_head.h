// The facts about a stream as a whole that its report begins with.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/inspect/inspect_array.h"
#include "tools/inspect/inspect_frames.h"

namespace qav::tool {

// The padding bits against the rule that spreads them: at no frame may the stream be a slot or more ahead of or behind
// its bitrate.
class PaddingRule {
 public:
  void add(const InspectedFrame &frame);

  uint64_t padded() const { return padded_; }
  uint64_t frames() const { return frames_; }
  uint64_t irregular() const { return irregular_; }
  bool isNeeded() const { return needed_; }
  std::string text() const;

 private:
  std::optional<FrameHeader> last_;
  uint64_t lastFrame_ = 0;
  // How far the stream is ahead of its bitrate, in units of 1 / freqHz of a slot; and the least and greatest of it.
  int64_t ahead_ = 0, least_ = 0, greatest_ = 0;
  uint64_t padded_ = 0, frames_ = 0, irregular_ = 0;
  bool needed_ = false;
};

class InspectHead {
 public:
  void add(const InspectedFrame &frame);
  Json json(const InspectedStream &stream) const;

 private:
  PaddingRule padding_;
  uint64_t frames_ = 0, privateBits_ = 0, copyrights_ = 0, originals_ = 0;
  std::array<uint64_t, 4> emphases_{};
  uint64_t bits_ = 0, unusedBits_ = 0, nonZeroTails_ = 0;
  std::optional<uint8_t> tailByte_;
  bool tailsDiffer_ = false;
  uint64_t clippedSamples_ = 0, clippedFrames_ = 0;
};

// What is said of a stream in words.
std::string verdictText(const StreamReport &report, uint64_t lostFrames);

}  // namespace qav::tool
