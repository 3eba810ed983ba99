#include "store/field.h"

#include <gtest/gtest.h>

TEST(Field, IsName_TakesNamesOfPackageLists) {
  for (const char *name : {"Package", "Installed-Size", "X_y.z", "a", "Sha256"})
    EXPECT_TRUE(Field_IsName(name)) << name;
  EXPECT_TRUE(Field_IsName(std::string(64, 'a')));
}

TEST(Field, IsName_RefusesWhatTheWireOrAReaderWouldTakeForSomethingElse) {
  for (const char *name : {"", "@COMMAND", "1+1", "-x", "a b", "a\tb", "a=b", "a:b", "\xc3\xa4"})
    EXPECT_FALSE(Field_IsName(name)) << name;
  EXPECT_FALSE(Field_IsName(std::string(65, 'a')));
}

TEST(Field, Prefix_IsTheSameForCapitalsAndSmallLetters) {
  EXPECT_EQ(Field_Prefix("Package"), "XPACKAGE:");
  EXPECT_EQ(Field_Prefix("pACKAGE"), "XPACKAGE:");
  EXPECT_EQ(Field_Prefix("Sha-256"), "XSHA-256:");
}
