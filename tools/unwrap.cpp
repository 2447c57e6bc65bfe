// qav unwrap: a stream out of a WAVE file, frame by frame, without encoding it anew.
#include <fmt/format.h>

#include "tools/cli/batch.h"
#include "tools/cli/command_line.h"
#include "tools/cli/output_names.h"
#include "tools/frame_copy.h"
#include "tools/io/message.h"
#include "tools/io/output_file.h"
#include "tools/stream/mpeg_input.h"
#include "tools/stream/stream_report.h"
#include "tools/subcommands.h"

namespace qav::tool {

namespace {

int unwrapOne(Job &job, const CommonOptions &options, const std::string &outputName) {
  MpegInput input(job.input(), {.verifyChecks = true});
  OutputFile out(outputName, options.force);
  StreamReport report;
  const int status = copyFrames(job, options, input, report, WrongChecks::takeOver, [&](const FrameEvent &frame) {
    if (!report.container()) fail("is no WAVE file, but a stream already", "there is nothing to unwrap");
    out.write(frame.data, frame.header.frameBytes);
  });
  out.commit();
  if (job.wantsObject()) {
    Json json = report.json(status);
    json["output"] = toUtf8(outputName);
    job.object(json);
  }
  if (options.verbose && !options.json)
    job.complain(
        {{}, fmt::format("unwrapped {}, {}", counted(report.frames(), "frame"), timeText(report.seconds())), {}});
  return status;
}

}  // namespace

int runUnwrap(int argc, char **argv) {
  CommandLine line("unwrap", "Take MPEG audio streams out of WAVE files, without encoding anew.",
                   "  qav unwrap concert.wav             writes concert.mp2\n"
                   "  qav unwrap *.wav -o mp2/           writes mp2/....mp2");
  CommonOptions options;
  line.addInputs(options, kWaveExtensions);
  line.addOutput(options, "the output; default: beside the input");
  int status = kGood;
  if (!line.parse(argc, argv, status)) return status;
  const std::vector<std::string> outputs = planOutputs(options, ".mp2");
  refuseUnfitStandardOutput(options, outputs[0], OutputKind::stream);
  return runJobs(options, [&](Job &job) { return unwrapOne(job, options, outputs[job.index()]); });
}

}  // namespace qav::tool
