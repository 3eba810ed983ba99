#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/system/harness.h"

namespace {

class GetDoc : public ::testing::Test {
 protected:
  void SetUp() override {
    page_ = daemon_.Files().Path() + "/page";
    daemon_.Files().Write("page.mo", TextOp("<") + ValueOp("T") + TextOp(">") + EndOp());
    daemon_.Files().Write("page.hdr", "HEAD\n");
    daemon_.Files().Write("page.tail", "TAIL\n");
    daemon_.Announce('D', "doc", documents_);
    before_ = daemon_.Log().size();
  }
  std::string Command() const {
    return "\t@COMMAND=GETDOC\t@SEARCHGROUP=doc\t@RECTYPE=r\t@DOCNUM=5\t@MACROFILE=" + page_ + "\n";
  }
  // The answer to a GETDOC that the Document Manager answers so.
  std::string PageFor(const std::string &answer) {
    const Socket client = daemon_.Client();
    client.Send(Command());
    {
      const Socket connection = documents_.Accept();
      request_ = connection.ReadLine();
      connection.Send(answer);
    }
    return client.ReadAll();
  }
  std::string Log() const { return daemon_.Log().substr(before_); }

  Daemon daemon_;
  Manager documents_;
  std::string page_, request_;
  std::size_t before_ = 0;
};

TEST_F(GetDoc, Document_IsFramed) {
  EXPECT_EQ("HEAD\n<one>TAIL\n", PageFor("\t@COMMAND=HIT\tT=one\t\n"));
  EXPECT_EQ("\t@COMMAND=GETDOC\t@BESTFIT=0\t@SEARCHGROUP=doc\t@RECTYPE=r\t@MACROFILE=" + page_ +
                "\t@DOCNUM=5\t@SCRIPT=\t@SEQNUM=0\t@AUTHCODE=\t@FILENAME=\t@EXPDATE=0\n",
            request_);
  EXPECT_EQ("", Log());
}

TEST_F(GetDoc, FilesOfATimeThatDoesNotFit32Bits_AreReadAsAnyOther) {
  for (const char *suffix : {".mo", ".hdr", ".tail"})
    ASSERT_EQ(0, std::system(("touch -d 2040-01-01 " + page_ + suffix).c_str()));
  EXPECT_EQ("HEAD\n<one>TAIL\n", PageFor("\t@COMMAND=HIT\tT=one\t\n"));
  EXPECT_EQ("", Log());
}

TEST_F(GetDoc, UnknownDocumentManager_IsAnErrorWithoutANewlineAndNoFrames) {
  EXPECT_EQ("\t@COMMAND=ERROR\tUnable to locate Document Server.",
            daemon_.Exchange("\t@COMMAND=GETDOC\t@SEARCHGROUP=no\t@RECTYPE=x\t@MACROFILE=" + page_ +
                             "\n"));
  EXPECT_EQ("[CommMgr: GetDoc] Unable to find a docmgr for no:x\n", Log());
}

TEST_F(GetDoc, MissingMacro_GetsNoAnswer) {
  EXPECT_EQ("",
            daemon_.Exchange("\t@COMMAND=GETDOC\t@SEARCHGROUP=doc\t@MACROFILE=" + page_ + "x\n"));
  EXPECT_FALSE(documents_.Called());
}

TEST_F(GetDoc, RefusedDocument_IsAnError) {
  EXPECT_EQ("\t@COMMAND=ERROR\tUnable to locate Document Server.",
            PageFor("\t@COMMAND=ERROR\tno\n"));
  EXPECT_EQ("\t@COMMAND=ERROR\tUnable to locate Document Server.",
            PageFor(std::string(40960, 'x')));
}

TEST_F(GetDoc, NoAnswer_SendsTheHeaderAndNoTail) {
  EXPECT_EQ("HEAD\n", PageFor(""));
  EXPECT_EQ(
      "[Sock: SendTCP] datalen == 0 for sock 6\n"
      "[CommMgr: Results] Unable to send to client sock 6 rc = -3\n",
      Log());
}

TEST_F(GetDoc, BinaryOutput_GoesOutAsFarAsItIsAString) {
  daemon_.Files().Write("page.mo",
                        TextOp("ab") + std::string("\x44\x01T", 3) + TextOp("cd") + EndOp());
  EXPECT_EQ("HEAD\nab\x02\x01TAIL\n", PageFor("\t@COMMAND=HIT\tT=258\t\n"));
}

TEST_F(GetDoc, DocumentOf40960BytesWithItsHeader_Fits) {
  daemon_.Files().Write("page.mo", "\x07" + EndOp());
  std::string answer = "\t@COMMAND=HIT\tT=";
  answer += std::string(40960 - answer.size() - 1, 'x') + "\n";
  std::string document = answer.substr(answer.find("\tT="));
  document[0] = '\n';
  EXPECT_EQ("HEAD\n" + document + "TAIL\n", PageFor(answer));
}

TEST_F(GetDoc, PageOf40960Bytes_Fits) {
  const std::string header = "\t@COMMAND=HIT";
  daemon_.Files().Write("page.mo", "\x07" + TextOp(std::string(header.size(), 'e')) + EndOp());
  const std::string document = "\tT=" + std::string(40960 - header.size() - 4, 'x') + "\n";
  const std::string page = "\n" + document.substr(1) + std::string(header.size(), 'e');
  ASSERT_EQ(40960u, page.size());
  EXPECT_EQ("HEAD\n" + page + "TAIL\n", PageFor(header + document));
}

TEST_F(GetDoc, RelativeMacro_IsLookedForInTheLibrary) {
  EXPECT_EQ("", daemon_.Exchange("\t@COMMAND=GETDOC\t@SEARCHGROUP=doc\t@MACROFILE=page\n"));
  EXPECT_EQ(
      "[Macro: Open] Unable to open macro '/usr/local/korvo/lib/page.mo': errno = 2\n"
      "[CommMgr: ClientCmd] Unable to open Macro page\n",
      Log());
}

TEST_F(GetDoc, UndefinedOpCode_RepeatsUntilASignal) {
  daemon_.Files().Write("page.mo", "\x05");
  const Socket client = daemon_.Client();
  client.Send(Command());
  {
    const Socket connection = documents_.Accept();
    connection.ReadLine();
    connection.Send("\t@COMMAND=HIT\tT=1\t\n");
  }
  const std::string line = "\n[undefined op-code = 5]\n";
  EXPECT_TRUE(daemon_.Program().WaitForLog(line + line + line));
  daemon_.Send("\t@COMMAND=SHUTDOWN\n");
  EXPECT_EQ("", client.ReadAll());
  EXPECT_EQ(0, ExitStatus(daemon_.Program().Wait()));
  for (const int status : daemon_.Program().WaitForGroup()) EXPECT_EQ(0, status);
}

}  // namespace
