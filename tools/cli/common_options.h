// The options that every subcommand takes.
#pragma once

#include <string>
#include <vector>

namespace qav::tool {

struct CommonOptions {
  std::string command;              // the subcommand's name
  std::vector<std::string> inputs;  // paths; "-" is standard input
  std::vector<std::string> places;  // of each input: its path below an output directory
  std::string output;               // -o: file, directory or "-"; empty when not given
  bool force = false;               // overwrite existing outputs
  unsigned jobs = 0;                // worker threads in all
  bool quiet = false;               // no progress, no notes; errors and damage are still reported
  bool verbose = false;
  bool json = false;
  bool recursive = false;
  std::string filesFrom;  // a list of inputs
  bool nullSeparated = false;
  std::string report;  // --report: a file for the JSON objects
  std::string resume;  // --resume: such a file of an earlier run
  bool progressJson = false;
};

}  // namespace qav::tool
