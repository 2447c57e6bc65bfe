#include "tools/io/message.h"

#include <gtest/gtest.h>

namespace qav::tool {
namespace {

TEST(Message, PrintableNamesStayAsTheyAre) {
  for (const char *name : {"a.mp2", "with space", "-dash", "ümläut 日本 𝄞.mp2", "it's", "back\\slash"})
    EXPECT_EQ(displayName(name), name);
}

TEST(Message, OtherNamesAreQuotedAsOneLineThatTheShellReadsBack) {
  EXPECT_EQ(displayName("two\nlines"), "$'two\\nlines'");
  EXPECT_EQ(displayName("it's\t"), "$'it\\'s\\t'");
  EXPECT_EQ(displayName("\xFF"
                        "1\xC3"),
            "$'\\3771\\303'");
  EXPECT_EQ(displayName("\xC0\x80"), "$'\\300\\200'");           // overlong
  EXPECT_EQ(displayName("\xED\xA0\x80"), "$'\\355\\240\\200'");  // a surrogate
  EXPECT_EQ(displayName("\xC2\x9B"
                        "31m"),
            "$'\\302\\23331m'");  // a control character in two bytes
  EXPECT_EQ(displayName("\x1B[31m"), "$'\\033[31m'");
  EXPECT_EQ(displayName(""), "$''");
}

TEST(Message, Utf8IsMadeValid) {
  EXPECT_EQ(toUtf8("a\xFFü\xC3"), "a\uFFFDü\uFFFD");
  EXPECT_EQ(toUtf8("\n"), "\n");
}

TEST(Message, TextIsMadeInertForATerminal) {
  EXPECT_EQ(inertText("plain ü\\ it's"), "plain ü\\ it's");
  EXPECT_EQ(inertText("\x1B]0;title\a"), "\\033]0;title\\007");
  EXPECT_EQ(inertText("\xC2\x9B"
                      "2J\x7F\xFF"),
            "\\302\\2332J\\177\\377");
  EXPECT_EQ(inertJson("{\"ü\":\"\x7F\xC2\x9B\xC2\xA0\"}"), "{\"ü\":\"\\u007f\\u009b\xC2\xA0\"}");
  EXPECT_EQ(inertJson("\xC2"), "\xC2");
}

TEST(Message, AllPartsStandInOneLine) {
  EXPECT_EQ(messageLine("a.mp2", {"frame 1", "is bad", "throw it away"}), "qav: a.mp2: frame 1: is bad; throw it away");
  EXPECT_EQ(messageLine("", {"", "is bad", ""}), "qav: is bad");
  EXPECT_EQ(messageLine("a\n", {"", "is \x1B[31mbad", ""}), "qav: $'a\\n': is \\033[31mbad");
}

TEST(Message, TimesAndPlaces) {
  EXPECT_EQ(timeText(0), "0:00.000");
  EXPECT_EQ(timeText(59.9996), "1:00.000");
  EXPECT_EQ(timeText(3723.4564), "1:02:03.456");
  EXPECT_EQ(timeText(-1.5), "-0:01.500");
  EXPECT_EQ(placeText(12, 5016, 0.313), "frame 12, byte 5016 (0x1398), 0:00.313");
  EXPECT_EQ(counted(1, "byte"), "1 byte");
  EXPECT_EQ(counted(0, "byte"), "0 bytes");
}

}  // namespace
}  // namespace qav::tool
