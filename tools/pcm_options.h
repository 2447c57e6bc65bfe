// The options that the subcommands reading PCM share.
#pragma once

#include <optional>
#include <string>

#include "tools/cli/batch.h"
#include "tools/cli/command_line.h"
#include "tools/pcm/pcm_pipeline.h"
#include "tools/pcm/pcm_reader.h"

namespace qav::tool {

struct PcmOptions : CommonOptions {
  std::optional<RawFormat> raw;
  Resampler resampler = Resampler::soxr;
  bool dither = true;
  double gainDb = 0.0;
  bool gainGiven = false;
  double normalizeLufs = 0.0;
  bool normalize = false;
  bool loudness = false;
  unsigned lowpass = 0;
};

void addPcmOptions(CommandLine &line, PcmOptions &options);

// Refuse what contradicts itself. Throws Failure (usage).
void checkPcmOptions(const PcmOptions &options);

// One input on its way to 16-bit samples, and what is said about it.
class PcmInput {
 public:
  // `keep`, where given, takes the chunks of a WAV file around its samples.
  PcmInput(Job &job, const PcmOptions &options, KeptChunks *keep = nullptr);

  const PcmFormat &format() const { return reader_->format(); }

  // Choose the output and begin; reads the input once before where it is to be normalized.
  void begin(uint32_t freqHz, unsigned channels);

  size_t read(int16_t *to, size_t frames) { return pipeline_->read(to, frames); }

  // Tell how much of the input has been read.
  void advance() const;

  // To be called at the end of the input: says what was found. Returns the exit status.
  int finish() const;

  const PcmPipeline &pipeline() const { return *pipeline_; }

  // Of all that was read, once that is done. Null without --loudness.
  const Loudness *loudness();

  // "WAV, 24-bit, 96000 Hz, 2 channels; resampled by soxr; dithered"
  std::string describe();

  // Fields of the JSON object.
  void describe(Json &json);

 private:
  void measure();

  Job &job_;
  const PcmOptions &options_;
  KeptChunks *keep_;
  std::unique_ptr<PcmReader> reader_;
  std::optional<LoudnessMeter> meter_;
  std::optional<Loudness> loudness_;  // when it was asked for
  std::optional<PcmPipeline> pipeline_;
  PcmSettings settings_;
};

}  // namespace qav::tool
