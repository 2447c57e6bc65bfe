#include "tools/io/output_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/tools/scratch_folder.h"
#include "tools/io/failure.h"
#include "tools/io/interrupt.h"

namespace qav::tool {
namespace {

std::string complaintOf(const std::string &name, bool overwrite) {
  try {
    OutputFile out(name, overwrite);
    out.write("x", 1);
    out.commit();
  } catch (const Failure &failure) {
    EXPECT_EQ(failure.status, kUnusable);
    EXPECT_FALSE(failure.complaint.remedy.empty());
    return failure.complaint.what;
  }
  return {};
}

TEST(OutputFile, AppearsWholeWhenCommitted) {
  const ScratchFolder folder;
  std::string expected;
  {
    OutputFile out(folder / "a", false);
    for (int i = 0; i < 3000; ++i) {
      const std::string piece(static_cast<size_t>(i % 700), static_cast<char>('a' + i % 26));
      out.write(piece.data(), piece.size());
      expected += piece;
    }
    const std::string large(700000, 'L');
    out.write(large.data(), large.size());
    expected += large;
    EXPECT_EQ(out.size(), expected.size());
    EXPECT_FALSE(std::filesystem::exists(folder / "a"));
    out.patch(1, "PATCH", 5);
    out.write("end", 3);
    expected.replace(1, 5, "PATCH");
    expected += "end";
    out.commit();
  }
  EXPECT_EQ(contentOf(folder / "a"), expected);
  EXPECT_EQ(folder.names(), std::vector<std::string>{"a"});
}

std::string noise(size_t bytes) {
  std::string made(bytes, 0);
  uint32_t state = 1;
  for (char &c : made) {
    state = state * 1664525 + 1013904223;
    c = static_cast<char>(state >> 24);
  }
  return made;
}

// Whose end is written in another way, in whole blocks of a mebibyte but for the last.
TEST(OutputFile, ALongOneIsWholeToo) {
  constexpr size_t kPiece = 100003, kBlock = 1 << 20;
  for (const size_t bytes : {70 * kBlock + 12345, 16 * kBlock, 17 * kBlock, 17 * kBlock + 1, 17 * kBlock - 1}) {
    const ScratchFolder folder;
    std::string expected = noise(bytes);
    OutputFile out(folder / "a", false);
    for (size_t at = 0; at < bytes; at += kPiece) out.write(&expected[at], std::min(kPiece, bytes - at));
    EXPECT_EQ(out.size(), bytes);
    out.patch(1, "PATCH", 5);
    out.commit();
    expected.replace(1, 5, "PATCH");
    EXPECT_TRUE(contentOf(folder / "a") == expected) << bytes;
  }
}

// Some are made where they will stand, behind bytes that come from elsewhere, and reach over the ends of blocks.
TEST(OutputFile, BytesMadeInTheirPlaceAreWrittenAsWell) {
  constexpr size_t kMade = 4608, kElsewhere = 44, kBlock = 1 << 20;
  for (const size_t bytes : {size_t{300000}, 19 * kBlock + 12345}) {
    const ScratchFolder folder;
    const std::string expected = noise(bytes);
    OutputFile out(folder / "a", false);
    size_t at = 0, pieces = 0;
    while (at < bytes) {
      const bool isMade = ++pieces % 100 != 0;
      const size_t n = std::min(isMade ? pieces % 97 == 0 ? OutputFile::kRoomBytes : kMade : kElsewhere, bytes - at);
      if (isMade) std::copy_n(&expected[at], n, out.next());
      out.write(isMade ? static_cast<const void *>(out.next()) : &expected[at], n);
      at += n;
      ASSERT_EQ(out.size(), at);
    }
    out.commit();
    EXPECT_TRUE(contentOf(folder / "a") == expected) << bytes;
  }
}

TEST(OutputFile, ALongOneMayBePatchedInItsMidst) {
  constexpr size_t kBytes = 20 << 20, kPatched = 10 << 20;
  const ScratchFolder folder;
  std::string expected = noise(2 * kBytes);
  OutputFile out(folder / "a", false);
  out.write(expected.data(), kBytes);
  out.patch(kPatched, "PATCH", 5);
  out.patch(kBytes - 5, "PATCH", 5);
  out.write(&expected[kBytes], kBytes);
  out.commit();
  expected.replace(kPatched, 5, "PATCH").replace(kBytes - 5, 5, "PATCH");
  EXPECT_TRUE(contentOf(folder / "a") == expected);
}

TEST(OutputFile, ALongOneLeavesNothingWithoutCommit) {
  const ScratchFolder folder;
  {
    OutputFile out(folder / "a", false);
    const std::string large = noise(size_t{24} << 20);
    out.write(large.data(), large.size());
  }
  EXPECT_TRUE(folder.names().empty());
}

TEST(OutputFile, LeavesNothingWithoutCommit) {
  const ScratchFolder folder;
  {
    OutputFile out(folder / "a", false);
    out.write("x", 1);
    EXPECT_EQ(folder.names().size(), 1u);
  }
  EXPECT_TRUE(folder.names().empty());
}

TEST(OutputFile, AnExistingFileIsKeptUnlessForced) {
  const ScratchFolder folder;
  const std::string path = folder.put("a", "old");
  chmod(path.c_str(), 0640);
  EXPECT_EQ(complaintOf(path, false), "exists already");
  EXPECT_EQ(contentOf(path), "old");
  EXPECT_EQ(complaintOf(path, true), "");
  EXPECT_EQ(contentOf(path), "x");
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
  EXPECT_EQ(folder.names().size(), 1u);
}

TEST(OutputFile, AFileThatAppearsMeanwhileIsKept) {
  const ScratchFolder folder;
  {
    OutputFile out(folder / "a", false);
    folder.put("a", "other");
    EXPECT_THROW(out.commit(), Failure);
  }
  EXPECT_EQ(contentOf(folder / "a"), "other");
  EXPECT_EQ(folder.names().size(), 1u);
}

TEST(OutputFile, ForcedThroughASymbolicLinkReplacesWhatItPointsAt) {
  const ScratchFolder folder;
  folder.put("real", "old");
  std::filesystem::create_symlink("real", folder / "link");
  EXPECT_EQ(complaintOf(folder / "link", true), "");
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_EQ(contentOf(folder / "real"), "x");
}

TEST(OutputFile, NamesAtTheLimitWork) {
  const ScratchFolder folder;
  EXPECT_EQ(complaintOf(folder / std::string(255, 'n'), false), "");
  EXPECT_NE(complaintOf(folder / std::string(256, 'n'), false), "");
  EXPECT_EQ(folder.names(), std::vector<std::string>{std::string(255, 'n')});
}

TEST(OutputFile, PlacesThatCannotBeWrittenAreRefused) {
  const ScratchFolder folder;
  EXPECT_EQ(complaintOf(folder / "no/such/a", false), "cannot be written: No such file or directory");
  EXPECT_EQ(complaintOf(folder / "", false), "is a directory");
  EXPECT_EQ(complaintOf("/dev/full", false), "cannot be written: No space left on device");
  EXPECT_EQ(complaintOf("/dev/null", false), "");
}

TEST(OutputFile, AFileTooLargeForTheLimitLeavesNothing) {
  handleSignals();
  rlimit old{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  // In the first block, and in one that passes the cache.
  for (const size_t limit : {size_t{100000}, (size_t{18} << 20) + 100000}) {
    const ScratchFolder folder;
    const rlimit small{limit, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    std::string what;
    try {
      OutputFile out(folder / "a", false);
      const std::string large(limit + 300000, 'L');
      out.write(large.data(), large.size());
      out.commit();
    } catch (const Failure &failure) {
      what = failure.complaint.what;
    }
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(what, "cannot be written: File too large") << limit;
    EXPECT_TRUE(folder.names().empty()) << limit;
  }
}

}  // namespace
}  // namespace qav::tool
