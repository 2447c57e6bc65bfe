// Numbers as RIFF and APE tags store them: least significant byte first.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qav::tool {

inline void putLe(uint8_t *to, uint64_t value, size_t bytes) {
  for (size_t i = 0; i < bytes; ++i) to[i] = static_cast<uint8_t>(value >> (8 * i));
}

inline uint64_t getLe(const uint8_t *from, size_t bytes) {
  uint64_t value = 0;
  for (size_t i = 0; i < bytes; ++i) value |= uint64_t{from[i]} << (8 * i);
  return value;
}

inline uint16_t getLe16(const uint8_t *from) { return static_cast<uint16_t>(getLe(from, 2)); }
inline uint32_t getLe32(const uint8_t *from) { return static_cast<uint32_t>(getLe(from, 4)); }
inline uint64_t getLe64(const uint8_t *from) { return getLe(from, 8); }

}  // namespace qav::tool
