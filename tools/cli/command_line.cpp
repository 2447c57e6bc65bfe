#include "tools/cli/command_line.h"

#include <fmt/format.h>
#include <qav.h>

#include <algorithm>
#include <cstdio>
#include <thread>

#include "tools/cli/input_list.h"
#include "tools/cli/nearest.h"
#include "tools/cli/option_list.h"
#include "tools/io/failure.h"
#include "tools/io/message.h"

namespace qav::tool {

const std::vector<std::string> kMpegExtensions{".mp1", ".mp2", ".mpa", ".m1a", ".m2a", ".mus"};
const std::vector<std::string> kPcmExtensions{".wav",  ".wave", ".bwf",  ".rf64", ".w64", ".aif",
                                              ".aiff", ".aifc", ".flac", ".caf",  ".au",  ".snd"};
const std::vector<std::string> kWaveExtensions{".wav", ".wave", ".bwf", ".rf64"};

namespace {

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

// What to say to a word that looks like an option and is none.
Complaint unknownOption(const CLI::App &app, const std::string &word, const std::string &seeHelp) {
  const std::string name = word.substr(0, word.find('='));
  std::vector<std::string> names;
  for (const CLI::Option *option : app.get_options())
    for (const std::string &known : option->get_lnames()) names.push_back("--" + known);
  const std::string meant = nearest(name.starts_with("--") ? name : "-" + name, names);
  return {{},
          "there is no option " + displayName(name),
          meant.empty() ? seeHelp : fmt::format("did you mean '{}'?", meant)};
}

// "-bitrate" is read as "-b itrate".
bool isLongWithOneDash(const CLI::App &app, const std::string &word) {
  if (word.size() < 3 || word[0] != '-' || word[1] == '-') return false;
  return app.get_option_no_throw("-" + word.substr(0, word.find('='))) != nullptr;
}

// What to say to a command line that CLI11 could not read.
Complaint complaintAbout(const CLI::ParseError &error, const CLI::App &app, const std::vector<std::string> &arguments,
                         const std::string &seeHelp) {
  for (const std::string &word : arguments)
    if (isLongWithOneDash(app, word)) return unknownOption(app, word, seeHelp);
  for (const std::string &word : app.remaining())
    if (word.size() > 1 && word.front() == '-') return unknownOption(app, word, seeHelp);
  std::string what = error.what();
  const size_t equals = what.find(" = ");
  if (dynamic_cast<const CLI::ConversionError *>(&error) && equals != std::string::npos) {
    const std::string option = what.substr(0, equals);  // "Could not convert: --gain"
    what = option.substr(option.rfind(' ') + 1) + " takes a number, not " + what.substr(equals + 3);
  }
  std::replace(what.begin(), what.end(), '\n', ' ');
  what = CLI::detail::find_and_replace(what, ".000000", "");
  return {{}, displayName(what), seeHelp};
}

}  // namespace

std::string versionText() {
  uint32_t version = 0;
  QAV_getConfigure(nullptr, QAV_ITEM_VERSION, &version, nullptr);
  return fmt::format("qav {}.{}.{}.{}", version >> 24, version >> 16 & 0xFF, version >> 8 & 0xFF, version & 0xFF);
}

CommandLine::CommandLine(const std::string &name, const std::string &summary, const std::string &examples)
    : name_(name), app_(summary, "qav " + name), help_(std::make_shared<HelpFormatter>(examples)) {
  app_.formatter(help_);
}

void CommandLine::addInputs(CommonOptions &options, std::vector<std::string> extensions) {
  common_ = &options;
  options.command = name_;
  extensions_ = std::move(extensions);
  app_.add_option("INPUT", options.inputs, "files; - is standard input")->type_name("")->group(kInputGroup);
  app_.add_flag("--recursive", options.recursive, "those in folders too, and in folders in them")->group(kInputGroup);
  app_.add_option("--files-from", options.filesFrom, "those listed in FILE, one a line")
      ->type_name("FILE")
      ->group(kInputGroup);
  sameLine(app_.add_flag("--null", options.nullSeparated, "ended by NUL")->group(kInputGroup));
  app_.add_option("-j,--jobs", options.jobs, "threads in all (default: one per core)")
      ->type_name("N")
      ->check(CLI::Range(1u, 4096u))
      ->group(kRunGroup);
  app_.add_flag("--json", options.json, "one JSON object a file, on standard output")->group(kRunGroup);
  app_.add_option("--report", options.report, "the same objects into FILE, as files are done")
      ->type_name("FILE")
      ->group(kRunGroup);
  app_.add_option("--resume", options.resume, "leave out what this report calls done; add to it")
      ->type_name("FILE")
      ->group(kRunGroup);
  app_.add_option_function<std::string>(
          "--progress", [&options](const std::string &) { options.progressJson = true; },
          "how far it is as JSON, on standard error")
      ->type_name("json")
      ->check(CLI::IsMember({"json"}))
      ->group(kRunGroup);
  app_.add_flag("-q,--quiet", options.quiet, "say only what is wrong")->group(kRunGroup);
  sameLine(app_.add_flag("-v,--verbose", options.verbose, "say more")->group(kRunGroup));
}

void CommandLine::addOutput(CommonOptions &options, const std::string &whatIsWritten) {
  app_.add_option("-o,--output", options.output, whatIsWritten)->type_name("FILE|DIR|-")->group(kOutputGroup);
  app_.add_flag("-f,--force", options.force, "overwrite existing files")->group(kOutputGroup);
}

void CommandLine::sameLine(const CLI::Option *option) { help_->joinLine(option); }

void CommandLine::listInputs() {
  if (common_->inputs.empty() && common_->filesFrom.empty())
    failUsage("no INPUT is given", fmt::format("see 'qav {} --help'", name_));
  if (common_->nullSeparated && common_->filesFrom.empty()) failUsage("--null is about --files-from", "give both");
  expandInputs(*common_, extensions_);
}

bool CommandLine::parse(int argc, char **argv, int &status) {
  status = kGood;
  app_.set_help_flag("-h,--help", "this text")->group(kRunGroup);
  sameLine(app_.set_version_flag("--version", versionText(), "the version")->group(kRunGroup));
  if (argc == 2 && argv[1] == kListOptions) {
    fmt::print("{}\n", optionList(name_, app_).dump());
    return false;
  }
  const std::string seeHelp = fmt::format("see 'qav {} --help'", name_);
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
    status = kUsage;
    const Complaint complaint = complaintAbout(error, app_, reversedArguments(argc, argv), seeHelp);
    fmt::print(stderr, "{}\n", messageLine("", {name_, complaint.what, complaint.remedy}));
  } catch (const Failure &failure) {
    status = failure.status;
    fmt::print(stderr, "{}\n", messageLine("", {name_, failure.complaint.what, failure.complaint.remedy}));
  }
  return false;
}

}  // namespace qav::tool
