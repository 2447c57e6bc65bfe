// The frames of a stream one after the other, and what is known of it when all were seen.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tools/inspect_frames.h"
#include "tools/inspect_source.h"
#include "tools/loudness.h"
#include "tools/mpeg_input.h"
#include "tools/pcm_target.h"
#include "tools/stream_report.h"
#include "tools/stretch_joiner.h"

namespace qav::tool {

class FrameReader {
 public:
  struct Options {
    bool measureLoudness = false;
    bool estimateMasking = false;
    unsigned threads = 1;  // no more than two are used
  };
  FrameReader(const std::string &name, Options options);

  // The next frame that the walker found, decodable or not; null at the end. Valid until the next call.
  const InspectedFrame *next();

  const MpegInput &input() const { return input_; }
  const StreamReport &report() const { return report_; }

  // After the end.
  InspectedStream stream() const { return {report_, end_, loudness_, input_.size()}; }

 private:
  // Hears all stretches as one.
  class Meter final : public PcmTarget {
   public:
    explicit Meter(std::optional<Loudness> &result) : result_(result) {}
    void open(uint32_t freqHz, uint32_t channels) override { meter_.emplace(freqHz, channels); }
    void write(const int16_t *samples, size_t frames) override { meter_->add(samples, frames); }
    void close() override { result_ = meter_->finish(); }

   private:
    std::optional<Loudness> &result_;
    std::optional<LoudnessMeter> meter_;
  };
  bool readOn();
  void take(InspectedEvent &found);

  MpegInput input_;
  Options options_;
  StreamReport report_;
  std::optional<Loudness> loudness_;
  Meter meter_;
  StretchJoiner joiner_;
  std::unique_ptr<InspectedFrame> current_, following_;
  bool hasFollowing_ = false;
  bool inFormat_ = false;
  bool ended_ = false;
  Place end_;
  InspectSource source_;  // the last to begin and the first to end: its thread uses the input
};

}  // namespace qav::tool
