#include "tools/output_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/tools/scratch_folder.h"
#include "tools/failure.h"
#include "tools/interrupt.h"

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

// Whose end is written in another way, where the system knows it.
TEST(OutputFile, ALongOneIsWholeToo) {
  constexpr size_t kBytes = 70 << 20, kPiece = 100003;
  const ScratchFolder folder;
  std::string expected(kBytes, 0);
  uint32_t noise = 1;
  for (char &c : expected) {
    noise = noise * 1664525 + 1013904223;
    c = static_cast<char>(noise >> 24);
  }
  OutputFile out(folder / "a", false);
  for (size_t at = 0; at < kBytes; at += kPiece) out.write(&expected[at], std::min(kPiece, kBytes - at));
  out.patch(1, "PATCH", 5);
  out.commit();
  expected.replace(1, 5, "PATCH");
  EXPECT_TRUE(contentOf(folder / "a") == expected);
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
  const ScratchFolder folder;
  handleSignals();
  rlimit old{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  const rlimit small{100000, old.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  std::string what;
  try {
    OutputFile out(folder / "a", false);
    const std::string large(300000, 'L');
    out.write(large.data(), large.size());
    out.commit();
  } catch (const Failure &failure) {
    what = failure.complaint.what;
  }
  setrlimit(RLIMIT_FSIZE, &old);
  EXPECT_EQ(what, "cannot be written: File too large");
  EXPECT_TRUE(folder.names().empty());
}

}  // namespace
}  // namespace qav::tool
