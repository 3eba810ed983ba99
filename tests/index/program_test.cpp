// korvo-index as its users run it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>
#include <xapian.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>

#include "store/schema.h"
#include "tests/service/running.h"

namespace {

Xapian::doccount Count(const std::string &database) {
  return Xapian::Database(database).get_doccount();
}

std::string Stored(const std::string &database, Xapian::docid number) {
  return Xapian::Database(database).get_document(number).get_data();
}

bool Exists(const std::string &path) { return std::filesystem::exists(path); }

// Fails the test unless the run ends with that status and those lines.
void ExpectRun(const std::vector<std::string> &arguments, int status, const std::string &errors,
               const std::function<void()> &prepare = {}) {
  const Finished indexer = RunIndexer(arguments, prepare);
  EXPECT_EQ(indexer.status, status);
  EXPECT_EQ(indexer.errors, errors);
}

std::function<void()> Reading(const std::string &file) {
  return [file] { dup2(open(file.c_str(), O_RDONLY), STDIN_FILENO); };
}

constexpr const char *kBooks = "Number keyword id\nTitle text\nPages number\n";

std::string Numbered(int count) {
  std::string documents;
  for (int i = 1; i <= count; ++i) documents += "Title: common " + std::to_string(i) + "\n\n";
  return documents;
}

}  // namespace

TEST(Index, StoresEachDocumentAndSaysHowMany) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  const Finished indexer = RunIndexer({database, folder.Write("packages", kPackages)});
  EXPECT_EQ(indexer.status, 0);
  EXPECT_EQ(indexer.output, "");
  EXPECT_EQ(indexer.errors, "korvo-index: 4 new, 0 replaced\n");
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
  const std::string value(600'000, '.'), database = folder.Path() + "/db";
  ExpectRun({database, folder.Write("long", "A: " + value + "\nB: " + value + "\nC: v\n")}, 0,
            "korvo-index: values that were too long and are stored cut: 2\n"
            "korvo-index: 1 new, 0 replaced\n");
  EXPECT_EQ(Stored(database, 1).size(), std::size_t{1} << 20);
}

TEST(Index, ShowsItsProgressOnATerminal) {
  const Folder folder;
  int terminal = -1, far = -1;
  if (openpty(&terminal, &far, nullptr, nullptr, nullptr) != 0) GTEST_SKIP() << "no terminal here";
  const Finished indexer = RunIndexer({folder.Path() + "/db", folder.Write("many", Numbered(250))},
                                      [&] { dup2(far, STDERR_FILENO); });
  EXPECT_EQ(indexer.status, 0);
  char shown[4096];
  const ssize_t length = read(terminal, shown, sizeof shown);
  close(terminal);
  close(far);
  ASSERT_GT(length, 0);
  const std::string text(shown, static_cast<std::size_t>(length));
  const std::regex numbers(
      "0\\.0 of 0\\.0 MB, [0-9]+ documents, [0-9.]+ MB/s(, [0-9]+:[0-9]+ left)?");
  const std::regex on_the_way("korvo-index: N\x1b\\[K\r(?!\n)");
  EXPECT_EQ(std::regex_replace(std::regex_replace(text, numbers, "N"), on_the_way, ""),
            "korvo-index: N\x1b[K\r\nkorvo-index: 250 new, 0 replaced\r\n");
  EXPECT_NE(text.find(", 250 documents, "), std::string::npos);
}

TEST(Index, Help_IsTheUse) {
  const Finished indexer = RunIndexer({"--help"});
  EXPECT_EQ(indexer.status, 0);
  EXPECT_EQ(
      indexer.output,
      "usage: korvo-index [OPTION]... DATABASE FILE...\n"
      "       korvo-index [OPTION]... --delete DATABASE ID...\n"
      "\n"
      "  --schema FILE      what the fields are, for a new database\n"
      "  --id FIELD         the field that names a document, where no schema says it\n"
      "  --format NAME      control, jsonl, csv or tsv, whatever the files are called\n"
      "  --delete           delete the documents of these IDs\n"
      "  --commit NUMBER    let readers see every NUMBER documents, not all at the end\n"
      "  --skip-bad         leave faulty documents out\n"
      "  --no-positions     without phrases, in a smaller database\n"
      "  --no-spelling      without corrections of words, in a smaller database\n"
      "  --help             this text\n"
      "  --version          the version\n"
      "\n"
      "FILE: .jsonl, .ndjson, .json, .csv or .tsv, any other is a control file; .gz or .xz may\n"
      "follow; - is standard input.\n"
      "Status: 0; 64 wrong use; 65 a document, or a schema, is faulty; 66 a file cannot be read;\n"
      "73 the database cannot be opened; 74 writing failed.\n");
}

TEST(Index, Version_IsOneLine) {
  const Finished indexer = RunIndexer({"--version"});
  EXPECT_EQ(indexer.status, 0);
  EXPECT_TRUE(
      std::regex_match(indexer.output, std::regex("korvo-index [0-9]+\\.[0-9]+\\.[0-9]+\n")))
      << indexer.output;
}

TEST(Index, BadUse_IsOneLine) {
  for (const std::vector<std::string> &arguments :
       {std::vector<std::string>{}, {"db"}, {"-", "x"}, {"", "x"}})
    ExpectRun(arguments, 64,
              "korvo-index: a database and at least one file have to be named; --help shows how\n");
  ExpectRun({"--delete", "db"}, 64,
            "korvo-index: a database and at least one ID have to be named; --help shows how\n");
  ExpectRun({"--format", "xml", "db", "x"}, 64,
            "korvo-index: --format is control, jsonl, csv or tsv, not 'xml'\n");
  ExpectRun({"--id", "a b", "db", "x"}, 64,
            "korvo-index: --id takes the name of a field, not 'a b'\n");
  for (const char *option : {"--skip-bad", "--no-positions", "--no-spelling", "--commit=2",
                             "--schema=x", "--format=csv"})
    ExpectRun({"--delete", option, "db", "x"}, 64, "korvo-index: --delete goes with --id alone\n");
  ExpectRun({"--commit", "0", "db", "x"}, 64,
            "korvo-index: --commit takes a number from 1 to 2147483647, not '0'\n");
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
  EXPECT_FALSE(Exists(database));
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

TEST(Index, MemoryThatRunsOut_IsSaidInOneLineAndStoresNothing) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer takes more address space than that";
#endif
  const Folder folder;
  const std::string database = BuildIndex(folder, "db", "Title: kept\n");
  const std::string file = folder.Write("large", "Text: " + std::string(16'000'000, 'x') + "\n");
  ExpectRun({database, file}, 74, "korvo-index: cannot write " + database + ": std::bad_alloc\n",
            [] {
              const rlimit small = {60u << 20, 60u << 20};
              setrlimit(RLIMIT_AS, &small);
            });
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

TEST(Index, ReadsEachFormatByTheNameOfTheFile) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  const std::vector<std::string> files = {folder.Write("a.jsonl", "{\"Title\":\"one\"}\n"),
                                          folder.Write("a.csv", "Title\ntwo\n"),
                                          folder.Write("a.tsv", "Title\tNote\nthree\tx\n"),
                                          folder.Write("a", "Title: four\n"),
                                          folder.Write("b.ndjson", "{\"Title\":\"five\"}\n"),
                                          folder.Write("b.json", "{\"Title\":\"six\"}\n")};
  std::vector<std::string> arguments = {database};
  arguments.insert(arguments.end(), files.begin(), files.end());
  ExpectRun(arguments, 0, "korvo-index: 6 new, 0 replaced\n");
  EXPECT_EQ(Stored(database, 2), "\tTitle=two\t");
  EXPECT_EQ(Stored(database, 3), "\tTitle=three\tNote=x\t");
  EXPECT_EQ(Stored(database, 6), "\tTitle=six\t");
}

TEST(Index, ReadsTheFormatThatItIsTold) {
  const Folder folder;
  const std::string database = folder.Path() + "/db",
                    file = folder.Write("list.txt", "Title\none\n");
  ExpectRun({"--format", "csv", database, file}, 0, "korvo-index: 1 new, 0 replaced\n");
  ExpectRun({database, "-", "--format=csv"}, 0, "korvo-index: 0 new, 1 replaced\n", Reading(file));
}

TEST(Index, ReadsPackedFiles) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  // {"Title":"packed"} as gzip packs it
  const std::string gzip(
      "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xab\x56\x0a\xc9\x2c\xc9\x49\x55\xb2\x52"
      "\x2a\x48\x4c\xce\x4e\x4d\x51\xaa\xe5\x02\x00\x1e\x1b\xa1\x51\x13\x00\x00\x00",
      39);
  ExpectRun({database, folder.Write("a.jsonl.gz", gzip)}, 0, "korvo-index: 1 new, 0 replaced\n");
  EXPECT_EQ(Stored(database, 1), "\tTitle=packed\t");
}

TEST(Index, PackedFileThatIsCut_IsNamedWithThePlaceAndStoresNothing) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  const std::string gzip =
      folder.Write("a.jsonl.gz", std::string("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03\xab", 11));
  ExpectRun({database, folder.Write("good", kPackages), gzip}, 66,
            "korvo-index: cannot read " + gzip +
                ": the gzip data end too early, at byte 11; nothing was stored\n");
  const std::string xz = folder.Write("a.csv.xz",
                                      "\xfd"
                                      "7zXZ");
  ExpectRun({database, "--skip-bad", xz}, 66,
            "korvo-index: cannot read " + xz +
                ": the xz data end too early, at byte 5; nothing was stored\n");
  EXPECT_FALSE(Exists(database));
}

TEST(Index, KeepsTheSchemaInTheDatabase) {
  const Folder folder;
  const std::string database = folder.Path() + "/db", schema = folder.Write("books.schema", kBooks);
  const std::string first =
      folder.Write("a.jsonl", "{\"number\":1,\"Title\":\"Running\",\"Pages\":300}\n");
  ExpectRun({"--schema", schema, database, first}, 0, "korvo-index: 1 new, 0 replaced\n");
  EXPECT_EQ(Schema_Text(Schema_Of(Xapian::Database(database))),
            std::string("# korvo-schema 1\n") + kBooks);
  const std::string again =
      folder.Write("b.jsonl", "{\"Number\":1,\"Title\":\"Again\",\"Pages\":7,\"Note\":\"x\"}\n");
  ExpectRun(
      {database, again}, 0,
      "korvo-index: the schema does not name these fields; they are stored and not searched: Note\n"
      "korvo-index: 0 new, 1 replaced\n");
  EXPECT_EQ(Stored(database, 1), "\tNumber=1\tTitle=Again\tPages=7\tNote=x\t");
  EXPECT_EQ(Xapian::sortable_unserialise(Xapian::Database(database).get_document(1).get_value(2)),
            7);
  ExpectRun(
      {"--schema", schema, database, again}, 0,
      "korvo-index: the schema does not name these fields; they are stored and not searched: Note\n"
      "korvo-index: 0 new, 1 replaced\n");
}

TEST(Index, NamesTenFieldsThatTheSchemaDoesNot) {
  const Folder folder;
  std::string text = "Number: 1\n";
  for (char letter = 'a'; letter < 'm'; ++letter) text += std::string(1, letter) + ": x\n";
  ExpectRun({"--schema", folder.Write("s", kBooks), folder.Path() + "/db", folder.Write("f", text)},
            0,
            "korvo-index: the schema does not name these fields; they are stored and not searched: "
            "a, b, c, d, e, f, g, h, i, j and more\nkorvo-index: 1 new, 0 replaced\n");
}

TEST(Index, AnotherSchemaIsRefusedWithTheReason) {
  const Folder folder;
  const std::string database = folder.Path() + "/db", file = folder.Write("f", "Number: 1\n");
  const std::string front = "korvo-index: cannot add to " + database + ": ",
                    end = "; nothing was stored\n";
  EXPECT_EQ(RunIndexer({"--schema", folder.Write("s", kBooks), database, file}).status, 0);
  ExpectRun({"--schema", folder.Write("t", "Number keyword id\nTitle text sort\n"), database, file},
            65, front + "its schema has no line 'Title text sort'" + end);
  ExpectRun({"--schema", folder.Write("t", "Number keyword id\nPages number\n"), database, file},
            65, front + "its schema has the line 'Title text' as well" + end);
  ExpectRun({"--schema", folder.Write("t", "Title text\nNumber keyword id\nPages number\n"),
             database, file},
            65, front + "its schema has the same lines in another order" + end);
  ExpectRun({"--id", "Title", database, file}, 65,
            front + "its documents are named by their field Number" + end);
  ExpectRun({"--id", "number", database, file}, 0, "korvo-index: 0 new, 1 replaced\n");
  EXPECT_EQ(Count(database), 1u);

  const std::string plain = BuildIndex(folder, "plain", kPackages);
  ExpectRun({"--schema", folder.Write("s", kBooks), plain, file}, 65,
            "korvo-index: cannot add to " + plain +
                ": it has documents without a schema; nothing was stored\n");
}

TEST(Index, ASchemaThatCannotBeReadIsRefused) {
  const Folder folder;
  const std::string schema = folder.Write("s", "Title text\nPages numbers\n"),
                    file = folder.Write("f", "Title: x\n");
  ExpectRun({"--schema", schema, folder.Path() + "/db", file}, 65,
            "korvo-index: " + schema +
                ":2: a kind is text, keyword, number, date or stored, not 'numbers'\n");
  ExpectRun({"--schema", "/no/schema", folder.Path() + "/db", file}, 66,
            "korvo-index: cannot open /no/schema: No such file or directory\n");
  EXPECT_FALSE(Exists(folder.Path() + "/db"));
}

TEST(Index, ADatabaseOfOmegasIsLeftAlone) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  {
    Xapian::WritableDatabase omegas(database, Xapian::DB_CREATE);
    Xapian::Document document;
    document.set_data("url=/x.html");
    omegas.add_document(document);
  }
  ExpectRun({database, folder.Write("f", kPackages)}, 65,
            "korvo-index: cannot add to " + database +
                ": it is one of Omega's indexers, which alone can add to it; nothing was stored\n");
  EXPECT_EQ(Count(database), 1u);
}

TEST(Index, ADocumentOfTheSameIdReplaces_InOneRunToo) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  const std::string file = folder.Write("f.csv", "Name,Number\na,1\nb,2\nc,1\n");
  ExpectRun({"--id", "Number", database, file}, 0, "korvo-index: 2 new, 1 replaced\n");
  EXPECT_EQ(Stored(database, 1), "\tName=c\tNumber=1\t");
  ExpectRun({"--id", "Number", database, file}, 0, "korvo-index: 0 new, 3 replaced\n");
  EXPECT_EQ(Count(database), 2u);
}

TEST(Index, DeletesTheDocumentsOfAnId) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  const std::string file = folder.Write("f", "Number: 1\n\nNumber: 2\n\nNumber: 3\n");
  EXPECT_EQ(RunIndexer({"--schema", folder.Write("s", kBooks), database, file}).status, 0);
  ExpectRun({"--delete", database, "1", "4", "3"}, 0,
            "korvo-index: there is no document '4'\nkorvo-index: 2 deleted\n");
  EXPECT_EQ(Count(database), 1u);
  EXPECT_EQ(Stored(database, 2), "\tNumber=2\t");
}

TEST(Index, DeletesEveryStateOfADocumentWithoutASchema) {
  const Folder folder;
  const std::string database =
      BuildIndex(folder, "db",
                 "Package: bash\nVersion: 1\n\nPackage: bash\nVersion: 2\n\nPackage: bash-doc\n");
  ExpectRun({"--delete", database, "bash"}, 65,
            "korvo-index: cannot add to " + database +
                ": no field names its documents: --id FIELD does; nothing was deleted\n");
  ExpectRun({"--delete", "--id", "Package", database, "bash"}, 0, "korvo-index: 2 deleted\n");
  EXPECT_EQ(Stored(database, 3), "\tPackage=bash-doc\t");
  const std::string missing = folder.Path() + "/missing";
  const Finished indexer = RunIndexer({"--delete", "--id", "Package", missing, "bash"});
  EXPECT_EQ(indexer.status, 73);
  EXPECT_TRUE(indexer.errors.starts_with("korvo-index: cannot open " + missing + " for writing: "));
  EXPECT_FALSE(Exists(missing));
}

TEST(Index, SkipBad_LeavesFaultyDocumentsOutAndCountsThem) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  const std::string file = folder.Write(
      "a.jsonl",
      "{\"Number\":1}\n{\n{\"Title\":\"x\"}\n{\"Number\":2,\"Pages\":\"many\"}\n{\"Number\":3}\n");
  ExpectRun({"--schema", folder.Write("s", kBooks), "--skip-bad", database, file}, 0,
            "korvo-index: " + file +
                ":2: expected a JSON object on one line; it is wrong at byte 2; left out\n"
                "korvo-index: " +
                file +
                ":3: expected a value of the field Number, which names the document; left out\n"
                "korvo-index: " +
                file +
                ":4: expected a number in the field Pages, not 'many'; left out\n"
                "korvo-index: 2 new, 0 replaced, 3 left out\n");
  EXPECT_EQ(Count(database), 2u);
}

TEST(Index, SkipBad_DoesNotGoOnWhereNobodyKnowsWhere) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  const std::string file = folder.Write("a.csv", "A,B\n1,2\n3,\"open\n5,6\n");
  ExpectRun(
      {"--skip-bad", database, file}, 65,
      "korvo-index: " + file +
          ":3: expected a quote at the end of each value that begins with one; nothing was stored\n");
  EXPECT_FALSE(Exists(database));
}

TEST(Index, BadInput_NamesThePlaceAndLeavesNothing) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  const auto refused = [&](const std::string &name, const std::string &bytes,
                           const std::string &fault) {
    const std::string file = folder.Write(name, "");
    std::ofstream(file, std::ios::binary) << bytes;
    ExpectRun({database, file}, 65,
              "korvo-index: " + file + ":" + fault + "; nothing was stored\n");
    EXPECT_FALSE(Exists(database)) << name;
  };
  std::string deep = "{\"A\":";
  for (int i = 0; i < 10000; ++i) deep += '[';
  refused("deep.jsonl", deep, "1: expected objects and arrays at most 32 deep");
  refused("one.jsonl", "{\"A\":\"" + std::string(17 << 20, 'x'),
          "1: expected a document of at most 16 MiB");
  refused("one", "A: " + std::string(17 << 20, 'x'), "1: expected a document of at most 16 MiB");
  refused("one.csv", "A\n" + std::string(17 << 20, 'x'),
          "2: expected a document of at most 16 MiB");
  refused("one.tsv", std::string(17 << 20, '\0'), "1: expected a document of at most 16 MiB");
  refused(
      "names.csv", "A,1\n",
      "1: expected the name of a field (a letter, then letters, digits, '-', '_' and '.'), not '1'");
}

// More than is read before the line is refused: nobody has to hold it, or to unpack it.
TEST(Index, ALineOfAGigabyte_CostsNeitherMemoryNorTime) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer takes more address space than that";
#endif
  const Folder folder;
  const std::string database = folder.Path() + "/db", file = folder.Write("zeros.jsonl", "");
  ASSERT_EQ(truncate(file.c_str(), 1 << 30), 0);
  const auto little = [] {
    const rlimit small = {200u << 20, 200u << 20};
    setrlimit(RLIMIT_AS, &small);
  };
  ExpectRun(
      {database, file}, 65,
      "korvo-index: " + file + ":1: expected a document of at most 16 MiB; nothing was stored\n",
      little);
  ExpectRun(
      {"--skip-bad", database, file}, 0,
      "korvo-index: " + file +
          ":1: expected a document of at most 16 MiB; left out\nkorvo-index: 0 new, 0 replaced, 1 left out\n",
      little);
  EXPECT_FALSE(Exists(database));
}

TEST(Index, Commit_LetsReadersSeePartsAndKeepsThem) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  const std::string file = folder.Write("many", Numbered(25) + "wrong\n");
  ExpectRun(
      {"--commit", "10", database, file}, 65,
      "korvo-index: " + file + ":51: expected \"Name: value\"; stored before: 20 documents\n");
  EXPECT_EQ(Count(database), 20u);
  ExpectRun(
      {"--commit", "10", "--skip-bad", database, file}, 0,
      "korvo-index: " + file +
          ":51: expected \"Name: value\"; left out\nkorvo-index: 5 new, 20 replaced, 1 left out\n");
  EXPECT_EQ(Count(database), 25u);
}

TEST(Index, NoPositionsAndNoSpelling_MakeASmallerDatabase) {
  const Folder folder;
  const std::string file = folder.Write("f", "Title: network interface\n");
  const std::string all = folder.Path() + "/all", small = folder.Path() + "/small";
  ExpectRun({all, file}, 0, "korvo-index: 1 new, 0 replaced\n");
  ExpectRun({"--no-positions", "--no-spelling", small, file}, 0,
            "korvo-index: 1 new, 0 replaced\n");
  EXPECT_TRUE(Xapian::Database(all).has_positions());
  EXPECT_FALSE(Xapian::Database(small).has_positions());
  EXPECT_EQ(Xapian::Database(all).get_spelling_suggestion("intrface"), "interface");
  EXPECT_EQ(Xapian::Database(small).get_spelling_suggestion("intrface"), "");
}

TEST(Index, NothingStored_LeavesNothingBehind) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  ExpectRun({database, folder.Write("empty", "\n\n")}, 0, "korvo-index: 0 new, 0 replaced\n");
  EXPECT_FALSE(Exists(database));
  ExpectRun(
      {database, folder.Write("bad", "bad\n")}, 65,
      "korvo-index: " + folder.Path() + "/bad:1: expected \"Name: value\"; nothing was stored\n");
  EXPECT_FALSE(Exists(database));
  ExpectRun({database, folder.Path()}, 66,
            "korvo-index: cannot read " + folder.Path() + ": Is a directory; nothing was stored\n");
  EXPECT_FALSE(Exists(database));

  // What somebody else has there stays.
  std::filesystem::create_directory(database);
  folder.Write("db/notes", "mine");
  EXPECT_EQ(RunIndexer({database, folder.Path() + "/bad"}).status, 65);
  for (const char *name : {"/iamglass", "/flintlock", "/postlist.glass"})
    EXPECT_FALSE(Exists(database + name));
  EXPECT_EQ(ReadFile(database + "/notes"), "mine");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(database), {}), 1);
}

TEST(Index, ASchemaAlone_IsStored) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  ExpectRun({"--schema", folder.Write("s", kBooks), database, folder.Write("empty", "")}, 0,
            "korvo-index: 0 new, 0 replaced\n");
  EXPECT_EQ(Schema_Of(Xapian::Database(database)).origin, SchemaOrigin::kGiven);
}

TEST(Index, ASignal_TakesBackWhatIsNotCommitted) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Process indexer({KORVO_INDEX, database, "-"}, folder.Path(), [&] {
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    close(ends[1]);
  });
  const std::string documents = Numbered(10);
  ASSERT_EQ(write(ends[1], documents.data(), documents.size()),
            static_cast<ssize_t>(documents.size()));
  ASSERT_TRUE(Eventually([&] { return Exists(database + "/iamglass"); }));
  indexer.Signal(SIGTERM);
  const int status = indexer.Wait();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
  EXPECT_EQ(indexer.RawLog(), "korvo-index: interrupted; nothing was stored\n");
  EXPECT_FALSE(Exists(database));
  close(ends[0]);
  close(ends[1]);
}

TEST(Index, ASignal_EndsTheUnpackingOfALittleThatIsMuch) {
  const Folder folder;
  const std::string database = folder.Path() + "/db", file = folder.Write("much.gz", "");
  std::string documents;
  while (documents.size() < (1 << 20)) documents += "A: 1\n\n";
  const gzFile packed = gzopen(file.c_str(), "wb");
  for (int i = 0; i < 60; ++i)
    gzwrite(packed, documents.data(), static_cast<unsigned>(documents.size()));
  ASSERT_EQ(gzclose(packed), Z_OK);
  ASSERT_LT(std::filesystem::file_size(file), 262144u);

  Process indexer({KORVO_INDEX, database, file}, folder.Path());
  ASSERT_TRUE(Eventually([&] { return Exists(database + "/iamglass"); }));
  indexer.Signal(SIGINT);
  const int status = indexer.Wait();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT);
  EXPECT_EQ(indexer.RawLog(), "korvo-index: interrupted; nothing was stored\n");
  EXPECT_FALSE(Exists(database));
}
