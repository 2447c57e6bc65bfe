// qav join: several streams of one format as one, without encoding them anew.
#include <fmt/format.h>
#include <sys/stat.h>

#include <optional>

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

// Joint stereo is a choice made anew in every frame of a stereo stream; two languages are no stereo.
const char *channelsText(const FrameHeader &header) {
  static constexpr const char *kNames[] = {"stereo", "stereo", "dual channel", "one channel"};
  return kNames[header.mode];
}

// How `b` differs from `a`: "48000 Hz, not 44100 Hz". Empty where one stream may hold both.
std::string difference(const FrameHeader &a, const FrameHeader &b) {
  if (a.layer != b.layer)
    return fmt::format("Layer {}, not Layer {}", b.layer == 1 ? "I" : "II", a.layer == 1 ? "I" : "II");
  if (a.version != b.version) return fmt::format("MPEG-{}, not MPEG-{}", b.version, a.version);
  if (a.freqHz != b.freqHz) return fmt::format("{} Hz, not {} Hz", b.freqHz, a.freqHz);
  const std::string channelsA = channelsText(a), channelsB = channelsText(b);
  return channelsA != channelsB ? fmt::format("{}, not {}", channelsB, channelsA) : std::string();
}

// A pipe or a device: what is read from it is gone.
bool isReadOnce(const std::string &path) {
  struct stat status {};
  return path == "-" || (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode));
}

FrameHeader firstHeader(const std::string &path) {
  MpegInput input(path, {.verifyChecks = false});
  for (;;)
    if (const auto *frame = std::get_if<FrameEvent>(&input.next())) return frame->header;
}

// The output, and the format that all inputs must have. When an input is refused nothing is written; what can be said of
// the others is said all the same.
class Joiner {
 public:
  explicit Joiner(const CommonOptions &options);

  int add(Job &job);
  // After all inputs; `status` is what became of them.
  void commit(int status);

 private:
  void require(const FrameEvent &frame);
  void write(const FrameEvent &frame);

  const CommonOptions &options_;
  std::optional<OutputFile> out_;
  std::optional<Failure> early_;  // what was wrong with an input at the first look
  std::optional<FrameHeader> format_;
  std::string formatOf_;  // an input that has it
  uint64_t frames_ = 0;   // written
  double seconds_ = 0.0;
};

// Formats are compared before anything is written, as far as inputs can be read twice.
Joiner::Joiner(const CommonOptions &options) : options_(options) {
  bool refused = false;
  for (const std::string &name : options.inputs) {
    if (isReadOnce(name)) continue;
    try {
      const FrameHeader header = firstHeader(name);
      if (!format_) {
        format_ = header;
        formatOf_ = name;
      }
      refused |= !difference(*format_, header).empty();
    } catch (const Failure &failure) {
      refused = true;  // it will be met again, and told
      early_ = failure;
      early_->file = name;
    }
  }
  if (!refused) out_.emplace(options.output, options.force);
}

void Joiner::require(const FrameEvent &frame) {
  const std::string what = difference(*format_, frame.header);
  if (what.empty()) return;
  const Place &at = frame.place;
  fail(fmt::format("is {} as {}", what, displayName(formatOf_)), "join streams of one format",
       at.frame == 0 ? std::string() : placeText(at.frame, at.offset, at.seconds));
}

void Joiner::write(const FrameEvent &frame) {
  if (out_) out_->write(frame.data, frame.header.frameBytes);
  ++frames_;
  seconds_ += endSeconds(frame) - frame.place.seconds;
}

int Joiner::add(Job &job) {
  StreamReport report;
  const uint64_t firstFrame = frames_;
  const double from = seconds_;
  int status = kGood;
  try {
    MpegInput input(job.input(), {.verifyChecks = true});
    status = copyFrames(job, options_, input, report, WrongChecks::leaveOut, [&](const FrameEvent &frame) {
      if (!format_) {
        format_ = frame.header;
        formatOf_ = job.input() == "-" ? "standard input" : job.input();
      }
      require(frame);
      write(frame);
    });
  } catch (...) {  // for want of memory too: what there is then is not all of the input
    out_.reset();
    throw;
  }
  if (job.wantsObject()) {
    Json json = report.json(status);
    json["output"] = out_ ? Json(toUtf8(options_.output)) : Json();
    json["join"] = {{"firstFrame", firstFrame}, {"frames", frames_ - firstFrame}, {"from", from}, {"to", seconds_}};
    job.object(json);
  }
  if (!options_.quiet && !options_.json && out_) {
    job.complain({{},
                  fmt::format("joined from {} to {}: {} from frame {} on", timeText(from), timeText(seconds_),
                              counted(frames_ - firstFrame, "frame"), firstFrame),
                  {}});
  }
  return status;
}

void Joiner::commit(int status) {
  if (out_) out_->commit();
  // Nothing has been written; if what was wrong had mended itself meanwhile, nobody would have been told.
  if (!out_ && early_ && status != kUnusable) throw Failure(std::move(*early_));
}

}  // namespace

int runJoin(int argc, char **argv) {
  CommandLine line("join", "Join MPEG audio streams of one format, without encoding anew.",
                   "  qav join side-a.mp2 side-b.mp2 -o record.mp2\n"
                   "  qav join day/*.mp2 -o - | play    in the order they are named");
  CommonOptions options;
  line.addInputs(options, kMpegExtensions);
  line.addOutput(options, "the one output");
  int status = kGood;
  if (!line.parse(argc, argv, status)) return status;
  if (options.output.empty()) failUsage("join: no output is given", "name it with -o");
  refuseUnfitStandardOutput(options, options.output, OutputKind::stream);
  if (!options.resume.empty()) failUsage("join: an output cannot be resumed", "leave out --resume");
  options.jobs = 1;  // they stand in their order
  refuseInputAsOutput(options.inputs, options.output);
  Joiner joiner(options);
  status = runJobs(options, [&](Job &job) { return joiner.add(job); });
  joiner.commit(status);
  return status;
}

}  // namespace qav::tool
