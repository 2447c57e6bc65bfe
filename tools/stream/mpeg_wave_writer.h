// WAVE files with MPEG audio inside, written frame by frame.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/io/output_file.h"
#include "tools/riff/bext.h"
#include "tools/riff/kept_chunks.h"
#include "tools/riff/riff_writer.h"
#include "tools/stream/frame_header.h"
#include "tools/stream/mpeg_wave_format.h"

namespace qav::tool {

class MpegWaveWriter {
 public:
  struct Options {
    const KeptChunks *chunks = nullptr;       // to stand before and behind the data
    std::optional<uint64_t> expectedBytes{};  // of the stream, roughly
    std::optional<uint64_t> samples{};        // per channel, where that is known beforehand: all that a pipe can say
    bool bextLoudness = false;                // finish() will give the loudness, into the bext chunk or a new one
  };
  MpegWaveWriter(OutputFile &out, const Options &options);

  // The chunks before the data are written with the first frame.
  void write(const uint8_t *frame, const FrameHeader &header);

  // Samples per channel that the frames hold.
  uint64_t samples() const { return format_.samples(); }

  // Write what stands behind the data, and fill in what has become known. `samples` goes into the fact chunk. At least
  // one frame must have been written. Returns what is to be said about it; empty: nothing.
  std::string finish(uint64_t samples, const Loudness *loudness = nullptr);

 private:
  void writeHead();

  OutputFile &out_;
  Options options_;
  MpegWaveFormat format_;
  std::optional<RiffWriter> riff_;
  uint64_t formatOffset_ = 0;  // of the content of each chunk
  uint64_t factOffset_ = 0;
  uint64_t bextOffset_ = 0;
};

}  // namespace qav::tool
