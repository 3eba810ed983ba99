#include "index/progress.h"

#include <gtest/gtest.h>

TEST(Progress, Text_HasWhatIsDoneTheRateAndTheTimeLeft) {
  EXPECT_EQ(Progress_Text({46'000'000, 11'500'000, 7890, 5}),
            "11.5 of 46.0 MB, 7890 documents, 2.3 MB/s, 0:15 left");
  EXPECT_EQ(Progress_Text({46'000'000, 46'000'000, 9, 5}),
            "46.0 of 46.0 MB, 9 documents, 9.2 MB/s, 0:00 left");
  EXPECT_EQ(Progress_Text({1'000'000'000, 1'000'000, 9, 1}),
            "1.0 of 1000.0 MB, 9 documents, 1.0 MB/s, 16:39 left");
}

TEST(Progress, Text_LeavesOutWhatNobodyKnows) {
  EXPECT_EQ(Progress_Text({0, 11'500'000, 7890, 5}), "11.5 MB, 7890 documents, 2.3 MB/s");
  EXPECT_EQ(Progress_Text({46'000'000, 0, 0, 0}), "0.0 of 46.0 MB, 0 documents, 0.0 MB/s");
  EXPECT_EQ(Progress_Text({1'000'000'000'000, 1, 1, 9}),
            "0.0 of 1000000.0 MB, 1 documents, 0.0 MB/s");
  // A file that grows.
  EXPECT_EQ(Progress_Text({1'000'000, 2'000'000, 1, 1}), "2.0 of 1.0 MB, 1 documents, 2.0 MB/s");
}
