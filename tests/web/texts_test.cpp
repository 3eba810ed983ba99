#include "web/texts.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/system/harness.h"

namespace {

std::string Wrong(const std::string &lines) {
  const Folder folder;
  const std::string path = folder.Write("texts", lines);
  Texts texts;
  std::string wrong;
  EXPECT_FALSE(Texts_Read(path, &texts, &wrong));
  return wrong.substr(std::min(path.size(), wrong.size()));
}

}  // namespace

TEST(Texts, BothLanguages_AreWhole) {
  Texts texts;
  std::string wrong;
  ASSERT_TRUE(Texts_Read(KORVO_PAGES "/texts.en", &texts, &wrong)) << wrong;
  EXPECT_EQ(texts[TextName::kNext], "Next");
  EXPECT_EQ(texts[Trouble::kShards], "Part of the documents could not be searched.");
  ASSERT_TRUE(Texts_Read(KORVO_PAGES "/texts.de", &texts, &wrong)) << wrong;
  EXPECT_EQ(texts[TextName::kNext], "Weiter");
}

TEST(Texts, EachOne_IsNeeded) {
  const std::string whole = ReadFile(KORVO_PAGES "/texts.en");
  for (const char *name :
       {"thousands", "about",        "exactly",    "one",      "nothing",       "behind",
        "try",       "spelling",     "pages",      "previous", "next",          "sort",
        "relevance", "groups",       "incomplete", "no-page",  "no-group",      "no-document",
        "method",    "long-request", "too-many",   "query",    "gone",          "failed",
        "broken",    "busy",         "stopping",   "too-late", "lost-document", "missing-hits",
        "shards"}) {
    std::string less = whole;
    const std::size_t at = less.find(std::string("\n") + name + " ");
    ASSERT_NE(at, std::string::npos) << name;
    less.insert(at + 1, "#");
    EXPECT_EQ(Wrong(less), std::string(": the text ") + name + " is missing");
  }
}

TEST(Texts, WrongLines_AreNamed) {
  EXPECT_EQ(Wrong("other x\n"), ":1: no text has the name 'other'");
  EXPECT_EQ(Wrong("none x\n"), ":1: no text has the name 'none'");
  EXPECT_EQ(Wrong("\nnext\n"), ":2: text next is empty");
}

TEST(Texts, Fill_NamesAreReplacedOnce) {
  EXPECT_EQ(Texts_Fill("{a} and {b}, {c} {", {{"a", "{b}"}, {"b", "2"}}), "{b} and 2, {c} {");
}

TEST(Texts, Count_HasItsThousands) {
  Texts texts;
  texts.texts[0] = ".";
  EXPECT_EQ(Texts_Count(texts, 7), "7");
  EXPECT_EQ(Texts_Count(texts, 123), "123");
  EXPECT_EQ(Texts_Count(texts, 1234), "1.234");
  EXPECT_EQ(Texts_Count(texts, 2147483647), "2.147.483.647");
}
