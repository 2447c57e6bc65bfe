// What is known of a stream after walking through it: formats, counts, tags, what was found wrong, and the verdict.
#pragma once

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/stream/stream_walker.h"

namespace qav::tool {

using Json = nlohmann::ordered_json;

// Something to be told about one place of a stream.
struct Finding {
  Place place;
  const char *kind;  // "check word", "lost sync", "missing bytes", "truncated", "format change", "reserved value", ...
  uint64_t bytes;    // concerned
  uint64_t lostFrames;  // known to have stood here
  std::string what;
  bool isWarning;  // plays all the same
};

// "lost sync: the header is damaged (417 bytes)"
std::string describeFinding(const Finding &finding);
Json findingJson(const Finding &finding);

enum class Verdict { good, damaged, truncated, joined };
const char *verdictName(Verdict verdict);

class StreamReport {
 public:
  // One format from where it begins to where it changes.
  struct Stretch {
    FrameHeader format;
    uint64_t firstFrame;
    uint64_t offset;
    uint64_t samples = 0;  // per channel, of the frames and of the lost ones of known place
  };

  // Take an event into account. Returns what is to be told about it.
  std::optional<Finding> observe(const Event &event);

  // The frame observed last did not decode although the walker had nothing against it. Nothing when the walker had.
  std::optional<Finding> observeRefusal(const FrameEvent &frame);

  Verdict verdict() const;
  // The first findings and warnings, and how many more there were.
  const std::vector<Finding> &kept() const { return kept_; }
  uint64_t omitted() const { return findings_ + warnings_ - kept_.size(); }

  uint64_t findings() const { return findings_; }
  uint64_t warnings() const { return warnings_; }
  const std::vector<Stretch> &stretches() const { return stretches_; }
  uint64_t frames() const { return frames_; }
  uint64_t lostFrames() const { return lostFrames_; }
  uint64_t checkedFrames() const { return checkedFrames_; }
  uint64_t wrongChecks() const { return wrongChecks_; }
  double seconds() const { return end_.seconds; }
  uint32_t leastKbps() const { return leastKbps_; }
  uint32_t greatestKbps() const { return greatestKbps_; }
  double meanKbps() const;
  std::string bitrateText() const;     // "192 kbit/s"
  std::string checkWordsText() const;  // "in 29 of 30 frames, 1 wrong"
  std::string modesText() const;
  const std::vector<TagEvent> &tags() const { return tags_; }
  const std::optional<RiffContainer> &container() const { return container_; }

  // The fields that all subcommands' JSON has in common.
  Json json(int status) const;

 private:
  Finding note(Finding finding);
  void observeFrame(const FrameEvent &frame);

  // So much is kept of what could be endless.
  static constexpr size_t kKeptFindings = 1000;
  static constexpr size_t kKeptTags = 100;
  static constexpr size_t kKeptStretches = 1000;

  std::vector<Stretch> stretches_;
  uint64_t stretchCount_ = 0;
  std::vector<TagEvent> tags_;
  std::vector<Finding> kept_;
  std::optional<RiffContainer> container_;
  uint64_t findings_ = 0;
  uint64_t warnings_ = 0;
  bool isDamaged_ = false;
  bool isTruncated_ = false;
  uint64_t frames_ = 0;
  uint64_t lostFrames_ = 0;
  uint64_t checkedFrames_ = 0;
  uint64_t wrongChecks_ = 0;
  uint64_t modes_[4] = {};  // frames of each
  uint32_t leastKbps_ = std::numeric_limits<uint32_t>::max();
  uint32_t greatestKbps_ = 0;
  uint64_t frameTicks_ = 0;  // duration of all frames
  uint64_t kbpsTicks_ = 0;   // sum of bitrate times duration
  Place end_;
};

}  // namespace qav::tool
