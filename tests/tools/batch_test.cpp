#include "tools/cli/batch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace qav::tool {
namespace {

int run(const std::vector<std::string> &inputs, unsigned jobs, const std::function<int(Job &)> &work) {
  CommonOptions options;
  options.inputs = inputs;
  options.jobs = jobs;
  return runJobs(options, work);
}

TEST(Batch, LinesComeInTheOrderOfTheInputsWhateverTheWorkersDo) {
  std::vector<std::string> inputs;
  std::string expected;
  for (int i = 0; i < 40; ++i) {
    inputs.push_back("input " + std::to_string(i));
    for (int line = 0; line < 50; ++line) expected += inputs.back() + " line " + std::to_string(line) + "\n";
  }
  testing::internal::CaptureStdout();
  const int status = run(inputs, 8, [](Job &job) {
    for (int line = 0; line < 50; ++line) {
      if (line % 10 == 0) std::this_thread::sleep_for(std::chrono::microseconds((job.index() * 7919) % 300));
      job.out(job.input() + " line " + std::to_string(line));
    }
    return kGood;
  });
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
  EXPECT_EQ(status, kGood);
}

TEST(Batch, AJobThatSaysTooMuchWaitsForItsTurn) {
  const std::string line(1000, 'x');
  const std::vector<std::string> inputs(4, "input");
  testing::internal::CaptureStdout();
  run(inputs, 4, [&](Job &job) {
    for (int i = 0; i < 1000; ++i) job.out(line);
    return kGood;
  });
  EXPECT_EQ(testing::internal::GetCapturedStdout().size(), 4u * 1000 * 1001);
}

TEST(Batch, TheWorstStatusCountsAndTheOthersAreStillDone) {
  const auto statusOf = [](std::vector<int> statuses) {
    const std::vector<std::string> inputs(statuses.size(), "input");
    return run(inputs, 2, [&](Job &job) { return statuses[job.index()]; });
  };
  EXPECT_EQ(statusOf({0, 0, 0}), 0);
  EXPECT_EQ(statusOf({0, 3, 0}), 3);
  EXPECT_EQ(statusOf({3, 2, 3}), 2);
  EXPECT_EQ(statusOf({2, 3, 0}), 2);
}

TEST(Batch, AFailureIsReportedAgainstItsInput) {
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  const int status = run({"a", "-", "c"}, 1, [](Job &job) {
    if (job.index() < 2) fail("is bad", "replace it");
    job.out("done");
    return kGood;
  });
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "qav: a: is bad; replace it\nqav: standard input: is bad; replace it\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "done\n");
  EXPECT_EQ(status, kUnusable);
}

}  // namespace
}  // namespace qav::tool
