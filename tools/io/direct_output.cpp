#include "tools/io/direct_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <new>
#include <system_error>

#include "tools/io/interrupt.h"

namespace qav::tool {

namespace {

constexpr size_t kBlocks = 4;
constexpr std::align_val_t kAlignment{4096};  // of memory, as the strictest drives ask for

// About what copying into the cache takes, and after how many blocks the drive is compared with it.
constexpr double kCacheBytesPerSecond = 1e9;
constexpr unsigned kBlocksToJudge = 16;

}  // namespace

void DirectOutput::Free::operator()(uint8_t *memory) const { ::operator delete[](memory, kAlignment); }

std::unique_ptr<DirectOutput> DirectOutput::open(const std::string &path, int fd) {
  const int directFd = ::open(path.c_str(), O_WRONLY | O_DIRECT | O_CLOEXEC | O_NOFOLLOW);
  if (directFd < 0) return nullptr;
  std::unique_ptr<DirectOutput> output(new DirectOutput(directFd, fd));
  try {
    output->thread_ = std::thread([writer = output.get()] { writer->run(); });
  } catch (const std::system_error &) {
    return nullptr;
  }
  return output;
}

DirectOutput::DirectOutput(int directFd, int fd)
    : directFd_(directFd), fd_(fd), memory_(new (kAlignment) uint8_t[kBlocks * (kBlockBytes + kRoomBytes)]) {
  for (size_t i = 0; i < kBlocks; ++i) free_.push_back(memory_.get() + i * (kBlockBytes + kRoomBytes));
}

DirectOutput::~DirectOutput() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  filledOne_.notify_one();
  if (thread_.joinable()) thread_.join();
  close(directFd_);
}

uint8_t *DirectOutput::freeBlock() {
  std::unique_lock lock(mutex_);
  while (!freedOne_.wait_for(lock, std::chrono::milliseconds(100), [&] { return !free_.empty(); }))
    throwIfInterrupted();
  uint8_t *const block = free_.back();
  free_.pop_back();
  return block;
}

void DirectOutput::write(uint8_t *block, uint64_t offset) {
  {
    const std::lock_guard lock(mutex_);
    filled_.push_back({block, offset});
  }
  filledOne_.notify_one();
}

void DirectOutput::finish() {
  std::unique_lock lock(mutex_);
  const auto isDone = [&] { return filled_.empty() && !isWriting_; };
  while (!freedOne_.wait_for(lock, std::chrono::milliseconds(100), isDone)) throwIfInterrupted();
}

int DirectOutput::error() {
  const std::lock_guard lock(mutex_);
  return error_;
}

bool DirectOutput::isFast() {
  const std::lock_guard lock(mutex_);
  return isFast_;
}

void DirectOutput::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    filledOne_.wait(lock, [&] { return stopped_ || !filled_.empty(); });
    if (stopped_) return;
    const Filled filled = filled_.front();
    filled_.pop_front();
    if (error_ == 0) {
      isWriting_ = true;
      lock.unlock();
      const auto begin = std::chrono::steady_clock::now();
      const int error = writeBlock(filled);
      const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
      lock.lock();
      isWriting_ = false;
      error_ = error;
      judge(taken.count());
    }
    free_.push_back(filled.block);
    freedOne_.notify_one();
  }
}

int DirectOutput::writeBlock(const Filled &filled) {
  int fd = directFd_;
  for (size_t done = 0; done < kBlockBytes;) {
    const ssize_t n = pwrite(fd, filled.block + done, kBlockBytes - done, static_cast<off_t>(filled.offset + done));
    if (n >= 0)
      done += static_cast<size_t>(n);
    else if (errno == EINVAL && fd == directFd_)  // what it does not take so, a remainder at an odd place for one
      fd = fd_;
    else if (errno != EINTR)
      return errno;
  }
  return 0;
}

void DirectOutput::judge(double seconds) {
  judgedSeconds_ += seconds;
  if (++judgedBlocks_ < kBlocksToJudge) return;
  if (static_cast<double>(kBlocksToJudge * kBlockBytes) < judgedSeconds_ * kCacheBytesPerSecond) isFast_ = false;
  judgedBlocks_ = 0;
  judgedSeconds_ = 0.0;
}

}  // namespace qav::tool
