// The frames of a stream one after the other, and what is known of it when all were seen.
#pragma once

#include <memory>
#include <string>

#include "tools/inspect/inspect_frames.h"
#include "tools/inspect/inspect_source.h"
#include "tools/stream/mpeg_input.h"
#include "tools/stream/stream_report.h"

namespace qav::tool {

class FrameReader {
 public:
  struct Options {
    bool estimateMasking = false;
    unsigned threads = 1;
  };
  FrameReader(const std::string &name, Options options);

  // The next frame that the walker found, decodable or not; null at the end. Valid until the next call.
  const InspectedFrame *next();

  const MpegInput &input() const { return input_; }
  const StreamReport &report() const { return report_; }

  // After the end.
  InspectedStream stream() const { return {report_, end_, source_.loudness(), input_.size()}; }

 private:
  bool readOn();

  MpegInput input_;
  StreamReport report_;
  std::unique_ptr<InspectedFrame> current_, following_;
  bool hasFollowing_ = false;
  bool ended_ = false;
  Place end_;
  InspectSource source_;  // the last to begin and the first to end: its threads use the input
};

}  // namespace qav::tool
