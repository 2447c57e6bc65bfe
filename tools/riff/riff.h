// RIFF/WAVE (and RF64, BW64) around a stream: found, and read chunk by chunk.
#pragma once

#include <cstdint>
#include <optional>

#include "tools/io/byte_window.h"
#include "tools/riff/kept_chunks.h"

namespace qav::tool {

inline constexpr uint32_t kFormatPcm = 0x0001;
inline constexpr uint32_t kFormatMpeg = 0x0050;
inline constexpr uint32_t kFormatMpegLayer3 = 0x0055;

struct RiffContainer {
  uint32_t formatTag = 0;  // of the fmt chunk; of its sub-format where it is extensible. 0: there was none
  uint64_t dataOffset = 0;
  std::optional<uint64_t> dataBytes;    // as declared; nothing: unknown, as written to a pipe
  std::optional<uint64_t> factSamples;  // of the fact or the ds64 chunk: samples per channel
};

// Whether a RIFF/WAVE file starts here: 12 bytes are looked at.
bool isRiffWave(const uint8_t *data, size_t visible);

// Read the chunks up to the content of the data chunk, where the window then stands. `keep`, where given, takes those it
// is for. Nothing: there is no data chunk.
std::optional<RiffContainer> readRiffHead(ByteWindow &window, KeptChunks *keep = nullptr);

// Pass through a whole RIFF/WAVE file that is not cut off, for its chunks alone.
void keepChunks(ByteSource &source, KeptChunks &keep);

// The length with its header of a chunk that may stand here, padded to an even number; 0: these bytes are no chunk.
uint64_t chunkBytesAt(const uint8_t *data, size_t visible);

}  // namespace qav::tool
