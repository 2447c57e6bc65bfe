// An input read from front to back in large blocks: a file, a named pipe, or standard input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace qav::tool {

class ByteSource {
 public:
  virtual ~ByteSource() = default;

  // Read up to `bytes` bytes, waiting for at least one. 0: the end. Throws Failure, Interrupted.
  virtual size_t read(uint8_t *to, size_t bytes) = 0;

  // The length in bytes where the system knows it: of a regular file, not of a pipe.
  virtual std::optional<uint64_t> size() const { return std::nullopt; }
};

class FileSource final : public ByteSource {
 public:
  // `name` is a path, or "-" for standard input. Throws Failure when it cannot be opened, or is a directory.
  explicit FileSource(const std::string &name);
  ~FileSource() override;
  FileSource(const FileSource &) = delete;
  FileSource &operator=(const FileSource &) = delete;

  size_t read(uint8_t *to, size_t bytes) override;
  std::optional<uint64_t> size() const override { return size_; }

 private:
  int fd_;
  bool owned_;
  bool mayWait_;  // a pipe or terminal: wait in a way that a signal can end
  std::optional<uint64_t> size_;
};

}  // namespace qav::tool
