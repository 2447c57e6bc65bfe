#include "tools/io/spill_buffer.h"

#include <array>
#include <cerrno>
#include <cstring>

#include "tools/io/failure.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

[[noreturn]] void failTemporary() {
  fail("cannot be set aside in a temporary file: " + errorText(errno), "free some space for temporary files");
}

}  // namespace

void SpillBuffer::append(const void *data, size_t bytes) {
  if (!file_ && size_ + bytes > kInMemory) {
    file_.reset(std::tmpfile());
    if (!file_ || std::fwrite(memory_.data(), 1, memory_.size(), file_.get()) != memory_.size()) failTemporary();
    memory_ = {};
    isAtEnd_ = true;
  }
  if (!file_)
    memory_.append(static_cast<const char *>(data), bytes);
  else if ((!isAtEnd_ && fseeko(file_.get(), 0, SEEK_END) != 0) || std::fwrite(data, 1, bytes, file_.get()) != bytes)
    failTemporary();
  isAtEnd_ = true;
  size_ += bytes;
}

void SpillBuffer::patch(uint64_t offset, const void *data, size_t bytes) {
  isAtEnd_ = false;
  if (!file_)
    std::memcpy(memory_.data() + offset, data, bytes);
  else if (fseeko(file_.get(), static_cast<off_t>(offset), SEEK_SET) != 0 ||
           std::fwrite(data, 1, bytes, file_.get()) != bytes)
    failTemporary();
}

void SpillBuffer::clear() {
  memory_ = {};
  file_.reset();
  size_ = 0;
}

void SpillBuffer::read(const std::function<void(const void *data, size_t bytes)> &take) const {
  if (!file_) return take(memory_.data(), memory_.size());
  isAtEnd_ = false;
  std::array<char, 16384> block;
  if (fseeko(file_.get(), 0, SEEK_SET) != 0) failTemporary();
  for (uint64_t left = size_; left > 0;) {
    const size_t n = std::fread(block.data(), 1, block.size(), file_.get());
    if (n == 0) failTemporary();
    take(block.data(), n);
    left -= n;
  }
}

}  // namespace qav::tool
