#include "tools/cli/batch.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <numeric>
#include <optional>
#include <thread>

#include "tools/io/interrupt.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

constexpr size_t kKeptBytes = 256 * 1024;

void reportFailure(Job &job, const Failure &failure) {
  job.complainAbout(failure.file.empty() ? job.input() : failure.file, failure.complaint);
  if (!job.wantsObject()) return;
  Json object;
  object["status"] = failure.status;
  object["verdict"] = failure.isNotMpegAudio ? Json("not MPEG audio") : Json();
  object["error"] = {
      {"place", failure.complaint.place}, {"what", failure.complaint.what}, {"remedy", failure.complaint.remedy}};
  if (!failure.file.empty()) object["error"]["output"] = toUtf8(failure.file);
  job.object(object);
}

Progress::Style styleFor(const CommonOptions &options) {
  if (options.progressJson) return Progress::Style::json;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread has begun, and none changes the environment
  const char *const terminal = std::getenv("TERM");
  const bool canDraw = isatty(STDERR_FILENO) && terminal && std::string_view(terminal) != "dumb";
  return canDraw && !options.quiet ? Progress::Style::bar : Progress::Style::none;
}

bool isSameFile(const std::string &a, const std::string &b) {
  struct stat ofA {
  }, ofB{};
  return stat(a.c_str(), &ofA) == 0 && stat(b.c_str(), &ofB) == 0 && ofA.st_dev == ofB.st_dev &&
         ofA.st_ino == ofB.st_ino;
}

std::vector<uint64_t> sizesOf(const std::vector<std::string> &inputs, Progress::Style style) {
  std::vector<uint64_t> sizes(inputs.size());
  if (style == Progress::Style::none) return sizes;
  for (size_t i = 0; i < inputs.size(); ++i)
    if (const auto state = fileState(inputs[i])) sizes[i] = state->bytes;
  return sizes;
}

}  // namespace

void OrderedText::emit(Stream stream, std::string_view line) {
  progress_.print(stream == Stream::out ? stdout : stderr, line);
}

void OrderedText::print(size_t job, Stream stream, std::string_view line) {
  std::unique_lock lock(mutex_);
  Kept &mine = kept_[job];
  if (job != front_ && mine.bytes > kKeptBytes) {
    turn_.wait(lock, [&] { return job == front_ || abandoned_; });
    if (abandoned_) throw Interrupted{};
  }
  if (job == front_) {
    emit(stream, line);
  } else {
    mine.lines.emplace_back(stream, line);
    mine.bytes += line.size();
  }
}

void OrderedText::finish(size_t job) {
  const std::lock_guard lock(mutex_);
  kept_[job].finished = true;
  if (job != front_) return;
  while (front_ < kept_.size() && kept_[front_].finished) {
    ++front_;
    if (front_ == kept_.size()) break;
    for (const auto &[stream, line] : kept_[front_].lines) emit(stream, line);
    kept_[front_].lines = {};
  }
  turn_.notify_all();
}

void OrderedText::abandon() {
  const std::lock_guard lock(mutex_);
  abandoned_ = true;
  turn_.notify_all();
}

std::string Job::displayInput() const { return input() == "-" ? "standard input" : displayName(input()); }

void Job::complainAbout(const std::string &file, const Complaint &complaint) {
  batch_.text.print(index_, OrderedText::Stream::err, messageLine(file == "-" ? "standard input" : file, complaint));
}

void Job::object(const Json &fields) {
  Json object = objectAbout(input(), state_, batch_.options.command);
  object.update(fields);
  if (batch_.report) batch_.report->write(object);
  if (batch_.options.json) out(inertJson(object.dump()));
}

void Job::doneEarlier(int status) {
  if (!batch_.options.json) return;
  Json object = objectAbout(input(), state_, batch_.options.command);
  object["status"] = status;
  object["done"] = "earlier";
  out(inertJson(object.dump()));
}

int runJobs(const CommonOptions &options, const std::function<int(Job &)> &work) {
  const std::vector<std::string> &inputs = options.inputs;
  // A report is begun and later continued with the same command line.
  const bool continues = options.report.empty() || options.report == options.resume;
  const bool isFirst = options.report == options.resume && access(options.resume.c_str(), F_OK) != 0;
  std::optional<EarlierReport> earlier;
  if (!options.resume.empty() && !isFirst) earlier.emplace(options.resume, options.command);
  const std::string &reportName = options.report.empty() ? options.resume : options.report;
  std::optional<ReportFile> report;
  for (const std::string &input : inputs)
    if (!reportName.empty() && isSameFile(reportName, input))
      failUsage("the report " + displayName(reportName) + " is also an input", "choose another name with --report");
  if (!reportName.empty()) report.emplace(reportName, continues, options.force);

  const Progress::Style style = styleFor(options);
  Progress progress(style, sizesOf(inputs, style));
  OrderedText text(inputs.size(), progress);
  BatchState batch{options, progress, text, report ? &*report : nullptr};
  std::atomic<size_t> next{0};
  std::atomic<bool> stopped{false};
  std::vector<int> statuses(inputs.size(), kGood);
  std::mutex brokenMutex;
  std::optional<ReportBroken> broken;

  const auto runOne = [&](size_t index, unsigned share) {
    Job job(batch, index, share);
    const std::optional<int> done = earlier ? earlier->statusOf(job.input(), job.state()) : std::nullopt;
    try {
      if (done) {
        statuses[index] = *done;
        job.doneEarlier(*done);
      } else {
        statuses[index] = work(job);
      }
    } catch (const Failure &failure) {
      statuses[index] = failure.status;
      reportFailure(job, failure);
    } catch (const std::bad_alloc &) {
      statuses[index] = kUnusable;
      reportFailure(job, Failure(kUnusable, {{}, "out of memory", "use fewer jobs with -j"}));
    }
    text.finish(index);
    progress.finish(index);
  };
  const unsigned threads = std::max(1u, options.jobs);
  const unsigned workers = static_cast<unsigned>(std::clamp<size_t>(inputs.size(), 1, threads));
  const auto worker = [&](unsigned number) {
    const unsigned share = threads / workers + (number < threads % workers ? 1 : 0);
    try {
      for (size_t index = next++; index < inputs.size() && !stopped; index = next++) runOne(index, share);
    } catch (const Interrupted &) {
      stopped = true;
    } catch (const ReportBroken &what) {
      const std::lock_guard lock(brokenMutex);
      broken = what;
      stopped = true;
    }
    if (stopped) text.abandon();
  };

  std::vector<std::thread> others;
  for (unsigned number = 1; number < workers; ++number) others.emplace_back(worker, number);
  worker(0);
  for (std::thread &thread : others) thread.join();
  if (stopped) progress.close();
  if (broken) throw Failure(std::move(broken->failure));
  if (stopped) {
    endInterrupted();
  }
  return std::accumulate(statuses.begin(), statuses.end(), kGood, worseOf);
}

}  // namespace qav::tool
