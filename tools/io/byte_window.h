// A stretch of a source held in memory, moved forward only: constant memory for inputs of any length, files and pipes
// alike.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "tools/io/byte_source.h"

namespace qav::tool {

class ByteWindow {
 public:
  // `capacity` bounds what fill() can be asked for.
  explicit ByteWindow(ByteSource &source, size_t capacity = size_t{512} * 1024);

  // Make at least `bytes` bytes visible unless the input ends before. Returns how many are visible. Pointers into the
  // window stay valid until the next fill() or skip().
  size_t fill(size_t bytes);

  const uint8_t *data() const { return buffer_.get() + begin_; }
  size_t visible() const;

  // Whether no bytes follow the visible ones.
  bool isEnd() const;

  // Position in the input of the first visible byte.
  uint64_t offset() const { return offset_; }

  // Move forward by visible bytes.
  void consume(size_t bytes);

  // Move forward by any number of bytes; returns how many there were.
  uint64_t skip(uint64_t bytes);

  // Pretend that the input ends at this position; nothing: at its real end.
  void setEnd(std::optional<uint64_t> end) { end_ = end; }

 private:
  ByteSource &source_;
  size_t capacity_;
  std::unique_ptr<uint8_t[]> buffer_;
  size_t begin_ = 0;
  size_t filled_ = 0;    // end of the bytes read
  uint64_t offset_ = 0;  // of buffer_[begin_]
  bool exhausted_ = false;
  std::optional<uint64_t> end_;
};

}  // namespace qav::tool
