// The wire of the Document Manager.
#include <gtest/gtest.h>
#include <xapian.h>

#include "tests/service/running.h"

namespace {

constexpr const char *kNone = "\t@COMMAND=ERROR\tThere is no document of this number\n";

// A database of documents with that data, from number 1 on.
std::string Store(const Folder &folder, const std::vector<std::string> &documents) {
  std::string path = folder.Path() + "/stored";
  Xapian::WritableDatabase database(path, Xapian::DB_CREATE);
  for (const std::string &data : documents) {
    Xapian::Document document;
    document.set_data(data);
    database.add_document(document);
  }
  database.commit();
  return path;
}

}  // namespace

TEST(DocMgr, SendsADocumentClosedByATabAndThenTheEnd) {
  const Folder folder;
  Running manager('D', BuildIndex(folder, "db", kPackages));
  // The request as a Communications Manager writes it.
  EXPECT_EQ(
      manager.Exchange(
          "\t@COMMAND=GETDOC\t@BESTFIT=0\t@SEARCHGROUP=grp1\t@RECTYPE=packages\t@MACROFILE="
          "\t@DOCNUM=3\t@SCRIPT=\t@SEQNUM=0\t@AUTHCODE=\t@FILENAME=\t@EXPDATE=0\n"),
      "\t@COMMAND=HIT\t@DOCNUM=3\tPackage=nano\tVersion=7.2\tSection=editors\tDescription=small editor\t\n");
  EXPECT_EQ(
      manager.Exchange("\t@COMMAND=GETDOC\t@DOCNUM=3\r\n"),
      "\t@COMMAND=HIT\t@DOCNUM=3\tPackage=nano\tVersion=7.2\tSection=editors\tDescription=small editor\t\n");
}

TEST(DocMgr, ANumberThatItDoesNotHold_IsAnError) {
  const Folder folder;
  Running manager('D', BuildIndex(folder, "db", kPackages));
  for (const char *number : {"0", "5", "-1", "2147483647", "4294967297", "abc", ""})
    EXPECT_EQ(manager.Exchange("\t@COMMAND=GETDOC\t@DOCNUM=" + std::string(number) + "\n"), kNone)
        << number;
  EXPECT_EQ(manager.Exchange("\t@COMMAND=GETDOC\n"), kNone);
  EXPECT_EQ(manager.Exchange("\t@COMMAND=GETDOC\tDOCNUM=3\n"), kNone);
  manager.Ping();
}

TEST(DocMgr, TheLargestDocumentFitsItsReader) {
  const Folder folder;
  std::string document = "\t";
  for (char name = 'A'; name <= 'L'; ++name)
    document += std::string(1, name) + "=" + std::string(5000, name) + "\t";
  Running manager('D', Store(folder, {document}));
  const std::string answer = manager.Exchange("\t@COMMAND=GETDOC\t@DOCNUM=1\n");
  // The room of the longest number is kept, and what twelve values cannot share alike.
  EXPECT_EQ(answer.size(), 40959u - 9 - 5);
  EXPECT_EQ(answer.substr(0, 28), "\t@COMMAND=HIT\t@DOCNUM=1\tA=AA");
  EXPECT_EQ(answer.substr(answer.size() - 4), "LL\t\n");
}

TEST(DocMgr, AFaultyDocument_IsAnErrorAndTheNextIsServed) {
  const Folder folder;
  Running manager('D', Store(folder, {"\tA=first\t", "plain", "", "\tA=b\nc\t"}));
  for (const char *number : {"2", "3"})
    EXPECT_EQ(manager.Exchange(
                  "\t@COMMAND=GETDOC\t@RECTYPE=packages\t@DOCNUM=" + std::string(number) + "\n"),
              "\t@COMMAND=ERROR\tThe document of this number cannot be sent\n")
        << number;
  EXPECT_TRUE(manager.Program().WaitForLog(
      "[DocMgr: GetDoc] Document 3 of 'packages' was not stored as a record\n"));
  EXPECT_EQ(manager.Exchange("\t@COMMAND=GETDOC\t@DOCNUM=4\n"),
            "\t@COMMAND=HIT\t@DOCNUM=4\tA=b c\t\n");
}

TEST(DocMgr, PreparesADocumentAsTheScriptSays) {
  const Folder folder;
  Running manager('D', BuildIndex(folder, "db", kPackages));
  EXPECT_EQ(manager.Exchange("\t@COMMAND=GETDOC\t@SEARCHGROUP=grp1\t@RECTYPE=packages\t@DOCNUM=3"
                             "\t@SCRIPT=html mark:editor snippet place\n"),
            "\t@COMMAND=HIT\t@DOCNUM=3\tPackage=nano\tVersion=7.2\tSection=editors"
            "\tDescription=small <mark>editor</mark>\tSnippet=small <mark>editor</mark>"
            "\tSearchGroup=grp1\tRecType=packages\tDocNum=3\t\n");
}

TEST(DocMgr, ServesADatabaseOfOmega) {
  const Folder folder;
  Running manager('D', Store(folder, {"url=/a.html\nsample=Shells & more\ntype=text/html"}));
  EXPECT_EQ(manager.Exchange("\t@COMMAND=GETDOC\t@DOCNUM=1\n"),
            "\t@COMMAND=HIT\t@DOCNUM=1\turl=/a.html\tsample=Shells & more\ttype=text/html\t\n");
  EXPECT_EQ(manager.Exchange("\t@COMMAND=GETDOC\t@DOCNUM=1\t@SCRIPT=html mark:shell\n"),
            "\t@COMMAND=HIT\t@DOCNUM=1\turl=/a.html\tsample=<mark>Shells</mark> &amp; more"
            "\ttype=text/html\t\n");
}
