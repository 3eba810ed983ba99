#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/system/harness.h"

namespace {

// A daemon with a Search Manager "grp" and a Document Manager "doc", a page macro and its frames.
class Query : public ::testing::Test {
 protected:
  void SetUp() override {
    page_ = daemon_.Files().Path() + "/page";
    daemon_.Files().Write("page.mo", TextOp("<") + ValueOp("T") + TextOp(">") + EndOp());
    daemon_.Files().Write("page.hdr", "HEAD\n");
    daemon_.Files().Write("page.tail", "TAIL\n");
    daemon_.Announce('S', "grp", search_);
    daemon_.Announce('D', "doc", documents_);
    before_ = daemon_.Log().size();
  }

  std::string Command(const std::string &more = "") const {
    return "\t@COMMAND=QUERY\t@SEARCHGROUP=grp\t@MACROFILE=" + page_ + more + "\tTITLE=x\n";
  }
  // Sends the command and takes the Search Manager's end of it.
  Socket Begin(const Socket &client, const std::string &command) const {
    client.Send(command);
    Socket search = search_.Accept();
    EXPECT_EQ(command, search.ReadLine());
    return search;
  }
  // Answers one fetch; the request is returned.
  std::string Serve(const std::string &answer) const {
    const Socket connection = documents_.Accept();
    std::string request = connection.ReadLine();
    connection.Send(answer);
    return request;
  }
  std::string Log() const { return daemon_.Log().substr(before_); }
  // The whole page for one answer of the Search Manager, without hits.
  std::string PageFor(const std::string &records, const std::string &more = "") const {
    const Socket client = daemon_.Client();
    {
      const Socket search = Begin(client, Command(more));
      search.Send(records);
    }
    return client.ReadAll();
  }

  Daemon daemon_;
  Manager search_, documents_;
  std::string page_;
  std::size_t before_ = 0;
};

constexpr const char *kHit = "\t@COMMAND=HIT\t@SEARCHGROUP=doc\t@RECTYPE=r\t@DOCNUM=17\n";
constexpr const char *kComplete = "\t@COMMAND=SEARCHCOMPLETE\n";
constexpr const char *kRequest =
    "\t@COMMAND=GETDOC\t@BESTFIT=0\t@SEARCHGROUP=doc\t@RECTYPE=r\t@MACROFILE=\t@DOCNUM=17\t@SCRIPT=\t@SEQNUM=0"
    "\t@AUTHCODE=\t@FILENAME=\t@EXPDATE=0\n";

TEST_F(Query, Hits_AreFetchedFormattedAndFramed) {
  const Socket client = daemon_.Client();
  const Socket search = Begin(client, Command());
  search.Send(std::string(kHit) + kHit + kComplete);
  EXPECT_EQ(kRequest, Serve("\t@COMMAND=HIT\tT=one\t\n"));
  EXPECT_EQ(kRequest, Serve("\t@COMMAND=HIT\tT=two\t\n"));
  EXPECT_EQ("HEAD\n<one><two>TAIL\n", client.ReadAll());
  EXPECT_EQ("", Log());
}

TEST_F(Query, AllFieldsOfAHit_GoToTheDocumentManagerButMaxHits) {
  const Socket client = daemon_.Client();
  const Socket search = Begin(client, Command());
  search.Send(
      "\t@COMMAND=HIT\t@BESTFIT=1\t@SEARCHGROUP=doc\t@RECTYPE=r\t@MACROFILE=m\t@DOCNUM=2\t@MAXHITS=3\t@SCRIPT=s"
      "\t@SEQNUM=4\t@AUTHCODE=a\t@FILENAME=f\t@EXPDATE=5\n");
  EXPECT_EQ(
      "\t@COMMAND=GETDOC\t@BESTFIT=1\t@SEARCHGROUP=doc\t@RECTYPE=r\t@MACROFILE=m\t@DOCNUM=2\t@SCRIPT=s"
      "\t@SEQNUM=4\t@AUTHCODE=a\t@FILENAME=f\t@EXPDATE=5\n",
      Serve("\t@COMMAND=HIT\tT=1\t\n"));
  search.Send(kComplete);
  EXPECT_EQ("HEAD\n<1>TAIL\n", client.ReadAll());
}

TEST_F(Query, MaxHits_TheHitOverTheLimitIsReadAndNotFetched) {
  daemon_.SetLevel("INFO");
  const Socket client = daemon_.Client();
  const Socket search = Begin(client, Command("\t@MAXHITS=2"));
  search.Send(std::string(kHit) + kHit + kHit + kComplete);
  Serve("\t@COMMAND=HIT\tT=1\t\n");
  Serve("\t@COMMAND=HIT\tT=2\t\n");
  EXPECT_EQ("HEAD\n<1><2>TAIL\n", client.ReadAll());
  EXPECT_FALSE(documents_.Called());
  EXPECT_NE(std::string::npos,
            Log().find("[CommMgr: Results] Max Hits (2) reached for SearchSock 4.\n"));
  EXPECT_EQ(std::string::npos, Log().find("Search Complete"));
}

TEST_F(Query, MaxHitsZero_IsNoLimit) {
  const Socket client = daemon_.Client();
  const Socket search = Begin(client, Command("\t@MAXHITS=0"));
  std::string page = "HEAD\n";
  for (int i = 0; i < 25; ++i) {
    search.Send(kHit);
    Serve("\t@COMMAND=HIT\tT=" + std::to_string(i) + "\t\n");
    page += "<" + std::to_string(i) + ">";
  }
  search.Send(kComplete);
  EXPECT_EQ(page + "TAIL\n", client.ReadAll());
}

TEST_F(Query, RawAndError_AreTheRestOfTheRecord) {
  EXPECT_EQ("HEAD\n\tsome text\n\tmore\nTAIL\n",
            PageFor(std::string("\t@COMMAND=RAW\tsome text\n\t@COMMAND=RAW\tmore\n") + kComplete));
  EXPECT_EQ("HEAD\n\tno such field\nTAIL\n",
            PageFor("\t@COMMAND=ERROR\tno such field\n\t@COMMAND=RAW\tlate\n"));
  EXPECT_EQ("", Log());
}

TEST_F(Query, RawWithALongFirstToken_IsRelayedWhole) {
  const std::string text = "\t" + std::string(30000, 'x') + "\n";
  EXPECT_EQ("HEAD\n" + text + "TAIL\n", PageFor("\t@COMMAND=RAW" + text + kComplete));
}

TEST_F(Query, RawWithoutARest_IsRefusedByTheSocketLayer) {
  EXPECT_EQ("HEAD\n\tx\nTAIL\n",
            PageFor(std::string("\t@COMMAND=RAW\n\t@COMMAND=RAW\tx\n") + kComplete));
  EXPECT_EQ(
      "[Sock: SendTCP] data is NULL for sock 6\n"
      "[CommMgr: Results: 4] Unable to send to client sock 6 rc = -3\n",
      Log());
}

TEST_F(Query, ErrorWithoutARest_EndsTheRelay) {
  EXPECT_EQ("HEAD\nTAIL\n", PageFor("\t@COMMAND=ERROR\n\t@COMMAND=RAW\tx\n"));
  EXPECT_EQ(
      "[Sock: SendTCP] data is NULL for sock 6\n"
      "[CommMgr: Results: 5] Unable to send to client sock 6 rc = -3\n",
      Log());
}

TEST_F(Query, EndOfData_EndsQuietly) {
  daemon_.SetLevel("INFO");
  EXPECT_EQ("HEAD\nTAIL\n", PageFor(""));
  EXPECT_NE(
      std::string::npos,
      Log().find(
          "[Util:ReadInt] Length of data is 0 (Connection Closed by other side) for sock 4\n"));
  EXPECT_NE(std::string::npos,
            Log().find("[CommMgr: Results] End of Data for SearchSock 4 reached.\n"));
  EXPECT_NE(std::string::npos, Log().find("[CommMgr: SendHdr] Looking for " + page_ + ".hdr\n"));
  EXPECT_NE(std::string::npos, Log().find("[CommMgr: SendTail] Looking for " + page_ + ".tail\n"));
}

TEST_F(Query, SearchManagerThatResets_IsTheEndOfData) {
  daemon_.SetLevel("INFO");
  const Socket client = daemon_.Client();
  Socket search = Begin(client, Command());
  EXPECT_EQ("HEAD\n", client.ReadLine());
  search.Reset();
  EXPECT_EQ("TAIL\n", client.ReadAll());
  EXPECT_NE(std::string::npos,
            Log().find("[Util:ReadInt] Received Connection Reset Message from Sock 4\n"));
}

TEST_F(Query, SearchComplete_NamesTheClientsSocket) {
  daemon_.SetLevel("INFO");
  EXPECT_EQ("HEAD\nTAIL\n", PageFor(kComplete));
  EXPECT_NE(std::string::npos, Log().find("[CommMgr: Results] Search Complete for Socket 6\n"));
}

TEST_F(Query, UnknownRecord_EndsTheRelayWithoutAWord) {
  EXPECT_EQ("HEAD\nTAIL\n", PageFor("\t@COMMAND=NONE\tx\n\t@COMMAND=RAW\tx\n"));
  EXPECT_EQ("[CommMgr: Results] Unable to figure out this command: \t@COMMAND=NONE\tx\n\n", Log());
}

TEST_F(Query, RecordWithoutAHeader_IsAnUnknownRecord) {
  EXPECT_EQ("HEAD\nTAIL\n", PageFor("hello\n"));
  EXPECT_EQ("[CommMgr: Results] Unable to figure out this command: hello\n\n", Log());
}

TEST_F(Query, RecordOf40960Bytes_Fits) {
  const std::string head = "\t@COMMAND=RAW";
  const std::string rest = "\t" + std::string(40960 - head.size() - 2, 'y') + "\n";
  EXPECT_EQ("HEAD\n" + rest + "TAIL\n", PageFor(head + rest + kComplete));
}

TEST_F(Query, RecordWithoutANewlineIn40960Bytes_IsAnErrorLine) {
  EXPECT_EQ(
      "HEAD\n\t@COMMAND=ERROR\tUnable to receive from Search Manager. Please contact Web Administrator.\nTAIL\n",
      PageFor(std::string(40960, 'y')));
  EXPECT_EQ(
      "[Util: ReadInt] Unable to recv on socket 4: rc = -4\n"
      "[CommMgr: Results: 0] Unable to recv from SearchMgr sock 4 rc = 0\n",
      Log());
}

TEST_F(Query, UnknownDocumentManager_IsAnErrorAndTheTail) {
  EXPECT_EQ("HEAD\n\t@COMMAND=ERROR\tUnable to retreive document.TAIL\n",
            PageFor("\t@COMMAND=HIT\t@SEARCHGROUP=nobody\t@RECTYPE=r\n" + std::string(kHit)));
  EXPECT_EQ("[CommMgr: GetDoc] Unable to find a docmgr for nobody:r\n", Log());
  EXPECT_FALSE(documents_.Called());
}

TEST_F(Query, DocumentManagerThatAnswersError_IsAFailure) {
  daemon_.SetLevel("INFO");
  const Socket client = daemon_.Client();
  const Socket search = Begin(client, Command());
  search.Send(kHit);
  Serve("\t@COMMAND=ERROR\tno such document\n");
  EXPECT_EQ("HEAD\n\t@COMMAND=ERROR\tUnable to retreive document.TAIL\n", client.ReadAll());
  EXPECT_NE(std::string::npos, Log().find("[CommMgr: GetDoc] Command not recognized: 'ERROR'\n"));
}

TEST_F(Query, DocumentManagerThatClosesWithoutAnAnswer_IsAnEmptyDocument) {
  const Socket client = daemon_.Client();
  const Socket search = Begin(client, Command());
  search.Send(std::string(kHit) + kHit);
  Serve("");
  EXPECT_EQ("HEAD\nTAIL\n", client.ReadAll());
  EXPECT_EQ(
      "[Sock: SendTCP] datalen == 0 for sock 6\n"
      "[CommMgr: Results: 3] Unable to send to client sock 6 rc = -3\n",
      Log());
}

TEST_F(Query, HitWithoutARest_IsAnEmptyDocument) {
  const Socket client = daemon_.Client();
  const Socket search = Begin(client, Command());
  search.Send(std::string(kHit) + kComplete);
  Serve("\t@COMMAND=HIT\n");
  EXPECT_EQ("HEAD\n<>TAIL\n", client.ReadAll());
  EXPECT_EQ(
      "[Macro: FindField] Wraparound looking for 'T' (\tT=)\n"
      "[Macro: FindField] Unable to find field = 'T' (\tT=)\n",
      Log());
}

TEST_F(Query, LastFieldWithoutATab_CarriesTheNewline) {
  const Socket client = daemon_.Client();
  const Socket search = Begin(client, Command());
  search.Send(std::string(kHit) + kComplete);
  Serve("\t@COMMAND=HIT\tT=last\n");
  EXPECT_EQ("HEAD\n<last\n>TAIL\n", client.ReadAll());
}

TEST_F(Query, MacroThatFails_IsAnErrorLine) {
  daemon_.Files().Write("page.mo", "\x09");
  const Socket client = daemon_.Client();
  const Socket search = Begin(client, Command());
  search.Send(kHit);
  Serve("\t@COMMAND=HIT\tT=1\t\n");
  EXPECT_EQ("HEAD\n\t@COMMAND=ERROR\tUnable to retreive document.TAIL\n", client.ReadAll());
  EXPECT_EQ(
      "[Macro: Exec] op-code 9 at offset 0: stack is empty\n"
      "[CommMgr: Results] Macro Substitution failed.\n",
      Log());
}

TEST_F(Query, BinaryOutput_GoesOutWithItsLength) {
  daemon_.Files().Write("page.mo", std::string("\x44\x01T", 3) + EndOp());
  const Socket client = daemon_.Client();
  const Socket search = Begin(client, Command());
  search.Send(std::string(kHit) + kComplete);
  Serve("\t@COMMAND=HIT\tT=258\t\n");
  EXPECT_EQ(std::string("HEAD\n\x02\x01\0\0TAIL\n", 14), client.ReadAll());
}

TEST_F(Query, NoSearchManager_IsExactlyOneLine) {
  EXPECT_EQ("\t@COMMAND=ERROR\tUnable to locate SearchMgr\n",
            daemon_.Exchange("\t@COMMAND=QUERY\t@SEARCHGROUP=other\t@MACROFILE=" + page_ + "\n"));
  EXPECT_EQ("[CommMgr: ClientCmd] Unable to locate SearchGroup '' amongst my flock\n", Log());
}

TEST_F(Query, MissingMacro_GetsNoAnswer) {
  EXPECT_EQ("",
            daemon_.Exchange("\t@COMMAND=QUERY\t@SEARCHGROUP=grp\t@MACROFILE=" + page_ + "x\n"));
  EXPECT_FALSE(search_.Called());
  EXPECT_EQ("[Macro: Open] Unable to open macro '" + page_ + "x.mo': errno = 2\n" +
                "[CommMgr: ClientCmd] Unable to open Macro " + page_ + "x\n",
            Log());
}

TEST_F(Query, RelativeMacro_IsLookedForInTheLibrary) {
  EXPECT_EQ("", daemon_.Exchange("\t@COMMAND=QUERY\t@SEARCHGROUP=grp\t@MACROFILE=no-such-macro\n"));
  EXPECT_EQ(
      "[Macro: Open] Unable to open macro '/usr/local/korvo/lib/no-such-macro.mo': errno = 2\n"
      "[CommMgr: ClientCmd] Unable to open Macro no-such-macro\n",
      Log());
}

TEST_F(Query, SearchManagerThatIsGone_IsReportedByEveryLayer) {
  int port = 0;
  {
    const Manager gone;
    port = gone.Port();
    daemon_.Announce('S', "gone", gone);
  }
  EXPECT_EQ("\t@COMMAND=ERROR\tUnable to connect to SearchMgr: rc = -111\n",
            daemon_.Exchange("\t@COMMAND=QUERY\t@SEARCHGROUP=gone\t@MACROFILE=" + page_ + "\n"));
  const std::string where = "127.0.0.1:" + std::to_string(port);
  EXPECT_EQ("[SOCK: Connect] Error 111 (0x6f) from connect().  Unable to connect socket 4 to " +
                where + ".\n" + "[Socket: Conn&Send] Unable to connect to " + where +
                ": rc = -111\n" +
                "[CommMgr: ClientCmd] Unable to connect to SearchMgr: rc = -111\n",
            Log());
}

TEST_F(Query, DocumentManagerThatIsGone_IsReportedByEveryLayer) {
  int port = 0;
  {
    const Manager gone;
    port = gone.Port();
    daemon_.Announce('D', "doc", gone);
  }
  EXPECT_EQ("HEAD\n\t@COMMAND=ERROR\tUnable to retreive document.TAIL\n", PageFor(kHit));
  const std::string where = "127.0.0.1:" + std::to_string(port);
  EXPECT_EQ("[SOCK: Connect] Error 111 (0x6f) from connect().  Unable to connect socket 5 to " +
                where + ".\n" + "[Socket: Conn&Send] Unable to connect to " + where +
                ": rc = -111\n" + "[CommMgr: GetDoc] ConnectAndSend to DocMgr at " + where +
                " failed: rc = -111.\n",
            Log());
}

TEST_F(Query, MissingFrames_AreLeftOut) {
  const std::string bare = daemon_.Files().Path() + "/bare";
  daemon_.Files().Write("bare.mo", EndOp());
  page_ = bare;
  EXPECT_EQ("\tx\n", PageFor(std::string("\t@COMMAND=RAW\tx\n") + kComplete));
  EXPECT_EQ("[CommMgr: MacroHdr] Unable to open macro file " + bare + ".hdr: errno = 2.\n" +
                "[CommMgr: MacroTail] Unable to open macro file " + bare + ".tail: errno = 2.\n",
            Log());
}

TEST_F(Query, EmptyFrames_FailToBeSent) {
  daemon_.Files().Write("page.hdr", "");
  daemon_.Files().Write("page.tail", std::string("\0cut", 4));
  EXPECT_EQ("", PageFor(kComplete));
  EXPECT_EQ(
      "[Sock: SendTCP] datalen == 0 for sock 6\n"
      "[CommMgr: MacroHdr] Unable to send to client sock 6 rc = -3\n"
      "[Sock: SendTCP] datalen == 0 for sock 6\n"
      "[CommMgr: MacroTail] Unable to send to client sock 6 rc = -3\n",
      Log());
}

TEST_F(Query, FrameIsADirectory_CannotBeOpened) {
  const std::string name = daemon_.Files().Path() + "/page.hdr";
  ASSERT_EQ(0, remove(name.c_str()));
  ASSERT_EQ(0, mkdir(name.c_str(), 0700));
  EXPECT_EQ("TAIL\n", PageFor(kComplete));
  EXPECT_EQ("[CommMgr: MacroHdr] Unable to open macro file " + name + ": errno = 21.\n", Log());
}

TEST_F(Query, LongFrames_AreCutAt10238Characters) {
  const std::string full(10238, 'h');
  daemon_.Files().Write("page.hdr", full);
  daemon_.Files().Write("page.tail", std::string(10239, 't'));
  EXPECT_EQ(full + std::string(10238, 't'), PageFor(kComplete));
  daemon_.Files().Write("page.hdr", std::string(20000, 'h'));
  daemon_.Files().Write("page.tail", std::string("ab\0cd", 5));
  EXPECT_EQ(full + "ab", PageFor(kComplete));
}

TEST_F(Query, FrameNameTooLong_CannotBeOpened) {
  const std::string name =
      daemon_.Files().Path() + "/" + std::string(126 - daemon_.Files().Path().size(), 'm');
  ASSERT_EQ(127u, name.size());
  daemon_.Files().Write(name.substr(daemon_.Files().Path().size() + 1) + ".mo", EndOp());
  page_ = name;
  EXPECT_EQ("", PageFor(kComplete));
  EXPECT_EQ("[CommMgr: MacroHdr] Unable to open macro file " + name + ".: errno = 36.\n" +
                "[CommMgr: MacroTail] Unable to open macro file " + name + ".: errno = 36.\n",
            Log());
}

TEST_F(Query, ClientThatIsGone_EndsTheRelayAtTheNextHit) {
  const Socket search = [&] {
    Socket client = daemon_.Client();
    Socket manager = Begin(client, Command());
    EXPECT_EQ("HEAD\n", client.ReadLine());
    client.Reset();
    return manager;
  }();
  search.Send("\t@COMMAND=RAW\tx\n");
  search.Send(kHit);
  Serve("\t@COMMAND=HIT\tT=1\t\n");
  EXPECT_EQ("", search.ReadAll());
  EXPECT_TRUE(daemon_.Program().WaitForLog(
      "[CommMgr: MacroTail] Unable to send to client sock 6 rc = -32\n"));
  EXPECT_NE(std::string::npos,
            Log().find("[CommMgr: Results: 4] Unable to send to client sock 6 rc = -104\n"))
      << Log();
  EXPECT_NE(std::string::npos,
            Log().find("[CommMgr: Results: 3] Unable to send to client sock 6 rc = -32\n"));
}

TEST_F(Query, QueryWithoutItsNewline_ReachesNobody) {
  const std::string command = Command();
  {
    const Socket client = daemon_.Client();
    client.Send(command.substr(0, command.size() - 1));
  }
  EXPECT_TRUE(daemon_.Program().WaitForLog("Unable to figure out this command: \n"));
  EXPECT_FALSE(search_.Called());
}

TEST_F(Query, CommandOf4096Bytes_IsForwardedWhole) {
  std::string more = "\tP=";
  more += std::string(4096 - Command(more).size(), 'p');
  EXPECT_EQ("HEAD\nTAIL\n", PageFor(kComplete, more));
}

TEST_F(Query, InsertedDocument_HasTheRoomBehindItsHeaderOnly) {
  // op 14 for field F, then the length of what the document became: op 7
  daemon_.Files().Write("page.mo", std::string("\x0e\x01"
                                               "F",
                                               3) +
                                       "\x07" + EndOp());
  const Socket client = daemon_.Client();
  const Socket search = Begin(client, Command());
  search.Send(std::string(kHit) + kComplete);
  // A long header leaves less than 39000 bytes for the document.
  const std::string header = "\t@COMMAND=HIT\t@SCRIPT=" + std::string(120, 's');
  std::string padding;
  for (int i = 0; i < 20; ++i) padding += "\t@X=" + std::string(1000, 'x');
  const std::string document = "\tF=doc,t,3\tBIG=" + std::string(15000, 'b') + "\t\n";
  Serve(header + padding + document);
  const std::string inserted = "\tMORE=" + std::string(30000, 'm') + "\n";
  EXPECT_NE(std::string::npos, Serve("\t@COMMAND=HIT" + inserted).find("\t@DOCNUM=3\t"));
  const std::size_t room = 40960 - header.size() - padding.size() - document.size();
  std::string expected = document + inserted.substr(0, room);
  for (char &byte : expected)
    if (byte == '\t') byte = '\n';
  EXPECT_EQ("HEAD\n" + expected + "TAIL\n", client.ReadAll());
  EXPECT_NE(std::string::npos, Log().find("[Macro: Exec] FOLE_INSERT doc,t,3\n"));
  EXPECT_NE(std::string::npos, Log().find("[CommMgr: GetDoc] Document cut to " +
                                          std::to_string(room) + " characters\n"));
}

}  // namespace
