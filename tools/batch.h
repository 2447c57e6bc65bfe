// Many inputs at once: worker threads take them in order, and what they say comes out in order too.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tools/failure.h"

namespace qav::tool {

// Standard output and standard error for several jobs. The first job that is not done writes straight through; the lines
// of later ones are kept until it is their turn. A job that has said too much to keep waits for its turn.
class OrderedText {
 public:
  explicit OrderedText(size_t jobs) : kept_(jobs) {}

  enum class Stream { out, err };
  void print(size_t job, Stream stream, std::string_view line);  // appends the line's end
  void finish(size_t job);

 private:
  struct Kept {
    std::vector<std::pair<Stream, std::string>> lines;
    size_t bytes = 0;
    bool finished = false;
  };
  std::mutex mutex_;
  std::condition_variable turn_;
  size_t front_ = 0;
  std::vector<Kept> kept_;
};

// What the work on one input may say.
class Job {
 public:
  Job(OrderedText &text, size_t index, const std::string &input) : text_(text), index_(index), input_(input) {}

  size_t index() const { return index_; }
  const std::string &input() const { return input_; }

  // A line on standard output.
  void out(std::string_view line) { text_.print(index_, OrderedText::Stream::out, line); }

  // A one-line message about the input, or about another file, on standard error.
  void complain(const Complaint &complaint) { complainAbout(input_, complaint); }
  void complainAbout(const std::string &file, const Complaint &complaint);

 private:
  OrderedText &text_;
  size_t index_;
  const std::string &input_;
};

// Run `work` on every input on `workers` threads. It returns the input's exit status, or throws Failure, which is reported
// against the input, with `json` also as an object on standard output. Returns the worst status. Ends the process when a
// signal came.
int runJobs(const std::vector<std::string> &inputs, unsigned workers, const std::function<int(Job &)> &work,
            bool json = false);

}  // namespace qav::tool
