// Items that pass stage after stage, as on an assembly line: a stage takes them in their order and one at a time, so it
// may keep what it needs from one to the next; different stages work on different items at the same time.
//
// Any thread does what there is to do next, also the calling one when it finds no item ready. So the threads are all busy
// as long as no single stage takes more than its share.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace qav::tool {

class StageLine {
 public:
  // Items live in slots, numbered from 0, which are used again and again.
  struct Work {
    std::function<bool(size_t slot)> read;                 // the first stage; false: no item follows this one
    std::vector<std::function<void(size_t slot)>> stages;  // the others
  };

  // On up to `threads` threads, the calling one included.
  StageLine(Work work, size_t slots, unsigned threads);
  ~StageLine();
  StageLine(const StageLine &) = delete;
  StageLine &operator=(const StageLine &) = delete;

  // The slot of the next item, which has passed all stages and stays as it is until the next call. Throws what a stage
  // threw at the item; that, or the last item, is the end.
  size_t next();

 private:
  struct Stage {
    uint64_t done = 0;  // items since the start
    bool isBusy = false;
  };

  void help();
  std::optional<size_t> readyStage() const;
  void run(size_t stage, std::unique_lock<std::mutex> &lock);

  Work work_;
  std::vector<Stage> stages_;                 // the one that reads is the first
  std::vector<std::exception_ptr> failures_;  // by slot
  uint64_t free_ = 0;                         // items whose slots may be used again
  bool isGiven_ = false;                      // the item behind those
  bool ended_ = false, stopped_ = false;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::thread> threads_;
};

}  // namespace qav::tool
