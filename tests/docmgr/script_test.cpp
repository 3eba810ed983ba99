#include "docmgr/script.h"

#include <gtest/gtest.h>

#include "debug/log.h"
#include "tests/support/log_capture.h"

TEST(Script, WordsArePartedByBlanks) {
  const Script script = Script_Read("  html place   mark:shell all mark:c++ snippet ");
  EXPECT_TRUE(script.html && script.snippet && script.place && script.all);
  EXPECT_EQ(script.marks, (std::vector<std::string>{"shell", "c++"}));
}

TEST(Script, WithoutWordsWishesNothing) {
  for (const char *text : {"", "   "}) {
    const Script script = Script_Read(text);
    EXPECT_FALSE(script.html || script.snippet || script.place || script.all) << text;
    EXPECT_TRUE(script.marks.empty()) << text;
  }
}

TEST(Script, AnUnknownWordIsLoggedAndIgnored) {
  Script script;
  const std::string log =
      MessagesAt(kWarning, [&] { script = Script_Read("HTML mark: html,all mark:a:b place"); });
  EXPECT_TRUE(script.place);
  EXPECT_FALSE(script.html || script.snippet || script.all);
  EXPECT_EQ(script.marks, std::vector<std::string>{"a:b"});
  EXPECT_EQ(log,
            "[DocMgr: Script] There is no word 'HTML'\n"
            "[DocMgr: Script] There is no word 'mark:'\n"
            "[DocMgr: Script] There is no word 'html,all'\n");
}
