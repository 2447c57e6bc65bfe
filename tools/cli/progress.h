// How far the work has come: one bar for the whole batch on a terminal, or lines for programs.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace qav::tool {

struct ProgressState {
  size_t files = 0;
  size_t filesDone = 0;
  double fraction = -1.0;     // of all work, 0 .. 1; negative: not known
  double audioSeconds = 0.0;  // worked through
  double seconds = 0.0;       // since the start
};

// One line, at most `columns` wide: "[=====>    ]  42 %, 1:02:03 of audio, 151 x real time, 0:12 left".
std::string progressBar(const ProgressState &state, size_t columns);

// One line of JSON.
std::string progressJson(const ProgressState &state);

class Progress {
 public:
  enum class Style { none, bar, json };

  // `inputBytes`: the size of every input, 0 where it has none. What is shown goes to standard error.
  Progress(Style style, const std::vector<uint64_t> &inputBytes);
  ~Progress();
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;

  // An input is worked through to `fraction` (0 .. 1), which is `audioSeconds`. From any thread.
  void update(size_t input, double fraction, double audioSeconds);
  void finish(size_t input);

  // Take the bar away for good.
  void close();

  // Write a line to a standard stream so that the bar does not get into its way.
  void print(std::FILE *stream, std::string_view line);

 private:
  struct Input {
    double weight = 0.0;  // of all inputs together 1
    double fraction = 0.0;
    double audioSeconds = 0.0;
  };
  void show(bool always);
  void hide();

  std::mutex mutex_;
  Style style_;
  bool weighed_ = true;  // every input has a size
  bool visible_ = false;
  std::chrono::steady_clock::time_point start_, shown_;
  std::vector<Input> inputs_;
  double fraction_ = 0.0, audioSeconds_ = 0.0;
  size_t filesDone_ = 0;
};

}  // namespace qav::tool
