#include "tools/batch.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <new>
#include <nlohmann/json.hpp>
#include <numeric>
#include <thread>

#include "tools/interrupt.h"
#include "tools/message.h"

namespace qav::tool {

namespace {

constexpr size_t kKeptBytes = 256 * 1024;

void emit(OrderedText::Stream stream, std::string_view line) {
  std::FILE *const file = stream == OrderedText::Stream::out ? stdout : stderr;
  std::string whole(line);
  whole += '\n';
  std::fwrite(whole.data(), 1, whole.size(), file);
}

void report(Job &job, const Failure &failure, bool json) {
  job.complain(failure.complaint);
  if (!json) return;
  nlohmann::ordered_json object;
  object["file"] = toUtf8(job.input());
  object["status"] = failure.status;
  object["error"] = {
      {"place", failure.complaint.place}, {"what", failure.complaint.what}, {"remedy", failure.complaint.remedy}};
  job.out(object.dump());
}

}  // namespace

void OrderedText::print(size_t job, Stream stream, std::string_view line) {
  std::unique_lock lock(mutex_);
  Kept &mine = kept_[job];
  if (job != front_ && mine.bytes > kKeptBytes) turn_.wait(lock, [&] { return job == front_; });
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

void Job::complainAbout(const std::string &file, const Complaint &complaint) {
  text_.print(index_, OrderedText::Stream::err, messageLine(file == "-" ? "standard input" : file, complaint));
}

int runJobs(const std::vector<std::string> &inputs, unsigned workers, const std::function<int(Job &)> &work,
            bool json) {
  OrderedText text(inputs.size());
  std::atomic<size_t> next{0};
  std::atomic<bool> stopped{false};
  std::vector<int> statuses(inputs.size(), kGood);

  const auto runOne = [&](size_t index) {
    Job job(text, index, inputs[index]);
    try {
      statuses[index] = work(job);
    } catch (const Failure &failure) {
      statuses[index] = failure.status;
      report(job, failure, json);
    } catch (const std::bad_alloc &) {
      statuses[index] = kUnusable;
      report(job, Failure(kUnusable, {{}, "out of memory", "use fewer jobs with -j"}), json);
    }
    text.finish(index);
  };
  const auto worker = [&] {
    try {
      for (size_t index = next++; index < inputs.size(); index = next++) runOne(index);
    } catch (const Interrupted &) {
      stopped = true;
    }
  };

  std::vector<std::thread> threads;
  const size_t wanted = std::min<size_t>(workers, inputs.size());
  for (size_t i = 1; i < wanted; ++i) threads.emplace_back(worker);
  worker();
  for (std::thread &thread : threads) thread.join();
  if (stopped) endInterrupted();
  return std::accumulate(statuses.begin(), statuses.end(), kGood, worseOf);
}

}  // namespace qav::tool
