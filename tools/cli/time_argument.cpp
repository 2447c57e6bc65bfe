#include "tools/cli/time_argument.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <string_view>
#include <vector>

#include "tools/io/failure.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

// More than any audio lasts; what is below is exact to the nanosecond.
constexpr double kLongestSeconds = 1e7;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Digits, with a decimal point and more digits where that is allowed.
bool isNumber(std::string_view text, bool mayHavePoint) {
  const size_t point = mayHavePoint ? text.find('.') : text.npos;
  const std::string_view whole = text.substr(0, point);
  const std::string_view rest = point == text.npos ? "0" : text.substr(point + 1);
  return !whole.empty() && std::all_of(whole.begin(), whole.end(), isDigit) && !rest.empty() &&
         std::all_of(rest.begin(), rest.end(), isDigit);
}

}  // namespace

double parseTime(const std::string &option, const std::string &text) {
  const auto refuse = [&](const std::string &what) {
    failUsage(fmt::format("{} {}: {}", option, displayName(text), what),
              "give seconds, or hours:minutes:seconds, as in 90.5 or 1:02:03.456");
  };
  std::vector<std::string_view> parts{text};
  for (size_t colon = parts.back().find(':'); colon != std::string_view::npos; colon = parts.back().find(':')) {
    const std::string_view last = parts.back();
    parts.back() = last.substr(0, colon);
    parts.push_back(last.substr(colon + 1));
  }
  if (parts.size() > 3) refuse("too many colons");
  double seconds = 0.0;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (!isNumber(parts[i], i + 1 == parts.size())) refuse("no time");
    double value = kLongestSeconds;  // of what from_chars finds too large
    std::from_chars(parts[i].data(), parts[i].data() + parts[i].size(), value, std::chars_format::fixed);
    if (i > 0 && value >= 60.0) refuse("minutes and seconds behind a colon go up to 59");
    seconds = seconds * 60.0 + value;
  }
  if (seconds >= kLongestSeconds) refuse("nothing is that long");
  return seconds;
}

}  // namespace qav::tool
