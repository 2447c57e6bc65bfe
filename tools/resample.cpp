// qav resample: PCM in, 16-bit WAV of another sampling rate out.
#include <fmt/format.h>

#include <array>

#include "tools/cli/output_names.h"
#include "tools/io/message.h"
#include "tools/io/output_file.h"
#include "tools/pcm_options.h"
#include "tools/riff/wav_writer.h"
#include "tools/subcommands.h"

namespace qav::tool {

namespace {

struct ResampleOptions : PcmOptions {
  uint32_t freqHz = 0;
  unsigned channels = 0;
};

int resampleOne(Job &job, const ResampleOptions &options, const std::string &outputName) {
  PcmInput input(job, options);
  const unsigned channels = options.channels > 0 ? options.channels : input.format().channels;
  OutputFile out(outputName, options.force);
  input.begin(options.freqHz, channels);
  std::optional<uint64_t> expectedBytes = input.format().frames;
  if (expectedBytes)
    expectedBytes = convertedFrames(*expectedBytes, input.format().freqHz, options.freqHz) * 2 * channels;
  WavWriter wav(out, options.freqHz, channels, {.expectedBytes = expectedBytes});
  std::vector<int16_t> block(4096 * channels);
  uint64_t frames = 0;
  while (const size_t n = input.read(block.data(), 4096)) {
    wav.write(block.data(), n * channels);
    frames += n;
    input.advance();
  }
  const std::string remark = wav.finish();
  out.commit();
  const int status = input.finish();
  if (!remark.empty()) job.complainAbout(outputName, {{}, remark, {}});
  if (job.wantsObject()) {
    Json json;
    json["status"] = status;
    json["output"] = toUtf8(outputName);
    input.describe(json);
    json["result"] = {{"freqHz", options.freqHz}, {"channels", channels}, {"bits", 16}, {"sampleFrames", frames}};
    job.object(json);
  }
  if (!options.json && (options.verbose || options.loudness)) {
    if (outputName == "-")
      job.complain({{}, input.describe(), {}});
    else
      job.out(job.displayInput() + ": " + input.describe());
  }
  return status;
}

}  // namespace

int runResample(int argc, char **argv) {
  CommandLine line("resample", "Convert PCM files to another sampling rate, as 16-bit WAV.",
                   "  qav resample talk.flac -r 48000            writes talk.48000.wav\n"
                   "  qav resample *.wav -r 32000 -o radio/      writes radio/....32000.wav");
  ResampleOptions options;
  line.addInputs(options, kPcmExtensions);
  line.addOutput(options, "the output; default: beside the input");
  line.app()
      .add_option("-r,--rate", options.freqHz, fmt::format("{} to {}", kLowestFreqHz, kHighestFreqHz))
      ->type_name("HZ")
      ->group(kSoundGroup)
      ->required()
      ->check(CLI::Range(kLowestFreqHz, kHighestFreqHz));
  line.app()
      .add_option("--channels", options.channels, "one is spread to two, two averaged to one")
      ->type_name("1|2")
      ->group(kSoundGroup)
      ->check(CLI::IsMember({1u, 2u}));
  addPcmOptions(line, options);
  int status = kGood;
  if (!line.parse(argc, argv, status)) return status;
  checkPcmOptions(options);
  const std::vector<std::string> outputs = planOutputs(options, fmt::format(".{}.wav", options.freqHz));
  refuseUnfitStandardOutput(options, outputs[0], OutputKind::samples);
  return runJobs(options, [&](Job &job) { return resampleOne(job, options, outputs[job.index()]); });
}

}  // namespace qav::tool
