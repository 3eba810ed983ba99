// The wire of the Search Manager.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "tests/service/running.h"

namespace {

std::string Hit(int number) {
  return "\t@COMMAND=HIT\t@SEARCHGROUP=grp1\t@RECTYPE=packages\t@DOCNUM=" + std::to_string(number) +
         "\n";
}

std::string Hits(const std::vector<int> &numbers) {
  std::string records;
  for (const int number : numbers) records += Hit(number);
  return records + "\t@COMMAND=SEARCHCOMPLETE\n";
}

std::string Error(const std::string &reason) {
  return "\t@COMMAND=ERROR\tUnable to parse query: " + reason + "\n";
}

class Search : public testing::Test {
 protected:
  std::string Ask(const std::string &behind) {
    return manager_.Exchange("\t@COMMAND=QUERY\t@SEARCHGROUP=grp1\t@MACROFILE=page" + behind +
                             "\n");
  }

  Folder folder_;
  Running manager_{'S', BuildIndex(folder_, "db", kPackages)};
};

std::string Common(int count) {
  std::string documents;
  for (int i = 1; i <= count; ++i) documents += "Id: n" + std::to_string(i) + "\nText: common\n\n";
  return documents;
}

std::vector<int> UpTo(int last) {
  std::vector<int> numbers;
  for (int i = 1; i <= last; ++i) numbers.push_back(i);
  return numbers;
}

}  // namespace

TEST_F(Search, SendsTheHitsBestFirst) {
  EXPECT_EQ(Ask("\tshell"), Hits({2, 1}));  // the second says it three times
}

TEST_F(Search, SendsAtMostMaxHits) {
  EXPECT_EQ(Ask("\t@MAXHITS=1\tshell"), Hits({2}));
  EXPECT_EQ(Ask("\t@MAXHITS=2\tshell"), Hits({2, 1}));
  EXPECT_EQ(Ask("\t@MAXHITS=99999999999\tshell"), Hits({2, 1}));
}

TEST_F(Search, JoinsByOper) {
  EXPECT_EQ(Ask("\t@OPER=AND\tSection=shells\tbourne"), Hits({1}));
  EXPECT_EQ(Ask("\tSection=shells\tbourne"), Hits({1}));
  EXPECT_EQ(Ask("\t@OPER=OR\tbourne\tPackage=bash"), Hits({1}));
  EXPECT_EQ(Ask("\t@OPER=OR\tPackage=zsh\tSection=editors zsh"),
            Hits({3, 2}));  // the shorter first
}

TEST_F(Search, KnowsPhrasesAndMarks) {
  EXPECT_EQ(Ask("\tPackage=libnano-dev"), Hits({4}));
  EXPECT_EQ(Ask("\tC++"), Hits({4}));
}

TEST_F(Search, WithoutAHit_IsCompleteAtOnce) {
  EXPECT_EQ(Ask("\tunheard"), "\t@COMMAND=SEARCHCOMPLETE\n");
  EXPECT_EQ(Ask("\tColour=shell"), "\t@COMMAND=SEARCHCOMPLETE\n");
  EXPECT_EQ(Ask("\tshell\tunheard"), "\t@COMMAND=SEARCHCOMPLETE\n");
}

TEST_F(Search, ThatCannotBeParsed_IsAnError) {
  EXPECT_EQ(Ask(""), Error("there is none, or a header field before it was refused"));
  EXPECT_EQ(Ask("\t@MAXHITS=-1\tshell"),
            Error("@MAXHITS takes the number of hits of a page, 0 or more"));
  EXPECT_EQ(Ask("\t@COLOUR\tshell"),
            Error("there is none, or a header field before it was refused"));
  EXPECT_EQ(Ask("\t"), Error("it has no search terms; type a word to look for"));
  EXPECT_EQ(Ask("\r"), Error("it has no search terms; type a word to look for"));
  EXPECT_EQ(Ask("\t@OPER=NEAR\tshell"), Error("@OPER is neither AND nor OR"));
  EXPECT_EQ(Ask("\tshell\t@MAXHITS=1"),
            Error("a header field stands behind the start of the query"));
}

TEST_F(Search, OfHostileText_IsAnsweredAndOutlived) {
  const std::string complete = "\t@COMMAND=SEARCHCOMPLETE\n";
  EXPECT_EQ(Ask("\t" + std::string(4000, 'w')), complete);
  EXPECT_EQ(Ask("\t" + std::string(3500, 'N') + "=w"), complete);
  std::string many, phrase = "\tw", bytes = "\t";
  for (int i = 0; i < 2000; ++i) many += "\tw", phrase += "-w";
  for (int i = 255; i > 0; --i)
    if (i != '\n') bytes += static_cast<char>(i);
  EXPECT_EQ(Ask(many), complete);
  EXPECT_EQ(Ask(phrase.substr(0, 3900)), complete);
  EXPECT_NE(Ask(bytes), "");
  EXPECT_NE(Ask("\t\"\"\"((((NEAR/99999999999 ADJ NOT XOR *****"), "");
  manager_.Ping();
}

TEST(SearchLimits, WithoutMaxHits_AHundredAreSent) {
  const Folder folder;
  Running manager('S', BuildIndex(folder, "db", Common(120)));
  EXPECT_EQ(manager.Exchange("\t@COMMAND=QUERY\tcommon\n"), Hits(UpTo(100)));
  EXPECT_EQ(manager.Exchange("\t@COMMAND=QUERY\t@MAXHITS=0\tcommon\n"), Hits(UpTo(100)));
  EXPECT_EQ(manager.Exchange("\t@COMMAND=QUERY\t@MAXHITS=110\tcommon\n"), Hits(UpTo(110)));
}

TEST(SearchLimits, NeverMoreThanTenThousandAndNoReaderHoldsTheEndUp) {
  const Folder folder;
  Running manager('S', BuildIndex(folder, "db", Common(10010)));
  const std::string command = "\t@COMMAND=QUERY\t@MAXHITS=2147483647\tcommon\n";
  EXPECT_EQ(manager.Exchange(command), Hits(UpTo(10000)));

  const Socket idle =
      ConnectTo(manager.Ports().client_port);  // asks for all of it and reads nothing
  const int small = 4096;
  setsockopt(idle.Fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
  idle.Send(command);
  EXPECT_TRUE(idle.Readable(kPatienceMs));
  manager.Send("\t@COMMAND=SHUTDOWN\n");
  EXPECT_EQ(ExitStatus(manager.Program().Wait()), 0);
  for (const int status : manager.Program().WaitForGroup()) EXPECT_EQ(ExitStatus(status), 0);
  const std::string log = manager.Program().Log(), left = "Tovak has left the building.\n";
  EXPECT_NE(log.find(left), log.rfind(left)) << "the child that waits for its reader leaves too";
}

TEST(SearchShards, AStubFileNamesThem) {
  const Folder folder;
  const std::string a = BuildIndex(folder, "a", "Package: one\nText: both\n");
  const std::string b = BuildIndex(folder, "b", "Package: two\nText: both\n");
  const std::string stub = folder.Write("shards", "auto " + a + "\nauto " + b + "\n");
  Running search('S', stub), doc('D', stub);
  EXPECT_EQ(search.Exchange("\t@COMMAND=QUERY\tboth\n"), Hits({1, 2}));
  EXPECT_EQ(search.Exchange("\t@COMMAND=QUERY\ttwo\n"), Hits({2}));
  EXPECT_EQ(doc.Exchange("\t@COMMAND=GETDOC\t@DOCNUM=2\n"),
            "\t@COMMAND=HIT\t@DOCNUM=2\tPackage=two\tText=both\t\n");
}
