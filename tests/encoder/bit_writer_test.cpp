#include "encoder/bit_writer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/random.h"

namespace qav {
namespace {

std::string bitsOf(const std::vector<uint8_t> &bytes, size_t count) {
  std::string bits;
  for (size_t i = 0; i < count; ++i) bits += (bytes[i / 8] >> (7 - i % 8) & 1) != 0 ? '1' : '0';
  return bits;
}

std::string bitsOf(uint32_t value, uint32_t n) {
  std::string bits;
  for (; n > 0; --n) bits += (value >> (n - 1) & 1) != 0 ? '1' : '0';
  return bits;
}

TEST(BitWriter, AppendsMostSignificantBitsFirst) {
  std::vector<uint8_t> bytes(8, 0xAA);
  bytes[0] = 0;
  BitWriter writer = {bytes.data(), 0};
  putbits(writer, 0xFFF, 12);
  EXPECT_EQ(writer.position, 12u);
  EXPECT_EQ(bytes[0], 0xFF);
  EXPECT_EQ(bytes[1], 0xF0);
  putbits(writer, 0xA, 4);
  EXPECT_EQ(bytes[0], 0xFF);
  EXPECT_EQ(bytes[1], 0xFA);
}

TEST(BitWriter, NoBitsWriteNothingButTheThreeBytesBehind) {
  std::vector<uint8_t> bytes(8, 0xAA);
  bytes[0] = 0xC0;
  BitWriter writer = {bytes.data(), 2};
  putbits(writer, 0xFFFFFFFF, 0);
  EXPECT_EQ(writer.position, 2u);
  EXPECT_EQ(bytes, (std::vector<uint8_t>{0xC0, 0, 0, 0, 0xAA, 0xAA, 0xAA, 0xAA}));
}

TEST(BitWriter, HigherBitsOfTheValueAreDropped) {
  std::vector<uint8_t> bytes(8, 0);
  BitWriter writer = {bytes.data(), 0};
  putbits(writer, 0xFFFFFFF5, 4);
  EXPECT_EQ(bytes[0], 0x50);
}

TEST(BitWriter, LongFieldsComeLowHalfFirst) {
  std::vector<uint8_t> bytes(12, 0);
  BitWriter writer = {bytes.data(), 0};
  putbits(writer, 0x12345678, 32);
  putbits(writer, 0x1ABCDEF, 25);
  EXPECT_EQ(writer.position, 57u);
  EXPECT_EQ(bitsOf(bytes, 57), bitsOf(0x5678, 16) + bitsOf(0x1234, 16) + bitsOf(0xCDEF, 16) + bitsOf(0x1AB, 9));
}

TEST(BitWriter, RandomFieldsReadBack) {
  constexpr unsigned kSeed = 5;
  test::Random random(kSeed);
  std::vector<uint8_t> bytes(20000, 0x5A);
  bytes[0] = 0;
  BitWriter writer = {bytes.data(), 0};
  std::string expected;
  for (int i = 0; i < 5000; ++i) {
    const uint32_t n = random() % 25, value = random();
    putbits(writer, value, n);
    expected += bitsOf(value, n);
  }
  EXPECT_EQ(writer.position, expected.size());
  EXPECT_EQ(bitsOf(bytes, expected.size()), expected) << "seed " << kSeed;
  EXPECT_EQ(bytes[writer.position / 8 + 4], 0x5A);
}

}  // namespace
}  // namespace qav
