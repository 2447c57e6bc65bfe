#include "tools/cli/progress.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <numeric>

namespace qav::tool {

namespace {

using Clock = std::chrono::steady_clock;

// The bar is drawn ten times a second, programs are told twice.
constexpr std::chrono::milliseconds kBarInterval{100}, kJsonInterval{500};

double speedOf(const ProgressState &state) { return state.seconds > 0.0 ? state.audioSeconds / state.seconds : 0.0; }

// Negative: not known.
double secondsLeft(const ProgressState &state) {
  if (state.fraction <= 0.0 || state.seconds < 0.5) return -1.0;
  return state.seconds * (1.0 - state.fraction) / state.fraction;
}

// "12:05", "1:12:05"
std::string clockText(double seconds) {
  const auto whole = static_cast<uint64_t>(std::ceil(std::max(seconds, 0.0)));
  if (whole >= 3600) return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
  return fmt::format("{}:{:02}", whole / 60, whole % 60);
}

size_t terminalColumns() {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

std::string progressBar(const ProgressState &state, size_t columns) {
  std::string text;
  if (state.fraction >= 0.0) text = fmt::format("{:3.0f} %, ", std::floor(100.0 * state.fraction));
  if (state.files > 1) text += fmt::format("{} of {} files, ", state.filesDone, state.files);
  text += fmt::format("{} of audio, {:.0f} x real time", clockText(state.audioSeconds), speedOf(state));
  const double left = secondsLeft(state);
  if (left >= 0.0) text += fmt::format(", {} left", clockText(left));
  if (state.fraction >= 0.0 && columns >= text.size() + 15) {
    const size_t width = std::min<size_t>(columns - text.size() - 4, 30);
    const auto filled = static_cast<size_t>(state.fraction * static_cast<double>(width));
    std::string bar(width, ' ');
    std::fill_n(bar.begin(), filled, '=');
    if (filled < width) bar[filled] = '>';
    text = "[" + bar + "] " + text;
  }
  if (columns > 0 && text.size() >= columns) text.resize(columns - 1);  // the last column would wrap
  return text;
}

std::string progressJson(const ProgressState &state) {
  nlohmann::ordered_json json;
  json["files"] = state.files;
  json["filesDone"] = state.filesDone;
  json["fraction"] = state.fraction >= 0.0 ? nlohmann::ordered_json(state.fraction) : nullptr;
  json["audioSeconds"] = state.audioSeconds;
  json["seconds"] = state.seconds;
  json["timesRealTime"] = speedOf(state);
  const double left = secondsLeft(state);
  json["secondsLeft"] = left >= 0.0 ? nlohmann::ordered_json(left) : nullptr;
  return json.dump();
}

Progress::Progress(Style style, const std::vector<uint64_t> &inputBytes)
    : style_(style), start_(Clock::now()), shown_(start_), inputs_(inputBytes.size()) {
  const double total = std::accumulate(inputBytes.begin(), inputBytes.end(), 0.0);
  for (size_t i = 0; i < inputs_.size(); ++i) {
    weighed_ = weighed_ && inputBytes[i] > 0;
    inputs_[i].weight = total > 0.0 ? static_cast<double>(inputBytes[i]) / total : 0.0;
  }
}

Progress::~Progress() { close(); }

void Progress::close() {
  const std::lock_guard lock(mutex_);
  if (style_ == Style::json) show(true);
  hide();
  style_ = Style::none;
}

void Progress::update(size_t input, double fraction, double audioSeconds) {
  if (style_ == Style::none) return;
  const std::lock_guard lock(mutex_);
  Input &one = inputs_[input];
  const double now = std::clamp(fraction, one.fraction, 1.0);
  fraction_ += (now - one.fraction) * one.weight;
  audioSeconds_ += audioSeconds - one.audioSeconds;
  one.fraction = now;
  one.audioSeconds = audioSeconds;
  show(false);
}

void Progress::finish(size_t input) {
  if (style_ == Style::none) return;
  const std::lock_guard lock(mutex_);
  Input &one = inputs_[input];
  fraction_ += (1.0 - one.fraction) * one.weight;
  one.fraction = 1.0;
  ++filesDone_;
  show(false);
}

void Progress::show(bool always) {
  const auto now = Clock::now();
  if (!always && now - shown_ < (style_ == Style::bar ? kBarInterval : kJsonInterval)) return;
  shown_ = now;
  const ProgressState state{inputs_.size(), filesDone_, weighed_ ? std::min(fraction_, 1.0) : -1.0, audioSeconds_,
                            std::max(std::chrono::duration<double>(now - start_).count(), 0.0)};
  if (style_ == Style::json) {
    fmt::print(stderr, "{}\n", progressJson(state));
  } else {
    fmt::print(stderr, "\r\033[K{}", progressBar(state, terminalColumns()));
    visible_ = true;
  }
  std::fflush(stderr);
}

void Progress::hide() {
  if (!visible_) return;
  fmt::print(stderr, "\r\033[K");
  std::fflush(stderr);
  visible_ = false;
}

void Progress::print(std::FILE *stream, std::string_view line) {
  const std::lock_guard lock(mutex_);
  hide();
  std::string whole(line);
  whole += '\n';
  std::fwrite(whole.data(), 1, whole.size(), stream);
  if (style_ == Style::bar) std::fflush(stream);
}

}  // namespace qav::tool
