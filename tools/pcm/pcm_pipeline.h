// What lies between the samples of a file and those the encoder takes: channels, gain, sampling rate, 16 bits.
//
// 16-bit samples that nothing is to be done to come through untouched. Everything else is computed in double precision
// and rounded once, with dither.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "tools/loudness/loudness.h"
#include "tools/pcm/eight_bit_filter.h"
#include "tools/pcm/pcm_reader.h"
#include "tools/pcm/quantiser.h"
#include "tools/pcm/rate_converter.h"

namespace qav::tool {

struct PcmSettings {
  uint32_t freqHz = 0;    // of the output
  unsigned channels = 0;  // of the output; one is spread to two, two are averaged to one
  Resampler resampler = Resampler::soxr;
  bool dither = true;
  double gainDb = 0.0;
  unsigned lowpassLevel = 0;  // EightBitFilter, 0 is none; for 8-bit input only
};

class PcmPipeline {
 public:
  // `meter`, where given, hears the output before it is rounded.
  PcmPipeline(PcmReader &reader, const PcmSettings &settings, LoudnessMeter *meter = nullptr);

  // Read exactly `frames` sample frames, channels interleaved; fewer at the end only.
  size_t read(int16_t *to, size_t frames);

  uint64_t inputFrames() const { return inputFrames_; }
  uint64_t clippedSamples() const { return quantiser_.clippedSamples(); }
  bool hasDithered() const { return quantiser_.hasDithered(); }
  bool convertsRate() const { return reader_.format().freqHz != settings_.freqHz; }

 private:
  void fill();
  void takeExact(const int16_t *samples, size_t frames);
  void takeDouble(size_t frames);
  void convertExact(const int16_t *samples, size_t frames);
  void roundAndConvert(const std::vector<double> &samples);
  void end();

  // Sample frames read at once.
  static constexpr size_t kBlockFrames = 2048;

  PcmReader &reader_;
  PcmSettings settings_;
  LoudnessMeter *meter_;
  unsigned inChannels_;
  bool isExact_;      // nothing needs more than 16 bits on the way
  bool isUntouched_;  // and nothing is done to them at all
  double factor_;
  Quantiser quantiser_;
  std::optional<EightBitFilter> filter_;
  std::optional<SoxrConverter> soxr_;
  std::optional<LinearConverter> linear_;

  // Work areas of one block, in the order of the stages.
  std::vector<int16_t> read16_, filtered_, mapped16_;
  std::vector<double> readDouble_, converted_;
  std::vector<int16_t> rounded_;

  std::vector<int16_t> ready_;  // finished samples
  size_t taken_ = 0;            // of them
  bool ended_ = false;
  uint64_t inputFrames_ = 0;
};

}  // namespace qav::tool
