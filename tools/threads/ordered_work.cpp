#include "tools/threads/ordered_work.h"

#include <condition_variable>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace qav::tool {

namespace {

class Runner {
 public:
  Runner(unsigned threads, const OrderedWork &steps) : steps_(steps), slots_(slotsFor(threads)) {
    threads_.reserve(threads - 1);
    try {
      for (unsigned i = 1; i < threads; ++i) threads_.emplace_back([this] { help(); });
    } catch (const std::system_error &) {
      // The system grants no more threads; those there are, or this one alone, do as well.
    }
  }

  ~Runner() {
    {
      const std::lock_guard lock(mutex_);
      stopped_ = true;
    }
    waiting_.notify_all();
    for (std::thread &thread : threads_) thread.join();
  }

  Runner(const Runner &) = delete;
  Runner &operator=(const Runner &) = delete;

  void run() {
    std::exception_ptr readFailure;
    std::unique_lock lock(mutex_);
    for (bool ended = false;;) {
      if (written_ < begun_ && slots_[indexOf(written_)].done) {
        lock.unlock();
        writeNext();
        lock.lock();
        ++written_;
      } else if (!ended && read_ - written_ < slots_.size()) {
        lock.unlock();
        try {
          ended = !steps_.read(indexOf(read_));
        } catch (...) {
          readFailure = std::current_exception();
          ended = true;
        }
        lock.lock();
        if (ended) continue;
        ++read_;
        waiting_.notify_one();
      } else if (begun_ < read_) {
        workOnNext(lock);
      } else if (written_ < read_) {
        finished_.wait(lock, [&] { return slots_[indexOf(written_)].done; });
      } else {
        break;
      }
    }
    if (readFailure) std::rethrow_exception(readFailure);
  }

 private:
  struct Slot {
    bool done = false;
    std::exception_ptr failure;
  };

  size_t indexOf(size_t item) const { return item % slots_.size(); }

  void help() {
    std::unique_lock lock(mutex_);
    for (;;) {
      waiting_.wait(lock, [&] { return stopped_ || begun_ < read_; });
      if (stopped_) return;
      workOnNext(lock);
    }
  }

  void workOnNext(std::unique_lock<std::mutex> &lock) {
    const size_t item = begun_++;
    Slot &slot = slots_[indexOf(item)];
    lock.unlock();
    try {
      steps_.work(indexOf(item));
    } catch (...) {
      slot.failure = std::current_exception();
    }
    lock.lock();
    slot.done = true;
    if (item == written_) finished_.notify_one();
  }

  void writeNext() {
    Slot &slot = slots_[indexOf(written_)];
    if (slot.failure) std::rethrow_exception(slot.failure);
    steps_.write(indexOf(written_));
    slot.done = false;
  }

  const OrderedWork &steps_;
  std::mutex mutex_;
  std::condition_variable waiting_;   // helpers, for an item
  std::condition_variable finished_;  // the calling thread, for the item whose turn it is
  std::vector<Slot> slots_;
  // Items that have been read, begun and written: read_ >= begun_ >= written_, at most all slots apart. Only the calling
  // thread changes the first and the last.
  size_t read_ = 0, begun_ = 0, written_ = 0;
  bool stopped_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace

void runInOrder(unsigned threads, const OrderedWork &steps) { Runner(threads, steps).run(); }

}  // namespace qav::tool
