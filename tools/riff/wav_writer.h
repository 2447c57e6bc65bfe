// WAV files of 16-bit samples, written straight to an output.
//
// libsndfile is not used for this: it needs a file that it can seek in, and a WAV on a pipe must carry the customary
// unknown length (0xFFFFFFFF) from the start. A header is 44 bytes; that is all there is to it, but for chunks
// that are kept from another file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/io/output_file.h"
#include "tools/riff/kept_chunks.h"
#include "tools/riff/riff_writer.h"

namespace qav::tool {

class WavWriter {
 public:
  struct Options {
    std::optional<uint64_t> expectedBytes{};  // of samples, roughly
    const KeptChunks *chunks = nullptr;       // to stand before and behind the samples
  };

  // Writes the header.
  WavWriter(OutputFile &out, uint32_t freqHz, uint32_t channels, const Options &options);

  // Append samples in host byte order, channels interleaved.
  void write(const int16_t *samples, size_t count);

  // Write what stands behind the samples, where it is wanted, and put the lengths into the header where that is possible.
  // Returns what is to be said about it; empty: nothing.
  std::string finish(bool withChunksBehind = true);

 private:
  OutputFile &out_;
  uint32_t channels_;
  RiffWriter riff_;
  uint64_t count_ = 0;  // samples of all channels
};

// Append samples as signed 16-bit little-endian, whatever the host's order.
void writeSamples(OutputFile &out, const int16_t *samples, size_t count);

}  // namespace qav::tool
