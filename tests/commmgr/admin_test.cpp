// Administrative datagrams and the start-up of the Communications Manager.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string>

#include "commmgr/commmgr.h"
#include "config/announce.h"
#include "debug/log.h"
#include "tests/commmgr/handler_case.h"
#include "tests/support/log_capture.h"

namespace {

void Run(const std::string &datagram, int port = 4321) {
  SockAddr sender = AddrOf("10.1.2.3", port);
  CommMgr_Admin(-1, &sender, datagram.c_str(), static_cast<int>(datagram.size()));
}

// Expects the sender, all of the bytes and the header in the log, and nothing else.
void ExpectTrace(const std::string &datagram, int port) {
  const std::string dump = Capture(kInfo, [&] {
                             HEXDUMP(nullptr, kInfo, datagram.c_str(),
                                     static_cast<int>(datagram.size()), "[CommMgr: Admin] CmdBuf:");
                           }).log;
  ExpectLog({{kInfo, "[CommMgr: Admin] Command from 10.1.2.3/" + Num(port) + "\n"},
             {kInfo, dump},
             Displayed(datagram)},
            [&] { Run(datagram, port); });
}

std::string Announcement(char type) {
  return std::string("\t@COMMAND=STARTUPANNOUNCEMENT\tID=new\tTYPE=") + type +
         "\tIP=127.0.0.1\tCLIENTPORT=4000\tADMINPORT=4001\n";
}

HANDLER_CASE(Admin, Datagram_IsLoggedAt101WithItsSenderAndAllOfItsBytes) {
  ExpectTrace(std::string("\t@COMMAND=PONG\t@SEQNUM=7\n\0behind the text\n", 42), 4321);
  ExpectTrace("\t@COMMAND=PONG\n", 32767);
}

HANDLER_CASE(Admin, AnnouncementOfAnotherType_IsPutInNeitherList) {
  GoneManager documents('D', "d"), search('S', "s");
  INIT_CHILDINFO *const doc = DocMgrList, *const srch = SearchMgrList;
  for (const char type : {'E', 'C', 'd', 's'}) {
    const std::string log = Capture(kInfo, [&] { Run(Announcement(type)); }).log;
    EXPECT_EQ(log.substr(std::min(log.find("[Init: RecvAnn]"), log.size())),
              std::string("[Init: RecvAnn] Child ID       = new\n"
                          "[Init: RecvAnn] Child Type     = ") +
                  type +
                  "\n[Init: RecvAnn] Child ClientIP = 127.0.0.1/4000\n"
                  "[Init: RecvAnn] Child AdminIP  = 127.0.0.1/4001\n");
    EXPECT_TRUE(DocMgrList == doc && doc->Next == nullptr) << type;
    EXPECT_TRUE(SearchMgrList == srch && srch->Next == nullptr) << type;
  }
}

// The heap gives back what was freed, full of what it held.
HANDLER_CASE(Admin, Announcement_FillsARecordOfZeros) {
  std::array<void *, 8> pieces;
  for (void *&piece : pieces) {
    piece = std::malloc(sizeof(INIT_CHILDINFO));
    std::memset(piece, 'x', sizeof(INIT_CHILDINFO));
  }
  for (void *piece : pieces) std::free(piece);
  Capture(kOff, [] { Run(Announcement('D')); });
  static INIT_CHILDINFO expected;  // its padding is zero too
  Capture(kOff, [] { Init_RecvAnnounce(Announcement('D').c_str(), &expected); });
  ASSERT_NE(DocMgrList, nullptr);
  EXPECT_EQ(std::memcmp(DocMgrList, &expected, sizeof expected), 0);
}

// The C library keeps the first few that are freed, and counts them as in use.  Under a
// sanitizer they are not counted.
HANDLER_CASE(Admin, AnnouncementThatIsNotListed_IsFreed) {
  const std::string refused =
      "\t@COMMAND=STARTUPANNOUNCEMENT\tID=new\tTYPE=D\tIP=127.0.0.1\tCLIENTPORT=4000\n";
  std::size_t after_some = 0;
  for (int i = 0; i < 200; ++i) {
    Capture(kOff, [&] {
      Run(refused);
      Run(Announcement('E'));
    });
    if (i == 100) after_some = mallinfo2().uordblks;
  }
  EXPECT_EQ(mallinfo2().uordblks, after_some);
  EXPECT_EQ(DocMgrList, nullptr);
  EXPECT_EQ(SearchMgrList, nullptr);
}

HANDLER_CASE(Startup, FilledLists_AreEmptied) {
  GoneManager documents('D', "d"), search('S', "s");
  const ConfigInfo config = {"CM", 'C', "127.0.0.1", 4000, 4001, "CM"};
  int result = 0;
  Capture(kInfo, [&] { result = CommMgr_Startup(&config, nullptr); });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(DocMgrList, nullptr);
  EXPECT_EQ(SearchMgrList, nullptr);
}

HANDLER_CASE(Startup, Record_IsLoggedAt104AndItsEndAt103) {
  const ConfigInfo config = {"CM", 'C', "127.0.0.1", 4000, 4001, "CM"};
  const std::string record = Capture(kFatal, [&] { Init_DisplayCfg(&config); }).log;
  ExpectLog({{kFatal, record},
             {kWarning, "[CommMgr: Startup] Communication Manager Initialization Complete.\n"}},
            [&] { CommMgr_Startup(&config, nullptr); });
}

}  // namespace
