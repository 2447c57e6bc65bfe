#include "tools/command_line.h"

#include <fmt/format.h>
#include <qav.h>

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <thread>

#include "tools/failure.h"
#include "tools/input_list.h"
#include "tools/message.h"

namespace qav::tool {

const std::vector<std::string> kMpegExtensions{".mp1", ".mp2", ".mpa", ".m1a", ".m2a", ".mus"};
const std::vector<std::string> kPcmExtensions{".wav",  ".wave", ".bwf",  ".rf64", ".w64", ".aif",
                                              ".aiff", ".aifc", ".flac", ".caf",  ".au",  ".snd"};

namespace {

// Levenshtein distance.
size_t editDistance(const std::string &a, const std::string &b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t replaced = diagonal + (a[i - 1] != b[j - 1] ? 1 : 0);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row[b.size()];
}

// As CLI11 takes them: last argument first, without the program. It would take a file named "[a,b]" for a list of two;
// "./[a,b]" is the same file.
std::vector<std::string> reversedArguments(int argc, char **argv) {
  std::vector<std::string> arguments;
  for (int i = argc - 1; i > 0; --i) {
    std::string argument = argv[i];
    if (argument.size() >= 2 && argument.front() == '[' && argument.back() == ']') argument.insert(0, "./");
    arguments.push_back(std::move(argument));
  }
  return arguments;
}

}  // namespace

std::string nearest(const std::string &word, const std::vector<std::string> &candidates) {
  std::string best;
  size_t bestDistance = std::max<size_t>(1, word.size() / 3) + 1;
  for (const std::string &candidate : candidates) {
    const size_t distance = editDistance(word, candidate);
    if (distance < bestDistance) {
      best = candidate;
      bestDistance = distance;
    }
  }
  return best;
}

std::string versionText() {
  uint32_t version = 0;
  QAV_getConfigure(nullptr, QAV_ITEM_VERSION, &version, nullptr);
  return fmt::format("qav {}.{}.{}.{}", version >> 24, version >> 16 & 0xFF, version >> 8 & 0xFF, version & 0xFF);
}

CommandLine::CommandLine(const std::string &name, const std::string &summary, const std::string &examples)
    : name_(name), app_(summary + "\n\nExamples:\n" + examples + "\n", "qav " + name) {
  app_.set_help_flag("-h,--help", "this text");
  app_.set_version_flag("--version", versionText(), "the version");
  app_.get_formatter()->column_width(34);
}

void CommandLine::addInputs(CommonOptions &options, std::vector<std::string> extensions) {
  common_ = &options;
  options.command = name_;
  extensions_ = std::move(extensions);
  app_.add_option("INPUT", options.inputs, "files; - is standard input")->type_name("");
  app_.add_flag("--recursive", options.recursive, "take the files in folders, and in the folders in them");
  app_.add_option("--files-from", options.filesFrom, "take the names in this file too, one on each line")
      ->type_name("FILE|-");
  app_.add_flag("--null", options.nullSeparated, "they end with NUL bytes, as find -print0 writes them");
  app_.add_option("-j,--jobs", options.jobs, "worker threads in all (default: one per core)")
      ->type_name("N")
      ->check(CLI::Range(1u, 4096u));
  app_.add_flag("-q,--quiet", options.quiet, "say nothing but what is wrong");
  app_.add_flag("-v,--verbose", options.verbose, "say more");
  app_.add_flag("--json", options.json, "results as one JSON object a file, on standard output");
  app_.add_option("--report", options.report, "the same objects into a file, as each input is finished")
      ->type_name("FILE");
  app_.add_option("--resume", options.resume,
                  "leave out what this report calls done and is unchanged; add the rest to it")
      ->type_name("FILE");
  app_.add_option_function<std::string>(
          "--progress", [&options](const std::string &) { options.progressJson = true; },
          "tell how far the work is as JSON, on standard error")
      ->type_name("json")
      ->check(CLI::IsMember({"json"}));
}

void CommandLine::addOutput(CommonOptions &options, const std::string &whatIsWritten) {
  app_.add_option("-o,--output", options.output, whatIsWritten)->type_name("FILE|DIR|-");
  app_.add_flag("-f,--force", options.force, "overwrite existing files");
}

void CommandLine::listInputs() {
  if (common_->inputs.empty() && common_->filesFrom.empty())
    failUsage("no INPUT is given", fmt::format("see 'qav {} --help'", name_));
  if (common_->nullSeparated && common_->filesFrom.empty()) failUsage("--null is about --files-from", "give both");
  expandInputs(*common_, extensions_);
}

bool CommandLine::parse(int argc, char **argv, int &status) {
  status = kGood;
  try {
    app_.parse(reversedArguments(argc, argv));
    if (common_) listInputs();
    if (common_ && common_->jobs == 0) common_->jobs = std::max(1u, std::thread::hardware_concurrency());
    if (common_ && std::count(common_->inputs.begin(), common_->inputs.end(), "") > 0)
      failUsage("an input has an empty name", "name a file, or - for standard input");
    if (common_ && std::count(common_->inputs.begin(), common_->inputs.end(), "-") > 1)
      failUsage("standard input is given twice", "name - once");
    const CLI::Option *const output = app_.get_option_no_throw("--output");
    if (common_ && output && output->count() > 0 && common_->output.empty())
      failUsage("-o has an empty name", "name a file or directory, or - for standard output");
    return true;
  } catch (const CLI::CallForVersion &) {
    fmt::print("{}\n", versionText());
  } catch (const CLI::CallForHelp &) {
    fmt::print("{}", app_.help());
  } catch (const CLI::ParseError &error) {
    std::string what = error.what();
    std::replace(what.begin(), what.end(), '\n', ' ');
    status = kUsage;
    fmt::print(stderr, "{}\n", messageLine("", {name_, displayName(what), fmt::format("see 'qav {} --help'", name_)}));
  } catch (const Failure &failure) {
    status = failure.status;
    fmt::print(stderr, "{}\n", messageLine("", {name_, failure.complaint.what, failure.complaint.remedy}));
  }
  return false;
}

}  // namespace qav::tool
