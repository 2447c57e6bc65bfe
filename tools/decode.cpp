// qav decode: MPEG audio in, PCM out.
#include <fmt/format.h>

#include <memory>

#include "tools/cli/batch.h"
#include "tools/cli/command_line.h"
#include "tools/cli/output_names.h"
#include "tools/io/message.h"
#include "tools/pcm/codec_delay.h"
#include "tools/pcm/pcm_target.h"
#include "tools/pcm/trimmed_target.h"
#include "tools/riff/kept_chunks.h"
#include "tools/stream/mpeg_input.h"
#include "tools/stream/stream_report.h"
#include "tools/subcommands.h"
#include "tools/threads/stream_decoder.h"
#include "tools/threads/stretch_joiner.h"

namespace qav::tool {

namespace {

struct DecodeOptions : CommonOptions {
  bool raw = false;
  bool skipGaps = false;
  bool lenient = false;
  bool split = false;
  bool trim = false;
};

// A codec's padding is less than a frame, and some programs add another one.
constexpr uint64_t kPlausiblePadding = 2 * QAV_SAMPLES_PER_FRAME;

// The output of one input: one file, or one a stretch. Chunks around the stream in a WAVE file go into the output: with
// several, those before the stream into each, those behind it into the last.
class Output {
 public:
  Output(const DecodeOptions &options, std::string name, std::optional<uint64_t> inputBytes, const KeptChunks &chunks,
         Job &job)
      : options_(options), name_(std::move(name)), inputBytes_(inputBytes), chunks_(chunks), job_(job) {}

  // `samples`: how many the stream holds per channel, where that is known.
  void begin(const FrameHeader &header, std::optional<uint64_t> samples) {
    if (trimmed_ && !options_.split) trimmed_->forgetLength();
    if (!joiner_ || options_.split) {
      if (target_) target_->leaveOutChunksBehind();
      finish();
      openNext(header, names_.empty() ? samples : std::nullopt);
    }
    joiner_->begin(header.freqHz, header.channels);
  }
  void write(const int16_t *samples, size_t frames) { joiner_->write(samples, frames); }
  int16_t *next() { return joiner_->next(); }
  void silence(uint64_t frames) {
    if (!options_.skipGaps) joiner_->silence(frames);
  }
  void finish() {
    if (joiner_) joiner_->finish();
  }
  const std::vector<std::string> &names() const { return names_; }
  uint64_t padding() const { return trimmed_ ? trimmed_->padding() : 0; }

 private:
  void openNext(const FrameHeader &header, std::optional<uint64_t> samples) {
    std::string name = name_;
    if (!names_.empty()) name = withExtension(name_, fmt::format(".{}{}", names_.size() + 1, extensionOf(name_)));
    std::optional<uint64_t> expected;
    if (inputBytes_) expected = *inputBytes_ / header.frameBytes * header.frameSamples * header.channels * 2;
    target_ = std::make_unique<FileTarget>(name, FileTarget::Options{.overwrite = options_.force,
                                                                     .raw = options_.raw,
                                                                     .expectedBytes = expected,
                                                                     .chunks = &chunks_,
                                                                     .warn = [this, name](const std::string &what) {
                                                                       job_.complainAbout(name, {"", what, ""});
                                                                     }});
    if (options_.trim) trimmed_.emplace(*target_, kCodecDelay, samples);
    joiner_ = std::make_unique<StretchJoiner>(trimmed_ ? static_cast<PcmTarget &>(*trimmed_) : *target_);
    names_.push_back(std::move(name));
  }

  const DecodeOptions &options_;
  std::string name_;
  std::optional<uint64_t> inputBytes_;
  const KeptChunks &chunks_;
  Job &job_;
  std::unique_ptr<FileTarget> target_;
  std::optional<TrimmedTarget> trimmed_;
  std::unique_ptr<StretchJoiner> joiner_;
  std::vector<std::string> names_;
};

// What became of it.
std::string consequence(const Finding &finding, const DecodeOptions &options) {
  if (finding.isWarning) return "it plays all the same";
  if (finding.lostFrames > 0) return options.skipGaps ? "left out" : "silence stands in its place";
  if (finding.bytes > 0) return "passed over";
  if (std::string_view(finding.kind) != "format change") return {};
  return options.split ? "the rest goes to another file" : "the rest is converted to the first format";
}

// A fact chunk of 0 was never filled in.
std::optional<uint64_t> samplesIn(const StreamReport &report) {
  const std::optional<uint64_t> samples = report.container() ? report.container()->factSamples : std::nullopt;
  return samples && *samples > 0 ? samples : std::nullopt;
}

int decodeOne(Job &job, const DecodeOptions &options, const std::string &outputName) {
  KeptChunks chunks;
  MpegInput input(job.input(), {.verifyChecks = false, .keep = options.raw ? nullptr : &chunks});
  StreamReport report;
  Output output(options, outputName, input.size(), chunks, job);
  decodeStream(input, report,
               {.at = [&](const Place &place) { job.advance(input.fractionAt(place.offset), place.seconds); },
                .begin = [&](const FrameHeader &header) { output.begin(header, samplesIn(report)); },
                .write = [&](const int16_t *samples, size_t frames) { output.write(samples, frames); },
                .next = [&] { return output.next(); },
                .silence = [&](uint64_t frames) { output.silence(frames); },
                .tell =
                    [&](const Finding &finding) {
                      if (finding.isWarning && options.quiet) return;
                      job.complain({placeText(finding.place.frame, finding.place.offset, finding.place.seconds),
                                    describeFinding(finding), consequence(finding, options)});
                    }},
               job.threads());
  output.finish();
  if (output.padding() > kPlausiblePadding)
    job.complain({{},
                  fmt::format("its fact chunk says {} samples a channel, {} more are left out", *samplesIn(report),
                              output.padding()),
                  "decode without --trim to have them all"});
  const int status = report.verdict() == Verdict::good || options.lenient ? kGood : kDamaged;
  if (job.wantsObject()) {
    Json json = report.json(status);
    json["outputs"] = Json::array();
    for (const std::string &name : output.names()) json["outputs"].push_back(toUtf8(name));
    if (options.trim) json["trimmed"] = {{"delay", kCodecDelay}, {"padding", output.padding()}};
    job.object(json);
  }
  if (options.verbose && !options.json && outputName != "-") {
    job.out(fmt::format("{}: {} frames, {}", job.displayInput(), report.frames(), timeText(report.seconds())));
  }
  return status;
}

}  // namespace

int runDecode(int argc, char **argv) {
  CommandLine line("decode", "Decode MPEG audio of Layer I and II into 16-bit WAV files.",
                   "  qav decode concert.mp2                 writes concert.wav\n"
                   "  qav decode - -o - --raw <in | play   from a pipe into a pipe, bare samples");
  DecodeOptions options;
  line.addInputs(options, kMpegExtensions);
  line.addOutput(options, "the output; default: beside the input");
  line.app().add_flag("--raw", options.raw, "bare 16-bit little-endian samples instead of WAV")->group(kOutputGroup);
  std::string gaps = "silence";
  line.app()
      .add_option("--gaps", gaps, "lost frames become silence, or are left out")
      ->type_name("silence|skip")
      ->group(kOutputGroup)
      ->check(CLI::IsMember({"silence", "skip"}));
  line.app().add_flag("--lenient", options.lenient, "exit 0 although the stream was damaged")->group(kRunGroup);
  line.app().add_flag("--split", options.split, "one file a stretch where the format changes")->group(kOutputGroup);
  line.app()
      .add_flag("--trim", options.trim, "without the codec's delay, and padding where known")
      ->group(kOutputGroup);
  int status = kGood;
  if (!line.parse(argc, argv, status)) return status;
  options.skipGaps = gaps == "skip";
  const std::vector<std::string> outputs = planOutputs(options, options.raw ? ".s16" : ".wav");
  refuseUnfitStandardOutput(options, outputs[0], OutputKind::samples);
  if (outputs[0] == "-" && options.split)
    failUsage("--split cannot write several files to standard output", "use -o DIR");
  return runJobs(options, [&](Job &job) { return decodeOne(job, options, outputs[job.index()]); });
}

}  // namespace qav::tool
