#include "tools/io/byte_window.h"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace qav::tool {

ByteWindow::ByteWindow(ByteSource &source, size_t capacity)
    : source_(source), capacity_(capacity), buffer_(std::make_unique<uint8_t[]>(capacity)) {}

size_t ByteWindow::visible() const {
  const size_t held = filled_ - begin_;
  return end_ ? static_cast<size_t>(std::min<uint64_t>(held, *end_ - std::min(*end_, offset_))) : held;
}

bool ByteWindow::isEnd() const {
  return (exhausted_ && visible() == filled_ - begin_) || (end_ && offset_ + visible() >= *end_);
}

size_t ByteWindow::fill(size_t bytes) {
  assert(bytes <= capacity_);
  if (visible() >= bytes || isEnd()) return visible();
  if (begin_ > 0) {
    std::memmove(buffer_.get(), data(), filled_ - begin_);
    filled_ -= begin_;
    begin_ = 0;
  }
  while (!exhausted_ && filled_ < bytes) {
    const size_t n = source_.read(buffer_.get() + filled_, capacity_ - filled_);
    exhausted_ = n == 0;
    filled_ += n;
  }
  return visible();
}

void ByteWindow::consume(size_t bytes) {
  assert(bytes <= visible());
  begin_ += bytes;
  offset_ += bytes;
}

uint64_t ByteWindow::skip(uint64_t bytes) {
  uint64_t done = 0;
  while (done < bytes) {
    const auto n = static_cast<size_t>(std::min<uint64_t>(bytes - done, fill(1)));
    if (n == 0) break;
    consume(n);
    done += n;
  }
  return done;
}

}  // namespace qav::tool
