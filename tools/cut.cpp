// qav cut: a part of a stream, frame by frame, without encoding it anew. Every frame of Layer I and II stands alone.
#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "tools/cli/batch.h"
#include "tools/cli/command_line.h"
#include "tools/cli/output_names.h"
#include "tools/cli/time_argument.h"
#include "tools/frame_copy.h"
#include "tools/io/message.h"
#include "tools/io/output_file.h"
#include "tools/stream/mpeg_input.h"
#include "tools/stream/stream_report.h"
#include "tools/subcommands.h"

namespace qav::tool {

namespace {

constexpr double kEnd = std::numeric_limits<double>::infinity();

struct CutOptions : CommonOptions {
  double from = 0.0;
  double to = kEnd;

  // A cut runs along the boundary between two frames that is nearest to the time asked for. So what is cut off at a time
  // and what is cut from there on together are the whole stream, and a time rounded to milliseconds is as good as exact.
  bool holds(const FrameEvent &frame) const {
    const double middle = middleSeconds(frame);
    return middle > from && middle <= to;
  }
};

struct Part {
  uint64_t frames = 0;
  uint64_t bytes = 0;
  uint64_t firstFrame = 0;  // of the input
  uint64_t lastFrame = 0;
  double from = 0.0;
  double to = 0.0;
};

// "a.cut.mp2" beside "a.mp2", "a.mp2" in a folder; a part of a wrapped stream is a bare one.
std::string extensionFor(const std::string &input, bool isBeside) {
  const std::string own = extensionOf(input);
  const bool isStream = std::count(kMpegExtensions.begin(), kMpegExtensions.end(), own) > 0;
  return (isBeside ? ".cut" : "") + (isStream ? own : ".mp2");
}

int cutOne(Job &job, const CutOptions &options, const std::string &outputName) {
  MpegInput input(job.input(), {.verifyChecks = true});
  OutputFile out(outputName, options.force);
  StreamReport report;
  Part part;
  const int status = copyFrames(job, options, input, report, WrongChecks::leaveOut, [&](const FrameEvent &frame) {
    if (!options.holds(frame)) return;
    out.write(frame.data, frame.header.frameBytes);
    if (part.frames == 0) {
      part.firstFrame = frame.place.frame;
      part.from = frame.place.seconds;
    }
    part.lastFrame = frame.place.frame;
    part.to = endSeconds(frame);
    ++part.frames;
    part.bytes += frame.header.frameBytes;
  });
  if (part.frames == 0)
    fail(fmt::format("holds no good frame from {} to {}", timeText(options.from),
                     options.to == kEnd ? "its end" : timeText(options.to)),
         "it lasts " + timeText(report.seconds()));
  out.commit();
  if (job.wantsObject()) {
    Json json = report.json(status);
    json["output"] = toUtf8(outputName);
    json["cut"] = {{"firstFrame", part.firstFrame}, {"lastFrame", part.lastFrame}, {"frames", part.frames},
                   {"bytes", part.bytes},           {"from", part.from},           {"to", part.to}};
    job.object(json);
  }
  if (!options.quiet && !options.json) {
    job.complain({{},
                  fmt::format("cut from {} to {}: frames {} to {}, {}", timeText(part.from), timeText(part.to),
                              part.firstFrame, part.lastFrame, counted(part.bytes, "byte")),
                  {}});
  }
  return status;
}

}  // namespace

int runCut(int argc, char **argv) {
  CommandLine line("cut", "Cut a part out of MPEG audio streams, exact to the frame, without encoding anew.",
                   "  qav cut concert.mp2 --from 1:30 --to 4:05.5 -o song.mp2\n"
                   "  qav cut *.mp2 --to 30 -o previews/      the first half minute of each");
  CutOptions options;
  line.addInputs(options, kMpegExtensions);
  line.addOutput(options, "the output; default: concert.cut.mp2 beside it");
  const auto addTime = [&](const char *name, double &time, const char *what) {
    line.app()
        .add_option_function<std::string>(
            name, [&time, name](const std::string &text) { time = parseTime(name, text); }, what)
        ->type_name("TIME")
        ->group("Part");
  };
  addTime("--from", options.from, "its begin: seconds or h:m:s (default: the start)");
  addTime("--to", options.to, "its end (default: the end)");
  int status = kGood;
  if (!line.parse(argc, argv, status)) return status;
  if (line.app().count("--from") + line.app().count("--to") == 0)
    failUsage("cut: no time is given", "use --from, --to or both");
  if (options.from >= options.to) failUsage("cut: the part ends before it begins", "give --to a time behind --from");
  const std::vector<std::string> outputs = planOutputs(options, extensionFor);
  refuseUnfitStandardOutput(options, outputs[0], OutputKind::stream);
  return runJobs(options, [&](Job &job) { return cutOne(job, options, outputs[job.index()]); });
}

}  // namespace qav::tool
