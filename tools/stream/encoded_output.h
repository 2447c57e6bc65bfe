// Where an encoded stream goes: into a file of its own, or wrapped into a WAVE file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/io/output_file.h"
#include "tools/stream/frame_header.h"
#include "tools/stream/mpeg_wave_writer.h"

namespace qav::tool {

class EncodedOutput {
 public:
  EncodedOutput(const std::string &name, bool overwrite) : file_(name, overwrite) {}

  // To be called before the first frame where the stream is to be wrapped.
  void wrap(const MpegWaveWriter::Options &options) { wave_.emplace(file_, options); }

  void write(const uint8_t *frame, uint32_t bytes);

  uint64_t size() const { return file_.size(); }  // so far

  // The stream is complete, and encodes this many samples per channel. Returns what is to be said about it; empty:
  // nothing.
  std::string finish(uint64_t samples, const Loudness *loudness);

 private:
  OutputFile file_;
  HeaderParser parser_;
  std::optional<MpegWaveWriter> wave_;
};

}  // namespace qav::tool
