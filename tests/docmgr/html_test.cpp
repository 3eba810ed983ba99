#include "docmgr/html.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

std::string Html(std::string_view text) { return Html_Text(text, {}, SIZE_MAX); }

}  // namespace

TEST(Html, EscapesFiveCharacters) {
  EXPECT_EQ(Html("a&b<c>d\"e'f;#/="), "a&amp;b&lt;c&gt;d&quot;e&#39;f;#/=");
  EXPECT_EQ(Html("&amp;"), "&amp;amp;");
  EXPECT_EQ(Html(""), "");
}

TEST(Html, LeavesUtf8AsItIs) {
  const char *text =
      "\xc2\x80 \xc3\xa4 \xe2\x82\xac \xef\xbf\xbf \xf0\x9f\x98\x80 \xf4\x8f\xbf\xbf";
  EXPECT_EQ(Html(text), text);
}

TEST(Html, ABadByteIsItsLatin1LetterOrTheReplacementCharacter) {
  EXPECT_EQ(Html("b\xe4r \xff"), "b\xc3\xa4r \xc3\xbf");
  EXPECT_EQ(Html("\x80|\x9f|\xa0"), "\xef\xbf\xbd|\xef\xbf\xbd|\xc2\xa0");
  EXPECT_EQ(Html("\xe2\x82"), "\xc3\xa2\xef\xbf\xbd");  // an end that was cut off
  EXPECT_EQ(Html("\xed\xa0\x80"), "\xef\xbf\xbd");      // half of a surrogate pair
  EXPECT_EQ(Html("\xf4\x90\xb0\xb1"), "\xc3\xb4\xef\xbf\xbd\xc2\xb0\xc2\xb1");  // beyond U+10FFFF
}

TEST(Html, AnOverlongFormIsNoWayAround) {
  for (const char *less : {"\xc0\xbc", "\xe0\x80\xbc", "\xf0\x80\x80\xbc"})
    EXPECT_EQ(Html(less).find_first_of("<>&\"'"), std::string::npos);
}

TEST(Html, MarksWords) {
  EXPECT_EQ(Html_Text("a shell & shells", {{2, 7}, {10, 16}}, SIZE_MAX),
            "a <mark>shell</mark> &amp; <mark>shells</mark>");
  EXPECT_EQ(Html_Text("AT&T's", {{0, 6}}, SIZE_MAX), "<mark>AT&amp;T&#39;s</mark>");
}

TEST(Html, IsCutBeforeWhatDoesNotFitWhole) {
  const std::string text = "a<\xe2\x82\xac wo";
  const Spans marks = {{6, 8}};
  const std::string whole = "a&lt;\xe2\x82\xac <mark>wo</mark>";
  EXPECT_EQ(Html_Text(text, marks, whole.size()), whole);
  EXPECT_EQ(Html_Text(text, marks, whole.size() - 1), "a&lt;\xe2\x82\xac ");
  for (std::size_t size : {5u, 6u, 7u}) EXPECT_EQ(Html_Text(text, marks, size), "a&lt;") << size;
  for (std::size_t size : {1u, 2u, 3u, 4u}) EXPECT_EQ(Html_Text(text, marks, size), "a") << size;
  EXPECT_EQ(Html_Text(text, marks, 0), "");
}
