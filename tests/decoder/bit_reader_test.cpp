#include "decoder/bit_reader.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "tests/decoder/reference_decoder.h"

namespace qav::test {
namespace {

TEST(BitReader, MostSignificantFirst) {
  const uint8_t bytes[] = {0xA5, 0x0F, 0xFF, 0x12};
  BitReader bits(bytes, sizeof bytes);
  EXPECT_EQ(bits.getbits(1), 1u);
  EXPECT_EQ(bits.getbits(3), 2u);
  EXPECT_EQ(bits.getbits(12), 0x50Fu);
  EXPECT_EQ(bits.getbits(16), 0xFF12u);
  EXPECT_EQ(bits.position(), 32u);
  EXPECT_FALSE(bits.ranOut());
}

TEST(BitReader, ReadThatBeginsInTheLastByteIsCompletedWithZeros) {
  const uint8_t bytes[] = {0x12, 0x34};
  BitReader bits(bytes, sizeof bytes);
  bits.getbits(12);
  EXPECT_EQ(bits.getbits(16), 0x4000u);
  EXPECT_FALSE(bits.ranOut());
  EXPECT_EQ(bits.getbits(1), 0u);
  EXPECT_TRUE(bits.ranOut());
}

TEST(BitReader, ReadOfNoBitsAsksForAByteToo) {
  const uint8_t bytes[] = {0xFF};
  BitReader bits(bytes, sizeof bytes);
  EXPECT_EQ(bits.getbits(0), 0u);
  EXPECT_FALSE(bits.ranOut());
  EXPECT_EQ(bits.getbits(8), 0xFFu);
  EXPECT_FALSE(bits.ranOut());
  EXPECT_EQ(bits.getbits(0), 0u);
  EXPECT_TRUE(bits.ranOut());
}

TEST(BitReader, NothingAtAll) {
  BitReader bits(nullptr, 0);
  EXPECT_EQ(bits.getbits(16), 0u);
  EXPECT_TRUE(bits.ranOut());
}

TEST(BitReader, LongestPayloadIsNotReadBeyondWhatFramesCanHold) {
  const std::unique_ptr<uint8_t[]> bytes(new uint8_t[100000]());
  BitReader bits(bytes.get(), 100000);
  bits.announce(kMaxSideInfoBits + kMaxSampleBits);
  EXPECT_TRUE(bits.hasByteAt(799999));
  EXPECT_FALSE(bits.hasByteAt(800000));
  BitReader longest(bytes.get(), 100);
  EXPECT_FALSE(longest.hasByteAt(800));
}

TEST(BitReader, RandomReadsAgainstBitByBit) {
  const unsigned seed = 4711;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int round = 0; round < 500; ++round) {
    std::vector<uint8_t> bytes(random() % 180);
    for (uint8_t &b : bytes) b = uint8_t(random());
    BitReader bits(bytes.data(), uint32_t(bytes.size()));
    ReferenceBits reference(bytes);
    while (bits.position() < kMaxSideInfoBits - 32) {
      const uint32_t at = bits.position(), n = uint32_t(random() % 17);
      uint32_t expected = 0;
      bool ranOut = false;
      try {
        expected = reference.read(n);
      } catch (const ReferenceBits::RanOut &) {
        ranOut = true;
      }
      const uint64_t ahead = bits.wordAt(at);
      ASSERT_EQ(bits.getbits(n), expected);
      ASSERT_EQ(ahead >> 1 >> (63 - n), expected);
      ASSERT_EQ(bits.ranOut(), ranOut);
      ASSERT_EQ(bits.hasByteAt(at), !ranOut);
      if (ranOut) break;
    }
  }
}

}  // namespace
}  // namespace qav::test
