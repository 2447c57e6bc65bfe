#include "tools/stream/check_word.h"

namespace qav::tool {

namespace {

// Bits of the side information; the longest there is ends within the 128 bytes behind the check word, and what lies
// behind a shorter frame reads as 0.
class BitReader {
 public:
  BitReader(const uint8_t *data, uint32_t bytes) : data_(data), bits_(bytes * 8) {}

  uint32_t read(uint32_t count) {
    uint32_t value = 0;
    for (uint32_t i = 0; i < count; ++i, ++at_)
      value = value << 1 | (at_ < bits_ ? data_[at_ / 8] >> (7 - at_ % 8) & 1u : 0u);
    return value;
  }

 private:
  const uint8_t *data_;
  uint32_t bits_;
  uint32_t at_ = 0;
};

FrameParams paramsOf(const uint8_t *frame, const FrameHeader &header) {
  FrameParams fp{};
  fp.id = header.version == 1 ? 1 : 0;
  fp.layer = static_cast<int32_t>(header.layer);
  fp.protection = 1;
  fp.bitrateIndex = frame[2] >> 4;
  fp.samplingIndex = frame[2] >> 2 & 3;
  fp.padding = header.padding ? 1 : 0;
  fp.privateBit = header.privateBit ? 1 : 0;
  fp.mode = static_cast<int32_t>(header.mode);
  fp.modeExt = static_cast<int32_t>(header.modeExt);
  fp.copyright = header.copyright ? 1 : 0;
  fp.original = header.original ? 1 : 0;
  fp.emphasis = static_cast<int32_t>(header.emphasis);
  fp.channels = static_cast<int32_t>(header.channels);
  fp.freqHz = static_cast<int32_t>(header.freqHz);
  fp.kbps = static_cast<int32_t>(header.kbps);
  neb_hdr_to_frps(&fp);
  return fp;
}

// The allocation of every channel; from `jsbound` on the channels share it.
void readAllocation(BitReader &bits, const FrameParams &fp, uint32_t allocation[2][32]) {
  for (int32_t sb = 0; sb < fp.sblimit; ++sb) {
    const uint32_t width = fp.layer == 1 ? 4 : fp.allocTable[sb][0].bits;
    for (int32_t ch = 0; ch < fp.channels; ++ch)
      allocation[ch][sb] = sb < fp.jsbound || ch == 0 ? bits.read(width) : allocation[0][sb];
  }
}

}  // namespace

Check verifyCheckWord(const uint8_t *frame, const FrameHeader &header) {
  if (!header.hasCheck) return Check::none;
  const FrameParams fp = paramsOf(frame, header);
  BitReader bits(frame + kHeaderBytes, header.frameBytes - kHeaderBytes);
  const uint32_t stored = bits.read(16);
  uint32_t allocation[2][32] = {};
  uint32_t computed = 0;
  readAllocation(bits, fp, allocation);
  if (fp.layer == 1) {
    neb_I_CRC_calc(&fp, allocation, &computed);
  } else {
    uint32_t scfsi[2][32] = {};
    for (int32_t sb = 0; sb < fp.sblimit; ++sb)
      for (int32_t ch = 0; ch < fp.channels; ++ch)
        if (allocation[ch][sb] != 0) scfsi[ch][sb] = bits.read(2);
    neb_II_CRC_calc(&fp, allocation, scfsi, &computed);
  }
  return stored == computed ? Check::good : Check::bad;
}

}  // namespace qav::tool
