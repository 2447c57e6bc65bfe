#include "tools/stream/frame_header.h"

#include <gtest/gtest.h>

#include <random>

namespace qav::tool {
namespace {

// The same parser over and over says what one says that has read nothing before.
TEST(HeaderParser, WhatItHasReadBeforeDoesNotMatter) {
  std::mt19937 generator(1);
  const auto random = [&] { return static_cast<uint32_t>(generator()); };
  HeaderParser parser;
  size_t headers = 0;
  uint32_t word = 0;
  for (int i = 0; i < 20000; ++i) {
    // Often the one before with one bit changed, or the very same.
    word = i % 4 == 0 ? 0xFFF00000 | (random() & 0xFFFFF) : i % 4 == 1 ? word : word ^ 1u << random() % 20;
    const uint8_t bytes[kHeaderBytes] = {uint8_t(word >> 24), uint8_t(word >> 16), uint8_t(word >> 8), uint8_t(word)};
    FrameHeader remembered{}, fresh{};
    const bool isHeader = HeaderParser().parse(bytes, fresh);
    ASSERT_EQ(parser.parse(bytes, remembered), isHeader) << word;
    if (!isHeader) continue;
    ++headers;
    ASSERT_EQ(remembered, fresh) << word;
  }
  EXPECT_GT(headers, 2000u);
}

}  // namespace
}  // namespace qav::tool
