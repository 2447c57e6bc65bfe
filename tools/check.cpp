// qav check: whether streams are whole, and what is wrong with them.
#include <fmt/format.h>

#include "tools/cli/batch.h"
#include "tools/cli/command_line.h"
#include "tools/io/message.h"
#include "tools/pcm/pcm_target.h"
#include "tools/stream/mpeg_input.h"
#include "tools/stream/stream_report.h"
#include "tools/subcommands.h"
#include "tools/threads/stream_decoder.h"
#include "tools/threads/stretch_joiner.h"

namespace qav::tool {

namespace {

struct CheckOptions : CommonOptions {
  bool md5 = false;
  bool strict = false;
};

// The verdict stands in the first line, before the findings; so they are kept, as far as they are not too many.
int checkOne(Job &job, const CheckOptions &options) {
  MpegInput input(job.input(), {.verifyChecks = false});
  StreamReport report;
  Md5Target md5;
  StretchJoiner joiner(md5);
  PcmReceiver receiver;
  receiver.at = [&](const Place &place) { job.advance(input.fractionAt(place.offset), place.seconds); };
  if (options.md5) {
    receiver.begin = [&](const FrameHeader &header) { joiner.begin(header.freqHz, header.channels); };
    receiver.write = [&](const int16_t *samples, size_t frames) { joiner.write(samples, frames); };
    receiver.silence = [&](uint64_t frames) { joiner.silence(frames); };
  }
  decodeStream(input, report, receiver, job.threads());
  joiner.finish();

  const bool isGood = report.verdict() == Verdict::good && !(options.strict && report.warnings() > 0);
  const int status = isGood ? kGood : kDamaged;
  const std::string digest = options.md5 ? md5.hexDigest() : std::string();
  if (job.wantsObject()) {
    Json json = report.json(status);
    if (options.md5) json["md5"] = digest;
    job.object(json);
  }
  if (options.json) return status;
  std::string head = fmt::format("{}: {}", job.displayInput(), verdictName(report.verdict()));
  if (options.md5) head += ", md5 " + digest;
  job.out(head);
  for (const Finding &finding : report.kept()) {
    if (options.quiet && finding.isWarning && !options.strict) continue;
    job.out(fmt::format("  {}: {}", placeText(finding.place.frame, finding.place.offset, finding.place.seconds),
                        describeFinding(finding)));
  }
  if (report.omitted() > 0) job.out(fmt::format("  and {} more", counted(report.omitted(), "finding")));
  return status;
}

}  // namespace

int runCheck(int argc, char **argv) {
  CommandLine line("check", "Decode without writing, and say whether each stream is whole.",
                   "  qav check *.mp2                a line a file, and one for each thing found\n"
                   "  qav check --json --md5 *.mp2   as JSON, with checksums of the sound");
  CheckOptions options;
  line.addInputs(options, kMpegExtensions);
  line.app().add_flag("--md5", options.md5, "add the MD5 checksum of the decoded samples")->group("Verdict");
  line.app().add_flag("--strict", options.strict, "warnings count too")->group("Verdict");
  int status = kGood;
  if (!line.parse(argc, argv, status)) return status;
  return runJobs(options, [&](Job &job) {
    try {
      return checkOne(job, options);
    } catch (const Failure &failure) {
      // A verdict like the others, with its reason on standard error.
      if (failure.isNotMpegAudio && !options.json) job.out(job.displayInput() + ": not MPEG audio");
      throw;
    }
  });
}

}  // namespace qav::tool
