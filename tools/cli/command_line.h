// What every subcommand's command line has in common.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "tools/cli/common_options.h"
#include "tools/cli/help_formatter.h"

namespace qav::tool {

// One subcommand. Its main gets the arguments from its own name on.
struct Subcommand {
  const char *name;
  const char *summary;
  int (*run)(int argc, char **argv);
};

// Every subcommand, in the order of the help text.
extern const std::vector<Subcommand> subcommands;

// A parser for `qav NAME`, with --help that begins with `examples`, and --version.
class CommandLine {
 public:
  CommandLine(const std::string &name, const std::string &summary, const std::string &examples);

  // Add what every subcommand takes: the inputs, -j, -q, -v, --json and so on; and -o and -f for those that write. Below
  // folders, inputs are the files ending in one of `extensions`.
  void addInputs(CommonOptions &options, std::vector<std::string> extensions);
  void addOutput(CommonOptions &options, const std::string &whatIsWritten);

  // For options of the subcommand's own. Those that share a heading of the help text are given a group.
  CLI::App &app() { return app_; }

  // Let the help text show this option on the line of the one declared before it.
  void sameLine(const CLI::Option *option);

  // True when the command line is good; else `status` is what to exit with: help was shown, or the mistake was reported.
  bool parse(int argc, char **argv, int &status);

 private:
  void listInputs();

  std::string name_;
  CLI::App app_;
  std::shared_ptr<HelpFormatter> help_;
  CommonOptions *common_ = nullptr;
  std::vector<std::string> extensions_;
};

// What streams and sound files are called.
extern const std::vector<std::string> kMpegExtensions, kPcmExtensions, kWaveExtensions;

// "qav 9.0.3.3"
std::string versionText();

}  // namespace qav::tool
