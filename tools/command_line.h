// What every subcommand's command line has in common.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace qav::tool {

struct CommonOptions {
  std::vector<std::string> inputs;  // paths; "-" is standard input
  std::string output;               // -o: file, directory or "-"; empty when not given
  bool force = false;               // overwrite existing outputs
  unsigned jobs = 0;                // worker threads in all
  bool quiet = false;               // no progress, no notes; errors and damage are still reported
  bool verbose = false;
  bool json = false;
};

// One subcommand. Its main gets the arguments from its own name on.
struct Subcommand {
  const char *name;
  const char *summary;
  int (*run)(int argc, char **argv);
};

// Every subcommand, in the order of the help text.
extern const std::vector<Subcommand> subcommands;

// A parser for `qav NAME`, with --help that shows `examples`, and --version.
class CommandLine {
 public:
  CommandLine(const std::string &name, const std::string &summary, const std::string &examples);

  // Add what every subcommand takes: the inputs, -j, -q, -v, --json; and -o and -f for those that write.
  void addInputs(CommonOptions &options);
  void addOutput(CommonOptions &options, const std::string &whatIsWritten);

  // For options of the subcommand's own.
  CLI::App &app() { return app_; }

  // True when the command line is good; else `status` is what to exit with: help was shown, or the mistake was reported.
  bool parse(int argc, char **argv, int &status);

 private:
  std::string name_;
  CLI::App app_;
  CommonOptions *common_ = nullptr;
};

// "qav 9.0.3.3"
std::string versionText();

// The candidate that `word` was probably meant to be; empty when none is near.
std::string nearest(const std::string &word, const std::vector<std::string> &candidates);

}  // namespace qav::tool
