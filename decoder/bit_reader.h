// The bits of one frame, most significant first.
//
// They are copied out of the caller's memory, and zeros put behind them, so that every read is one wide load that needs
// no guard: all that a frame's side information and samples can ask for lies inside the copy. Whether the frame had the
// bits is asked afterwards: it ran out when a read began beyond its last byte. A read that begins inside and goes on
// beyond is completed with zeros.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace qav {

// The most bits that are read of one frame: check word; allocation (4 bits), selection (2) and scale factors (3 of 6)
// of 32 subbands of 2 channels; their samples, 36 of 16 bits. No stream has as many, but a damaged one may ask for them.
inline constexpr uint32_t kMaxSideInfoBits = 16 + 2 * 32 * (4 + 2 + 3 * 6);
inline constexpr uint32_t kMaxSampleBits = 2 * 32 * 36 * 16;

class BitReader {
 public:
  BitReader(const uint8_t *payload, uint32_t payloadLen) : endBit(uint64_t(payloadLen) * 8) {
    filled = payloadLen < kCapacity ? payloadLen : kCapacity;
    if (filled > 0) std::memcpy(bytes, payload, filled);
    zeroUpTo(kMaxSideInfoBits);
  }

  // A place in the frame, from which a run of fields is read. A run is to have its place in a local variable, so that
  // the compiler can keep it in registers.
  struct Place {
    uint32_t bit = 0;
    uint32_t lastRead = 0;  // where the last read began
  };

  // The next n bits, 0 <= n <= 32.
  uint32_t getbits(Place &place, uint32_t n) const {
    const uint64_t word = wordAt(place.bit);
    place.lastRead = place.bit;
    place.bit += n;
    return uint32_t(word >> 1 >> (63 - n));
  }

  // The 57 bits or more from bit `at` on, first bit on top. `at` lies in the side information, or was announced.
  uint64_t wordAt(uint32_t at) const {
    uint64_t word;
    std::memcpy(&word, bytes + at / 8, sizeof word);
    if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap64(word);
    return word << (at % 8);
  }

  // Makes wordAt() good up to bit `end`, not more than kMaxSideInfoBits + kMaxSampleBits.
  void announce(uint32_t end) { zeroUpTo(end); }

  // Where a read begins, the frame must still have a byte.
  bool hasByteAt(uint32_t at) const { return at < endBit; }

 private:
  static constexpr uint32_t kCapacity = (kMaxSideInfoBits + kMaxSampleBits + 7) / 8;
  static constexpr uint32_t kWordBytes = sizeof(uint64_t);

  void zeroUpTo(uint32_t end) {
    const uint32_t wanted = end / 8 + kWordBytes;
    if (wanted <= filled) return;
    std::memset(bytes + filled, 0, wanted - filled);
    filled = wanted;
  }

  uint64_t endBit;
  uint32_t filled;  // bytes that hold payload or zeros
  uint8_t bytes[kCapacity + kWordBytes];
};

}  // namespace qav
