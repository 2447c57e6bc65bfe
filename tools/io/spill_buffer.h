// Bytes set aside: in memory while they are few, in a temporary file without a name when they become many.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

namespace qav::tool {

class SpillBuffer {
 public:
  void append(const void *data, size_t bytes);
  void patch(uint64_t offset, const void *data, size_t bytes);  // what was appended before
  void clear();

  uint64_t size() const { return size_; }

  // Hand out everything, from front to back, in pieces.
  void read(const std::function<void(const void *data, size_t bytes)> &take) const;

 private:
  static constexpr size_t kInMemory = size_t{256} * 1024;

  struct Close {
    void operator()(std::FILE *file) const { std::fclose(file); }
  };
  std::string memory_;  // empty once there is a file
  std::unique_ptr<std::FILE, Close> file_;
  mutable bool isAtEnd_ = false;  // of the file: the next bytes need no seek, which would write out the few that wait
  uint64_t size_ = 0;
};

}  // namespace qav::tool
