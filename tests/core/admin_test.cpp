#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "commmgr/commmgr.h"
#include "config/peers.h"
#include "debug/log.h"
#include "tests/core/core_seams.h"
#include "tests/core/running.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

class CommMgrAdmin : public ::testing::Test {
 protected:
  void SetUp() override { DocMgrList = SearchMgrList = nullptr; }
  void TearDown() override {
    for (INIT_CHILDINFO *list : {DocMgrList, SearchMgrList}) {
      while (list != nullptr) {
        INIT_CHILDINFO *next = list->Next;
        std::free(list);
        list = next;
      }
    }
    DocMgrList = SearchMgrList = nullptr;
  }

  void Send(const std::string &text) {
    CommMgr_Admin(sock_, &sender_, text.c_str(), static_cast<int>(text.size()));
  }

  Fd sock_{BindUDP(0)};
  SockAddr sender_ = Loopback(4000);
};

std::string Announcement(char type) {
  return std::string("\t@COMMAND=STARTUPANNOUNCEMENT\tID=one\tTYPE=") + type +
         "\tIP=10.1.2.3\tCLIENTPORT=11\tADMINPORT=12\n";
}

TEST_F(CommMgrAdmin, NoSender_IsLoggedFirst) {
  EXPECT_EQ("[CommMgr: Admin] Sender is NULL\n",
            MessagesAt(kWarning, [&] { CommMgr_Admin(sock_, nullptr, nullptr, 0); }));
  const Seams seams;
  EXPECT_EQ("[CommMgr: Admin] Sender is NULL\n",
            Capture(kInfo, [&] { CommMgr_Admin(sock_, nullptr, "\t@COMMAND=PING\n", 15); }).log);
  EXPECT_EQ("", seams.Trace());
}

TEST_F(CommMgrAdmin, NoCommand_IsLogged) {
  const char *text = "\t@COMMAND=PING\n";
  const struct {
    const char *buf;
    int len;
  } kEmpty[] = {{nullptr, 15}, {text, 0}, {text, -1}, {nullptr, 0}};
  const Seams seams;
  for (const auto &row : kEmpty) {
    EXPECT_EQ("[CommMgr: Admin] CmdBuf is NULL or CmdBufLen is <= 0.\n",
              MessagesAt(kWarning, [&] { CommMgr_Admin(sock_, &sender_, row.buf, row.len); }));
  }
  EXPECT_EQ("", seams.Trace());
}

TEST_F(CommMgrAdmin, Datagram_IsTracedAt101) {
  const std::string log = Capture(kInfo, [&] { Send("\t@COMMAND=PONG\n"); }).log;
  EXPECT_EQ(0u, log.find("[CommMgr: Admin] Command from 127.0.0.1/4000\n"
                         "HEXDUMP of [CommMgr: Admin] CmdBuf:\n"))
      << log;
  EXPECT_EQ(0u, Capture(kStatus, [&] { Send("\t@COMMAND=PONG\n"); }).log.find("[Util: Display]"));
}

TEST_F(CommMgrAdmin, UnknownCommand_IsLoggedAt103) {
  EXPECT_EQ("[CommMgr: Admin] Unknown command NONE\n",
            MessagesAt(kWarning, [&] { Send("\t@COMMAND=NONE\n"); }));
}

// In a group of its own, which a wrong SHUTDOWN would end.
TEST_F(CommMgrAdmin, WordThatIsNoCommandToTheLetter_IsUnknown) {
  for (const std::string word : {"SETDEBUGLEVEL", "PING", "PONG", "STARTUPANNOUNCEMENT",
                                 "SHUTDOWNANNOUNCEMENT", "SHUTDOWN"}) {
    for (const std::string &other : {word + "S", word.substr(0, word.size() - 1), "@" + word}) {
      const Ended ended = RunInChild(kWarning, [&] {
        setpgid(0, 0);
        Send("\t@COMMAND=" + other + "\tDEBUGLEVEL=INFO\n");
      });
      EXPECT_EQ("[CommMgr: Admin] Unknown command " + other + "\n", ended.log);
    }
  }
}

TEST_F(CommMgrAdmin, Shutdown_SignalsTheGroupOnceAndIsNeitherAnsweredNorLogged) {
  static volatile std::sig_atomic_t signalled;
  const Ended ended = RunInChild(kWarning, [&] {
    setpgid(0, 0);
    signal(SIGUSR1, [](int) { signalled = signalled + 1; });
    Seams seams;
    Send("\t@COMMAND=SHUTDOWN\n");
    _exit(signalled == 1 && seams.Trace().empty() ? 0 : 1);
  });
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ("", ended.log);
}

TEST_F(CommMgrAdmin, Ping_IsAnsweredOnceToItsSenderFromTheSocketItCameOn) {
  const int port = FreePort();
  const Fd client(BindUDP(port));
  sender_ = Loopback(port);
  const Seams seams;
  Send("\t@COMMAND=PING\t@SEQNUM=42\n");
  EXPECT_EQ("inet_addr(127.0.0.1)\nsendto(26, 0, 16)\n", seams.Trace());
  char reply[64];
  sockaddr_in from = {};
  socklen_t size = sizeof from;
  const ssize_t got = recvfrom(client, reply, sizeof reply, MSG_DONTWAIT,
                               reinterpret_cast<sockaddr *>(&from), &size);
  ASSERT_GT(got, 0);
  EXPECT_EQ("\t@COMMAND=PONG\t@SEQNUM=42\n", std::string(reply, static_cast<std::size_t>(got)));
  EXPECT_EQ(PortOf(sock_), ntohs(from.sin_port));
}

TEST_F(CommMgrAdmin, FailedPong_IsLoggedAt104AndNotRepeated) {
  Seams seams;
  seams.Fail(Call::kSendto, EPERM, 1, kEveryTime);
  EXPECT_EQ("[CommMgr: Admin] Unable to send Pong to 127.0.0.1:4000\n",
            MessagesAt(kFatal, [&] { Send("\t@COMMAND=PING\t@SEQNUM=3\n"); }));
  EXPECT_EQ(2, seams.Count(Call::kSendto));  // one a PING
}

TEST_F(CommMgrAdmin, NoMemoryForAChild_IsLoggedAt104AndListsNothing) {
  calloc_seam.ask = [](int) { return ENOMEM; };
  const std::string log = MessagesAt(kFatal, [&] { Send(Announcement('S')); });
  calloc_seam.ask = {};
  EXPECT_EQ("[Comm: Admin] Unable to alloc mem for INIT_CHILDINFO (size = " +
                std::to_string(sizeof(INIT_CHILDINFO)) + ").\n",
            log);
  EXPECT_EQ(nullptr, SearchMgrList);
  Send(Announcement('S'));
  ASSERT_NE(nullptr, SearchMgrList);
  EXPECT_STREQ("one", SearchMgrList->ID);
}

TEST_F(CommMgrAdmin, AnnouncementOfAnotherType_IsParsedAndLoggedAndListedNowhere) {
  for (const char type : {'C', 'E'}) {
    const std::string log = Capture(kInfo, [&] { Send(Announcement(type)); }).log;
    EXPECT_NE(std::string::npos, log.find(std::string("[Init: RecvAnn] Child ID       = one\n"
                                                      "[Init: RecvAnn] Child Type     = ") +
                                          type +
                                          "\n[Init: RecvAnn] Child ClientIP = 10.1.2.3/11\n"
                                          "[Init: RecvAnn] Child AdminIP  = 10.1.2.3/12\n"))
        << log;
    EXPECT_EQ(nullptr, SearchMgrList);
    EXPECT_EQ(nullptr, DocMgrList);
  }
}

// A record that announces everything but its admin port.
std::string Incomplete(char type, const std::string &id) {
  return "\t@COMMAND=STARTUPANNOUNCEMENT\tID=" + id + "\tTYPE=" + type +
         "\tIP=10.1.2.3\tCLIENTPORT=11\n";
}

TEST_F(CommMgrAdmin, RefusedAnnouncement_LeavesTheLists) {
  for (const char type : {'D', 'S'}) Send(Announcement(type));
  INIT_CHILDINFO *const doc = DocMgrList, *const search = SearchMgrList;
  for (const char type : {'D', 'S'})
    for (const char *id : {"one", "two"}) Send(Incomplete(type, id));
  EXPECT_EQ(doc, DocMgrList);
  EXPECT_EQ(nullptr, doc->Next);
  EXPECT_EQ(search, SearchMgrList);
  EXPECT_EQ(nullptr, search->Next);
}

// The C library keeps the first few that are freed, and counts them as in use.  Nothing is in use
// under a sanitizer, which reports by itself what is lost.
TEST_F(CommMgrAdmin, RefusedAnnouncement_FreesItsRecord) {
  std::size_t after_some = 0;
  for (int i = 0; i < 200; ++i) {
    Send(Incomplete('S', "one"));
    if (i == 100) after_some = mallinfo2().uordblks;
  }
  EXPECT_EQ(after_some, mallinfo2().uordblks);
}

std::string SetLevelTo(const std::string &value) {
  return "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=" + value + "\n";
}

TEST_F(CommMgrAdmin, LevelThatIsKnown_IsConfirmedInOneLine) {
  const LogCapture log(kWarning);
  Send(SetLevelTo("STATUS"));
  EXPECT_EQ("[DEBUG: SetLevel] Global Debug Level Set to 102\n", log.Messages());
}

TEST_F(CommMgrAdmin, LevelTwice_TheFirstCounts) {
  const LogCapture log(kWarning);
  Send("\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=FATAL\tDEBUGLEVEL=INFO\n");
  EXPECT_EQ("[DEBUG: SetLevel] Global Debug Level Set to 104\n", log.Messages());
}

TEST_F(CommMgrAdmin, WordThatIsNoLevelToTheLetter_IsUnknownAndSetsNothing) {
  for (const std::string word : {"OFF", "INFO", "STATUS", "WARNING", "FATAL"}) {
    for (const std::string &other : {word + "S", word.substr(0, word.size() - 1), " " + word}) {
      int level = 0;
      const Output output = Capture(kWarning, [&] {
        Send(SetLevelTo(other));
        level = Debug_Level;
      });
      EXPECT_EQ("[CommMgr: Admin] Unknown Debug level '" + other + "'\n", output.log);
      EXPECT_EQ(kWarning, level);
    }
  }
}

TEST_F(CommMgrAdmin, LevelPairOf256Characters_IsTheLongestThatIsRead) {
  const std::string longest(256 - std::string("DEBUGLEVEL=").size(), 'x');
  EXPECT_EQ("[CommMgr: Admin] Unknown Debug level '" + longest + "'\n",
            MessagesAt(kWarning, [&] { Send(SetLevelTo(longest)); }));
  EXPECT_EQ(
      "[Util: Search4Pair] fieldvalpair overflow\n"
      "[CommMgr: Admin] Cmd SetDebug: can't find DEBUGLEVEL field\n",
      MessagesAt(kWarning, [&] { Send(SetLevelTo(longest + "x")); }));
}

TEST_F(CommMgrAdmin, LevelPairThatCannotBeSplit_IsLoggedAt103AndSetsNothing) {
  const std::string text = SetLevelTo("INFO");
  int level = 0;
  fail_split = true;
  // Behind the header, which is split too.
  const Output output = Capture(kWarning, [&] {
    Send(text);
    level = Debug_Level;
  });
  const std::string above = Capture(kFatal, [&] { Send(text); }).log;
  fail_split = false;
  EXPECT_TRUE(EndsWith(output.log, "[CommMgr: Admin] Cmd SetDebug: can't split DEBUGLEVEL field\n"))
      << output.log;
  EXPECT_EQ("", above);
  EXPECT_EQ(kWarning, level);
}

}  // namespace
