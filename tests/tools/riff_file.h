// RIFF files put together byte by byte, right or wrong as a test wants them.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace qav::tool {

inline std::string le(uint64_t value, size_t bytes) {
  std::string text;
  for (size_t i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i) & 0xFF);
  return text;
}

inline std::string be(uint64_t value, size_t bytes) {
  const std::string text = le(value, bytes);
  return {text.rbegin(), text.rend()};
}

inline std::string chunk(const std::string &id, const std::string &content) {
  return id + le(content.size(), 4) + content + (content.size() % 2 ? std::string(1, '\0') : "");
}

inline std::string formatChunk(unsigned tag, unsigned channels, uint32_t freqHz, unsigned bits) {
  const unsigned block = channels * ((bits + 7) / 8);
  return chunk("fmt ", le(tag, 2) + le(channels, 2) + le(freqHz, 4) + le(uint64_t{freqHz} * block, 4) + le(block, 2) +
                           le(bits, 2));
}

inline std::string riff(const std::string &chunks) { return "RIFF" + le(chunks.size() + 4, 4) + "WAVE" + chunks; }

// A WAV file whose header promises other lengths than it has.
inline std::string lyingWav(const std::string &format, uint32_t riffBytes, uint32_t dataBytes,
                            const std::string &content) {
  return "RIFF" + le(riffBytes, 4) + "WAVE" + format + "data" + le(dataBytes, 4) + content;
}

inline std::string samples16(const std::vector<int16_t> &samples) {
  std::string text;
  for (const int16_t sample : samples) text += le(static_cast<uint16_t>(sample), 2);
  return text;
}

inline std::string wav16(uint32_t freqHz, unsigned channels, const std::vector<int16_t> &samples) {
  return riff(formatChunk(1, channels, freqHz, 16) + chunk("data", samples16(samples)));
}

}  // namespace qav::tool
