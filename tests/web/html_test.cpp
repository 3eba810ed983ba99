#include "web/html.h"

#include <gtest/gtest.h>

TEST(Html, Escape_FiveCharacters) {
  EXPECT_EQ(Html_Escape("a<b> & \"c\" 'd'"), "a&lt;b&gt; &amp; &quot;c&quot; &#39;d&#39;");
}

TEST(Html, UrlEncode_AllButPlainOnes) {
  EXPECT_EQ(Html_UrlEncode("aZ09-._~ &=+%/\xc3\xa4"), "aZ09-._~%20%26%3D%2B%25%2F%C3%A4");
}

TEST(Html, UrlDecode_IsWhatEncodeWrote) {
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  EXPECT_EQ(Html_UrlDecode(Html_UrlEncode(every), true), every);
  EXPECT_EQ(Html_UrlDecode("a+b%2Bc%2bd", true), "a b+c+d");
  EXPECT_EQ(Html_UrlDecode("a+b", false), "a+b");
}

TEST(Html, Unescape_FiveEntities) {
  EXPECT_EQ(Html_Unescape("a&lt;b&gt; &amp; &quot;c&quot; &#39;d&#39;"), "a<b> & \"c\" 'd'");
  EXPECT_EQ(Html_Unescape("&amp;lt; &nbsp; & &am"), "&lt; &nbsp; & &am");
  EXPECT_EQ(Html_Unescape(""), "");
}

TEST(Html, UrlDecode_BadEscapes_StandForThemselves) {
  EXPECT_EQ(Html_UrlDecode("%%zz%4%", true), "%%zz%4%");
  EXPECT_EQ(Html_UrlDecode("%%41", true), "%A");
}

TEST(Html, Clean_ControlCharactersAreBlanks) {
  EXPECT_EQ(Html_Clean(std::string("a\tb\nc\rd\0e\x7f", 10)), "a b c d e ");
  EXPECT_EQ(Html_Clean("\x1f \x20~\x7f"), "   ~ ");
  EXPECT_EQ(Html_Clean("a\xc2\x85z"), "a z");
  EXPECT_EQ(Html_Clean("\xc2\x80\xc2\x9f\xc2\xa0"), "  \xc2\xa0");  // the last is a blank to see
}

TEST(Html, Clean_FirstAndLastOfEachLength_StayAsTheyAre) {
  for (const std::string text :
       {"\xc3\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xe0\xbf\xbf", "\xe1\x80\x80", "\xed\x80\x80",
        "\xed\x9f\xbf", "\xee\x80\x80", "\xef\xbf\xbd", "\xf0\x90\x80\x80", "\xf0\xbf\xbf\xbf",
        "\xf1\x80\x80\x80", "\xf4\x80\x80\x80", "\xf4\x8f\xbf\xbf"})
    EXPECT_EQ(Html_Clean(text), text);
}

TEST(Html, Clean_BytesThatAreNoUtf8_AreReplaced) {
  const std::string bad = "\xef\xbf\xbd";
  EXPECT_EQ(Html_Clean("\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"),
            "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80");
  EXPECT_EQ(Html_Clean("\xc3"), bad);
  EXPECT_EQ(Html_Clean("\xc0\x80"), bad + bad);
  EXPECT_EQ(Html_Clean("\xe0\x9f\xbf"), bad + bad + bad);
  EXPECT_EQ(Html_Clean("\xed\xa0\x80"), bad + bad + bad);
  EXPECT_EQ(Html_Clean("\xf0\x8f\xbf\xbf"), bad + bad + bad + bad);
  EXPECT_EQ(Html_Clean("\xf4\x90\x80\x80"), bad + bad + bad + bad);
  EXPECT_EQ(Html_Clean("\xff<"), bad + "<");
  EXPECT_EQ(Html_Clean("\x80"), bad);
  EXPECT_EQ(Html_Clean("\xc1\xbf"), bad + bad);
  EXPECT_EQ(Html_Clean("\xf5\x80\x80\x80"), bad + bad + bad + bad);
  EXPECT_EQ(Html_Clean("\xc3z"), bad + "z");
  EXPECT_EQ(Html_Clean("\xe2\x82z"), bad + bad + "z");
  EXPECT_EQ(Html_Clean("\xe2\x82\xc0"), bad + bad + bad);
  EXPECT_EQ(Html_Clean("\xf0\x9f\x98z"), bad + bad + bad + "z");
}
