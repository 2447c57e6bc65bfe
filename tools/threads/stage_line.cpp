#include "tools/threads/stage_line.h"

#include <system_error>
#include <utility>

namespace qav::tool {

StageLine::StageLine(Work work, size_t slots, unsigned threads)
    : work_(std::move(work)), stages_(1 + work_.stages.size()), failures_(slots) {
  threads_.reserve(threads - 1);
  try {
    for (unsigned i = 1; i < threads; ++i) threads_.emplace_back([this] { help(); });
  } catch (const std::system_error &) {
    // The system grants no more threads; those there are, or this one alone, do as well.
  }
}

StageLine::~StageLine() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  changed_.notify_all();
  for (std::thread &thread : threads_) thread.join();
}

size_t StageLine::next() {
  std::unique_lock lock(mutex_);
  if (std::exchange(isGiven_, false)) {
    ++free_;
    changed_.notify_all();
  }
  while (stages_.back().done == free_) {
    if (const auto stage = readyStage())
      run(*stage, lock);
    else
      changed_.wait(lock);
  }
  isGiven_ = true;
  const size_t slot = free_ % failures_.size();
  if (failures_[slot]) std::rethrow_exception(failures_[slot]);
  return slot;
}

void StageLine::help() {
  std::unique_lock lock(mutex_);
  while (!stopped_) {
    if (const auto stage = readyStage())
      run(*stage, lock);
    else
      changed_.wait(lock);
  }
}

// The last one: what was begun is finished first, while the caches still hold it.
std::optional<size_t> StageLine::readyStage() const {
  for (size_t stage = stages_.size() - 1; stage > 0; --stage)
    if (!stages_[stage].isBusy && stages_[stage].done < stages_[stage - 1].done) return stage;
  if (!stages_[0].isBusy && !ended_ && stages_[0].done - free_ < failures_.size()) return 0;
  return std::nullopt;
}

void StageLine::run(size_t stage, std::unique_lock<std::mutex> &lock) {
  stages_[stage].isBusy = true;
  const size_t slot = stages_[stage].done % failures_.size();
  lock.unlock();
  bool isLast = false;
  try {
    if (stage == 0)
      isLast = !work_.read(slot);
    else if (!failures_[slot])
      work_.stages[stage - 1](slot);
  } catch (...) {
    failures_[slot] = std::current_exception();
    isLast = true;
  }
  lock.lock();
  ended_ = ended_ || isLast;
  stages_[stage].isBusy = false;
  ++stages_[stage].done;
  changed_.notify_all();
}

}  // namespace qav::tool
