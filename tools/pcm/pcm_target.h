// Where decoded PCM goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tools/io/md5.h"
#include "tools/io/output_file.h"
#include "tools/riff/wav_writer.h"

namespace qav::tool {

class PcmTarget {
 public:
  virtual ~PcmTarget() = default;
  virtual void open(uint32_t freqHz, uint32_t channels) = 0;
  virtual void write(const int16_t *samples, size_t frames) = 0;  // interleaved, in host byte order

  // Where the samples written next are to stand, with room for QAV_MAX_FRAME_PCM_BYTES: decoded there, they need not be
  // copied. Null: they may be anywhere. Valid until the next call.
  virtual int16_t *next() { return nullptr; }

  virtual void close() = 0;  // everything is written
};

// A WAV file, or bare samples.
class FileTarget final : public PcmTarget {
 public:
  struct Options {
    bool overwrite = false;
    bool raw = false;
    std::optional<uint64_t> expectedBytes;  // of PCM, roughly
    const KeptChunks *chunks = nullptr;     // of the input, for a WAV file
    std::function<void(const std::string &what)> warn;
  };
  FileTarget(std::string name, Options options) : name_(std::move(name)), options_(std::move(options)) {}

  void open(uint32_t freqHz, uint32_t channels) override;
  void write(const int16_t *samples, size_t frames) override;
  int16_t *next() override;
  void close() override;

  // Another file follows that the chunks behind the input's data will go into.
  void leaveOutChunksBehind() { withChunksBehind_ = false; }

  const std::string &name() const { return name_; }

 private:
  std::string name_;
  Options options_;
  bool withChunksBehind_ = true;
  uint32_t channels_ = 0;
  std::optional<OutputFile> out_;
  std::optional<WavWriter> wav_;
};

// The checksum of the samples as bytes, little-endian.
class Md5Target final : public PcmTarget {
 public:
  void open(uint32_t, uint32_t channels) override { channels_ = channels; }
  void write(const int16_t *samples, size_t frames) override;
  void close() override {}

  std::string hexDigest() { return md5_.hexDigest(); }

 private:
  uint32_t channels_ = 0;
  Md5 md5_;
};

}  // namespace qav::tool
