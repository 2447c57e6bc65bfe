#include "tools/io/message.h"

#include <fmt/format.h>

#include <cmath>
#include <system_error>

namespace qav::tool {

namespace {

// Length of the valid UTF-8 sequence at the front of `s`, 0 when there is none. Surrogates and overlong forms are none.
size_t utf8Length(std::string_view s) {
  const auto byte = [&](size_t i) { return i < s.size() ? static_cast<unsigned char>(s[i]) : 0u; };
  const auto follows = [&](size_t i) { return (byte(i) & 0xC0) == 0x80; };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) return follows(1) ? 2 : 0;
  if (first >= 0xE0 && first <= 0xEF) {
    if (!follows(1) || !follows(2)) return 0;
    if (first == 0xE0 && byte(1) < 0xA0) return 0;
    if (first == 0xED && byte(1) > 0x9F) return 0;
    return 3;
  }
  if (first >= 0xF0 && first <= 0xF4) {
    if (!follows(1) || !follows(2) || !follows(3)) return 0;
    if (first == 0xF0 && byte(1) < 0x90) return 0;
    if (first == 0xF4 && byte(1) > 0x8F) return 0;
    return 4;
  }
  return 0;
}

bool isControl(std::string_view s, size_t length) {
  const auto first = static_cast<unsigned char>(s[0]);
  if (length == 1) return first < 0x20 || first == 0x7F;
  return length == 2 && first == 0xC2 && static_cast<unsigned char>(s[1]) < 0xA0;  // U+0080 .. U+009F
}

bool isPrintable(std::string_view text) {
  while (!text.empty()) {
    const size_t n = utf8Length(text);
    if (n == 0 || isControl(text, n)) return false;
    text.remove_prefix(n);
  }
  return true;
}

// Three octal digits end by themselves; a hexadecimal escape would swallow digits that follow.
std::string inOctal(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) text += fmt::format("\\{:03o}", static_cast<unsigned>(static_cast<unsigned char>(c)));
  return text;
}

}  // namespace

std::string displayName(std::string_view name) {
  if (!name.empty() && isPrintable(name)) return std::string(name);

  std::string quoted = "$'";
  for (std::string_view rest = name; !rest.empty();) {
    const size_t n = utf8Length(rest);
    const char c = rest[0];
    if (n > 0 && !isControl(rest, n)) {
      if (c == '\'' || c == '\\') quoted += '\\';
      quoted += rest.substr(0, n);
    } else if (c == '\n') {
      quoted += "\\n";
    } else if (c == '\t') {
      quoted += "\\t";
    } else {
      quoted += inOctal(rest.substr(0, n > 0 ? n : 1));
    }
    rest.remove_prefix(n > 0 ? n : 1);
  }
  return quoted + "'";
}

std::string inertText(std::string_view text) {
  std::string inert;
  for (; !text.empty();) {
    const size_t n = utf8Length(text), length = n > 0 ? n : 1;
    const std::string_view character = text.substr(0, length);
    inert += n > 0 && !isControl(text, n) ? std::string(character) : inOctal(character);
    text.remove_prefix(length);
  }
  return inert;
}

std::string inertJson(std::string_view json) {
  std::string inert;
  for (size_t i = 0; i < json.size(); ++i) {
    const auto byte = static_cast<unsigned char>(json[i]);
    const auto second = i + 1 < json.size() ? static_cast<unsigned char>(json[i + 1]) : 0u;
    const bool isTwoBytes = byte == 0xC2 && second >= 0x80 && second < 0xA0;
    if (byte == 0x7F || isTwoBytes)
      inert += fmt::format("\\u{:04x}", isTwoBytes ? second : 0x7Fu);
    else
      inert += json[i];
    i += isTwoBytes;
  }
  return inert;
}

std::string toUtf8(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    const size_t n = utf8Length(bytes);
    if (n > 0)
      text += bytes.substr(0, n);
    else
      text += "\xEF\xBF\xBD";
    bytes.remove_prefix(n > 0 ? n : 1);
  }
  return text;
}

std::string messageLine(std::string_view file, const Complaint &complaint) {
  std::string line = "qav: ";
  if (!file.empty()) line += displayName(file) + ": ";
  if (!complaint.place.empty()) line += complaint.place + ": ";
  line += complaint.what;
  if (!complaint.remedy.empty()) line += "; " + complaint.remedy;
  return inertText(line);  // a second time for names: what comes from a library, or a file, may not be forgotten
}

std::string timeText(double seconds) {
  const auto ms = static_cast<uint64_t>(std::llround(std::fabs(seconds) * 1000.0));
  const char *const sign = seconds < 0 && ms > 0 ? "-" : "";
  const uint64_t hours = ms / 3600000, minutes = ms / 60000 % 60, rest = ms % 60000;
  if (hours > 0) return fmt::format("{}{}:{:02}:{:02}.{:03}", sign, hours, minutes, rest / 1000, rest % 1000);
  return fmt::format("{}{}:{:02}.{:03}", sign, minutes, rest / 1000, rest % 1000);
}

std::string placeText(uint64_t frame, uint64_t offset, double seconds) {
  return fmt::format("frame {}, byte {} ({:#x}), {}", frame, offset, offset, timeText(seconds));
}

std::string counted(uint64_t number, std::string_view noun) {
  return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

std::string errorText(int error) { return std::generic_category().message(error); }

}  // namespace qav::tool
