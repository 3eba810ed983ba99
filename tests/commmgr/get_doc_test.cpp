// One document from its Document Manager.
#include <gtest/gtest.h>

#include <cstring>

#include "commmgr/commmgr.h"
#include "debug/log.h"
#include "macro/exec.h"
#include "macro/table.h"
#include "tests/commmgr/handler_case.h"
#include "tests/support/log_capture.h"

namespace {

constexpr const char *kDocument = "\t@COMMAND=HIT\tT=one\t\n";
const std::string kNoNewline(kMessageSize, 'x');

// A fetch of document 5 of the type "r" from the Document Manager "doc".
struct Fetch {
  CmdHdr hdr = {};
  std::vector<char> out = std::vector<char>(kMessageSize + 1, 'x');
  int capacity = kMessageSize;
  int length = 0;
  int result = 99;

  void Run(int macro, int format) {
    hdr = {};
    std::strcpy(hdr.Command, "HIT");
    std::strcpy(hdr.SearchGroup, "doc");
    std::strcpy(hdr.RecType, "r");
    hdr.DocNum = 5;
    length = capacity;
    result = CommMgr_GetDoc(macro, &hdr, out.data(), &length, format);
  }
};

// A macro that makes "<>" of every document, and one that fails on every one.
int PageMacro() { return Macro_Open(WriteMacro("page", std::string("\x41\x02<>\0", 5)).c_str()); }
int BadMacro() { return Macro_Open(WriteMacro("bad", "\x09").c_str()); }

HANDLER_CASE(GetDoc, Formatted_IsLoggedAt101BeforeAndAfterTheMacro) {
  Manager documents('D', "doc", kDocument);
  const int macro = PageMacro();
  Fetch fetch;
  ExpectLog({Displayed(kDocument),
             {kInfo, "[CommMgr: GetDoc] Raw Doc:\n\tT=one\t\n\n"},
             {kStatus, "[Macro: Exec] done\n"},
             {kInfo, "[CommMgr: GetDoc] Formatted Doc (len = 2):\n<>\n"}},
            [&] { fetch.Run(macro, 1); });
  EXPECT_EQ(fetch.result, 1);
  EXPECT_EQ(fetch.length, 2);
  EXPECT_STREQ(fetch.out.data(), "<>");
}

HANDLER_CASE(GetDoc, Unformatted_IsLoggedAt101AndCopied) {
  Manager documents('D', "doc", kDocument);
  const int macro = PageMacro();
  for (const int format : {0, 2, -1}) {
    Fetch fetch;
    ExpectLog({Displayed(kDocument), {kInfo, "[CommMgr: GetDoc] Raw Doc:\n\tT=one\t\n\n"}},
              [&] { fetch.Run(macro, format); });
    EXPECT_EQ(fetch.result, 1) << format;
    EXPECT_EQ(fetch.length, 8) << format;
    EXPECT_STREQ(fetch.out.data(), "\tT=one\t\n") << format;
  }
}

HANDLER_CASE(GetDoc, UnformattedAndLongerThanItsBuffer_IsCutAndSaidAt103) {
  Manager documents('D', "doc", kDocument);
  Fetch fetch;
  fetch.capacity = 3;
  ExpectLog({Displayed(kDocument),
             {kInfo, "[CommMgr: GetDoc] Raw Doc:\n\tT=one\t\n\n"},
             {kWarning, "[CommMgr: GetDoc] Document cut to 3 characters\n"}},
            [&] { fetch.Run(-1, 0); });
  EXPECT_EQ(fetch.result, 1);
  EXPECT_EQ(fetch.length, 3);
  EXPECT_EQ(std::string(fetch.out.data(), 5), std::string("\tT=\0x", 5));
}

HANDLER_CASE(GetDoc, NoAnswer_IsLoggedAt101AndAnEmptyDocument) {
  Manager documents('D', "doc", "");
  Fetch fetch;
  ExpectLog(
      {{kInfo,
        "[Util:ReadInt] Length of data is 0 (Connection Closed by other side) for sock <sock>\n"},
       {kInfo, "[CommMgr: GetDoc] ReadAndInterpret returned an END OF DATA message\n"}},
      [&] { fetch.Run(-1, 1); });
  EXPECT_EQ(fetch.result, 1);
  EXPECT_EQ(fetch.length, 0);
  EXPECT_STREQ(fetch.out.data(), "");
}

HANDLER_CASE(GetDoc, AnswerThatCannotBeRead_IsLoggedAt101) {
  Manager documents('D', "doc", kNoNewline);
  Fetch fetch;
  ExpectLog({{kWarning, "[Util: ReadInt] Unable to recv on socket <sock>: rc = -4\n"},
             {kInfo, "[CommMgr: GetDoc] ReadAndInterpret returned an error\n"}},
            [&] { fetch.Run(-1, 1); });
  EXPECT_EQ(fetch.result, 0);
}

HANDLER_CASE(GetDoc, AnotherAnswer_IsLoggedAt101) {
  const std::string answer = "\t@COMMAND=ERROR\tno such document\n";
  Manager documents('D', "doc", answer);
  Fetch fetch;
  ExpectLog({Displayed(answer), {kInfo, "[CommMgr: GetDoc] Command not recognized: 'ERROR'\n"}},
            [&] { fetch.Run(-1, 1); });
  EXPECT_EQ(fetch.result, 0);
}

HANDLER_CASE(GetDoc, AnswerThatIsNotHitToTheLetter_IsNotRecognized) {
  for (const std::string command : {"hit", "HITS", "HI", "GETDOC"}) {
    const std::string answer = "\t@COMMAND=" + command + "\tT=one\t\n";
    Manager documents('D', "doc", answer);
    Fetch fetch;
    ExpectLog({Displayed(answer),
               {kInfo, "[CommMgr: GetDoc] Command not recognized: '" + command + "'\n"}},
              [&] { fetch.Run(-1, 0); });
    EXPECT_EQ(fetch.result, 0) << command;
  }
}

HANDLER_CASE(GetDoc, AnswerWithoutAHeader_HasNoCommand) {
  const std::string answer = "T=one\n";
  Manager documents('D', "doc", answer);
  Fetch fetch;
  ExpectLog({Displayed(answer), {kInfo, "[CommMgr: GetDoc] Command not recognized: ''\n"}},
            [&] { fetch.Run(-1, 0); });
  EXPECT_EQ(fetch.result, 0);
}

HANDLER_CASE(GetDoc, MacroThatFails_IsLoggedAt103) {
  Manager documents('D', "doc", kDocument);
  const int macro = BadMacro();
  Fetch fetch;
  ExpectLog({Displayed(kDocument),
             {kInfo, "[CommMgr: GetDoc] Raw Doc:\n\tT=one\t\n\n"},
             {kWarning, "[Macro: Exec] op-code 9 at offset 0: stack is empty\n"},
             {kWarning, "[CommMgr: Results] Macro Substitution failed.\n"}},
            [&] { fetch.Run(macro, 1); });
  EXPECT_EQ(fetch.result, 0);
}

HANDLER_CASE(GetDoc, Connection_IsClosedOnEveryPath) {
  const int page = PageMacro(), bad = BadMacro();
  const struct {
    const char *path;
    std::string answer;
    int macro, format, result;
  } kRows[] = {
      {"formatted", kDocument, page, 1, 1},
      {"unformatted", kDocument, page, 0, 1},
      {"macro fails", kDocument, bad, 1, 0},
      {"no answer", "", page, 1, 1},
      {"another answer", "\t@COMMAND=ERROR\tno\n", page, 1, 0},
      {"unreadable answer", kNoNewline, page, 1, 0},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.path);
    Manager documents('D', "doc", row.answer);
    Fetch fetch;
    const int before = OpenDescriptors();
    Capture(kInfo, [&] { fetch.Run(row.macro, row.format); });
    EXPECT_EQ(fetch.result, row.result);
    EXPECT_TRUE(documents.SeesEnd());
    EXPECT_EQ(OpenDescriptors(), before + 1);  // the Document Manager's end
  }
}

HANDLER_CASE(GetDoc, Failure_LeavesTheLengthAndAnEmptyText) {
  const struct {
    const char *manager, *path;
    std::string answer;
    int format;
  } kRows[] = {
      {"other", "no such manager", kDocument, 1},
      {"doc", "macro fails", kDocument, 1},
      {"doc", "another answer", "\t@COMMAND=ERROR\tno\n", 1},
      {"doc", "another answer, unformatted", "\t@COMMAND=ERROR\tno\n", 0},
      {"doc", "unreadable answer", kNoNewline, 1},
      {"doc", "unreadable answer, unformatted", kNoNewline, 0},
  };
  const int bad = BadMacro();
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.path);
    Manager documents('D', row.manager, row.answer);
    Fetch fetch;
    fetch.capacity = 1000;
    Capture(kInfo, [&] { fetch.Run(bad, row.format); });
    EXPECT_EQ(fetch.result, 0);
    EXPECT_EQ(fetch.length, 1000);
    EXPECT_STREQ(fetch.out.data(), "");
    DocMgrList = nullptr;
  }
  const GoneManager gone('D', "doc");
  Fetch fetch;
  Capture(kInfo, [&] { fetch.Run(-1, 1); });
  EXPECT_EQ(fetch.result, 0);
  EXPECT_EQ(fetch.length, kMessageSize);
  EXPECT_STREQ(fetch.out.data(), "");
}

HANDLER_CASE(GetDoc, UnknownDocumentManager_IsLoggedAt103AndLeavesTheCommand) {
  Manager other('D', "other", kDocument), search('S', "doc", kDocument);
  Fetch fetch;
  ExpectLog({{kWarning, "[CommMgr: GetDoc] Unable to find a docmgr for doc:r\n"}},
            [&] { fetch.Run(-1, 1); });
  EXPECT_EQ(fetch.result, 0);
  EXPECT_STREQ(fetch.hdr.Command, "HIT");
  EXPECT_TRUE(other.Requests().empty() && search.Requests().empty());
}

HANDLER_CASE(GetDoc, DocumentManagerThatIsGone_IsLoggedAt103AndHasChangedTheCommand) {
  const GoneManager gone('D', "doc");
  Fetch fetch;
  ExpectLog(
      {{kWarning,
        "[SOCK: Connect] Error 111 (0x6f) from connect().  Unable to connect socket <sock> to " +
            gone.Where() + ".\n"},
       {kWarning, "[Socket: Conn&Send] Unable to connect to " + gone.Where() + ": rc = -111\n"},
       {kWarning,
        "[CommMgr: GetDoc] ConnectAndSend to DocMgr at " + gone.Where() + " failed: rc = -111.\n"}},
      [&] { fetch.Run(-1, 1); });
  EXPECT_EQ(fetch.result, 0);
  EXPECT_STREQ(fetch.hdr.Command, "GETDOC");
}

HANDLER_CASE(GetDoc, Request_IsTheHeaderWithItsCommandReplaced) {
  Manager documents('D', "doc", kDocument);
  Fetch fetch;
  Capture(kInfo, [&] { fetch.Run(PageMacro(), 1); });
  EXPECT_STREQ(fetch.hdr.Command, "GETDOC");
  EXPECT_EQ(fetch.hdr.DocNum, 5);
  EXPECT_EQ(
      documents.Requests(),
      std::vector<std::string>{
          "\t@COMMAND=GETDOC\t@BESTFIT=0\t@SEARCHGROUP=doc\t@RECTYPE=r\t@MACROFILE=\t@DOCNUM=5"
          "\t@SCRIPT=\t@SEQNUM=0\t@AUTHCODE=\t@FILENAME=\t@EXPDATE=0\n"});
}

// A macro that emits the document that F names, between "<" and ">", and then F itself.
int FetchingMacro() {
  const std::string fetch = std::string("\x0d\x01") + "F" + std::string(1, '\0');
  return Macro_Open(
      WriteMacro("fetching", "\x41\x01<" + fetch + "\x41\x01>" + "\x42\x01" + "F").c_str());
}

HANDLER_CASE(GetDoc, DocumentThatTheMacroFetches_IsRawAndLeavesTheOther) {
  Manager documents('D', "doc", "\t@COMMAND=HIT\tF=other T 17\t\n");
  Manager others('D', "other", "\t@COMMAND=HIT\tF=fetched\t\n");
  Macro_SetFetch(CommMgr_GetDoc);
  const int macro = FetchingMacro();
  Fetch fetch;
  Capture(kInfo, [&] { fetch.Run(macro, 1); });
  EXPECT_EQ(fetch.result, 1);
  EXPECT_STREQ(fetch.out.data(), "<\tF=fetched\t\n>other T 17");
  EXPECT_EQ(documents.Requests().size(), 1u);
  EXPECT_EQ(
      others.Requests(),
      std::vector<std::string>{
          "\t@COMMAND=GETDOC\t@BESTFIT=0\t@SEARCHGROUP=other\t@RECTYPE=T\t@MACROFILE=\t@DOCNUM=17"
          "\t@SCRIPT=\t@SEQNUM=0\t@AUTHCODE=\t@FILENAME=\t@EXPDATE=0\n"});
  EXPECT_TRUE(others.SeesEnd());
}

HANDLER_CASE(GetDoc, DocumentThatTheMacroCannotFetch_IsAllZeros) {
  Macro_SetFetch(CommMgr_GetDoc);
  const int macro = FetchingMacro();
  for (const std::string &answer : {std::string("\t@COMMAND=ERROR\tno\n"), kNoNewline}) {
    Manager documents('D', "doc", "\t@COMMAND=HIT\tF=other T 17\t\n");
    Manager others('D', "other", answer);
    Fetch fetch;
    Capture(kInfo, [&] { fetch.Run(macro, 1); });
    EXPECT_EQ(fetch.result, 1);
    EXPECT_EQ(std::string(fetch.out.data(), static_cast<std::size_t>(fetch.length)),
              "<" + std::string(32768, '\0') + ">other T 17");
    DocMgrList = nullptr;
  }
}

HANDLER_CASE(GetDoc, DocumentThatTheMacroFetchesWithoutAnAnswer_IsNothing) {
  Manager documents('D', "doc", "\t@COMMAND=HIT\tF=other T 17\t\n"), others('D', "other", "");
  Macro_SetFetch(CommMgr_GetDoc);
  Fetch fetch;
  Capture(kInfo, [&] { fetch.Run(FetchingMacro(), 1); });
  EXPECT_EQ(fetch.result, 1);
  EXPECT_STREQ(fetch.out.data(), "<>other T 17");
}

}  // namespace
