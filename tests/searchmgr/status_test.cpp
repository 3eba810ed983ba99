#include "searchmgr/status.h"

#include <gtest/gtest.h>

TEST(Status, IsARawRecordWithOneComment) {
  SearchStatus status = {1234, true, 21, 10, 3, 4, 12, ""};
  EXPECT_EQ(Status_Record(status),
            "\t@COMMAND=RAW\t<!--korvo matches=1234 first=21 shown=10 shards=3/4 ms=12-->\n");
  status.spelling = "network interface";
  EXPECT_EQ(Status_Record(status),
            "\t@COMMAND=RAW\t<!--korvo matches=1234 first=21 shown=10 shards=3/4 ms=12 "
            "spelling=network%20interface-->\n");
}

TEST(Status, AnEstimateHasItsMark) {
  EXPECT_EQ(Status_Record({1234, false, 1, 10, 4, 4, 0, ""}),
            "\t@COMMAND=RAW\t<!--korvo matches=~1234 first=1 shown=10 shards=4/4 ms=0-->\n");
}

TEST(Status, LettersDigitsAndTwoMarksStandAsTheyAre) {
  const std::string plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._";
  EXPECT_EQ(Status_Encode(plain), plain);
}

TEST(Status, EveryOtherByteIsEncodedAndNoCommentCanEnd) {
  EXPECT_EQ(Status_Encode("-->"), "%2D%2D%3E");
  EXPECT_EQ(Status_Encode("--!>"), "%2D%2D%21%3E");
  EXPECT_EQ(Status_Encode("\xc3\xa4 \"&%\t\n"), "%C3%A4%20%22%26%25%09%0A");
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  EXPECT_EQ(Status_Encode(all + all).find("--"), std::string::npos);
  EXPECT_EQ(Status_Encode(all + all).find('>'), std::string::npos);
}
