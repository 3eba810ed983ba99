#include "config/index_arrays.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/log_capture.h"

namespace {

// A table of max + 1 entries with something in each, and the buffer that its names point into.
struct Table {
  Table(const std::string &text, int max)
      : buffer(text), entries(static_cast<std::size_t>(max) + 1, {"old", 77, 88}) {
    const LogCapture capture(101);
    count = SrchEngine_SetupArrays(entries.data(), max, buffer.data());
    log = capture.Messages();
  }

  std::string Show(std::size_t at) const {
    const IndexEntry &entry = entries[at];
    const std::string name = entry.Name != nullptr ? entry.Name : "none";
    return name + " " + std::to_string(entry.Offset) + " " + std::to_string(entry.Size);
  }

  std::string buffer;
  std::vector<IndexEntry> entries;
  int count = -1;
  std::string log;
};

TEST(SetupArrays, CompleteEntries_AreCountedFrom1) {
  const Table table("a\t1\t2\nbc\t30\t40\n", 5);
  EXPECT_EQ(table.count, 2);
  EXPECT_EQ(table.Show(0), "none 0 0");
  EXPECT_EQ(table.Show(1), "a 1 2");
  EXPECT_EQ(table.Show(2), "bc 30 40");
  EXPECT_EQ(table.log, "");
}

TEST(SetupArrays, MaxEntries_AreClearedFromTheStart) {
  const Table table("a\t1\t2\n", 4);
  EXPECT_EQ(table.Show(2), "none 0 0");
  EXPECT_EQ(table.Show(3), "none 0 0");
  EXPECT_EQ(table.Show(4), "old 77 88") << "the entry behind those is not cleared";
}

TEST(SetupArrays, MoreTokensThanRoom_FillsUpToMax) {
  const Table table("a\t1\t2\tb\t3\t4\tc\t5\t6\n", 2);
  EXPECT_EQ(table.count, 2);
  EXPECT_EQ(table.Show(2), "b 3 4");
  EXPECT_EQ(table.log, "");
}

TEST(SetupArrays, NameWithoutOffset_IsLoggedAndNotCounted) {
  const Table table("a\t1\t2\nb\n", 5);
  EXPECT_EQ(table.count, 1);
  EXPECT_EQ(table.log,
            "[Srch Engine: SetupArrays] error tokenizing buffer for offset: entry # 2\n");
  EXPECT_EQ(table.Show(2), "b 0 0");
}

TEST(SetupArrays, OffsetWithoutSize_IsLoggedAndNotCounted) {
  const Table table("a\t1\t2\tb\t3", 5);
  EXPECT_EQ(table.count, 1);
  EXPECT_EQ(table.log, "[Srch Engine: SetupArrays] error tokenizing buffer for size: entry # 2\n");
  EXPECT_EQ(table.Show(1), "a 1 2");
  EXPECT_EQ(table.Show(2), "b 3 0");
}

TEST(SetupArrays, FirstEntryIncomplete_CountsNone) {
  EXPECT_EQ(Table("a", 5).count, 0);
  EXPECT_EQ(Table("a", 5).log,
            "[Srch Engine: SetupArrays] error tokenizing buffer for offset: entry # 1\n");
  EXPECT_EQ(Table("a\t1", 5).log,
            "[Srch Engine: SetupArrays] error tokenizing buffer for size: entry # 1\n");
}

TEST(SetupArrays, Failures_AreLoggedAt101) {
  for (const char *text : {"a", "a\t1"}) {
    std::vector<IndexEntry> entries(3);
    MessagesAt(101, [&] {
      std::string buffer = text;
      SrchEngine_SetupArrays(entries.data(), 2, buffer.data());
    });
  }
}

TEST(SetupArrays, NoToken_CountsNone) {
  for (const char *text : {"", "\t\n\t", "\n"}) {
    const Table table(text, 3);
    EXPECT_EQ(table.count, 0);
    EXPECT_EQ(table.log, "");
  }
}

TEST(SetupArrays, MaxOfZero_StoresNothing) {
  const Table table("a\t1\t2\n", 0);
  EXPECT_EQ(table.count, 0);
  EXPECT_EQ(table.Show(0), "old 77 88");
}

TEST(SetupArrays, Separators_AreRunsOfTabsAndNewlinesAlone) {
  const Table table("\n\ta b,c\t\t\n1\n\t2\n", 3);
  EXPECT_EQ(table.count, 1);
  EXPECT_EQ(table.Show(1), "a b,c 1 2");
  EXPECT_EQ(Table("a\t1 9\t2 9\n", 3).Show(1), "a 1 2");
}

TEST(SetupArrays, Numbers_AreThoseOf32Bits) {
  const Table table("a\t-5\t12x\nb\tx\t4294967297\nc\t-4294967297\t2147483647\n", 3);
  EXPECT_EQ(table.Show(1), "a -5 12");
  EXPECT_EQ(table.Show(2), "b 0 2147483647");
  EXPECT_EQ(table.Show(3), "c -2147483648 2147483647");
}

TEST(SetupArrays, Buffer_HoldsTheNamesAndZerosForSeparators) {
  const Table table("a\t1\t2\nbc\t3\t4\n", 3);
  EXPECT_EQ(table.buffer, std::string("a\0001\0002\0bc\0003\0004\0", 13));
  EXPECT_EQ(table.entries[2].Name, table.buffer.data() + 6);
}

}  // namespace
