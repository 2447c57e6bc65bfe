#include "tools/cli/time_argument.h"

#include <gtest/gtest.h>

#include "tools/io/failure.h"

namespace qav::tool {
namespace {

TEST(TimeArgument, SecondsMinutesAndHours) {
  EXPECT_EQ(parseTime("--to", "0"), 0.0);
  EXPECT_EQ(parseTime("--to", "90"), 90.0);
  EXPECT_EQ(parseTime("--to", "90.25"), 90.25);
  EXPECT_EQ(parseTime("--to", "1:30"), 90.0);
  EXPECT_EQ(parseTime("--to", "100:00.5"), 6000.5);
  EXPECT_EQ(parseTime("--to", "01:02:03.5"), 3723.5);
  EXPECT_EQ(parseTime("--to", "0:0:59.999999999"), 59.999999999);
}

TEST(TimeArgument, RefusesAnythingElseAndNamesTheOption) {
  for (const char *text : {"",
                           " 1",
                           "1 ",
                           "+1",
                           "-1",
                           "1,5",
                           "1.",
                           ".5",
                           "1.2.3",
                           "1e3",
                           "0x10",
                           "inf",
                           "nan",
                           ":",
                           "1:",
                           ":30",
                           "1:60",
                           "1:60:00",
                           "1:2:60",
                           "1:2:3:4",
                           "1.5:30",
                           "10000000",
                           "1000000000000000000000000000000000000000000000000000000000000"}) {
    try {
      parseTime("--from", text);
      ADD_FAILURE() << text;
    } catch (const Failure &failure) {
      EXPECT_EQ(failure.status, kUsage) << text;
      EXPECT_EQ(failure.complaint.what.substr(0, 7), "--from ") << text;
    }
  }
}

}  // namespace
}  // namespace qav::tool
