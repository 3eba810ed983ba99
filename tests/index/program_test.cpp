// korvo-index as its users run it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>
#include <xapian.h>

#include <regex>

#include "store/record.h"
#include "tests/service/running.h"

namespace {

Xapian::doccount Count(const std::string &database) {
  return Xapian::Database(database).get_doccount();
}

std::string Stored(const std::string &database, Xapian::docid number) {
  return Xapian::Database(database).get_document(number).get_data();
}

constexpr const char *kUsage = "usage: korvo-index DATABASE FILE...\n";

std::string Numbered(int count) {
  std::string documents;
  for (int i = 1; i <= count; ++i) documents += "Title: common " + std::to_string(i) + "\n\n";
  return documents;
}

}  // namespace

TEST(Index, StoresEachDocumentAsItsRecordAndSaysNothing) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  const Finished indexer = RunIndexer({database, folder.Write("packages", kPackages)});
  EXPECT_EQ(indexer.status, 0);
  EXPECT_EQ(indexer.output, "");
  EXPECT_EQ(indexer.errors, "");
  EXPECT_EQ(Count(database), 4u);
  EXPECT_EQ(
      Stored(database, 1),
      "\tPackage=bash\tVersion=5.2\tSection=shells\tDescription=GNU Bourne Again shell An interpreter.\t");
}

TEST(Index, ReadsSeveralFilesAndStandardInput) {
  const Folder folder;
  const std::string a = folder.Write("a", "Title: a\n"), b = folder.Write("b", "Title: b\n");
  const std::string c = folder.Write("c", "Title: c");
  const std::string database = folder.Path() + "/db";
  const Finished indexer =
      RunIndexer({database, a, "-", c}, [&b] { dup2(open(b.c_str(), O_RDONLY), STDIN_FILENO); });
  EXPECT_EQ(indexer.status, 0) << indexer.errors;
  EXPECT_EQ(Count(database), 3u);
  EXPECT_EQ(Stored(database, 2), "\tTitle=b\t");
  EXPECT_EQ(Stored(database, 3), "\tTitle=c\t");
}

TEST(Index, AgainChangesNothing) {
  const Folder folder;
  const std::string database = BuildIndex(folder, "db", kPackages);
  const std::string before = Stored(database, 4);
  BuildIndex(folder, "db", kPackages);
  EXPECT_EQ(Count(database), 4u);
  EXPECT_EQ(Xapian::Database(database).get_lastdocid(), 4u);
  EXPECT_EQ(Stored(database, 4), before);
}

TEST(Index, ReplacesADocumentInItsPlaceAndKeepsOtherVersions) {
  const Folder folder;
  const std::string database = BuildIndex(folder, "db", kPackages);
  BuildIndex(folder, "db",
             "Package: bash\nVersion: 5.2\nNote: new\n\nPackage: bash\nVersion: 5.3\n");
  EXPECT_EQ(Count(database), 5u);
  EXPECT_EQ(Stored(database, 1), "\tPackage=bash\tVersion=5.2\tNote=new\t");
  EXPECT_EQ(Stored(database, 5), "\tPackage=bash\tVersion=5.3\t");
}

TEST(Index, CountsTheValuesThatItCut) {
  const Folder folder;
  const std::string value(5000, 'v');
  const Finished indexer = RunIndexer(
      {folder.Path() + "/db", folder.Write("long", "A: " + value + "\nB: " + value + "\nC: v\n")});
  EXPECT_EQ(indexer.status, 0);
  EXPECT_EQ(indexer.errors, "korvo-index: values that were too long and are stored cut: 2\n");
  EXPECT_EQ(Stored(folder.Path() + "/db", 1),
            "\tA=" + value.substr(0, 4095) + "\tB=" + value.substr(0, 4095) + "\tC=v\t");
}

TEST(Index, ShowsItsProgressOnATerminal) {
  const Folder folder;
  int terminal = -1, far = -1;
  if (openpty(&terminal, &far, nullptr, nullptr, nullptr) != 0) GTEST_SKIP() << "no terminal here";
  const Finished indexer = RunIndexer({folder.Path() + "/db", folder.Write("many", Numbered(250))},
                                      [&] { dup2(far, STDERR_FILENO); });
  EXPECT_EQ(indexer.status, 0);
  char shown[256];
  const ssize_t length = read(terminal, shown, sizeof shown);
  close(terminal);
  close(far);
  ASSERT_GT(length, 0);
  EXPECT_EQ(
      std::string(shown, static_cast<std::size_t>(length)),
      "korvo-index: 100 documents\rkorvo-index: 200 documents\rkorvo-index: 250 documents\r\n");
}

TEST(Index, BadUse_IsTheUsageLine) {
  for (const std::vector<std::string> &arguments :
       {std::vector<std::string>{}, {"db"}, {"--help", "x"}, {"-", "x"}, {"", "x"}}) {
    const Finished indexer = RunIndexer(arguments);
    EXPECT_EQ(indexer.status, 64);
    EXPECT_EQ(indexer.errors, kUsage);
  }
}

TEST(Index, BadData_NamesFileAndLineAndStoresNothing) {
  const Folder folder;
  const std::string database = BuildIndex(folder, "db", "Title: kept\n");
  const std::string bad = folder.Write("bad", "Title: new\n\nno colon\n");
  const Finished indexer = RunIndexer({database, bad});
  EXPECT_EQ(indexer.status, 65);
  EXPECT_EQ(indexer.errors,
            "korvo-index: " + bad + ":3: expected \"Name: value\"; nothing was stored\n");
  EXPECT_EQ(Count(database), 1u);
}

TEST(Index, InputThatCannotBeRead_StoresNothing) {
  const Folder folder;
  const std::string database = folder.Path() + "/db", good = folder.Write("good", kPackages);
  const std::string missing = folder.Path() + "/missing";
  Finished indexer = RunIndexer({database, good, missing});
  EXPECT_EQ(indexer.status, 66);
  EXPECT_EQ(indexer.errors, "korvo-index: cannot open " + missing +
                                ": No such file or directory; nothing was stored\n");
  indexer = RunIndexer({database, good, folder.Path()});
  EXPECT_EQ(indexer.status, 66);
  EXPECT_EQ(indexer.errors,
            "korvo-index: cannot read " + folder.Path() + ": Is a directory; nothing was stored\n");
  EXPECT_EQ(Count(database), 0u);
}

TEST(Index, DatabaseThatCannotBeMade_IsSaidInOneLine) {
  const Folder folder;
  const std::string database = folder.Path() + "/no/db";
  const Finished indexer = RunIndexer({database, folder.Write("good", kPackages)});
  EXPECT_EQ(indexer.status, 73);
  EXPECT_EQ(indexer.errors, "korvo-index: cannot open " + database +
                                " for writing: DatabaseCreateError: " + database +
                                ": mkdir failed (No such file or directory)\n");
}

TEST(Index, DatabaseThatAnotherIndexerWrites_IsSaidInOneLine) {
  const Folder folder;
  const std::string database = BuildIndex(folder, "db", kPackages);
  const Xapian::WritableDatabase other(database, Xapian::DB_OPEN);
  const Finished indexer = RunIndexer({database, folder.Write("good", kPackages)});
  EXPECT_EQ(indexer.status, 73);
  EXPECT_EQ(indexer.errors, "korvo-index: cannot open " + database +
                                " for writing: DatabaseLockError: Unable to get write lock on " +
                                database + ": already locked\n");
}

TEST(Index, WritingThatFails_IsSaidInOneLineAndStoresNothing) {
  const Folder folder;
  const std::string database = BuildIndex(folder, "db", "Title: kept\n");
  const Finished indexer = RunIndexer({database, folder.Write("many", Numbered(2000))}, [] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {32768, 32768};
    setrlimit(RLIMIT_FSIZE, &small);
  });
  EXPECT_EQ(indexer.status, 74);
  EXPECT_EQ(std::regex_replace(indexer.errors, std::regex("block [0-9]+"), "block N"),
            "korvo-index: cannot write " + database +
                ": DatabaseError: Error writing block N (File too large)\n");
  EXPECT_EQ(Count(database), 1u);
}

// A value that the memory holds twice, but not three times.
TEST(Index, MemoryThatRunsOut_IsSaidInOneLineAndStoresNothing) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer takes more address space than that";
#endif
  const Folder folder;
  const std::string database = BuildIndex(folder, "db", "Title: kept\n");
  const std::string file = folder.Write("large", "Text: " + std::string(70'000'000, 'x') + "\n");
  const Finished indexer = RunIndexer({database, file}, [] {
    const rlimit small = {280u << 20, 280u << 20};
    setrlimit(RLIMIT_AS, &small);
  });
  EXPECT_EQ(indexer.status, 74);
  EXPECT_EQ(indexer.errors, "korvo-index: cannot write " + database + ": std::bad_alloc\n");
  EXPECT_EQ(Count(database), 1u);
}

TEST(Index, StandardInput_IsNamed) {
  const Folder folder;
  const std::string bad = folder.Write("bad", "no colon\n");
  const Finished indexer = RunIndexer({folder.Path() + "/db", "-"},
                                      [&] { dup2(open(bad.c_str(), O_RDONLY), STDIN_FILENO); });
  EXPECT_EQ(indexer.status, 65);
  EXPECT_EQ(indexer.errors,
            "korvo-index: standard input:1: expected \"Name: value\"; nothing was stored\n");
}
