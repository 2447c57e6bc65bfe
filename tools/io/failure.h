// What ends the work on one input, as an exception that carries what the message needs.
#pragma once

#include <exception>
#include <string>
#include <utility>

namespace qav::tool {

// Exit statuses. Of several inputs the worst counts: unusable before damaged before good.
inline constexpr int kGood = 0;
inline constexpr int kUsage = 1;     // the command line is wrong
inline constexpr int kUnusable = 2;  // an input cannot be read as what it should be, or an output cannot be written
inline constexpr int kDamaged = 3;   // the stream was damaged; what could be decoded was written

constexpr int worseOf(int a, int b) {
  constexpr int rank[] = {0, 3, 2, 1};  // by status
  return rank[a] >= rank[b] ? a : b;
}

// The parts of a one-line message: where in the file (may be empty), what is wrong, what to do about it (may be empty).
struct Complaint {
  std::string place;
  std::string what;
  std::string remedy;
};

class Failure : public std::exception {
 public:
  Failure(int exitStatus, Complaint c, std::string about = {}, bool notMpegAudio = false)
      : status(exitStatus), complaint(std::move(c)), file(std::move(about)), isNotMpegAudio(notMpegAudio) {}
  const char *what() const noexcept override { return complaint.what.c_str(); }

  int status;
  Complaint complaint;
  std::string file;     // that it is about, where that is not the input
  bool isNotMpegAudio;  // the input was read, and is something else
};

// An input or output that cannot be used.
[[noreturn]] inline void fail(std::string what, std::string remedy, std::string place = {}) {
  throw Failure(kUnusable, {std::move(place), std::move(what), std::move(remedy)});
}

// An output that cannot be written; `file` as the command line names it.
[[noreturn]] inline void failOutput(const std::string &file, std::string what, std::string remedy) {
  throw Failure(kUnusable, {{}, std::move(what), std::move(remedy)}, file == "-" ? "standard output" : file);
}

// An input that was read and is no MPEG audio that can be decoded.
[[noreturn]] inline void failNotMpegAudio(std::string what, std::string remedy) {
  throw Failure(kUnusable, {{}, std::move(what), std::move(remedy)}, {}, true);
}

// A command line that contradicts itself.
[[noreturn]] inline void failUsage(std::string what, std::string remedy) {
  throw Failure(kUsage, {{}, std::move(what), std::move(remedy)});
}

}  // namespace qav::tool
