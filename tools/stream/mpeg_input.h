// An input that must be MPEG audio of Layer I or II: the stream walker on a file, refusing what is something else.
#pragma once

#include <string>

#include "tools/io/byte_source.h"
#include "tools/stream/stream_walker.h"

namespace qav::tool {

class MpegInput {
 public:
  // `name` is a path, or "-" for standard input. Throws Failure when it cannot be opened.
  MpegInput(const std::string &name, StreamWalker::Options options);

  // The length of the input in bytes where it is known.
  std::optional<uint64_t> size() const { return source_.size(); }

  // How much of the input lies before a byte of it, 0 .. 1; 0 where its length is not known.
  double fractionAt(uint64_t offset) const {
    return size().value_or(0) > 0 ? static_cast<double>(offset) / static_cast<double>(*size()) : 0.0;
  }

  // As StreamWalker::next(). Throws Failure when the input turns out to be something else: another kind of WAV file, Layer
  // III, free format, or nothing that decodes up to the end.
  const Event &next();

 private:
  FileSource source_;
  StreamWalker walker_;
  bool hasFrames_ = false;
};

}  // namespace qav::tool
