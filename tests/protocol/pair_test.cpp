#include "protocol/pair.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "debug/log.h"
#include "tests/support/log_capture.h"

namespace {

// One search: its result, what it wrote, and its log.
struct Found {
  int rc = 99;
  int len;
  std::string pair;
  std::string log;
};

Found Search(const std::string &text, const char *tag, int occurrence, int len, int level = 101) {
  Found found = {99, len, "", ""};
  std::string out(static_cast<std::size_t>(len) + 1, 'x');  // the terminator needs the byte more
  found.log = Capture(level, [&] {
                found.rc = Util_Search4Pair(text.c_str(), out.data(), &found.len, tag, occurrence);
              }).log;
  found.pair = out.c_str();
  return found;
}

const char *const kLevelText = "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=INFO\n";

}  // namespace

TEST(Pair, Search4Pair_FirstOccurrence_IsTheWholePair) {
  const Found found = Search(kLevelText, "DEBUGLEVEL", 1, 255);
  EXPECT_EQ(found.rc, 1);
  EXPECT_EQ(found.pair, "DEBUGLEVEL=INFO");
  EXPECT_EQ(found.len, 15);
}

TEST(Pair, Search4Pair_Success_LogsSearchAndResultAt101) {
  EXPECT_EQ(MessagesAt(101,
                       [] {
                         char out[256];
                         int len = 255;
                         Util_Search4Pair("\tDEBUGLEVEL=INFO\n", out, &len, "DEBUGLEVEL", 1);
                       }),
            "[Util: Search4Pair] Selection 1 of 1 for tag \tDEBUGLEVEL= = \tDEBUGLEVEL=INFO\n\n"
            "[Util: Search4Pair] Selection 2 of 1 for tag DEBUGLEVEL yeilds DEBUGLEVEL=INFO\n");
}

TEST(Pair, Search4Pair_PairAsLongAsTheLength_IsAccepted) {
  const Found found = Search(kLevelText, "DEBUGLEVEL", 1, 15);
  EXPECT_EQ(found.rc, 1);
  EXPECT_EQ(found.pair, "DEBUGLEVEL=INFO");
}

TEST(Pair, Search4Pair_PairLongerThanTheLength_IsOverflowAt103) {
  const Found found = Search(kLevelText, "DEBUGLEVEL", 1, 14, 103);
  EXPECT_EQ(found.rc, 0);
  EXPECT_EQ(found.log, "[Util: Search4Pair] fieldvalpair overflow\n");
  EXPECT_EQ(Search(kLevelText, "DEBUGLEVEL", 1, 14, 104).log, "");
}

TEST(Pair, Search4Pair_OtherNameThatEndsInTheTag_IsNotFound) {
  const std::string line = "[Util: Search4Pair] cannot find Selection: 1 of tag: '\tDEBUGLEVEL='\n";
  const Found found = Search("\tXDEBUGLEVEL=INFO\n", "DEBUGLEVEL", 1, 255, 102);
  EXPECT_EQ(found.rc, 0);
  EXPECT_EQ(found.log, line);
  EXPECT_EQ(Search("\tXDEBUGLEVEL=INFO\n", "DEBUGLEVEL", 1, 255, 103).log, "");
}

TEST(Pair, Search4Pair_NameWithoutItsTabOrEqualsSign_IsNotFound) {
  for (const char *text :
       {"DEBUGLEVEL=INFO\n", "\n DEBUGLEVEL=INFO\n", "\nDEBUGLEVEL=INFO\n", "\tDEBUGLEVEL\n",
        "\tDEBUGLEVELS=INFO\n", "\tdebuglevel=INFO\n", "\t@DEBUGLEVEL=INFO\n", ""})
    EXPECT_EQ(Search(text, "DEBUGLEVEL", 1, 255).rc, 0) << text;
}

TEST(Pair, Search4Pair_SecondOccurrence_IsTakenAndEverySearchLogged) {
  const Found found = Search("\tID=a\tID=b\n", "ID", 2, 255);
  EXPECT_EQ(found.rc, 1);
  EXPECT_EQ(found.pair, "ID=b");
  EXPECT_EQ(found.len, 4);
  EXPECT_EQ(found.log,
            "[Util: Search4Pair] Selection 1 of 2 for tag \tID= = \tID=a\tID=b\n\n"
            "[Util: Search4Pair] Selection 2 of 2 for tag \tID= = \tID=b\n\n"
            "[Util: Search4Pair] Selection 3 of 2 for tag ID yeilds ID=b\n");
}

TEST(Pair, Search4Pair_SecondOccurrenceOfOne_FailsAfterTheFirstSearch) {
  const Found found = Search("\tID=a\n", "ID", 2, 255);
  EXPECT_EQ(found.rc, 0);
  EXPECT_EQ(found.log,
            "[Util: Search4Pair] Selection 1 of 2 for tag \tID= = \tID=a\n\n"
            "[Util: Search4Pair] cannot find Selection: 2 of tag: '\tID='\n");
}

TEST(Pair, Search4Pair_NextSearch_StartsOneCharacterBehindTheMatch) {
  const Found found = Search("\tA=\tA=\tA=\n", "A=\tA", 2, 255);
  EXPECT_EQ(found.rc, 1);
  EXPECT_EQ(found.pair, "A=");
  EXPECT_EQ(found.log,
            "[Util: Search4Pair] Selection 1 of 2 for tag \tA=\tA= = \tA=\tA=\tA=\n\n"
            "[Util: Search4Pair] Selection 2 of 2 for tag \tA=\tA= = \tA=\tA=\n\n"
            "[Util: Search4Pair] Selection 3 of 2 for tag A=\tA yeilds A=\n");
}

TEST(Pair, Search4Pair_EveryFailure_LeavesOutputAndLength) {
  const struct {
    const char *text, *tag;
    int occurrence;
  } kRows[] = {
      {"\tID=abc\n", "ID", 1},   // overflow
      {"\tID=abc", "ID", 1},     // no end
      {"\tX=1\n", "ID", 1},      // not there
      {"\tID=a\n", "ID", 2},     // not there a second time
      {"\tID=a\n", "ID", 0},     // no occurrence
      {"\tID=a\n", nullptr, 1},  // no tag
  };
  for (const auto &row : kRows) {
    char out[6] = "kept!";
    int len = 5, rc = 9;
    Capture(105, [&] { rc = Util_Search4Pair(row.text, out, &len, row.tag, row.occurrence); });
    EXPECT_EQ(rc, 0) << row.text;
    EXPECT_STREQ(out, "kept!") << row.text;
    EXPECT_EQ(len, 5) << row.text;
  }
}

TEST(Pair, Search4Pair_EverySeparator_EndsThePair) {
  for (const char *end : {"\t", "\n", "\r", "\tX=1\n", "\r\n"})
    EXPECT_EQ(Search("\tID=a b" + std::string(end), "ID", 1, 255).pair, "ID=a b");
}

TEST(Pair, Search4Pair_EmptyValue_IsFound) {
  const Found found = Search("\tID=\n", "ID", 1, 3);
  EXPECT_EQ(found.rc, 1);
  EXPECT_EQ(found.pair, "ID=");
  EXPECT_EQ(found.len, 3);
}

TEST(Pair, Search4Pair_NoSeparatorBehindThePair_IsLoggedAt103) {
  const Found found = Search("\tX=1\tID=abc", "ID", 1, 255, 103);
  EXPECT_EQ(found.rc, 0);
  EXPECT_EQ(found.log, "[Util: Search4Pair] cannot find end of fieldvalpair: ID=abc\n");
  EXPECT_EQ(Search("\tID=abc", "ID", 1, 255, 104).log, "");
}

TEST(Pair, Search4Pair_NullArgument_IsRefusedWithoutAMessage) {
  char out[8];
  int len = 7, rc[4] = {9, 9, 9, 9};
  const Output output = Capture(101, [&] {
    rc[0] = Util_Search4Pair(nullptr, out, &len, "ID", 1);
    rc[1] = Util_Search4Pair("\tID=a\n", nullptr, &len, "ID", 1);
    rc[2] = Util_Search4Pair("\tID=a\n", out, nullptr, "ID", 1);
    rc[3] = Util_Search4Pair("\tID=a\n", out, &len, nullptr, 1);
  });
  for (const int code : rc) EXPECT_EQ(code, 0);
  EXPECT_EQ(output.log, "");
}

TEST(Pair, Search4Pair_OccurrenceOf0OrLess_IsRefused) {
  for (const int occurrence : {0, -1, INT32_MIN}) {
    const Found found = Search("\tID=a\n", "ID", occurrence, 255);
    EXPECT_EQ(found.rc, 0) << occurrence;
    EXPECT_EQ(found.log, "") << occurrence;
  }
}

TEST(Pair, Search4Pair_LongestPattern_IsSearchedFor) {
  const std::string tag(254, 'T');  // with its tab and "=" 256 characters
  EXPECT_EQ(Search("\t" + tag + "=a\n", tag.c_str(), 1, 300).pair, tag + "=a");
  const Found longer = Search("\t" + tag + "T=a\n", (tag + "T").c_str(), 1, 300, 103);
  EXPECT_EQ(longer.log, "[Util: Search4Pair] tag of 255 characters is too long\n");
}

TEST(Pair, Search4Pair_TagTooLongForThePattern_IsRefusedAndLoggedOnceAt103) {
  const std::string tag(5000, 'T'), text = "\t" + tag + "=a\n";
  const Found found = Search(text, tag.c_str(), 1, 6000, 103);
  EXPECT_EQ(found.rc, 0);
  EXPECT_EQ(found.log, "[Util: Search4Pair] tag of 5000 characters is too long\n");
  EXPECT_EQ(Search(text, tag.c_str(), 1, 6000, 104).log, "");
}

TEST(Pair, Search4Pair_NegativeLength_IsAnOverflow) {
  char out[8] = "kept";
  int len = -1, rc = 9;
  EXPECT_EQ(MessagesAt(103, [&] { rc = Util_Search4Pair("\tID=a\n", out, &len, "ID", 1); }),
            "[Util: Search4Pair] fieldvalpair overflow\n");
  EXPECT_EQ(rc, 0);
  EXPECT_STREQ(out, "kept");
}

TEST(Pair, Search4Pair_OutputOfOneByteMore_IsNotOverrun) {
  char out[7] = {'x', 'x', 'x', 'x', 'x', '!', '!'};
  int len = 4;
  Capture(105, [&] { Util_Search4Pair("\tID=a\n", out, &len, "ID", 1); });
  EXPECT_EQ(std::memcmp(out, "ID=a\0!!", 7), 0);
}

TEST(Pair, SplitPair_SplitsAtTheFirstDelimiter) {
  static constexpr struct {
    const char *pair;
    char delimiter;
    const char *name, *value;
  } kRows[] = {
      {"ID=a", '=', "ID", "a"},
      {"ID=a=b", '=', "ID", "a=b"},
      {"=x", '=', "", "x"},
      {"ID=", '=', "ID", ""},
      {"=", '=', "", ""},
      {"a:b=c", ':', "a", "b=c"},
      {"a b=c\t\n", '=', "a b", "c\t\n"},
  };
  for (const auto &row : kRows) {
    char name[16] = "before", value[16] = "before";
    int rc = 0;
    const Output output =
        Capture(101, [&] { rc = Util_SplitPair(row.pair, name, value, row.delimiter); });
    EXPECT_EQ(rc, 1) << row.pair;
    EXPECT_STREQ(name, row.name) << row.pair;
    EXPECT_STREQ(value, row.value) << row.pair;
    EXPECT_EQ(output.log, "") << row.pair;
  }
}

TEST(Pair, SplitPair_NoDelimiter_IsLoggedAt103) {
  char name[16], value[16];
  int rc = 9;
  EXPECT_EQ(MessagesAt(103, [&] { rc = Util_SplitPair("ID", name, value, '='); }),
            "[Util: SplitPair] delim '=' not found in pair 'ID'\n");
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(MessagesAt(103, [&] { rc = Util_SplitPair("a=b", name, value, ':'); }),
            "[Util: SplitPair] delim ':' not found in pair 'a=b'\n");
  EXPECT_EQ(MessagesAt(103, [&] { rc = Util_SplitPair("", name, value, '='); }),
            "[Util: SplitPair] delim '=' not found in pair ''\n");
}

TEST(Pair, SplitPair_NoDelimiter_LeavesBothOutputs) {
  char name[16] = "name", value[16] = "value";
  Capture(105, [&] { Util_SplitPair("ID", name, value, '='); });
  EXPECT_STREQ(name, "name");
  EXPECT_STREQ(value, "value");
}

TEST(Pair, SplitPair_LongPairWithoutADelimiter_IsShownUpTo4096Characters) {
  char name[16], value[16];
  const std::string shown(4096, 'x');
  for (const std::string &pair : {shown, shown + "y"})
    EXPECT_EQ(MessagesAt(103, [&] { Util_SplitPair(pair, name, value, '='); }),
              "[Util: SplitPair] delim '=' not found in pair '" + shown + "'\n");
}

TEST(Pair, SplitPair_PieceTooLongForItsPlace_IsRefusedAndLoggedOnceAt103) {
  char name[4], value[4];
  int rc = 9;
  EXPECT_EQ(MessagesAt(103, [&] { rc = Util_SplitPair("abcd=x", name, value, '='); }),
            "[Util: SplitPair] pair of 6 characters is too long: 'abc' = 'x'\n");
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(MessagesAt(103, [&] { rc = Util_SplitPair("x=abcd", name, value, '='); }),
            "[Util: SplitPair] pair of 6 characters is too long: 'x' = 'abc'\n");
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(Util_SplitPair("abc=def", name, value, '='), 1);
  EXPECT_STREQ(name, "abc");
  EXPECT_STREQ(value, "def");
}

TEST(Pair, SplitView_Parts_AreViewsOfThePair) {
  const std::string pair = "ID=a=b";
  std::string_view name, value;
  EXPECT_TRUE(Util_SplitView(pair, &name, &value, '='));
  EXPECT_EQ(name, "ID");
  EXPECT_EQ(value, "a=b");
  EXPECT_EQ(value.data(), pair.data() + 3);
}
