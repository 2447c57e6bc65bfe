// qav info: what is in a stream, without decoding it.
#include <fmt/format.h>

#include "tools/cli/batch.h"
#include "tools/cli/command_line.h"
#include "tools/io/message.h"
#include "tools/stream/mpeg_input.h"
#include "tools/stream/stream_report.h"
#include "tools/subcommands.h"

namespace qav::tool {

namespace {

std::string tagsText(const StreamReport &report) {
  std::string text;
  for (const TagEvent &tag : report.tags())
    text += fmt::format("{}{} ({} at byte {})", text.empty() ? "" : ", ", tagName(tag.kind), counted(tag.bytes, "byte"),
                        tag.place.offset);
  return text.empty() ? "none" : text;
}

std::string describe(const std::string &file, const StreamReport &report) {
  const auto &stretches = report.stretches();
  std::string text = file + ":";
  for (const auto &stretch : stretches) {
    text += fmt::format("\n  format       {}", formatText(stretch.format));
    if (stretches.size() > 1) text += fmt::format(", from frame {} on", stretch.firstFrame);
  }
  text += fmt::format("\n  mode         {}", report.modesText());
  text += fmt::format("\n  bitrate      {}", report.bitrateText());
  text += fmt::format("\n  frames       {}", report.frames());
  if (report.lostFrames() > 0) text += fmt::format(", and {} lost", report.lostFrames());
  text += fmt::format("\n  duration     {}", timeText(report.seconds()));
  if (stretches.size() == 1) text += fmt::format(" ({} samples a channel)", stretches[0].samples);
  text += fmt::format("\n  check words  {}", report.checkWordsText());
  text += fmt::format("\n  tags         {}", tagsText(report));
  if (report.container()) text += "\n  container    RIFF/WAVE";
  text += fmt::format("\n  verdict      {}", verdictName(report.verdict()));
  if (report.findings() > 0) text += fmt::format(", {}; see 'qav check'", counted(report.findings(), "finding"));
  return text;
}

int infoOne(Job &job, const CommonOptions &options) {
  MpegInput input(job.input(), {.verifyChecks = true});
  StreamReport report;
  for (;;) {
    const Event &event = input.next();
    const auto finding = report.observe(event);
    if (const auto *frame = std::get_if<FrameEvent>(&event))
      job.advance(input.fractionAt(frame->place.offset), frame->place.seconds);
    if (finding && options.verbose)
      job.complain({placeText(finding->place.frame, finding->place.offset, finding->place.seconds),
                    describeFinding(*finding), ""});
    if (std::holds_alternative<EndEvent>(event)) break;
  }
  const int status = report.verdict() == Verdict::good ? kGood : kDamaged;
  if (job.wantsObject()) job.object(report.json(status));
  if (!options.json) job.out(describe(job.displayInput(), report));
  return status;
}

}  // namespace

int runInfo(int argc, char **argv) {
  CommandLine line("info", "Say what is in MPEG audio files, without decoding them.",
                   "  qav info concert.mp2          format, bitrate, duration, check words, tags\n"
                   "  qav info --json *.mp2         the same as JSON, one line a file");
  CommonOptions options;
  line.addInputs(options, kMpegExtensions);
  int status = kGood;
  if (!line.parse(argc, argv, status)) return status;
  return runJobs(options, [&](Job &job) { return infoOne(job, options); });
}

}  // namespace qav::tool
