#include "encoder/formatting.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "encoder/sample_encoding.h"
#include "format/alloc_tables.h"
#include "tests/support/random.h"

namespace qav {
namespace {

FrameParams frameOf(int32_t channels, int table, int32_t sblimit) {
  FrameParams frame = {};
  frame.channels = channels;
  frame.allocTable = allocTables[table];
  frame.sblimit = sblimit;
  return frame;
}

TEST(Header, HoldsTheLowBitsOfEveryField) {
  FrameParams frame = {};
  frame.id = 1;
  frame.layer = 2;
  frame.protection = 1;
  frame.bitrateIndex = 10;
  frame.padding = 1;
  frame.original = 1;
  uint8_t bytes[8] = {};
  BitWriter writer = {bytes, 0};
  writeHeader(frame, writer);
  EXPECT_EQ(writer.position, 32u);
  EXPECT_EQ(std::memcmp(bytes, "\xFF\xFC\xA2\x04", 4), 0);

  frame.protection = 0;
  frame.mode = 3;
  frame.emphasis = 7;  // options are taken unchecked
  frame.copyright = 2;
  std::memset(bytes, 0, sizeof bytes);
  writer.position = 0;
  writeHeader(frame, writer);
  EXPECT_EQ(std::memcmp(bytes, "\xFF\xFD\xA2\xC7", 4), 0);
}

TEST(EncodeBitAlloc, WritesSubbandBySubband) {
  uint32_t allocation[2][32] = {};
  allocation[0][0] = 9;
  allocation[1][0] = 10;
  allocation[0][7] = 5;
  uint8_t bytes[16] = {};
  BitWriter writer = {bytes, 0};
  II_encode_bit_alloc(allocation, frameOf(2, 2, 8), writer);
  EXPECT_EQ(writer.position, 2u * (2 * 4 + 6 * 3));
  EXPECT_EQ(bytes[0], 0x9A);
  EXPECT_EQ(bytes[5] & 3, 2);  // the field 101 of the last subband: bits 46 to 48
  EXPECT_EQ(bytes[6], 0x80);
}

class SampleEncoding : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override {
    if (GetParam() > detectCpuLevel()) GTEST_SKIP() << "this CPU is below " << cpuLevelName(GetParam());
  }
};

TEST_P(SampleEncoding, AGranuleOfThreeLevels) {
  uint32_t allocation[2][32] = {};
  QuantizedFrame quantized[2] = {};
  allocation[0][0] = 1;
  for (uint32_t g = 0; g < kGranules; ++g)
    for (uint32_t i = 0; i < 3; ++i) quantized[0][0][samplePlace(3 * g + i)] = i;
  uint8_t bytes[32] = {};
  BitWriter writer = {bytes, 0};
  sampleEncodingFor(GetParam())(quantized, allocation, frameOf(1, 1, 30), writer);
  EXPECT_EQ(writer.position, 12u * 5);
  EXPECT_EQ(bytes[0] >> 3, 21);
}

// The order and the widths of the fields, one putbits each.
void encodePlainly(const QuantizedFrame quantized[2], const uint32_t allocation[2][32], const FrameParams &frame,
                   BitWriter &writer) {
  for (uint32_t granule = 0; granule < 12; ++granule)
    for (int32_t sb = 0; sb < frame.sblimit; ++sb)
      for (int32_t ch = 0; ch < frame.channels; ++ch) {
        if (allocation[ch][sb] == 0) continue;
        const AllocEntry &e = frame.allocTable[sb][allocation[ch][sb]];
        uint32_t q[3];
        for (uint32_t i = 0; i < 3; ++i) q[i] = quantized[ch][sb][samplePlace(3 * granule + i)];
        if (e.group == 3)
          for (int i = 0; i < 3; ++i) putbits(writer, q[i], e.bits);
        else
          putbits(writer, q[0] + e.steps * q[1] + e.steps * e.steps * q[2], e.bits);
      }
}

TEST_P(SampleEncoding, RandomFramesAgainstTheFields) {
  constexpr unsigned kSeed = 51;
  test::Random random(kSeed);
  const int32_t limits[4] = {27, 30, 8, 12};
  for (int round = 0; round < 2000; ++round) {
    const int table = int(random() % 4);
    const FrameParams frame = frameOf(1 + int32_t(random() % 2), table, limits[table]);
    uint32_t allocation[2][32] = {};
    QuantizedFrame quantized[2];
    const uint32_t sparse = 1 + random() % 8;
    for (int ch = 0; ch < 2; ++ch)
      for (int sb = 0; sb < 32; ++sb) {
        if (sb < frame.sblimit && random() % sparse == 0)
          allocation[ch][sb] = random() % (1u << frame.allocTable[sb][0].bits);
        // Codes one past the largest occur; of negative ones the low bits count.
        for (uint32_t &q : quantized[ch][sb]) q = random() % 16 == 0 ? random() : random() % 65537;
      }
    // Where a frame may begin, and after a header of any length.
    const size_t begin = 64 + random() % 64;
    std::vector<uint8_t> memory(8200, 0x5A), expected(8000, 0x5A);
    memory[begin] = expected[0] = 0;
    const auto bytes = memory.begin() + ptrdiff_t(begin);
    BitWriter writer = {&*bytes, 0}, reference = {expected.data(), 0};
    putbits(writer, 0x155, uint32_t(round) % 33);
    putbits(reference, 0x155, uint32_t(round) % 33);
    sampleEncodingFor(GetParam())(quantized, allocation, frame, writer);
    encodePlainly(quantized, allocation, frame, reference);
    ASSERT_EQ(writer.position, reference.position) << "seed " << kSeed << ", round " << round;
    const size_t whole = writer.position / 8 + 1;  // the byte in which the next field begins included
    ASSERT_EQ(std::memcmp(&*bytes, expected.data(), whole), 0) << "seed " << kSeed << ", round " << round;
    const auto isUntouched = [](uint8_t byte) { return byte == 0x5A; };
    ASSERT_TRUE(std::all_of(memory.begin(), bytes, isUntouched)) << "seed " << kSeed;
    ASSERT_TRUE(std::all_of(bytes + ptrdiff_t(whole + 3), memory.end(), isUntouched)) << "seed " << kSeed;
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, SampleEncoding, testing::ValuesIn(kCpuLevels),
                         [](const testing::TestParamInfo<CpuLevel> &level) { return cpuLevelName(level.param); });

TEST(Stuffing, IsWrittenWhenPositiveOnly) {
  for (int32_t bits = -40; bits < 200; ++bits)
    for (uint32_t start = 0; start < 8; ++start) {
      std::vector<uint8_t> bytes(64, 0x5A);
      bytes[0] = 0;
      BitWriter writer = {bytes.data(), 0};
      putbits(writer, 0xFF, start);
      const uint8_t first = bytes[0];
      writeStuffing(bits, writer);
      ASSERT_EQ(writer.position, start + uint32_t(std::max(bits, 0)));
      ASSERT_EQ(bytes[0], first);
      for (size_t i = 1; i <= writer.position / 8; ++i) ASSERT_EQ(bytes[i], 0);
      for (size_t i = writer.position / 8 + 4; i < bytes.size(); ++i) ASSERT_EQ(bytes[i], 0x5A);
    }
}

}  // namespace
}  // namespace qav
