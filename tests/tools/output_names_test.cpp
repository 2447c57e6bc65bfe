#include "tools/cli/output_names.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/tools/scratch_folder.h"
#include "tools/io/failure.h"

namespace qav::tool {
namespace {

using Names = std::vector<std::string>;

CommonOptions optionsFor(const Names &inputs, const std::string &output) {
  CommonOptions options;
  options.inputs = inputs;
  options.output = output;
  for (const std::string &input : inputs) options.places.push_back(input.substr(input.rfind('/') + 1));
  return options;
}

int statusOf(const Names &inputs, const std::string &output) {
  try {
    planOutputs(optionsFor(inputs, output), ".wav");
  } catch (const Failure &failure) {
    EXPECT_FALSE(failure.complaint.remedy.empty());
    return failure.status;
  }
  return kGood;
}

TEST(OutputNames, TheExtensionIsReplaced) {
  EXPECT_EQ(withExtension("a.mp2", ".wav"), "a.wav");
  EXPECT_EQ(withExtension("a", ".wav"), "a.wav");
  EXPECT_EQ(withExtension("a.b.mp2", ".wav"), "a.b.wav");
  EXPECT_EQ(withExtension("d.d/a", ".wav"), "d.d/a.wav");
  EXPECT_EQ(withExtension(".hidden", ".wav"), ".hidden.wav");
  EXPECT_EQ(withExtension("d/.hidden", ".wav"), "d/.hidden.wav");
  EXPECT_EQ(withExtension("a.", ".wav"), "a.wav");
}

TEST(OutputNames, BesideTheInputOrAsNamed) {
  const ScratchFolder folder;
  EXPECT_EQ(planOutputs(optionsFor({folder / "a.mp2"}, ""), ".wav"), Names{folder / "a.wav"});
  EXPECT_EQ(planOutputs(optionsFor({folder / "a.mp2"}, folder / "b"), ".wav"), Names{folder / "b"});
  EXPECT_EQ(planOutputs(optionsFor({folder / "x/a.mp2"}, folder / ""), ".wav"), Names{folder / "a.wav"});
  EXPECT_EQ(planOutputs(optionsFor({"-"}, ""), ".wav"), Names{"-"});
  EXPECT_EQ(planOutputs(optionsFor({"-"}, folder / ""), ".wav"), Names{folder / "stdin.wav"});
  EXPECT_EQ(planOutputs(optionsFor({folder / "a.mp2"}, "-"), ".wav"), Names{"-"});
}

TEST(OutputNames, SeveralInputsGoToADirectoryThatIsMadeForThem) {
  const ScratchFolder folder;
  EXPECT_EQ(planOutputs(optionsFor({"x/a.mp2", "b.mp2"}, folder / "new"), ".wav"),
            (Names{folder / "new/a.wav", folder / "new/b.wav"}));
  EXPECT_TRUE(std::filesystem::is_directory(folder / "new"));
  EXPECT_EQ(statusOf({"a.mp2", "b.mp2"}, folder.put("file", "x")), kUsage);
  EXPECT_EQ(statusOf({"a.mp2", "b.mp2"}, "-"), kUsage);
  EXPECT_EQ(statusOf({"a.mp2", "b.mp2"}, folder / "no/such"), kUnusable);
  EXPECT_EQ(statusOf({"a.mp2", "b.mp2"}, "/dev/null"), kGood);
}

TEST(OutputNames, FoldersAreMadeAgain) {
  const ScratchFolder folder;
  CommonOptions options = optionsFor({"in/x/y/a.mp2", "in/b.mp2"}, folder / "out");
  options.places = {"x/y/a.mp2", "b.mp2"};
  options.recursive = true;
  EXPECT_EQ(planOutputs(options, ".wav"), (Names{folder / "out/x/y/a.wav", folder / "out/b.wav"}));
  EXPECT_TRUE(std::filesystem::is_directory(folder / "out/x/y"));
  CommonOptions one = optionsFor({"in/a.mp2"}, folder / "new");
  one.filesFrom = "list";
  EXPECT_EQ(planOutputs(one, ".wav"), Names{folder / "new/a.wav"});
}

TEST(OutputNames, TwoInputsNeverEndInOneOutput) {
  const ScratchFolder folder;
  EXPECT_EQ(statusOf({folder / "a.mp1", folder / "a.mp2"}, ""), kUsage);
  EXPECT_EQ(statusOf({folder / "a.mp2", folder / "a.mp2"}, ""), kUsage);
  EXPECT_EQ(statusOf({folder / "a.mp2", folder / "./a.mp1"}, ""), kUsage);
  EXPECT_EQ(statusOf({"x/a.mp2", "y/a.mp2"}, folder / ""), kUsage);
  std::filesystem::create_directory(folder / "real");
  std::filesystem::create_symlink(folder / "real", folder / "link");
  EXPECT_EQ(statusOf({folder / "real/a.mp2", folder / "link/a.mp1"}, ""), kUsage);
  folder.put("real/b.wav", "x");
  std::filesystem::create_hard_link(folder / "real/b.wav", folder / "c.wav");
  EXPECT_EQ(statusOf({folder / "real/b.mp2", folder / "c.mp2"}, ""), kUsage);
}

TEST(OutputNames, AnInputIsNeverOverwritten) {
  const ScratchFolder folder;
  const std::string wav = folder.put("a.wav", "x");
  EXPECT_EQ(statusOf({wav}, ""), kUsage);
  EXPECT_EQ(statusOf({wav}, folder / "./a.wav"), kUsage);
  EXPECT_EQ(statusOf({wav, folder / "a.mp2"}, ""), kUsage);
}

}  // namespace
}  // namespace qav::tool
