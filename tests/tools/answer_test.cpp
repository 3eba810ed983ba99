#include "tools/query/answer.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

bool HasError(const std::vector<std::string> &pieces) {
  Answer answer;
  for (const std::string &piece : pieces) Answer_Add(&answer, piece);
  return answer.error;
}

TEST(Answer, ErrorLine_IsFoundWhereverItIsCut) {
  const std::string text = "page\t@COMMAND=ERROR\tUnable to retreive document.";
  for (std::size_t cut = 0; cut <= text.size(); ++cut)
    EXPECT_TRUE(HasError({text.substr(0, cut), text.substr(cut)})) << cut;
  std::vector<std::string> bytes;
  for (const char c : text) bytes.emplace_back(1, c);
  EXPECT_TRUE(HasError(bytes));
}

TEST(Answer, ErrorLine_StaysFound) { EXPECT_TRUE(HasError({"\t@COMMAND=ERROR\tx\n", "tail"})); }

TEST(Answer, OtherText_IsNoError) {
  EXPECT_FALSE(HasError({"@COMMAND=ERROR\t"}));
  EXPECT_FALSE(HasError({"\t@COMMAND=ERROR"}));
  EXPECT_FALSE(HasError({"\t@COMMAND=ERR", "x", "OR\t"}));
  EXPECT_FALSE(HasError({}));
}

TEST(Answer, BytesAreCounted) {
  Answer answer;
  EXPECT_EQ('\n', answer.last);
  Answer_Add(&answer, "abc");
  Answer_Add(&answer, "");
  EXPECT_EQ(3u, answer.size);
  EXPECT_EQ('c', answer.last);
}

TEST(Answer, Readable_ShowsControlCharacters) {
  EXPECT_EQ("a\tb\n\\x1b[2J\\x0d\\x00\\x7f", Answer_Readable("a\tb\n\x1b[2J\r\0\x7f"s, '\n'));
  EXPECT_EQ("\xc3\xa9 \xe2\x82\xac", Answer_Readable("\xc3\xa9 \xe2\x82\xac", '\n'));
  EXPECT_EQ("\xc2\\x9b", Answer_Readable("\xc2\x9b", '\n'));
  EXPECT_EQ("\\x9b", Answer_Readable("\x9b", '\xc2'));  // cut between two pieces
}

}  // namespace
