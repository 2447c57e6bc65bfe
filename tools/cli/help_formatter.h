// How `qav SUBCOMMAND --help` looks: examples first, options in groups, on one screen.
#pragma once

#include <CLI/CLI.hpp>
#include <set>
#include <string>

namespace qav::tool {

class HelpFormatter : public CLI::FormatterBase {
 public:
  // A screen. Groups stand apart where there is room.
  static constexpr size_t kColumns = 80;
  static constexpr ptrdiff_t kRows = 40;

  // `examples`: lines, indented.
  explicit HelpFormatter(std::string examples) : examples_(std::move(examples)) {}

  // Put this option on the line of the one that was declared before it in its group.
  void joinLine(const CLI::Option *option) { joined_.insert(option); }

  std::string make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const override;

 private:
  struct Line {
    std::string names;
    std::string description;
  };
  std::vector<Line> linesOf(const CLI::App *app, const std::string &group) const;

  std::string examples_;
  std::set<const CLI::Option *> joined_;
};

// The groups that several subcommands share, in the order of the help text; a subcommand's own stand behind the input's.
inline constexpr const char *kInputGroup = "Input", *kSoundGroup = "Sound", *kOutputGroup = "Output",
                            *kRunGroup = "Running and reporting";

// "-o, --output"
std::string optionNames(const CLI::Option &option);

// "FILE"; empty for a flag.
std::string valueName(const CLI::Option &option);

// The words that the option takes where they are few; else none.
std::vector<std::string> valueWords(const CLI::Option &option);

}  // namespace qav::tool
