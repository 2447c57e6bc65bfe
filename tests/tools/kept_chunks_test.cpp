#include "tools/riff/kept_chunks.h"

#include <gtest/gtest.h>

#include "tests/tools/scratch_folder.h"
#include "tests/tools/synthetic_stream.h"
#include "tools/io/spill_buffer.h"
#include "tools/riff/riff.h"

namespace qav::tool {
namespace {

std::string heldBy(const SpillBuffer &buffer) {
  std::string all;
  buffer.read([&](const void *data, size_t bytes) { all.append(static_cast<const char *>(data), bytes); });
  return all;
}

std::string written(const KeptChunks &chunks, KeptChunks::Side side) {
  const ScratchFolder folder;
  OutputFile out(folder / "out", false);
  chunks.write(out, side);
  EXPECT_EQ(out.size(), chunks.bytes(side));
  out.commit();
  return contentOf(folder / "out");
}

// What is kept of these chunks, which stand at the start of a file's chunks or later, read in pieces of `piece` bytes.
std::string kept(const Bytes &chunks, size_t piece = SIZE_MAX, KeptChunks *to = nullptr) {
  MemorySource source(riff(chunks), [piece] { return piece; });
  ByteWindow window(source);
  window.skip(12);
  KeptChunks mine;
  KeptChunks &all = to ? *to : mine;
  while (window.fill(8) >= 8) all.take(window, KeptChunks::Side::beforeData);
  return written(all, KeptChunks::Side::beforeData);
}

TEST(SpillBuffer, TheSameInMemoryAndInAFile) {
  SpillBuffer buffer;
  std::string expected;
  for (int i = 0; i < 300; ++i) {
    const std::string piece(static_cast<size_t>(i * 37 % 5000), static_cast<char>(i));
    buffer.append(piece.data(), piece.size());
    expected += piece;
    if (i % 50 == 0 && expected.size() > 100) {
      buffer.patch(expected.size() - 100, "patched", 7);
      expected.replace(expected.size() - 100, 7, "patched");
    }
    if (i % 20 == 0) {
      ASSERT_TRUE(heldBy(buffer) == expected) << i;
    }
  }
  ASSERT_GT(expected.size(), 512u * 1024);
  EXPECT_EQ(buffer.size(), expected.size());
  EXPECT_TRUE(heldBy(buffer) == expected);
  buffer.clear();
  buffer.append("x", 1);
  EXPECT_EQ(heldBy(buffer), "x");
}

TEST(KeptChunks, EverythingButWhatDescribesTheSamples) {
  const Bytes keep =
      chunk("bext", filler(700)) + chunk("odd ", "x") + chunk("none", "") + chunk("JUNK", Bytes(28, '\0'));
  for (const size_t piece : {size_t{1}, size_t{7}, SIZE_MAX})
    EXPECT_EQ(kept(formatChunk(80) + keep + chunk("fact", "1234") + chunk("ds64", filler(28)) + keep, piece),
              keep + keep);
}

TEST(KeptChunks, TheFirstJunkHoldsAPlace) {
  EXPECT_EQ(kept(chunk("JUNK", Bytes(28, '\0')) + formatChunk(80) + chunk("JUNK", "kept")), chunk("JUNK", "kept"));
}

TEST(KeptChunks, WhatIsThereOfACutChunk) {
  const Bytes whole = chunk("LIST", filler(101));
  EXPECT_EQ(kept(whole.substr(0, 50)), chunk("LIST", filler(101).substr(0, 42)));
  EXPECT_EQ(kept(whole.substr(0, 51)), chunk("LIST", filler(101).substr(0, 43)));
  EXPECT_EQ(kept(whole.substr(0, 8)), chunk("LIST", ""));
  EXPECT_EQ(kept(whole.substr(0, whole.size() - 1)), whole);  // without its padding byte
}

TEST(KeptChunks, ThePlaceOfTheFirstBext) {
  KeptChunks chunks;
  const std::string all = kept(chunk("odd ", "abc") + chunk("bext", filler(610)) + chunk("bext", "x"), 5, &chunks);
  ASSERT_TRUE(chunks.bext());
  EXPECT_EQ(chunks.bext()->bytes, 610u);
  EXPECT_EQ(all.substr(chunks.bext()->offset, 610), filler(610));
  chunks.clear();
  EXPECT_FALSE(chunks.bext());
  EXPECT_EQ(chunks.bytes(KeptChunks::Side::beforeData), 0u);
}

TEST(KeptChunks, BothSidesOfAWholeFile) {
  MemorySource source(riff(formatChunk(6) + chunk("bext", "a") + chunk("data", "xyz") + chunk("LIST", "bc")));
  KeptChunks chunks;
  keepChunks(source, chunks);
  EXPECT_EQ(written(chunks, KeptChunks::Side::beforeData), chunk("bext", "a"));
  EXPECT_EQ(written(chunks, KeptChunks::Side::behindData), chunk("LIST", "bc"));
}

}  // namespace
}  // namespace qav::tool
