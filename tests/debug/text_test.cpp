#include "debug/text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

namespace {

std::vector<std::string> Tokens(std::string_view text, std::string_view separators) {
  std::vector<std::string> tokens;
  for (;;) {
    const std::string_view token = Text_Token(&text, separators);
    if (token.empty()) return tokens;
    tokens.emplace_back(token);
  }
}

using Words = std::vector<std::string>;

}  // namespace

TEST(Text, Copy_FittingText_IsWhole) {
  char field[4] = "xxx";
  EXPECT_TRUE(Text_Copy(field, "abc"));
  EXPECT_STREQ(field, "abc");
  EXPECT_TRUE(Text_Copy(field, ""));
  EXPECT_STREQ(field, "");
}

TEST(Text, Copy_TooLongText_IsCutAndTerminated) {
  char field[5] = {'x', 'x', 'x', 'x', '!'};
  EXPECT_FALSE(Text_CopyTo(field, 4, "abcd"));
  EXPECT_STREQ(field, "abc");
  EXPECT_EQ(field[4], '!');
}

TEST(Text, Copy_RoomForTheTerminatorOnly_IsEmpty) {
  char field[2] = {'x', '!'};
  EXPECT_FALSE(Text_CopyTo(field, 1, "a"));
  EXPECT_EQ(std::memcmp(field, "\0!", 2), 0);
}

TEST(Text, Format_TellsWhetherTheTextFitted) {
  char field[5];
  EXPECT_TRUE(Text_FormatTo(field, sizeof field, "%d", 1234));
  EXPECT_STREQ(field, "1234");
  EXPECT_FALSE(Text_FormatTo(field, sizeof field, "%d", 12345));
  EXPECT_STREQ(field, "1234");
  EXPECT_TRUE(Text_FormatTo(field, sizeof field, "%s", ""));
  EXPECT_STREQ(field, "");
}

TEST(Text, Format_TakesTextsAndNumbersAsTheyCome) {
  char line[80];
  EXPECT_TRUE(Text_FormatTo(line, sizeof line, "%s=%d\t%s%ld.", "a", -7, "b", 0L));
  EXPECT_STREQ(line, "a=-7\tb0.");
  EXPECT_TRUE(Text_FormatTo(line, sizeof line, "%d %ld", INT32_MIN, LONG_MIN));
  EXPECT_EQ(line, std::to_string(INT32_MIN) + " " + std::to_string(LONG_MIN));
}

TEST(Text, Format_TextThatIsCut_KeepsWhatFits) {
  char field[5];
  EXPECT_TRUE(Text_FormatTo(field, sizeof field, "%s%s", "ab", "cd"));
  EXPECT_STREQ(field, "abcd");
  EXPECT_FALSE(Text_FormatTo(field, sizeof field, "%s%s%s", "abc", "de", ""));
  EXPECT_STREQ(field, "abcd");
  EXPECT_FALSE(Text_FormatTo(field, sizeof field, "abcde%s", ""));
  EXPECT_STREQ(field, "abcd");
}

TEST(Text, Format_OtherConversion_IsThatOfSnprintf) {
  char line[20];
  EXPECT_TRUE(Text_FormatTo(line, sizeof line, "%s=%d %05.1f%%", "a", 1, 2.25));
  EXPECT_STREQ(line, "a=1 002.2%");
  EXPECT_TRUE(Text_FormatTo(line, sizeof line, "%*s", 19, "b"));
  EXPECT_STREQ(line, "                  b");
  EXPECT_TRUE(Text_FormatTo(line, sizeof line, "%.0s", "b"));
  EXPECT_STREQ(line, "");
  EXPECT_FALSE(Text_FormatTo(line, sizeof line, "%20s", "b"));
  EXPECT_STREQ(line, "                   ");
}

TEST(Text, Format_TextThatCannotBeMade_DoesNotFit) {
  char field[5];
  EXPECT_FALSE(Text_FormatTo(field, sizeof field, "%lc", wint_t{0x20ac}));
  EXPECT_EQ(field[0], '\0');
}

TEST(Text, Length_OfNull_IsZero) {
  EXPECT_EQ(Text_Length(nullptr), 0);
  EXPECT_EQ(Text_Length(""), 0);
  EXPECT_EQ(Text_Length("abc"), 3);
}

TEST(Text, ToInt32_ReadsLikeA32BitStrtol) {
  static constexpr struct {
    const char *text;
    std::int32_t number;
  } kRows[] = {
      {"0", 0},
      {"7", 7},
      {"-1", -1},
      {"+42", 42},
      {" \t\n\v\f\r 42", 42},
      {"1:2", 1},
      {"1/2", 1},
      {"- 1", 0},
      {"--1", 0},
      {"", 0},
      {"abc", 0},
      {"12abc", 12},
      {"1 2", 1},
      {"0x10", 0},
      {"010", 10},
      {"1.9", 1},
      {"2147483646", 2147483646},
      {"2147483647", 2147483647},
      {"2147483648", 2147483647},
      {"4294967295", 2147483647},
      {"4294967297", 2147483647},
      {"99999999999999999999999999", 2147483647},
      {"-2147483648", INT32_MIN},
      {"-2147483649", INT32_MIN},
      {"-99999999999999999999999999", INT32_MIN},
  };
  for (const auto &row : kRows) EXPECT_EQ(Text_ToInt32(row.text), row.number) << row.text;
}

TEST(Text, ToInt32_OfNothing_LooksAtNoByte) {
  EXPECT_EQ(Text_ToInt32(std::string_view("57").substr(1, 0)), 0);
}

TEST(Text, ToPort_FallsInto16SignedBits) {
  static constexpr struct {
    const char *text;
    int port;
  } kRows[] = {
      {"0", 0},           {"1", 1},      {"32767", 32767},   {"32768", -32768},
      {"40000", -25536},  {"65535", -1}, {"65536", 0},       {"65537", 1},
      {"-1", -1},         {"x", 0},      {"2147483647", -1}, {"4294967297", -1},
      {"-2147483648", 0},
  };
  for (const auto &row : kRows) EXPECT_EQ(Text_ToPort(row.text), row.port) << row.text;
}

TEST(Text, Token_SkipsRunsOfSeparators) {
  EXPECT_EQ(Tokens("\t\tID=a \t TYPE=S\n", " \t\n"), (Words{"ID=a", "TYPE=S"}));
  EXPECT_EQ(Tokens("one", " \t\n"), (Words{"one"}));
  EXPECT_EQ(Tokens(" \t\n", " \t\n"), Words{});
  EXPECT_EQ(Tokens("", " \t\n"), Words{});
}

TEST(Text, Token_CarriageReturnOutsideOfTheSet_BelongsToTheToken) {
  EXPECT_EQ(Tokens("a b\r\n", " \t\n"), (Words{"a", "b\r"}));
}

TEST(Text, Token_LeavesTheRestBehindTheToken) {
  std::string_view text = " a b c";
  EXPECT_EQ(Text_Token(&text, " "), "a");
  EXPECT_EQ(text, " b c");
}
