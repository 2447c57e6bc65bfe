// Streams made of headers and filler, for tests that are about where things stand and not about how they sound.
#pragma once

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>

#include "tools/io/byte_source.h"

namespace qav::tool {

using Bytes = std::string;

// What the header of a synthetic frame says.
struct FrameSpec {
  int version = 1;
  int layer = 2;
  int bitrateIndex = 8;   // Layer II of MPEG-1: 128 kbit/s
  int samplingIndex = 0;  // MPEG-1: 44100 Hz
  int padding = 0;
  int mode = 0;
  int emphasis = 0;
};

inline Bytes headerBytes(const FrameSpec &s) {
  Bytes h(4, '\0');
  h[0] = '\xFF';
  h[1] = static_cast<char>(0xF1 | (s.version == 1 ? 8 : 0) | (4 - s.layer) << 1);
  h[2] = static_cast<char>(s.bitrateIndex << 4 | s.samplingIndex << 2 | s.padding << 1);
  h[3] = static_cast<char>(s.mode << 6 | s.emphasis);
  return h;
}

// Bytes that can be neither header nor tag.
inline Bytes filler(size_t bytes, int seed = 0) {
  Bytes all(bytes, '\0');
  for (size_t i = 0; i < bytes; ++i) all[i] = static_cast<char>(0x10 + (i * 7 + static_cast<size_t>(seed)) % 0x23);
  return all;
}

// The length is given, not computed: it is what the walker is to find out.
inline Bytes frameBytes(const FrameSpec &spec, size_t length) { return headerBytes(spec) + filler(length - 4); }

// 128 kbit/s at 44100 Hz: 417 bytes, 418 with padding.
inline Bytes plainFrame(int padding = 0) {
  FrameSpec spec;
  spec.padding = padding;
  return frameBytes(spec, 417 + static_cast<size_t>(padding));
}

inline Bytes plainFrames(int count) {
  Bytes all;
  for (int i = 0; i < count; ++i) all += plainFrame(i % 25 != 0 ? 1 : 0);
  return all;
}

inline Bytes id3v1() { return "TAG" + Bytes(125, ' '); }

inline Bytes id3v2(size_t content, char fill = '\0') {
  Bytes tag = Bytes("ID3\4\0\0", 6);
  for (const int shift : {21, 14, 7, 0}) tag += static_cast<char>(content >> shift & 0x7F);
  return tag + Bytes(content, fill);
}

// `bytes` of items, and a footer; with a header before them or not.
inline Bytes ape(size_t items, bool withHeader) {
  const auto block = [&](unsigned flags) {
    Bytes b = "APETAGEX";
    for (const size_t word : {size_t{2000}, items + 32, size_t{1}, size_t{flags}})
      for (int i = 0; i < 4; ++i) b += static_cast<char>(word >> (8 * i) & 0xFF);
    return b + Bytes(8, '\0');
  };
  const unsigned hasHeader = withHeader ? 0x80000000u : 0;
  return (withHeader ? block(hasHeader | 0x20000000u) : Bytes()) + filler(items) + block(hasHeader);
}

inline Bytes le(uint64_t value, int bytes) {
  Bytes all;
  for (int i = 0; i < bytes; ++i) all += static_cast<char>(value >> (8 * i) & 0xFF);
  return all;
}

inline Bytes chunk(const Bytes &id, const Bytes &content) {
  return id + le(content.size(), 4) + content + Bytes(content.size() & 1, '\0');
}

inline Bytes formatChunk(uint64_t tag) { return chunk("fmt ", le(tag, 2) + Bytes(20, '\0')); }

inline Bytes riff(const Bytes &chunks) { return "RIFF" + le(chunks.size() + 4, 4) + "WAVE" + chunks; }

// A source that hands out its bytes in pieces of its own choosing.
class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(
      Bytes bytes, std::function<size_t()> pieceBytes = [] { return SIZE_MAX; })
      : bytes_(std::move(bytes)), pieceBytes_(std::move(pieceBytes)) {}

  size_t read(uint8_t *to, size_t bytes) override {
    const size_t n = std::min({bytes, bytes_.size() - at_, pieceBytes_()});
    std::memcpy(to, bytes_.data() + at_, n);
    at_ += n;
    return n;
  }

 private:
  Bytes bytes_;
  std::function<size_t()> pieceBytes_;
  size_t at_ = 0;
};

}  // namespace qav::tool
