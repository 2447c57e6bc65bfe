#include "format/frame_check.h"

namespace {

constexpr uint32_t kPolynomial = 0x8005;

// What the value v of the register's upper byte comes to when 8 (k + 1) zero bits are shifted in behind it.
struct CheckTables {
  uint16_t after[4][256];

  constexpr CheckTables() : after() {
    for (uint32_t v = 0; v < 256; ++v) {
      uint32_t reg = v << 8;
      for (int k = 0; k < 4; ++k) {
        for (int bit = 0; bit < 8; ++bit) reg = (reg << 1 ^ ((reg & 0x8000) != 0 ? kPolynomial : 0)) & 0xFFFF;
        after[k][v] = uint16_t(reg);
      }
    }
  }
};

constexpr CheckTables tables;

// The register, fed with fields of a few bits, most significant bit first. Fields gather until there are 32 bits, so that
// the chain of dependent look-ups is short.
class CheckRegister {
 public:
  // `width` is at most 32.
  void feed(uint32_t field, uint32_t width) {
    pending = pending << width | (field & ((uint64_t(1) << width) - 1));
    count += width;
    if (count < 32) return;
    count -= 32;
    const uint32_t word = uint32_t(pending >> count) ^ reg << 16;
    reg = uint32_t(tables.after[3][word >> 24] ^ tables.after[2][word >> 16 & 0xFF] ^
                   tables.after[1][word >> 8 & 0xFF] ^ tables.after[0][word & 0xFF]);
  }

  // The 16 header bits behind the protection bit.
  void feedHeader(const FrameParams &fp) {
    feed(uint32_t(fp.bitrateIndex), 4);
    feed(uint32_t(fp.samplingIndex), 2);
    feed(uint32_t(fp.padding), 1);
    feed(uint32_t(fp.privateBit), 1);
    feed(uint32_t(fp.mode), 2);
    feed(uint32_t(fp.modeExt), 2);
    feed(uint32_t(fp.copyright), 1);
    feed(uint32_t(fp.original), 1);
    feed(uint32_t(fp.emphasis), 2);
  }

  uint32_t value() const {
    uint32_t result = reg;
    for (uint32_t left = count; left > 0;) {
      // The table serves fewer than 8 bits too: leading zeros change nothing.
      const uint32_t n = left < 8 ? left : 8;
      left -= n;
      const uint32_t bits = uint32_t(pending >> left) & ((1u << n) - 1);
      result = (result << n & 0xFFFF) ^ tables.after[0][result >> (16 - n) ^ bits];
    }
    return result;
  }

 private:
  uint32_t reg = 0xFFFF;
  uint64_t pending = 0;  // the last `count` bits of it were not yet taken
  uint32_t count = 0;    // below 32
};

// Feeds one field of a subband for each of `channels` channels.
void feedChannels(CheckRegister &check, const uint32_t (*fields)[32], int32_t sb, int32_t channels, uint32_t width) {
  const uint32_t mask = (1u << width) - 1;
  const uint32_t first = fields[0][sb] & mask;
  if (channels == 2) check.feed(first << width | (fields[1][sb] & mask), 2 * width);
  if (channels == 1) check.feed(first, width);
}

// The channels whose allocation is coded on its own in subband `sb`.
int32_t codedChannels(const FrameParams &fp, int32_t channels, int32_t sb) {
  return sb < fp.jsbound || channels < 1 ? channels : 1;
}

}  // namespace

extern "C" void neb_I_CRC_calc(const FrameParams *fp, const uint32_t allocation[2][32], uint32_t *crc) {
  const int32_t channels = fp->channels < 2 ? fp->channels : 2;

  CheckRegister check;
  check.feedHeader(*fp);
  for (int32_t sb = 0; sb < 32; ++sb) feedChannels(check, allocation, sb, codedChannels(*fp, channels, sb), 4);
  *crc = check.value();
}

extern "C" void neb_II_CRC_calc(const FrameParams *fp, const uint32_t allocation[2][32], const uint32_t scfsi[2][32],
                                uint32_t *crc) {
  const int32_t channels = fp->channels < 2 ? fp->channels : 2;
  // Without channels there may be no table either.
  const int32_t sblimit = channels < 1 ? 0 : fp->sblimit < 32 ? fp->sblimit : 32;

  CheckRegister check;
  check.feedHeader(*fp);
  for (int32_t sb = 0; sb < sblimit; ++sb)
    feedChannels(check, allocation, sb, codedChannels(*fp, channels, sb), fp->allocTable[sb][0].bits);
  for (int32_t sb = 0; sb < sblimit; ++sb)
    for (int32_t ch = 0; ch < channels; ++ch) check.feed(scfsi[ch][sb], allocation[ch][sb] != 0 ? 2 : 0);
  *crc = check.value();
}
