// An input of PCM, whatever file holds it, read from front to back in constant memory.
//
// Samples of up to 16 bits are handed out as they are, deeper ones as double: nothing is rounded here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/io/failure.h"
#include "tools/pcm/sample_format.h"
#include "tools/riff/kept_chunks.h"

namespace qav::tool {

struct PcmFormat {
  uint32_t freqHz = 0;
  unsigned channels = 0;  // 1 or 2
  unsigned bits = 0;      // of one sample as stored
  bool floating = false;
  bool fits16 = true;                // which read() to use
  std::string container;             // "WAV"
  std::optional<uint64_t> frames{};  // sample frames, where that is known beforehand
};

// Something to be said about an input that was read.
struct Remark {
  Complaint complaint;
  bool damage;  // something is missing or lost
};

class PcmReader {
 public:
  virtual ~PcmReader() = default;

  const PcmFormat &format() const { return format_; }

  // Read up to `frames` sample frames, channels interleaved. Fewer only at the end; 0: the end. The first is for a format
  // that fits16, the second for one that does not; its values are finite, -1 .. 1 being full scale. Throw Failure,
  // Interrupted.
  size_t read(int16_t *to, size_t frames) { return readInt16(to, frames); }
  size_t read(double *to, size_t frames);

  // To be asked when everything has been read.
  std::vector<Remark> remarks() const;

 protected:
  virtual size_t readInt16(int16_t *to, size_t frames) = 0;
  virtual size_t readDouble(double *to, size_t frames) = 0;

  void remark(bool damage, std::string what, std::string remedy);

  PcmFormat format_;

 private:
  std::vector<Remark> remarks_;
  uint64_t notNumbers_ = 0;
};

// Samples without a header.
struct RawFormat {
  SampleFormat sample;
  uint32_t freqHz = 0;
  unsigned channels = 0;
};

// The raw format that "s16le,44100,2" describes. Throws Failure (usage).
RawFormat parseRawFormat(const std::string &text);

// The lowest and the highest sampling rate of an input.
inline constexpr uint32_t kLowestFreqHz = 1000;
inline constexpr uint32_t kHighestFreqHz = 768000;

// Open a path, or "-" for standard input. Without `raw` the kind of file is found out. Throws Failure, also for more than
// two channels, and for MPEG audio, which this tool decodes by itself. `keep`, where given, takes the chunks of a WAV file
// around its samples: those behind them when all samples have been read.
std::unique_ptr<PcmReader> openPcm(const std::string &name, const std::optional<RawFormat> &raw,
                                   KeptChunks *keep = nullptr);

// MPEG audio where PCM was expected.
[[noreturn]] void failIsMpegAudio();

}  // namespace qav::tool
