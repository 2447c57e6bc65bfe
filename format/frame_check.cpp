#include "format/frame_check.h"

namespace {

// The register, fed with fields of a few bits, most significant bit first.
class CheckRegister {
 public:
  void feed(uint32_t field, uint32_t width) {
    while (width-- > 0) {
      const uint32_t carry = (reg >> 15) & 1;
      const uint32_t bit = (field >> width) & 1;
      reg = (reg << 1) & 0xFFFF;
      if (carry != bit) reg ^= 0x8005;
    }
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

  uint32_t value() const { return reg; }

 private:
  uint32_t reg = 0xFFFF;
};

// The channels whose allocation is coded on its own in subband `sb`.
int32_t codedChannels(const FrameParams &fp, int32_t sb) {
  const int32_t channels = fp.channels < 2 ? fp.channels : 2;
  return sb < fp.jsbound || channels < 1 ? channels : 1;
}

}  // namespace

extern "C" void neb_I_CRC_calc(const FrameParams *fp, const uint32_t allocation[2][32], uint32_t *crc) {
  CheckRegister check;
  check.feedHeader(*fp);
  for (int32_t sb = 0; sb < 32; ++sb)
    for (int32_t ch = 0; ch < codedChannels(*fp, sb); ++ch) check.feed(allocation[ch][sb], 4);
  *crc = check.value();
}

extern "C" void neb_II_CRC_calc(const FrameParams *fp, const uint32_t allocation[2][32], const uint32_t scfsi[2][32],
                                uint32_t *crc) {
  const int32_t channels = fp->channels < 2 ? fp->channels : 2;
  const int32_t sblimit = fp->sblimit < 32 ? fp->sblimit : 32;

  CheckRegister check;
  check.feedHeader(*fp);
  for (int32_t sb = 0; sb < sblimit; ++sb)
    for (int32_t ch = 0; ch < codedChannels(*fp, sb); ++ch) check.feed(allocation[ch][sb], fp->allocTable[sb][0].bits);
  for (int32_t sb = 0; sb < sblimit; ++sb)
    for (int32_t ch = 0; ch < channels; ++ch)
      if (allocation[ch][sb] != 0) check.feed(scfsi[ch][sb], 2);
  *crc = check.value();
}
