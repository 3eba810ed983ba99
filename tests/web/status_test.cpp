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

TEST(Status, OtherComments_AreNone) {
  PageStatus status;
  EXPECT_FALSE(Status_Read("<!--korvo:status-->", &status));
  EXPECT_FALSE(Status_Read("<!--korvo matches=1", &status));
  EXPECT_FALSE(Status_Read("<!--korvo matches=-1-->", &status));
  EXPECT_FALSE(Status_Read("", &status));
}
