#include "tools/cli/progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace qav::tool {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Progress, OneFile) {
  const ProgressState half{1, 0, 0.5, 120.0, 2.0};
  EXPECT_EQ(progressBar(half, 80), "[==============>              ]  50 %, 2:00 of audio, 60 x real time, 0:02 left");
  EXPECT_EQ(progressBar({1, 0, 1.0, 3725.0, 10.0}, 100),
            "[==============================] 100 %, 1:02:05 of audio, 372 x real time, 0:00 left");
}

TEST(Progress, APipeHasNoEnd) {
  const std::string bar = progressBar({1, 0, -1.0, 60.0, 3.0}, 80);
  EXPECT_EQ(bar, "1:00 of audio, 20 x real time");
}

TEST(Progress, ABatchCountsItsFiles) {
  EXPECT_THAT(progressBar({12, 3, 0.25, 60.0, 1.0}, 200), HasSubstr(" 25 %, 3 of 12 files, 1:00 of audio, "));
}

TEST(Progress, FitsEveryWidth) {
  for (size_t columns = 1; columns < 200; ++columns)
    EXPECT_LT(progressBar({12, 3, 0.25, 60.0, 1.0}, columns).size(), columns) << columns;
}

TEST(Progress, TheFirstMomentsSayNoTimeLeft) {
  EXPECT_THAT(progressBar({1, 0, 0.01, 1.0, 0.1}, 80), Not(HasSubstr("left")));
}

TEST(Progress, Json) {
  const auto json = nlohmann::json::parse(progressJson({2, 1, 0.5, 120.0, 2.0}));
  EXPECT_EQ(json["files"], 2);
  EXPECT_EQ(json["filesDone"], 1);
  EXPECT_EQ(json["fraction"], 0.5);
  EXPECT_EQ(json["timesRealTime"], 60.0);
  EXPECT_EQ(json["secondsLeft"], 2.0);
  EXPECT_TRUE(nlohmann::json::parse(progressJson({2, 1, -1.0, 120.0, 2.0}))["fraction"].is_null());
}

TEST(Progress, NothingIsShownWhereNothingIsWanted) {
  testing::internal::CaptureStderr();
  {
    Progress progress(Progress::Style::none, {100});
    progress.update(0, 0.5, 10.0);
    progress.finish(0);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Progress, JsonEndsWithTheWhole) {
  testing::internal::CaptureStderr();
  {
    Progress progress(Progress::Style::json, {100, 300});
    progress.update(0, 0.5, 10.0);
    progress.finish(0);
    progress.update(1, 0.5, 10.0);
    progress.finish(1);
  }
  const auto json = nlohmann::json::parse(testing::internal::GetCapturedStderr());
  EXPECT_EQ(json["fraction"], 1.0);
  EXPECT_EQ(json["filesDone"], 2);
  EXPECT_EQ(json["audioSeconds"], 20.0);
}

}  // namespace
}  // namespace qav::tool
