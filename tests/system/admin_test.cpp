#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>

#include "tests/system/harness.h"

namespace {

// What the daemon logs for a command, and nothing else.
std::string LogOf(Daemon *daemon, const std::string &datagram) {
  const std::size_t before = daemon->Log().size();
  daemon->Send(datagram);
  daemon->Ping();
  return daemon->Log().substr(before);
}

TEST(Admin, Ping_EchoesTheNumber) {
  const Daemon daemon;
  EXPECT_EQ("\t@COMMAND=PONG\t@SEQNUM=42\n", daemon.Ask("\t@COMMAND=PING\t@SEQNUM=42\n"));
  EXPECT_EQ("\t@COMMAND=PONG\t@SEQNUM=0\n", daemon.Ask("\t@COMMAND=PING\n"));
  EXPECT_EQ("\t@COMMAND=PONG\t@SEQNUM=0\n", daemon.Ask("\t@COMMAND=PING\t@SEQNUM=7"));
  EXPECT_EQ("\t@COMMAND=PONG\t@SEQNUM=2147483647\n",
            daemon.Ask("\t@COMMAND=PING\t@SEQNUM=4294967295\n"));
}

TEST(Admin, PingWithARefusedNumber_IsAnswered) {
  Daemon daemon;
  EXPECT_EQ("\t@COMMAND=PONG\t@SEQNUM=-1\n", daemon.Ask("\t@COMMAND=PING\t@SEQNUM=-1\n"));
  EXPECT_EQ("[Util: IntCmdHdr] SeqNum -1 not recognized\n",
            LogOf(&daemon, "\t@COMMAND=PONG\t@SEQNUM=-1\n"));
}

TEST(Admin, PingWithoutItsNewline_HasNoCommand) {
  Daemon daemon;
  EXPECT_EQ("[CommMgr: Admin] Unknown command \n", LogOf(&daemon, "\t@COMMAND=PING"));
}

TEST(Admin, PingFromAHighPort_GetsNoAnswer) {
  Daemon daemon;
  const Socket high(socket(AF_INET, SOCK_DGRAM, 0));
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int port = 40000;
  do addr.sin_port = htons(static_cast<std::uint16_t>(++port));
  while (bind(high.Fd(), reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0);
  addr.sin_port = htons(static_cast<std::uint16_t>(daemon.AdminPort()));
  const std::string ping = "\t@COMMAND=PING\n";
  sendto(high.Fd(), ping.data(), ping.size(), 0, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
  EXPECT_TRUE(daemon.Program().WaitForLog(
      "[CommMgr: Admin] Unable to send Pong to 127.0.0.1:" + std::to_string(port - 65536) + "\n"));
  EXPECT_FALSE(high.Readable(0));
}

TEST(Admin, SetDebugLevel_TakesTheFiveWords) {
  const struct {
    const char *word;
    const char *level;
  } kWords[] = {
      {"INFO", "101"}, {"STATUS", "102"}, {"WARNING", "103"}, {"FATAL", "104"}, {"OFF", "105"}};
  Daemon daemon;
  for (const auto &row : kWords) {
    daemon.SetLevel(row.word);
    EXPECT_TRUE(
        daemon.Program().WaitForLog(std::string("Global Debug Level Set to ") + row.level + "\n"));
    daemon.SetLevel("WARNING");
  }
}

TEST(Admin, SetDebugLevelOff_SilencesEverything) {
  Daemon daemon;
  EXPECT_EQ("[DEBUG: SetLevel] Global Debug Level Set to 105\n",
            LogOf(&daemon, "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=OFF\n"));
  EXPECT_EQ("", LogOf(&daemon, "\t@COMMAND=NONSENSE\n"));
}

TEST(Admin, SetDebugLevel_RefusesTheRest) {
  Daemon daemon;
  EXPECT_EQ("[CommMgr: Admin] Unknown Debug level 'status'\n",
            LogOf(&daemon, "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=status\n"));
  EXPECT_EQ("[CommMgr: Admin] Unknown Debug level ''\n",
            LogOf(&daemon, "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=\n"));
  EXPECT_EQ("[CommMgr: Admin] Cmd SetDebug: can't find DEBUGLEVEL field\n",
            LogOf(&daemon, "\t@COMMAND=SETDEBUGLEVEL\n"));
  EXPECT_EQ(
      "[Util: Search4Pair] fieldvalpair overflow\n"
      "[CommMgr: Admin] Cmd SetDebug: can't find DEBUGLEVEL field\n",
      LogOf(&daemon, "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=" + std::string(300, 'x') + "\n"));
  EXPECT_EQ("[CommMgr: Admin] Cmd SetDebug: can't find DEBUGLEVEL field\n",
            LogOf(&daemon, "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=OFF"));
}

TEST(Admin, CommandWords_AreExact) {
  Daemon daemon;
  EXPECT_EQ("[CommMgr: Admin] Unknown command ping\n", LogOf(&daemon, "\t@COMMAND=ping\n"));
  EXPECT_EQ("[CommMgr: Admin] Unknown command \n", LogOf(&daemon, "PING\n"));
  EXPECT_EQ("", LogOf(&daemon, "\t@COMMAND=PONG\t@SEQNUM=1\n"));
  EXPECT_EQ("", LogOf(&daemon, "\t@COMMAND=SHUTDOWNANNOUNCEMENT\n"));
}

TEST(Admin, EmptyDatagram_IsLogged) {
  Daemon daemon;
  EXPECT_EQ("[CommMgr: Admin] CmdBuf is NULL or CmdBufLen is <= 0.\n", LogOf(&daemon, ""));
}

TEST(Admin, Rubbish_IsSurvived) {
  Daemon daemon;
  for (const std::size_t size : {1u, 4095u, 4096u, 4097u, 60000u})
    for (const char byte : {'x', '\t', '\0', '\xff', '@', '='})
      LogOf(&daemon, std::string(size, byte));
  EXPECT_EQ(
      "[CommMgr: Admin] Unknown command \n",
      LogOf(&daemon, "\t@COMMAND=" + std::string(2000, 'x') + "\n")
          .substr(std::string("[Util: IntCmdHdr] Token of 2009 characters is longer than 1024\n")
                      .size()));
}

TEST(Admin, ADatagramOf4096Bytes_IsReadWhole) {
  Daemon daemon;
  std::string ping = "\t@COMMAND=PING\t@SEQNUM=9\tX=";
  ping += std::string(4096 - ping.size() - 1, 'x') + "\n";
  EXPECT_EQ("\t@COMMAND=PONG\t@SEQNUM=9\n", daemon.Ask(ping));
}

TEST(Admin, InfoLevel_ShowsTheDatagramTwiceDumped) {
  Daemon daemon;
  daemon.SetLevel("INFO");
  const std::string log = LogOf(&daemon, "\t@COMMAND=PONG\t@SEQNUM=3\n");
  EXPECT_EQ(0u,
            log.find("HEXDUMP of MainCore_UDPReadThread Dump:\n\n" + std::string(47, ' ') + "\n"))
      << log;
  EXPECT_NE(std::string::npos, log.find("[CommMgr: Admin] Command from 127.0.0.1/"));
  EXPECT_NE(std::string::npos,
            log.find("HEXDUMP of [CommMgr: Admin] CmdBuf:\n" + std::string(47, ' ') + "\n"));
  EXPECT_NE(std::string::npos, log.find("[Util: Display] CmdHdr->SeqNum        = 3\n"));
}

// What a QUERY for a group meets tells which peers are listed.
class AdminLists : public ::testing::Test {
 protected:
  void SetUp() override { macro_ = daemon_.Files().Write("p.mo", EndOp()); }

  // Whether a QUERY for that group reaches the manager.
  bool Reaches(const std::string &id, const Manager &manager) {
    const Socket client = daemon_.Client();
    client.Send("\t@COMMAND=QUERY\t@SEARCHGROUP=" + id + "\t@MACROFILE=" + daemon_.Files().Path() +
                "/p\n");
    if (!Eventually([&] { return manager.Called() || client.Readable(0); })) return false;
    if (!manager.Called()) {
      EXPECT_EQ("\t@COMMAND=ERROR\tUnable to locate SearchMgr\n", client.ReadAll());
      return false;
    }
    Socket search = manager.Accept();
    search.Close();
    client.ReadAll();
    return true;
  }

  Daemon daemon_;
  std::string macro_;
  Manager one_, two_, three_, other_;
};

TEST_F(AdminLists, SearchManagers_AreListedById) {
  daemon_.Announce('S', "one", one_);
  daemon_.Announce('S', "two", two_);
  EXPECT_TRUE(Reaches("one", one_));
  EXPECT_TRUE(Reaches("two", two_));
  EXPECT_FALSE(Reaches("three", three_));
  EXPECT_FALSE(Reaches("ONE", one_));
}

TEST_F(AdminLists, ReannouncedHead_KeepsTheOthers) {
  daemon_.Announce('S', "one", one_);
  daemon_.Announce('S', "two", two_);
  daemon_.Announce('S', "one", other_);
  EXPECT_TRUE(Reaches("one", other_));
  EXPECT_TRUE(Reaches("two", two_));
}

TEST_F(AdminLists, ReannouncedSearchManagerInTheMiddle_DropsAllBehindIt) {
  daemon_.Announce('S', "one", one_);
  daemon_.Announce('S', "two", two_);
  daemon_.Announce('S', "three", three_);
  daemon_.Announce('S', "two", other_);
  EXPECT_TRUE(Reaches("one", one_));
  EXPECT_TRUE(Reaches("two", other_));
  EXPECT_FALSE(Reaches("three", three_));
  daemon_.Announce('S', "three", three_);
  EXPECT_TRUE(Reaches("three", three_));
}

TEST_F(AdminLists, OtherTypes_AreListedNowhere) {
  for (const char type : {'C', 'E', 's', 'D'}) daemon_.Announce(type, "one", one_);
  EXPECT_FALSE(Reaches("one", one_));
}

TEST_F(AdminLists, AnnouncementWithoutItsNewline_IsDropped) {
  const std::size_t before = daemon_.Log().size();
  daemon_.Send("\t@COMMAND=STARTUPANNOUNCEMENT\tID=one\tTYPE=S\tIP=127.0.0.1\tCLIENTPORT=" +
               std::to_string(one_.Port()) + "\tADMINPORT=9");
  daemon_.Ping();
  EXPECT_EQ("[Util: Search4Pair] cannot find end of fieldvalpair: ADMINPORT=9\n",
            daemon_.Log().substr(before));
  EXPECT_FALSE(Reaches("one", one_));
}

TEST_F(AdminLists, AnnouncementWithoutAField_IsDropped) {
  daemon_.Send("\t@COMMAND=STARTUPANNOUNCEMENT\tID=one\tTYPE=S\tIP=127.0.0.1\tCLIENTPORT=" +
               std::to_string(one_.Port()) + "\n");
  daemon_.Send("\t@COMMAND=STARTUPANNOUNCEMENT\n");
  daemon_.Ping();
  EXPECT_TRUE(daemon_.Program().WaitForLog("[Init: RecvAnnounce] Command is NULL.\n"));
  EXPECT_FALSE(Reaches("one", one_));
}

TEST_F(AdminLists, ShutdownAnnouncement_RemovesNothing) {
  daemon_.Announce('S', "one", one_);
  daemon_.Send("\t@COMMAND=SHUTDOWNANNOUNCEMENT\tID=one\tTYPE=S\n");
  EXPECT_TRUE(Reaches("one", one_));
}

TEST_F(AdminLists, ManyAnnouncements_CostNoDescriptorAndNoMemoryTwice) {
  const auto descriptors = [&] {
    int count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(
             "/proc/" + std::to_string(daemon_.Program().Pid()) + "/fd"))
      ++count;
    return count;
  };
  daemon_.Announce('S', "one", one_);
  const int before = descriptors();
  for (int i = 0; i < 300; ++i)
    daemon_.Announce(i % 2 == 0 ? 'S' : 'D', "x" + std::to_string(i % 7), one_);
  EXPECT_EQ(before, descriptors());
  EXPECT_TRUE(Reaches("one", one_));
}

}  // namespace
