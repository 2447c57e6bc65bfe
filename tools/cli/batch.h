// Many inputs at once: worker threads take them in order, and what they say comes out in order too.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tools/cli/batch_report.h"
#include "tools/cli/common_options.h"
#include "tools/cli/progress.h"
#include "tools/io/failure.h"

namespace qav::tool {

// Standard output and standard error for several jobs. The first job that is not done writes straight through; the lines
// of later ones are kept until it is their turn. A job that has said too much to keep waits for its turn.
class OrderedText {
 public:
  OrderedText(size_t jobs, Progress &progress) : progress_(progress), kept_(jobs) {}

  enum class Stream { out, err };
  void print(size_t job, Stream stream, std::string_view line);  // appends the line's end
  void finish(size_t job);

  // The batch ends here: whoever waits for a turn gets Interrupted.
  void abandon();

 private:
  struct Kept {
    std::vector<std::pair<Stream, std::string>> lines;
    size_t bytes = 0;
    bool finished = false;
  };
  void emit(Stream stream, std::string_view line);

  Progress &progress_;
  std::mutex mutex_;
  std::condition_variable turn_;
  size_t front_ = 0;
  bool abandoned_ = false;
  std::vector<Kept> kept_;
};

// What the jobs of a batch share.
struct BatchState {
  const CommonOptions &options;
  Progress &progress;
  OrderedText &text;
  ReportFile *report;  // null without --report
};

// What the work on one input may say.
class Job {
 public:
  Job(BatchState &batch, size_t index, unsigned threads)
      : batch_(batch), index_(index), threads_(threads), state_(fileState(batch.options.inputs[index])) {}

  size_t index() const { return index_; }
  const std::string &input() const { return batch_.options.inputs[index_]; }

  // How many threads the work may use, its own included: one for what comes through a pipe, which may come slowly and is
  // to be worked on as it comes.
  unsigned threads() const { return state_ ? threads_ : 1; }

  // The input's name for a line on standard output.
  std::string displayInput() const;

  // A line on standard output.
  void out(std::string_view line) { batch_.text.print(index_, OrderedText::Stream::out, line); }

  // A one-line message about the input, or about another file, on standard error.
  void complain(const Complaint &complaint) { complainAbout(input(), complaint); }
  void complainAbout(const std::string &file, const Complaint &complaint);

  // Whether an object about the input is wanted, for --json or --report; and the object, once. It needs a "status".
  bool wantsObject() const { return batch_.options.json || batch_.report; }
  void object(const Json &fields);

  // The object for --json about an input that an earlier report calls done, with this status.
  void doneEarlier(int status);

  // The input is worked through to `fraction` (0 .. 1) of its length, which is `audioSeconds`.
  void advance(double fraction, double audioSeconds) { batch_.progress.update(index_, fraction, audioSeconds); }

  // The input as it was when the work began.
  const std::optional<FileState> &state() const { return state_; }

 private:
  BatchState &batch_;
  size_t index_;
  unsigned threads_;
  std::optional<FileState> state_;
};

// Run `work` on every input, on options.jobs threads in all: several inputs at once, and several threads for one input
// where there are more threads than inputs. `work` returns the input's exit status, or throws Failure, which is reported
// against the input. Inputs that an earlier report calls done are left out. Returns the worst status. Ends the process
// when a signal came.
int runJobs(const CommonOptions &options, const std::function<int(Job &)> &work);

}  // namespace qav::tool
