#include "format/frame_check.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "format/frame_header.h"

namespace qav {
namespace {

// The protected bits as they stand in a frame, written out one by one as '0' and '1'.
class BitString {
 public:
  void add(uint32_t field, int width) {
    for (int bit = width - 1; bit >= 0; --bit) bits += char('0' + ((field >> bit) & 1));
  }

  void addHeader(const FrameParams &fp) {
    add(uint32_t(fp.bitrateIndex), 4);
    add(uint32_t(fp.samplingIndex), 2);
    add(uint32_t(fp.padding), 1);
    add(uint32_t(fp.privateBit), 1);
    add(uint32_t(fp.mode), 2);
    add(uint32_t(fp.modeExt), 2);
    add(uint32_t(fp.copyright), 1);
    add(uint32_t(fp.original), 1);
    add(uint32_t(fp.emphasis), 2);
  }

  // Polynomial long division of the bits, the first 16 of them inverted, by x^16 + x^15 + x^2 + 1.
  uint32_t remainder() const {
    std::string dividend = bits + std::string(16, '0');
    for (size_t i = 0; i < 16; ++i) dividend[i] ^= 1;
    const std::string divisor = "11000000000000101";
    for (size_t i = 0; i + 16 < dividend.size(); ++i)
      if (dividend[i] == '1')
        for (size_t j = 0; j < 17; ++j) dividend[i + j] = dividend[i + j] == divisor[j] ? '0' : '1';
    return uint32_t(std::stoul(dividend.substr(dividend.size() - 16), nullptr, 2));
  }

  std::string bits;
};

struct SideInfo {
  uint32_t allocation[2][32] = {};
  uint32_t scfsi[2][32] = {};
};

TEST(FrameCheck, AllZeroFieldsLeaveTheRegisterFedWithZeros) {
  FrameParams fp{};
  fp.channels = 2;
  fp.jsbound = 32;
  const SideInfo side;
  uint32_t crc = 0xDEADBEEF;
  neb_I_CRC_calc(&fp, side.allocation, &crc);
  BitString expected;
  expected.bits.assign(16 + 4 * 64, '0');
  EXPECT_EQ(crc, expected.remainder());

  fp.sblimit = 0;
  neb_II_CRC_calc(&fp, side.allocation, side.scfsi, &crc);
  expected.bits.assign(16, '0');
  EXPECT_EQ(crc, expected.remainder());
}

TEST(FrameCheck, NoChannelsLeaveTheHeaderAlone) {
  FrameParams fp{};
  fp.layer = 2;
  fp.sblimit = 30;
  SideInfo side;
  side.allocation[0][0] = 5;
  uint32_t layer1 = 0, layer2 = 0;
  neb_I_CRC_calc(&fp, side.allocation, &layer1);
  neb_II_CRC_calc(&fp, side.allocation, side.scfsi, &layer2);
  BitString expected;
  expected.bits.assign(16, '0');
  EXPECT_EQ(layer1, expected.remainder());
  EXPECT_EQ(layer2, expected.remainder());
}

TEST(FrameCheck, RandomFramesAgainstLongDivision) {
  const unsigned seed = 1993;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int round = 0; round < 2000; ++round) {
    const uint8_t header[4] = {0xFF, uint8_t(0xF4 | (random() & 8) | (random() & 2)),
                               uint8_t((1 + random() % 14) << 4 | (random() % 3) << 2 | (random() & 3)),
                               uint8_t(random())};
    FrameParams fp{};
    ASSERT_GT(parseFrameHeader(header, fp), 0);
    SideInfo side;
    for (int sb = 0; sb < 32; ++sb)
      for (int ch = 0; ch < 2; ++ch) {
        const bool joint = ch == 1 && sb >= fp.jsbound;
        side.allocation[ch][sb] = joint ? side.allocation[0][sb] : random() % 16;
        side.scfsi[ch][sb] = random() % 4;
      }

    BitString expected;
    expected.addHeader(fp);
    uint32_t crc = ~0u;
    if (fp.layer == 1) {
      for (int sb = 0; sb < 32; ++sb)
        for (int ch = 0; ch < (sb < fp.jsbound ? fp.channels : 1); ++ch) expected.add(side.allocation[ch][sb], 4);
      neb_I_CRC_calc(&fp, side.allocation, &crc);
    } else {
      for (int sb = 0; sb < fp.sblimit; ++sb)
        for (int ch = 0; ch < (sb < fp.jsbound ? fp.channels : 1); ++ch)
          expected.add(side.allocation[ch][sb], fp.allocTable[sb][0].bits);
      for (int sb = 0; sb < fp.sblimit; ++sb)
        for (int ch = 0; ch < fp.channels; ++ch)
          if (side.allocation[ch][sb] != 0) expected.add(side.scfsi[ch][sb], 2);
      neb_II_CRC_calc(&fp, side.allocation, side.scfsi, &crc);
    }
    ASSERT_EQ(crc, expected.remainder()) << "round " << round;
  }
}

}  // namespace
}  // namespace qav
