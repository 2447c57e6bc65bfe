// A frame of a stream with its fields, its decoded samples, and the estimate of what it had to mask.
#pragma once

#include <qav.h>
#include <qav_inspect.h>

#include <array>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/loudness/loudness.h"
#include "tools/loudness/wave_levels.h"
#include "tools/stream/frame_decoder.h"
#include "tools/stream/stream_report.h"

namespace qav::tool {

// Bits of the parts of a frame, in the order in which they stand in it.
enum class FramePart { header, checkWord, allocation, selection, scaleFactors, samples, unused };
inline constexpr size_t kFrameParts = 7;

inline constexpr size_t kWavePoints = 8;  // of a frame

// In decibels; where there is no value.
inline constexpr float kNoLevel = -std::numeric_limits<float>::infinity();

struct InspectedFrame {
  Place place;
  FrameHeader header;
  std::array<uint8_t, QAV_MAX_FRAME_BYTES> data;
  uint32_t result;  // NEB_INSPECT_...
  NEB_InspectFrame fields;
  std::array<uint32_t, kFrameParts> bits;  // of each part; their sum is the frame's
  // The bits that a subband takes, in all parts of the frame. What both channels share counts half to each.
  std::array<std::array<float, 32>, 2> bandBits;
  std::array<int16_t, QAV_MAX_FRAME_PCM_BYTES / 2> pcm;
  std::array<std::array<int16_t, QAV_SAMPLES_PER_FRAME>, 2> samples;  // the same by channel
  std::array<std::array<WaveLevels, kWavePoints>, 2> wave;
  bool hasModel;
  // Signal to mask; kNoLevel where there is no signal.
  std::array<std::array<float, 32>, 2> smrDb;
  // The noise-to-mask ratio that the allocation leaves; kNoLevel where there was no signal. What is left out is noise as
  // loud as the signal where the model saw the original, and unknown where it did not.
  std::array<std::array<float, 32>, 2> nmrDb;

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

// Takes a frame apart and decodes it. One that is not good counts as silence. The model is left out.
void readFrame(FrameDecoder &decoder, const FrameEvent &event, InspectedFrame &frame);

// The psychoacoustic model of one stream. Decoded samples are late by the codec's delay, so those that a frame was made of
// are complete only with the next frame's.
class MaskingModel {
 public:
  explicit MaskingModel(uint32_t freqHz);

  // As the frame's decoded samples let it guess. They are completed with the beginning of the next frame's; null: silence.
  void estimate(InspectedFrame &frame, const InspectedFrame *next);

  // By the 1152 sample frames that the frame was made of, interleaved.
  void analyse(InspectedFrame &frame, const int16_t *original);

 private:
  using SnrDb = std::array<std::array<float, 16>, 32>;

  void analyseChannel(InspectedFrame &frame, unsigned channel, const int16_t *samples, bool isOriginal);
  // Signal to quantisation noise of what a frame codes, by subband and allocation (ISO/IEC 11172-3 Table C.5).
  const SnrDb &quantiserSnrDb(const AllocEntry (*table)[16]);

  struct Free {
    void operator()(PsychoState *state) const { std::free(state); }
  };
  std::unique_ptr<PsychoState, Free> state_;
  const AllocEntry (*table_)[16] = nullptr;  // of the frame before, to which this belongs
  SnrDb snrDb_{};
};

// Whether there is a model for a format.
bool hasMaskingModel(const FrameHeader &header);

}  // namespace qav::tool
