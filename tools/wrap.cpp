// qav wrap: a stream into a WAVE file, frame by frame, without encoding it anew.
#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "tools/cli/batch.h"
#include "tools/cli/command_line.h"
#include "tools/cli/output_names.h"
#include "tools/frame_copy.h"
#include "tools/io/message.h"
#include "tools/io/output_file.h"
#include "tools/riff/kept_chunks.h"
#include "tools/stream/mpeg_input.h"
#include "tools/stream/mpeg_wave_writer.h"
#include "tools/stream/stream_report.h"
#include "tools/subcommands.h"

namespace qav::tool {

namespace {

// The length of the audio: what its wrapping has said of it, for that may leave out the codec's padding.
std::optional<uint64_t> knownSamples(const StreamReport &report) {
  return report.container() ? report.container()->factSamples : std::nullopt;
}

int wrapOne(Job &job, const CommonOptions &options, const std::string &outputName) {
  KeptChunks chunks;
  MpegInput input(job.input(), {.verifyChecks = true, .keep = &chunks});
  OutputFile out(outputName, options.force);
  StreamReport report;
  std::optional<MpegWaveWriter> wave;
  const int status = copyFrames(job, options, input, report, WrongChecks::takeOver, [&](const FrameEvent &frame) {
    if (!wave)
      wave.emplace(out, MpegWaveWriter::Options{
                            .chunks = &chunks, .expectedBytes = input.size(), .samples = knownSamples(report)});
    wave->write(frame.data, frame.header);
  });
  const uint64_t samples = std::min(knownSamples(report).value_or(wave->samples()), wave->samples());
  if (const std::string remark = wave->finish(samples); !remark.empty())
    job.complainAbout(outputName, {{}, remark, {}});
  out.commit();
  if (job.wantsObject()) {
    Json json = report.json(status);
    json["output"] = toUtf8(outputName);
    json["sampleFrames"] = samples;
    job.object(json);
  }
  if (options.verbose && !options.json)
    job.complain({{},
                  fmt::format("wrapped {}, {}, {}", counted(report.frames(), "frame"), timeText(report.seconds()),
                              counted(samples, "sample") + " a channel"),
                  {}});
  return status;
}

}  // namespace

int runWrap(int argc, char **argv) {
  CommandLine line("wrap", "Wrap MPEG audio streams into WAVE files, without encoding anew.",
                   "  qav wrap concert.mp2               writes concert.wav\n"
                   "  qav wrap *.mp2 -o wav/ --json      writes wav/....wav");
  CommonOptions options;
  line.addInputs(options, kMpegExtensions);
  line.addOutput(options, "the output; default: beside the input");
  int status = kGood;
  if (!line.parse(argc, argv, status)) return status;
  const std::vector<std::string> outputs = planOutputs(options, ".wav");
  refuseUnfitStandardOutput(options, outputs[0], OutputKind::stream);
  return runJobs(options, [&](Job &job) { return wrapOne(job, options, outputs[job.index()]); });
}

}  // namespace qav::tool
