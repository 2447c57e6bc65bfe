// qav inspect: a report about what is in a stream and where its bits went.
#include <fmt/format.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "tools/cli/batch.h"
#include "tools/cli/command_line.h"
#include "tools/cli/output_names.h"
#include "tools/cli/time_argument.h"
#include "tools/inspect/frame_reader.h"
#include "tools/inspect/inspect_against.h"
#include "tools/inspect/inspect_csv.h"
#include "tools/inspect/inspect_page.h"
#include "tools/inspect/inspect_report.h"
#include "tools/io/message.h"
#include "tools/io/output_file.h"
#include "tools/stream/frame_shift.h"
#include "tools/subcommands.h"

namespace qav::tool {

namespace {

struct InspectOptions : CommonOptions {
  InspectRange range;
  std::string against;  // another stream of the same programme
  bool csv = false;
};

int statusOf(const FrameReader &reader) { return reader.report().verdict() == Verdict::good ? kGood : kDamaged; }

// Another stream that keeps step with the one that is inspected.
class Comparison {
 public:
  Comparison(const std::string &file, const std::string &other, const InspectRange &range, unsigned threads)
      : other_(other),
        reader_(other, {.threads = threads}),
        shift_(findFrameShift(file, other)),
        against_(range, shift_),
        next_(reader_.next()) {}

  // Of the first stream, in ascending order.
  void add(const InspectedFrame &frame) {
    const auto number = static_cast<int64_t>(frame.place.frame);
    while (next_ && numberOfNext() < number) addOwn();
    const bool isPair = next_ && numberOfNext() == number;
    against_.add(&frame, isPair ? next_ : nullptr);
    if (isPair) next_ = reader_.next();
  }
  void finish() {
    while (next_) addOwn();
  }

  int status() const { return statusOf(reader_); }
  std::string text() const { return against_.text(); }
  Json json(const InspectReport &report, const InspectedStream &stream, const ArrayWriter &array) const {
    return against_.json(other_, status(), reader_.stream(), report.columns(), report.endFrame(stream), array);
  }

 private:
  // In the first stream.
  int64_t numberOfNext() const { return static_cast<int64_t>(next_->place.frame) + shift_; }
  void addOwn() {
    against_.add(nullptr, next_);
    next_ = reader_.next();
  }

  std::string other_;
  FrameReader reader_;
  int64_t shift_;
  InspectAgainst against_;
  const InspectedFrame *next_;
};

std::optional<Comparison> comparisonFor(const std::string &file, const InspectOptions &options, unsigned threads) {
  if (options.against.empty()) return std::nullopt;
  try {
    return std::make_optional<Comparison>(file, options.against, options.range, threads);
  } catch (const Failure &failure) {
    throw Failure(failure.status,
                  {"--against " + displayName(options.against), failure.complaint.what, failure.complaint.remedy});
  }
}

int inspectOne(Job &job, const InspectOptions &options, const std::string &outputName) {
  FrameReader reader(job.input(), {.estimateMasking = true, .threads = job.threads()});
  // The other stream takes no model.
  std::optional<Comparison> comparison = comparisonFor(job.input(), options, job.threads() > 2 ? 2 : 1);
  // Before the work, so that a report that cannot be written costs none.
  std::optional<OutputFile> page;
  if (!outputName.empty()) page.emplace(outputName, options.force);
  InspectReport report(options.range, ModelSource::estimate);
  if (options.csv && job.index() == 0) job.out(csvHead());
  while (const InspectedFrame *const frame = reader.next()) {
    job.advance(reader.input().fractionAt(frame->place.offset), frame->place.seconds);
    report.add(*frame, reader.report());
    if (comparison) comparison->add(*frame);
    if (options.csv && options.range.holds(*frame)) job.out(csvLine(job.input(), *frame));
  }
  if (comparison) comparison->finish();
  if (report.columns().isEmpty())
    fail(fmt::format("holds no frame between --from and --to; it lasts {}", timeText(reader.report().seconds())),
         "choose an earlier part");

  const int status = comparison ? worseOf(statusOf(reader), comparison->status()) : statusOf(reader);
  const auto data = [&](ArrayWriter::Form form) {
    const ArrayWriter array(form);
    Json json = report.json(job.input(), statusOf(reader), reader.stream(), array);
    if (comparison) json["against"] = comparison->json(report, reader.stream(), array);
    return json;
  };
  if (page) {
    const std::string text = reportPage(data(ArrayWriter::Form::packed));
    page->write(text.data(), text.size());
    page->commit();
  }
  if (job.wantsObject()) {
    Json json = reader.report().json(status);
    if (options.json) {
      json = {{"status", status}, {"verdict", verdictName(reader.report().verdict())}};
      json.update(data(ArrayWriter::Form::plain));
    }
    if (page) json["output"] = toUtf8(outputName);
    job.object(json);
  }
  if (comparison && !options.json && !options.csv && outputName != "-")
    job.out(
        fmt::format("{} against {}: {}", displayName(job.input()), displayName(options.against), comparison->text()));
  return status;
}

}  // namespace

int runInspect(int argc, char **argv) {
  CommandLine line("inspect", "Show what is in a stream and where its bits went, as a page for a browser.",
                   "  qav inspect concert.mp2                        writes concert.html\n"
                   "  qav inspect concert.mp2 --against copy.mp2     what is not the same in both");
  InspectOptions options;
  line.addInputs(options, kMpegExtensions);
  line.addOutput(options, "the page; default: concert.html beside the input");
  std::string from, to;
  line.app()
      .add_option("--from", from, "its begin: seconds or h:m:s (default: the start)")
      ->type_name("TIME")
      ->group("Part");
  line.app().add_option("--to", to, "its end (default: the end)")->type_name("TIME")->group("Part");
  line.app()
      .add_option("--against", options.against, "compare with this stream of the same programme")
      ->type_name("FILE")
      ->group(kInputGroup);
  line.app().add_flag("--csv", options.csv, "a line for each frame, on standard output")->group(kOutputGroup);
  int status = kGood;
  if (!line.parse(argc, argv, status)) return status;
  if (!from.empty()) options.range.from = parseTime("--from", from);
  if (!to.empty()) options.range.to = parseTime("--to", to);
  if (options.range.to <= options.range.from) failUsage("--to lies before --from", "choose a later end");
  if (options.csv && options.json)
    failUsage("--csv and --json would both go to standard output", "ask for one of them");

  if (!options.against.empty() && options.inputs.size() > 1)
    failUsage("--against compares one input with another", "give one input");

  std::vector<std::string> outputs(options.inputs.size());
  if (!options.output.empty() || !(options.json || options.csv)) outputs = planOutputs(options, ".html");
  if (outputs[0] == "-" && (options.json || options.csv))
    failUsage("the page and what is told about it would both go to standard output", "use -o FILE");
  if (outputs[0] == "-" && isatty(STDOUT_FILENO)) failUsage("a page is not written to a terminal", "use -o FILE");
  return runJobs(options, [&](Job &job) { return inspectOne(job, options, outputs[job.index()]); });
}

}  // namespace qav::tool
