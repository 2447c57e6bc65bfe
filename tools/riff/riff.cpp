#include "tools/riff/riff.h"

#include <algorithm>
#include <cstring>

#include "tools/io/little_endian.h"

namespace qav::tool {

namespace {

constexpr size_t kChunkHeaderBytes = 8;
constexpr size_t kFormatBytes = 40;  // of an extensible fmt chunk
constexpr uint32_t kExtensible = 0xFFFE;
constexpr uint32_t kIn64Bits = 0xFFFFFFFF;  // also the customary unknown length

bool is(const uint8_t *data, const char *id) { return std::memcmp(data, id, 4) == 0; }

uint64_t padded(uint64_t bytes) { return bytes + (bytes & 1); }

// 0, 0x7FFFFFFF and their neighbourhood are what programs write that cannot go back to fill in the length.
bool isUnknown(uint64_t bytes) {
  return bytes == 0 || bytes == kIn64Bits || (bytes >= 0x7FFFF000 && bytes <= 0x80000000) || bytes >= 0xFFFFF000;
}

}  // namespace

bool isRiffWave(const uint8_t *data, size_t visible) {
  return visible >= 12 && (is(data, "RIFF") || is(data, "RF64") || is(data, "BW64")) && is(data + 8, "WAVE");
}

std::optional<RiffContainer> readRiffHead(ByteWindow &window, KeptChunks *keep) {
  RiffContainer riff;
  window.fill(12);
  const bool is64 = !is(window.data(), "RIFF");
  std::optional<uint64_t> dataBytes64;
  uint64_t samples64 = 0;
  window.consume(12);
  while (window.fill(kChunkHeaderBytes) >= kChunkHeaderBytes) {
    const uint8_t *const header = window.data();
    const uint64_t bytes = getLe32(header + 4);
    if (is(header, "data")) {
      window.consume(kChunkHeaderBytes);
      riff.dataOffset = window.offset();
      if (is64 && bytes == kIn64Bits)
        riff.dataBytes = dataBytes64;
      else if (!isUnknown(bytes))
        riff.dataBytes = bytes;
      if (!riff.factSamples && samples64 > 0) riff.factSamples = samples64;
      return riff;
    }
    const size_t sight = kChunkHeaderBytes + static_cast<size_t>(std::min<uint64_t>(bytes, kFormatBytes));
    const size_t seen = window.fill(sight);
    const uint8_t *const chunk = window.data();
    const uint8_t *const content = chunk + kChunkHeaderBytes;
    if (seen < sight) return std::nullopt;
    if (is(chunk, "fmt ") && bytes >= 16) {
      riff.formatTag = getLe16(content);
      if (riff.formatTag == kExtensible && bytes >= kFormatBytes) riff.formatTag = getLe16(content + 24);
    } else if (is(chunk, "fact") && bytes >= 4) {
      if (getLe32(content) != kIn64Bits) riff.factSamples = getLe32(content);
    } else if (is(chunk, "ds64") && bytes >= 24) {
      dataBytes64 = getLe64(content + 8);
      samples64 = getLe64(content + 16);
    }
    if (passChunk(window, keep, KeptChunks::Side::beforeData) < kChunkHeaderBytes + padded(bytes)) return std::nullopt;
  }
  return std::nullopt;
}

void keepChunks(ByteSource &source, KeptChunks &keep) {
  ByteWindow window(source);
  const std::optional<RiffContainer> riff = readRiffHead(window, &keep);
  if (!riff || !riff->dataBytes) return;
  window.skip(padded(*riff->dataBytes));
  while (window.fill(kChunkHeaderBytes) >= kChunkHeaderBytes && chunkBytesAt(window.data(), window.visible()) > 0)
    keep.take(window, KeptChunks::Side::behindData);
}

uint64_t chunkBytesAt(const uint8_t *data, size_t visible) {
  if (visible < kChunkHeaderBytes) return 0;
  for (size_t i = 0; i < 4; ++i)
    if (data[i] < 0x20 || data[i] > 0x7E) return 0;
  return kChunkHeaderBytes + padded(getLe32(data + 4));
}

}  // namespace qav::tool
