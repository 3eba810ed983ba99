#include "docmgr/snippet.h"

#include <gtest/gtest.h>

namespace {

// That many words "filler0", "filler1", ..., each behind a blank.
std::string Filler(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += " filler" + std::to_string(i);
  return text;
}

std::string Passage(const std::string &text, const std::vector<std::string> &words) {
  return Snippet_Of(text, Words_Wanted("english", words));
}

}  // namespace

TEST(Snippet, OfAShortTextIsTheText) {
  EXPECT_EQ(Passage("A <b> &amp; shells!", {"shell"}), "A <b> &amp; shells!");
  const std::string text(kSnippetSize, 'x');
  EXPECT_EQ(Passage(text, {"shell"}), text);
  EXPECT_EQ(Passage("", {"shell"}), "");
}

TEST(Snippet, HasTheMostOfTheWords) {
  const std::string passage =
      Passage("A shell." + Filler(60) + " Shells & <interpreters> \"are\" 'good'." + Filler(60),
              {"shell", "interpret"});
  EXPECT_TRUE(passage.starts_with("...Shells & <interpreters> \"are\" 'good'. filler0")) << passage;
  EXPECT_TRUE(passage.ends_with("...")) << passage;
}

TEST(Snippet, WithoutAWordIsTheStart) {
  const std::string text = "  Start &amp;" + Filler(60);
  const std::string start = "Start &amp;" + Filler(60);
  for (const std::vector<std::string> &words :
       {std::vector<std::string>{"other"}, std::vector<std::string>{}}) {
    const std::string passage = Passage(text, words);
    EXPECT_EQ(passage, start.substr(0, passage.size() - 3) + "...");
    EXPECT_EQ(start[passage.size() - 3], ' ');
    EXPECT_LE(passage.size(), kSnippetSize + 3);
  }
}

TEST(Snippet, OfOneLongWordIsItsStart) {
  std::string text;
  while (text.size() < 1000) text += "\xe2\x82\xac";
  EXPECT_EQ(Passage(text, {"shell"}), text.substr(0, kSnippetSize) + "...");
  const std::string behind = "a " + text;
  EXPECT_EQ(Passage(behind, {"shell"}), behind.substr(0, 299) + "...");
}

TEST(Snippet, IsFoundFarInside) {
  const std::string far = Filler(4000) + " the shells of the sea" + Filler(4000);
  ASSERT_GT(far.find("shells"), 32000u);
  const std::string passage = Passage(far, {"shell"});
  EXPECT_NE(passage.find("the shells of the sea filler0"), std::string::npos) << passage;
  EXPECT_TRUE(passage.starts_with("...") && passage.ends_with("...")) << passage;
}

TEST(Snippet, BeyondItsReachIsTheStart) {
  const std::string far = Filler(8000) + " shells";
  ASSERT_GT(far.find("shells"), kSnippetReach);
  EXPECT_TRUE(Passage(far, {"shell"}).starts_with("filler0 filler1"));
}

TEST(Snippet, AtTheEndOfALongWord_IsShortAndNotTakenForHtml) {
  const std::string text = std::string(5000, 'x') + " &lt; shell";
  EXPECT_EQ(Passage(text, {"shell"}), "... &lt; shell");
}

TEST(Snippet, OfAWordWithoutABlankAround) {
  const std::string text = std::string(5000, 'x') + "-shell-";
  EXPECT_EQ(Passage(text, {"shell"}), "...shell-");
  EXPECT_EQ(Passage(text + std::string(9000, 'y'), {"shell"}), "...shell-...");
}

TEST(Snippet, AtTheEndOfWhatWasLookedAt_SaysThatTheTextGoesOn) {
  const std::string end = " shells interpret it at the end";
  const std::string text = ("A shell" + Filler(2000)).substr(0, 8192 - end.size()) + end;
  const std::string passage = Passage(text + Filler(9), {"shell", "interpret"});
  EXPECT_TRUE(passage.ends_with(" shells interpret it at the...")) << passage;
  EXPECT_TRUE(Passage(text, {"shell", "interpret"}).ends_with(end));
}
