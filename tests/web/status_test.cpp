#include "web/status.h"

#include <gtest/gtest.h>

TEST(Status, Comment_IsRead) {
  PageStatus status;
  ASSERT_TRUE(Status_Read(
      "<!--korvo matches=1234 first=21 shown=10 shards=3/4 ms=12 spelling=network%20interface-->",
      &status));
  EXPECT_EQ(status.matches, 1234);
  EXPECT_TRUE(status.exact);
  EXPECT_EQ(status.first, 21);
  EXPECT_EQ(status.shown, 10);
  EXPECT_EQ(status.searched, 3);
  EXPECT_EQ(status.shards, 4);
  EXPECT_EQ(status.spelling, "network interface");
}

TEST(Status, Estimate_IsTold) {
  PageStatus status;
  ASSERT_TRUE(Status_Read("<!--korvo matches=~1234 first=1 shown=10 shards=1/1 ms=12-->", &status));
  EXPECT_EQ(status.matches, 1234);
  EXPECT_FALSE(status.exact);
  EXPECT_EQ(status.spelling, "");
}

TEST(Status, SpellingWithControlCharacters_IsCleaned) {
  PageStatus status;
  ASSERT_TRUE(Status_Read("<!--korvo matches=0 spelling=a%09%40%0Ab%ff-->", &status));
  EXPECT_EQ(status.spelling, "a @ b\xef\xbf\xbd");
}

TEST(Status, WordsThatSayNothing_ArePassedOver) {
  PageStatus status;
  ASSERT_TRUE(Status_Read("<!--korvo matches=3 x first=1 y=2 shown=2 shards=1/1-->", &status));
  EXPECT_EQ(status.matches, 3);
  EXPECT_EQ(status.shown, 2);
  EXPECT_EQ(status.shards, 1);
}

TEST(Status, OtherComments_AreNone) {
  PageStatus status;
  EXPECT_FALSE(Status_Read("<!--korvo:status-->", &status));
  EXPECT_FALSE(Status_Read("<!--korvo matches=1", &status));
  EXPECT_FALSE(Status_Read("<!--korvo matches=-1-->", &status));
  EXPECT_FALSE(Status_Read("", &status));
}

TEST(Status, NumbersThatCannotBe_AreNone) {
  PageStatus status;
  for (const char *numbers :
       {"matches=9 first=2147483647 shown=10", "matches=9 first=1 shown=2147483647",
        "matches=9 first=10001 shown=1", "matches=9 first=9990 shown=12",
        "matches=9 first=0 shown=1", "matches=9 first=-1 shown=1", "matches=9 first=-1 shown=0",
        "matches=9 first=1 shown=-1", "matches=9 first=1 shown=1 shards=-1/4",
        "matches=9 first=1 shown=1 shards=5/4"})
    EXPECT_FALSE(Status_Read(std::string("<!--korvo ") + numbers + "-->", &status)) << numbers;
  for (const char *numbers :
       {"matches=0 first=0 shown=0", "matches=9 first=1 shown=0",
        "matches=2147483647 first=9991 shown=10", "matches=9 first=10001 shown=0"})
    EXPECT_TRUE(Status_Read(std::string("<!--korvo ") + numbers + "-->", &status)) << numbers;
}
