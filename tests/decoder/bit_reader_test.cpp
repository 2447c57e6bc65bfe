#include "decoder/bit_reader.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "tests/decoder/reference_decoder.h"

namespace qav::test {
namespace {

bool ranOut(const BitReader &bits, const BitReader::Place &at) { return !bits.hasByteAt(at.lastRead); }

TEST(BitReader, MostSignificantFirst) {
  const uint8_t bytes[] = {0xA5, 0x0F, 0xFF, 0x12};
  BitReader bits(bytes, sizeof bytes);
  BitReader::Place at;
  EXPECT_EQ(bits.getbits(at, 1), 1u);
  EXPECT_EQ(bits.getbits(at, 3), 2u);
  EXPECT_EQ(bits.getbits(at, 12), 0x50Fu);
  EXPECT_EQ(bits.getbits(at, 16), 0xFF12u);
  EXPECT_EQ(at.bit, 32u);
  EXPECT_FALSE(ranOut(bits, at));
}

TEST(BitReader, ReadThatBeginsInTheLastByteIsCompletedWithZeros) {
  const uint8_t bytes[] = {0x12, 0x34};
  BitReader bits(bytes, sizeof bytes);
  BitReader::Place at;
  bits.getbits(at, 12);
  EXPECT_EQ(bits.getbits(at, 16), 0x4000u);
  EXPECT_FALSE(ranOut(bits, at));
  EXPECT_EQ(bits.getbits(at, 1), 0u);
  EXPECT_TRUE(ranOut(bits, at));
}

TEST(BitReader, ReadOfNoBitsAsksForAByteToo) {
  const uint8_t bytes[] = {0xFF};
  BitReader bits(bytes, sizeof bytes);
  BitReader::Place at;
  EXPECT_EQ(bits.getbits(at, 0), 0u);
  EXPECT_FALSE(ranOut(bits, at));
  EXPECT_EQ(bits.getbits(at, 8), 0xFFu);
  EXPECT_FALSE(ranOut(bits, at));
  EXPECT_EQ(bits.getbits(at, 0), 0u);
  EXPECT_TRUE(ranOut(bits, at));
}

TEST(BitReader, NothingAtAll) {
  BitReader bits(nullptr, 0);
  BitReader::Place at;
  EXPECT_EQ(bits.getbits(at, 16), 0u);
  EXPECT_TRUE(ranOut(bits, at));
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
    BitReader::Place at;
    ReferenceBits reference(bytes);
    while (at.bit < kMaxSideInfoBits - 32) {
      const uint32_t begin = at.bit, n = uint32_t(random() % 17);
      uint32_t expected = 0;
      bool end = false;
      try {
        expected = reference.read(n);
      } catch (const ReferenceBits::RanOut &) {
        end = true;
      }
      const uint64_t ahead = bits.wordAt(begin);
      ASSERT_EQ(bits.getbits(at, n), expected);
      ASSERT_EQ(ahead >> 1 >> (63 - n), expected);
      ASSERT_EQ(ranOut(bits, at), end);
      ASSERT_EQ(bits.hasByteAt(begin), !end);
      if (end) break;
    }
  }
}

}  // namespace
}  // namespace qav::test
