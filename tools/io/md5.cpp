#include "tools/io/md5.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>

#include "tools/io/little_endian.h"

namespace qav::tool {

namespace {

// floor(2^32 * |sin(i + 1)|)
const std::array<uint32_t, 64> kSines = [] {
  std::array<uint32_t, 64> table{};
  for (size_t i = 0; i < 64; ++i)
    table[i] = static_cast<uint32_t>(std::floor(4294967296.0 * std::fabs(std::sin(static_cast<double>(i + 1)))));
  return table;
}();

constexpr int kShifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

}  // namespace

void Md5::addBlock(const uint8_t *block) {
  uint32_t words[16];
  for (size_t i = 0; i < 16; ++i) words[i] = getLe32(block + 4 * i);
  uint32_t a = state_[0], b = state_[1], c = state_[2], d = state_[3];
  for (uint32_t i = 0; i < 64; ++i) {
    uint32_t mix = 0, word = 0;
    switch (i / 16) {
      case 0: mix = (b & c) | (~b & d), word = i; break;
      case 1: mix = (d & b) | (~d & c), word = (5 * i + 1) % 16; break;
      case 2: mix = b ^ c ^ d, word = (3 * i + 5) % 16; break;
      default: mix = c ^ (b | ~d), word = 7 * i % 16; break;
    }
    const uint32_t next = b + std::rotl(a + mix + kSines[i] + words[word], kShifts[i / 16][i % 4]);
    a = d;
    d = c;
    c = b;
    b = next;
  }
  state_[0] += a;
  state_[1] += b;
  state_[2] += c;
  state_[3] += d;
}

void Md5::add(const void *data, size_t bytes) {
  auto from = static_cast<const uint8_t *>(data);
  size_t held = bytes_ % 64;
  bytes_ += bytes;
  if (held > 0) {
    const size_t n = std::min(bytes, 64 - held);
    std::memcpy(partial_ + held, from, n);
    from += n;
    bytes -= n;
    held += n;
    if (held < 64) return;
    addBlock(partial_);
  }
  for (; bytes >= 64; from += 64, bytes -= 64) addBlock(from);
  if (bytes > 0) std::memcpy(partial_, from, bytes);
}

std::string Md5::hexDigest() {
  uint8_t tail[72] = {0x80};
  const uint64_t bits = bytes_ * 8;
  const size_t padding = (bytes_ % 64 < 56 ? 56 : 120) - bytes_ % 64;
  putLe(tail + padding, bits, 8);
  add(tail, padding + 8);
  std::string text;
  for (const uint32_t word : state_)
    for (int shift = 0; shift < 32; shift += 8) text += fmt::format("{:02x}", word >> shift & 0xFF);
  return text;
}

}  // namespace qav::tool
