// The frames of a stream one after the other, each with its fields, its decoded samples, and the estimate of what it had
// to mask.
#pragma once

#include <qav.h>
#include <qav_inspect.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/frame_decoder.h"
#include "tools/loudness.h"
#include "tools/mpeg_input.h"
#include "tools/pcm_target.h"
#include "tools/stream_report.h"
#include "tools/stretch_joiner.h"

namespace qav::tool {

// Bits of the parts of a frame, in the order in which they stand in it.
enum class FramePart { header, checkWord, allocation, selection, scaleFactors, samples, unused };
inline constexpr size_t kFrameParts = 7;

struct InspectedFrame {
  Place place;
  FrameHeader header;
  std::array<uint8_t, QAV_MAX_FRAME_BYTES> data;
  uint32_t result;  // NEB_INSPECT_...
  NEB_InspectFrame fields;
  std::array<uint32_t, kFrameParts> bits;  // of each part; their sum is the frame's
  std::array<int16_t, QAV_MAX_FRAME_PCM_BYTES / 2> pcm;
  bool hasModel;
  bool modelSawOriginal;  // what the encoder was given, not what was decoded
  float smrDb[2][32];     // signal to mask; -infinity where there is no signal

  bool isGood() const { return result == NEB_INSPECT_GOOD; }
  uint32_t partBits(FramePart part) const { return bits[static_cast<size_t>(part)]; }
};

// What is known of a stream when all its frames were seen.
struct InspectedStream {
  const StreamReport &report;
  Place end;
  std::optional<Loudness> loudness;
  std::optional<uint64_t> bytes;
};

// Takes a frame apart and decodes it; false when it does not decode, which counts as silence. The model is left out.
bool readFrame(FrameDecoder &decoder, const FrameEvent &event, InspectedFrame &frame);

// Signal to quantisation noise in dB of what a Layer II frame coded in a subband (ISO/IEC 11172-3 Table C.5).
float quantiserSnrDb(const NEB_InspectFrame &fields, unsigned channel, unsigned subband);

// The psychoacoustic model of one stream. Decoded samples are late by the codec's delay, so those that a frame was made of
// are complete only with the next frame's.
class MaskingModel {
 public:
  explicit MaskingModel(uint32_t freqHz);

  // As the frame's decoded samples let it guess. They are completed with the beginning of the next frame's; null: silence.
  void estimate(InspectedFrame &frame, const int16_t *next);

  // By the 1152 sample frames that the frame was made of.
  void analyse(InspectedFrame &frame, const int16_t *original);

 private:
  struct Free {
    void operator()(PsychoState *state) const { std::free(state); }
  };
  std::unique_ptr<PsychoState, Free> state_;
};

// Whether there is a model for a format.
bool hasMaskingModel(const FrameHeader &header);

class FrameReader {
 public:
  struct Options {
    bool measureLoudness = false;
    bool estimateMasking = false;
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
  void take(const FrameEvent &event);
  void startFormat(const FrameHeader &header);

  MpegInput input_;
  Options options_;
  StreamReport report_;
  std::optional<Loudness> loudness_;
  Meter meter_;
  StretchJoiner joiner_;
  FrameDecoder decoder_;
  std::optional<MaskingModel> model_;
  std::unique_ptr<InspectedFrame> current_, following_;
  bool hasFollowing_ = false;
  bool inFormat_ = false;
  bool ended_ = false;
  Place end_;
};

}  // namespace qav::tool
