#include "tools/cli/help_formatter.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

namespace qav::tool {

namespace {

constexpr size_t kIndent = 2;
constexpr size_t kGap = 2;
constexpr size_t kWidestNames = 28;  // what is wider has its description on the next line

std::vector<std::string> groupsOf(const CLI::App &app) {
  std::vector<std::string> groups = app.get_groups();
  std::erase(groups, "");  // what is hidden
  const auto rank = [](const std::string &group) {
    return group == kInputGroup ? 0 : group == kOutputGroup ? 2 : group == kRunGroup ? 3 : 1;
  };
  std::stable_sort(groups.begin(), groups.end(),
                   [&](const std::string &a, const std::string &b) { return rank(a) < rank(b); });
  return groups;
}

// Words broken into lines of at most `width` characters.
std::vector<std::string> broken(const std::string &text, size_t width) {
  std::vector<std::string> lines(1);
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (!lines.back().empty() && lines.back().size() + 1 + word.size() > width) lines.emplace_back();
    lines.back() += (lines.back().empty() ? "" : " ") + word;
  }
  return lines;
}

std::string namesAndValue(const CLI::Option &option) {
  if (option.get_positional()) return option.get_name(true) + "...";
  const std::string value = valueName(option);
  return optionNames(option) + (value.empty() ? "" : " " + value);
}

// "qav resample -r HZ [OPTION]... INPUT..."
std::string usage(const CLI::App &app, const std::string &name) {
  std::string line = "Usage: " + name, inputs;
  for (const CLI::Option *option : app.get_options()) {
    if (option->get_positional())
      inputs += " " + namesAndValue(*option);
    else if (option->get_required())
      line += fmt::format(" -{} {}", option->get_snames().at(0), valueName(*option));
  }
  return line + " [OPTION]..." + inputs + "\n";
}

}  // namespace

std::string optionNames(const CLI::Option &option) {
  std::string names;
  for (const std::string &name : option.get_snames()) names += (names.empty() ? "-" : ", -") + name;
  for (const std::string &name : option.get_lnames()) names += (names.empty() ? "--" : ", --") + name;
  return names;
}

// CLI11 keeps the checks' own descriptions behind the name: "1|2:{1,2}".
std::string valueName(const CLI::Option &option) {
  if (option.get_expected_max() == 0) return {};
  const std::string text = option.get_type_name();
  return text.substr(0, text.find(':'));
}

std::vector<std::string> valueWords(const CLI::Option &option) {
  const std::string text = option.get_type_name();
  const size_t begin = text.find(":{"), end = text.rfind('}');
  if (option.get_expected_max() == 0 || begin == std::string::npos || end == std::string::npos) return {};
  return CLI::detail::split(text.substr(begin + 2, end - begin - 2), ',');
}

std::vector<HelpFormatter::Line> HelpFormatter::linesOf(const CLI::App *app, const std::string &group) const {
  std::vector<Line> lines;
  for (const CLI::Option *option : app->get_options()) {
    if (option->get_group() != group) continue;
    if (joined_.count(option) > 0 && !lines.empty()) {
      lines.back().names += "; " + namesAndValue(*option);
      lines.back().description += "; " + option->get_description();
    } else {
      lines.push_back({namesAndValue(*option), option->get_description()});
    }
  }
  return lines;
}

std::string HelpFormatter::make_help(const CLI::App *app, std::string name, CLI::AppFormatMode) const {
  const std::vector<std::string> groups = groupsOf(*app);
  size_t widest = 0;
  for (const std::string &group : groups)
    for (const Line &line : linesOf(app, group))
      if (line.names.size() <= kWidestNames) widest = std::max(widest, line.names.size());
  const size_t column = kIndent + widest + kGap;

  const std::string head = app->get_description() + "\n\n" + examples_ + "\n\n" + usage(*app, name);
  std::string body;
  for (const std::string &group : groups) {
    body += "\n" + group + ":\n";
    for (const Line &line : linesOf(app, group)) {
      std::string row = std::string(kIndent, ' ') + line.names;
      if (line.names.size() > widest) {
        body += row + "\n";
        row.clear();
      }
      for (const std::string &part : broken(line.description, kColumns - column)) {
        row.resize(column, ' ');
        body += row + part + "\n";
        row.clear();
      }
    }
  }
  if (std::count(head.begin(), head.end(), '\n') + std::count(body.begin(), body.end(), '\n') <= kRows)
    return head + body;
  return head + CLI::detail::find_and_replace(body, "\n\n", "\n");
}

}  // namespace qav::tool
