// An output that appears whole or not at all: written under a temporary name in its target folder and renamed when it
// is complete; removed when it is not. Standard output and what is no regular file (a pipe, /dev/null) are written
// directly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "tools/io/direct_output.h"

namespace qav::tool {

class OutputFile {
 public:
  // `name` is a path, or "-" for standard output. Without `overwrite` an existing regular file is refused, now and when
  // the file is committed. A file that this process has written, or is writing, is refused in any case. Throws Failure.
  OutputFile(const std::string &name, bool overwrite);
  ~OutputFile();
  OutputFile(const OutputFile &) = delete;
  OutputFile &operator=(const OutputFile &) = delete;

  // Append; collected and written in large blocks. Throws Failure, Interrupted.
  void write(const void *data, size_t bytes);

  // Where the next bytes will stand, with room for kRoomBytes of them. Up to so many that are made there, and then written
  // from there, are not copied. Valid until the next call of another function.
  static constexpr size_t kRoomBytes = DirectOutput::kRoomBytes;
  uint8_t *next() { return block_ + collected_; }

  // Bytes appended so far.
  uint64_t size() const { return passedOn_ + collected_; }

  // Whether patch() works: not on a pipe.
  bool canPatch() const { return canPatch_; }

  // Overwrite bytes written earlier, counted from the start of this output.
  void patch(uint64_t offset, const void *data, size_t bytes);

  // Hand over what is still collected and give the file its name. Without this call the destructor removes it.
  void commit();

 private:
  void openTarget(const std::string &name, bool overwrite);
  void passBlockOn();
  void beginDirect();
  void endDirect();
  void flush();
  void writeAll(const uint8_t *data, size_t bytes);
  void discard() noexcept;

  std::string name_;
  std::string target_;     // final path; empty when written directly
  std::string temporary_;  // empty when written directly, and after commit
  int fd_ = -1;
  bool owned_ = false;
  bool overwrite_ = false;
  bool canPatch_ = false;
  bool mayPass_ = false;   // a file on whose end the cache need not be spent
  int64_t start_ = 0;      // where in the descriptor this output begins
  uint64_t passedOn_ = 0;  // bytes, to the system or to direct_
  size_t collected_ = 0;   // bytes, in block_
  std::unique_ptr<uint8_t[]> buffer_;
  uint8_t *block_;
  size_t blockBytes_;
  std::unique_ptr<DirectOutput> direct_;  // while it writes; block_ is one of its own then
};

}  // namespace qav::tool
