#include "tools/io/md5.h"

#include <gtest/gtest.h>

#include <string>

namespace qav::tool {
namespace {

std::string md5(const std::string &text, size_t piece = SIZE_MAX) {
  Md5 sum;
  for (size_t at = 0; at < text.size(); at += std::min(piece, text.size() - at))
    sum.add(text.data() + at, std::min(piece, text.size() - at));
  return sum.hexDigest();
}

TEST(Md5, TheExamplesOfTheRfc) {
  EXPECT_EQ(md5(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(md5("a"), "0cc175b9c0f1b6a831c399e269772661");
  EXPECT_EQ(md5("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(md5("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
            "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, PiecesOfAnySizeGiveTheSame) {
  std::string text;
  for (int i = 0; i < 300; ++i) text += static_cast<char>(i * 31);
  for (size_t length = 0; length <= text.size(); ++length)
    for (const size_t piece : {1u, 7u, 63u, 64u, 65u})
      ASSERT_EQ(md5(text.substr(0, length), piece), md5(text.substr(0, length))) << length << " " << piece;
}

}  // namespace
}  // namespace qav::tool
