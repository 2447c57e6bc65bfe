// WAV files of 16-bit samples, written straight to an output.
//
// libsndfile is not used for this: it needs a file that it can seek in, and a WAV on a pipe must carry the customary
// unknown length (0xFFFFFFFF) from the start. A header is 44 bytes; that is all there is to it.
#pragma once

#include <cstdint>
#include <optional>

#include "tools/output_file.h"

namespace qav::tool {

class WavWriter {
 public:
  // Writes the header. Where more data than a plain WAV file can hold may follow, `roomForRf64` reserves the space that
  // turns it into an RF64 file in the end.
  WavWriter(OutputFile &out, uint32_t freqHz, uint32_t channels, bool roomForRf64);

  // Append samples in host byte order, channels interleaved.
  void write(const int16_t *samples, size_t count);

  // Put the length into the header where that is possible. False when the file is longer than its header can say.
  bool finish();

 private:
  OutputFile &out_;
  bool roomForRf64_;
  uint64_t headerBytes_;
  uint64_t dataBytes_ = 0;
};

// Append samples as signed 16-bit little-endian, whatever the host's order.
void writeSamples(OutputFile &out, const int16_t *samples, size_t count);

}  // namespace qav::tool
