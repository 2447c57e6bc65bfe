// The end of a long output file, written past the system's cache by a thread of its own while the next samples are
// computed: the drive fetches each block from where it lies, and nothing is copied.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qav::tool {

class DirectOutput {
 public:
  // Offsets in the file and lengths are whole numbers of these.
  static constexpr size_t kBlockBytes = size_t{1} << 20;
  static constexpr size_t kRoomBytes = 8192;

  // For the file `path`, which `fd` has open. Null where the file system does not write that way, or there is no thread to
  // be had.
  static std::unique_ptr<DirectOutput> open(const std::string &path, int fd);

  // Waits for the block that is being written, and leaves out those behind it.
  ~DirectOutput();
  DirectOutput(const DirectOutput &) = delete;
  DirectOutput &operator=(const DirectOutput &) = delete;

  // A block to be filled, with room for kRoomBytes behind it. Waits until there is one; throws Interrupted.
  uint8_t *freeBlock();

  // Hand over a filled block, to be written at that offset.
  void write(uint8_t *block, uint64_t offset);

  // Wait until everything is written.
  void finish();

  // The error of the first write that failed, 0 while none has.
  int error();

  // Whether the drive takes the blocks as fast as the cache would, copying them. (A file goes on through the cache where it
  // does not.)
  bool isFast();

 private:
  struct Filled {
    uint8_t *block;
    uint64_t offset;
  };
  struct Free {
    void operator()(uint8_t *memory) const;
  };

  DirectOutput(int directFd, int fd);
  void run();
  int writeBlock(const Filled &filled);
  void judge(double seconds);

  const int directFd_, fd_;
  std::unique_ptr<uint8_t[], Free> memory_;

  std::mutex mutex_;
  std::condition_variable filledOne_, freedOne_;
  std::vector<uint8_t *> free_;
  std::deque<Filled> filled_;
  bool isWriting_ = false;
  bool stopped_ = false;
  int error_ = 0;
  bool isFast_ = true;
  unsigned judgedBlocks_ = 0;
  double judgedSeconds_ = 0.0;

  std::thread thread_;
};

}  // namespace qav::tool
