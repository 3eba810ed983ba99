// The wire of the Document Manager.
#include <gtest/gtest.h>
#include <xapian.h>

#include "tests/service/running.h"

namespace {

constexpr const char *kNone = "\t@COMMAND=ERROR\tThere is no document of this number\n";

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
  std::string document;
  for (char name = 'A'; name <= 'L'; ++name)
    document += std::string(1, name) + ": " + std::string(4095, name) + "\n";
  const std::string file = folder.Write("large", document);
  EXPECT_EQ(RunIndexer({folder.Path() + "/db", file}).errors,
            "korvo-index: values that were too long and are stored cut: 3\n");
  Running manager('D', folder.Path() + "/db");
  const std::string answer = manager.Exchange("\t@COMMAND=GETDOC\t@DOCNUM=1\n");
  // Nine digits short of 40959: the room of the longest number is kept.
  EXPECT_EQ(answer.size(), 40959u - 9);
  EXPECT_EQ(answer.substr(0, 28), "\t@COMMAND=HIT\t@DOCNUM=1\tA=AA");
  EXPECT_EQ(answer.substr(answer.size() - 4), "JJ\t\n");
}

TEST(DocMgr, WhatWasNotStoredAsARecord_IsAnError) {
  const Folder folder;
  Xapian::WritableDatabase database(folder.Path() + "/db", Xapian::DB_CREATE);
  for (const std::string &data : {std::string("plain"), std::string("\tA=b\n\t"), std::string(),
                                  "\tA=" + std::string(50000, 'v') + "\t"}) {
    Xapian::Document document;
    document.set_data(data);
    database.add_document(document);
  }
  database.commit();
  Running manager('D', folder.Path() + "/db");
  for (const char *number : {"1", "2", "3", "4"})
    EXPECT_EQ(manager.Exchange("\t@COMMAND=GETDOC\t@DOCNUM=" + std::string(number) + "\n"),
              "\t@COMMAND=ERROR\tThe document of this number cannot be sent\n")
        << number;
  EXPECT_TRUE(manager.Program().WaitForLog("[DocMgr: GetDoc] Document 4 of '" + folder.Path() +
                                           "/db' was not stored as a record\n"));
}
