#include "core/startup.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "core/state.h"
#include "debug/log.h"
#include "tests/core/running.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

std::string Port(int number) { return std::to_string(number); }

// A configuration with one line of the program "own" of that type, and what else it is given.
struct Site {
  explicit Site(char program_type) : type(program_type) {}

  std::string OwnLine(const std::string &parent) const {
    return std::string("own ") + type + " 127.0.0.1 " + Port(client) + " " + Port(admin) + " " +
           parent + "\n";
  }
  std::string Conf() const { return folder.Path() + "/korvo.conf"; }

  Ended Run(const std::string &lines, const std::string &failures = "") const {
    folder.Write("korvo.conf", lines);
    const Setting letter("KORVO_TYPE", std::string(1, type));
    const Setting fail("KORVO_FAIL", failures);
    return RunToEnd({ANY_TYPE, "own", folder.Path()}, folder);
  }

  Folder folder;
  char type;
  int client = ReservePort();
  int admin = ReservePort();
};

std::string NotFound(const std::string &id, const Site &site) {
  return "[Init: ReadConf] Could not locate id = '" + id + "' in file '" + site.Conf() + "'\n";
}

TEST(CommandLine, OtherThanThreeArguments_UseTheDefaultDirectory) {
  const Folder folder;
  folder.Write("korvo.conf", "own C 127.0.0.1 20 30 -\n");
  const Setting fail("KORVO_FAIL", "fopen:1:2");
  for (const std::vector<std::string> &argv :
       {std::vector<std::string>{KORVO_COMMMGR, "own"},
        {KORVO_COMMMGR, "own", folder.Path(), "further"},
        {KORVO_COMMMGR, "own", folder.Path(), "further", "more"}}) {
    const Ended ended = RunToEnd(argv, folder);
    EXPECT_EQ(0, ended.status);
    EXPECT_EQ(std::string(kLevelLine) +
                  "[Init: ReadConf] Unable to open '/usr/local/korvo/etc/korvo.conf': errno = 2\n",
              ended.log);
  }
}

TEST(CommandLine, Usage_OpensNothing) {
  const Folder folder;
  folder.Write("korvo.conf", "own C 127.0.0.1 20 30 -\n");
  const Setting fail("KORVO_FAIL", "socket:1:24 fopen:1:2");
  for (const std::vector<std::string> &argv :
       {std::vector<std::string>{KORVO_COMMMGR}, {KORVO_COMMMGR, "-?", folder.Path()}}) {
    const Ended ended = RunToEnd(argv, folder);
    EXPECT_EQ(0, ended.status);
    EXPECT_NE(std::string::npos, ended.output.find("D O N ' T     P A N I C"));
    EXPECT_EQ("", ended.log);
  }
}

TEST(CommandLine, AnythingButTheMarkInItsPlace_IsNoUsage) {
  const Folder folder;
  const std::string conf = folder.Write("korvo.conf", "own C 127.0.0.1 20 30 -\n");
  for (const std::string id : {"-", "?", "-??", "-h", ""}) {
    const Ended ended = RunToEnd({KORVO_COMMMGR, id, folder.Path()}, folder);
    EXPECT_EQ(0, ended.status);
    EXPECT_EQ(std::string::npos, ended.output.find("P A N I C")) << id;
    EXPECT_EQ(kLevelLine + (id.empty() ? "[Init: ReadConf] ID NULL or zero-length.\n"
                                       : "[Init: ReadConf] Could not locate id = '" + id +
                                             "' in file '" + conf + "'\n"),
              ended.log);
  }
  const Ended ended = RunToEnd({KORVO_COMMMGR, "own", "-?"}, folder);
  EXPECT_EQ(std::string::npos, ended.output.find("P A N I C"));
  EXPECT_EQ(
      std::string(kLevelLine) + "[Init: ReadConf] Unable to open '-?/korvo.conf': errno = 2\n",
      ended.log);
}

TEST(CommandLine, DirectoryOf244Characters_IsTheLongest) {
  const Folder folder;
  const std::string longest = "/" + std::string(243, 'x');
  EXPECT_EQ(
      kLevelLine + ("[Init: ReadConf] Unable to open '" + longest) + "/korvo.conf': errno = 2\n",
      RunToEnd({KORVO_COMMMGR, "own", longest}, folder).log);
  EXPECT_EQ(kLevelLine +
                ("[MainCore: main] Config dir is longer than 244 characters: '" + longest) + "x'\n",
            RunToEnd({KORVO_COMMMGR, "own", longest + "x"}, folder).log);
}

// Started with no argument at all, not even its name.
TEST(CommandLine, NoName_IsUsageWithoutOne) {
  char *none[] = {nullptr};
  int rc = -1;
  const Output output = Capture(kInfo, [&] { rc = MainCore_Startup(0, none); });
  EXPECT_EQ(0, rc);
  EXPECT_NE(std::string::npos, output.out.find("USAGE:\t [program id] <config dir>\n"));
  EXPECT_EQ("", output.log);
}

struct Failure {
  const char *call;
  int status;
  const char *line;  // the last of the log, or the beginning of it
};
constexpr Failure kFailures[] = {
    // The error of a descriptor that is none cannot be asked, so these two are 0.
    {"socket:1:24", 0, "[SOCK: Listen] Error 0 (0x0) from socket()."},
    {"setsockopt:1:13", 256 - 13,
     "[SOCK: Connect] Error 13 (0xd) from setsockopt().  Unable to set reuseaddr to 1."},
    {"setsockopt:2:105", 256 - 105,
     "[SOCK: Connect] Error 105 (0x69) from setsockopt().  Unable to set rcvbuflen to 32768."},
    {"setsockopt:3:92", 256 - 92,
     "[SOCK: Connect] Error 92 (0x5c) from setsockopt().  Unable to set sndbuflen to 32768."},
    {"inet_addr:1:1", 256 - 2, "[SOCK: ConvertIP] Error converting to network address."},
    {"bind:1:13", 256 - 13, "[SOCK: Listen] Error 13 (0xd) from bind()."},
    {"listen:1:95", 256 - 95, "[SOCK: Listen] Error 95 (0x5f) from listen()."},
    {"socket:2:24", 0, "[SOCK: OpenUDP] Error 0 (0x0) from socket()."},
    {"inet_addr:2:1", 256 - 2, "[SOCK: ConvertIP] Error converting to network address."},
    {"bind:2:99", 256 - 99, "[SOCK: OpenUDP] Error 99 (0x63) from bind()."},
};

std::string LastLine(const std::string &log) {
  return log.size() < 2 ? log : log.substr(log.rfind('\n', log.size() - 2) + 1);
}

TEST(SocketSetUp, FailedCall_IsTheExitStatusOfItsCode) {
  const Site site('C');
  for (const Failure &failure : kFailures) {
    const Ended ended = site.Run(site.OwnLine("-"), failure.call);
    EXPECT_EQ(failure.status, ExitStatus(ended.status)) << failure.call;
    EXPECT_EQ(0u, LastLine(ended.log).find(failure.line)) << ended.log;
  }
}

// The table above has every call that start-up makes: the next one of each is never reached.
TEST(SocketSetUp, NoFurtherCall_IsMade) {
  Site site('C');
  site.folder.Write("korvo.conf", site.OwnLine("-"));
  const Setting fail("KORVO_FAIL", "socket:3:1 setsockopt:4:1 inet_addr:3:1 bind:3:1 listen:2:1");
  const Process process({KORVO_COMMMGR, "own", site.folder.Path()}, site.folder.Path());
  EXPECT_TRUE(process.WaitForLog("Initialization Complete.\n"));
  EXPECT_EQ(std::string::npos, process.Log().find("[SOCK"));
}

TEST(StartUp, Addresses_AreLoggedAt102BeforeTheHook) {
  const Site site('C');
  const Setting hook("KORVO_HOOK", "9");
  const std::string line = "[MainCore: main] TCP = 127.0.0.1/" + Port(site.client) +
                           ", UDP = 127.0.0.1/" + Port(site.admin) + "\n";
  {
    const Setting level("KORVO_LEVEL", "102");
    const Ended ended = site.Run(site.OwnLine("-"));
    EXPECT_EQ(9, ExitStatus(ended.status));
    EXPECT_EQ(kLevelLine + line, ended.log);
  }
  const Setting level("KORVO_LEVEL", "103");
  EXPECT_EQ(kLevelLine, site.Run(site.OwnLine("-")).log);
}

TEST(StartUp, AddressesOfSocketsThatAreNotBothOpen_AreNotLogged) {
  const Site site('C');
  const Setting level("KORVO_LEVEL", "102");
  for (const char *failure : {"bind:1:13", "bind:2:13"}) {
    const Ended ended = site.Run(site.OwnLine("-"), failure);
    EXPECT_EQ(256 - 13, ExitStatus(ended.status));
    EXPECT_EQ(std::string::npos, ended.log.find("[MainCore")) << ended.log;
  }
}

TEST(StartUp, HookOtherThan1_IsTheExitStatus) {
  const Site site('C');
  for (const int result : {0, 2, 7, -1, -111}) {
    const Setting hook("KORVO_HOOK", std::to_string(result));
    const Ended ended = site.Run(site.OwnLine("-"));
    EXPECT_EQ(result & 255, ExitStatus(ended.status)) << result;
    EXPECT_EQ(kLevelLine, ended.log);
  }
}

TEST(StartUp, OtherLetters_HaveNoParent) {
  const Site site('X');
  const Setting hook("KORVO_HOOK", "5");
  const Ended ended = site.Run(site.OwnLine("nobody"));
  EXPECT_EQ(5, ExitStatus(ended.status));
  EXPECT_EQ(kLevelLine, ended.log);
}

// A parent whose admin socket the test holds.
struct Parent {
  std::string Line(const std::string &id, char type) const {
    return id + " " + type + " 127.0.0.1 9 " + Port(PortOf(sock.Fd())) + " -\n";
  }
  bool Told() const { return sock.Readable(0); }  // of a program that has ended

  Socket sock{BindUDP(ReservePort())};
};

TEST(StartUp, Parents_AreToldAfterTheHookAlone) {
  const Site site('S');
  const Parent parent;
  const std::string conf = site.OwnLine("top") + parent.Line("top", 'C');
  {
    const Setting hook("KORVO_HOOK", "7");
    EXPECT_EQ(7, ExitStatus(site.Run(conf).status));
    EXPECT_FALSE(parent.Told());
  }
  const Setting letter("KORVO_TYPE", "S");
  const Process process({ANY_TYPE, "own", site.folder.Path()}, site.folder.Path());
  EXPECT_TRUE(parent.sock.Readable(kPatienceMs));
}

TEST(Parents, OfACommunicationsManager_IsNotToldEvenIfItsLineStands) {
  Site site('C');
  const Parent parent;
  site.folder.Write("korvo.conf", site.OwnLine("top") + parent.Line("top", 'C'));
  // Nor looked for: the file is opened once.
  const Setting fail("KORVO_FAIL", "fopen:2:2 socket:3:24");
  Process process({KORVO_COMMMGR, "own", site.folder.Path()}, site.folder.Path());
  ASSERT_TRUE(process.WaitForLog("Initialization Complete.\n"));
  const Socket client = ConnectTo(site.client);
  client.Send("x\n");
  EXPECT_EQ("", client.ReadAll());  // served, so start-up is over
  EXPECT_FALSE(parent.Told());
  EXPECT_EQ(std::string::npos, process.Log().find("[Init: ReadConf]"));
  EXPECT_EQ(std::string::npos, process.Log().find("[Init: Announce]"));
}

TEST(Parents, ManagerWithoutItsCommunicationsManager_DoesNotStart) {
  for (const char type : {'S', 'D'}) {
    const Site site(type);
    const Parent parent;
    // Of the wrong type, so it does not count.
    const Ended ended = site.Run(site.OwnLine("top") + parent.Line("top", 'S'));
    EXPECT_EQ(0, ended.status) << type;
    EXPECT_EQ(kLevelLine + NotFound("top", site), ended.log);
    EXPECT_FALSE(parent.Told());
  }
}

TEST(Parents, EngineWithoutItsSearchManager_DoesNotStart) {
  const Site site('E');
  const Parent parent;
  site.folder.Write("korvo.db", "own mail /s /d\n");
  const Ended ended = site.Run(site.OwnLine("top") + parent.Line("top", 'D'));
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ(kLevelLine + NotFound("top", site), ended.log);  // the other is not looked for
  EXPECT_FALSE(parent.Told());
}

TEST(Parents, BadAddress_EndsStartUpBeforeASocketIsOpened) {
  const struct {
    const char *line;
    const char *message;
  } kBad[] = {
      {"top C 127.0.0.1 0 30 -\n", "[Init: TCPIPSetup] Invalid client port = 0.\n"},
      {"top C 127.0.0.1 20 32768 -\n", "[Init: TCPIPSetup] Invalid admin port = -32768.\n"},
  };
  const Site site('S');
  for (const auto &bad : kBad) {
    const Ended ended = site.Run(site.OwnLine("top") + bad.line, "socket:1:24");
    EXPECT_EQ(0, ended.status);
    EXPECT_EQ(std::string(kLevelLine) + bad.message, ended.log);
  }
}

TEST(Parents, BadAddressOfTheSecond_EndsStartUp) {
  const Site site('E');
  const Parent parent;
  site.folder.Write("korvo.db", "own mail /s /d\n");
  const Ended ended = site.Run(
      site.OwnLine("top") + parent.Line("top", 'S') + "top D 127.0.0.1 20 0 -\n", "socket:1:24");
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ(std::string(kLevelLine) + "[Init: TCPIPSetup] Invalid admin port = 0.\n", ended.log);
  EXPECT_FALSE(parent.Told());
}

TEST(Parents, AreReadBeforeAnyAddressIsLookedAt) {
  const Site site('S');
  const std::string bad_own = "own S 127.0.0.1 -7 30 top\n";
  EXPECT_EQ(kLevelLine + NotFound("top", site), site.Run(bad_own).log);
  const std::string bad_parent = "top C 127.0.0.1 -8 30 -\n";
  EXPECT_EQ(std::string(kLevelLine) + "[Init: TCPIPSetup] Invalid client port = -7.\n",
            site.Run(bad_own + bad_parent).log);
  const Site engine('E');
  engine.folder.Write("korvo.db", "own mail /s /d\n");
  EXPECT_EQ(
      std::string(kLevelLine) + "[Init: TCPIPSetup] Invalid client port = -8.\n",
      engine.Run(engine.OwnLine("top") + "top D 127.0.0.1 -9 30 -\n" + "top S 127.0.0.1 -8 30 -\n")
          .log);
}

constexpr const char *kUnsent =
    "[SOCK: ConvertIP] Error converting to network address.  Network Address result is 0.\n"
    "[Init: Announce] Unable to send Startup Announcement to parent 'top' at 0.0.0.0:30\n";

TEST(Parents, FailedAnnouncement_IsStatus0) {
  for (const char type : {'S', 'D'}) {
    const Site site(type);
    const Ended ended = site.Run(site.OwnLine("top") + "top C 0.0.0.0 20 30 -\n");
    EXPECT_EQ(0, ended.status);
    EXPECT_EQ(std::string(kLevelLine) + kUnsent, ended.log);
  }
}

TEST(Parents, FailedAnnouncementToTheSecond_IsStatus0AndTheFirstWasTold) {
  const Site site('E');
  const Parent parent;
  site.folder.Write("korvo.db", "own mail /s /d\n");
  const Ended ended =
      site.Run(site.OwnLine("top") + parent.Line("top", 'S') + "top D 0.0.0.0 20 30 -\n");
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ(std::string(kLevelLine) + kUnsent, ended.log);
  EXPECT_TRUE(parent.Told());
}

TEST(Parents, AnnouncementWithoutASocket_IsStatus0) {
  const Site site('S');
  const Parent parent;
  const Ended ended = site.Run(site.OwnLine("top") + parent.Line("top", 'C'), "socket:3:24");
  EXPECT_EQ(0, ended.status);
  EXPECT_TRUE(EndsWith(ended.log,
                       "[Init: Announce] Unable to open socket to send Startup Announcement.\n"));
  EXPECT_FALSE(parent.Told());
}

// Start-up within this process, for the records that it leaves.
class StartUpRecords : public ::testing::Test {
 protected:
  ~StartUpRecords() override {
    for (int *sock : {&MainCore_State.Listener, &MainCore_State.AdminSock})
      if (*sock >= 0) close(*sock);
    MainCore_State = {};
  }

  int Start(const Site &site, const std::string &lines) {
    site.folder.Write("korvo.conf", lines);
    const Setting letter("KORVO_TYPE", std::string(1, site.type));
    std::string name = "any", id = "own", dir = site.folder.Path();
    char *argv[] = {name.data(), id.data(), dir.data(), nullptr};
    int rc = -1000;
    log_ = Capture(kWarning, [&] { rc = MainCore_Startup(3, argv); }).log;
    return rc;
  }

  std::string log_;
};

std::string Text(const SockAddr &addr) { return std::string(addr.IP) + "/" + Port(addr.Port); }

TEST_F(StartUpRecords, OfAnEngine_HoldItsTwoLinesAndItsTwoParents) {
  const Site site('E');
  const Parent search, doc;
  site.folder.Write("korvo.db", "own mail /s /d\n");
  ASSERT_EQ(1, Start(site, site.OwnLine("top") + doc.Line("top", 'D') + "top S 127.0.0.1 8 " +
                               Port(PortOf(search.sock.Fd())) + " up\n"));
  const MainCoreState &state = MainCore_State;
  EXPECT_EQ(site.Conf(), state.ConfigPath);
  EXPECT_EQ(site.folder.Path() + "/korvo.db", state.DBPath);
  EXPECT_STREQ("own", state.Config.ID);
  EXPECT_EQ('E', state.Config.Type);
  EXPECT_STREQ("top", state.Config.ParentID);
  EXPECT_STREQ("mail", state.Database.DBName);
  EXPECT_EQ(2, state.ParentCount);
  EXPECT_EQ('S', state.Parents[0].Type);
  EXPECT_STREQ("up", state.Parents[0].ParentID);
  EXPECT_EQ('D', state.Parents[1].Type);
  EXPECT_EQ("127.0.0.1/" + Port(site.client), Text(state.ClientAddr));
  EXPECT_EQ("127.0.0.1/" + Port(site.admin), Text(state.AdminAddr));
  EXPECT_EQ("127.0.0.1/8", Text(state.ParentClientAddr[0]));
  EXPECT_EQ("127.0.0.1/9", Text(state.ParentClientAddr[1]));
  EXPECT_EQ("127.0.0.1/" + Port(PortOf(search.sock.Fd())), Text(state.ParentAdminAddr[0]));
  EXPECT_EQ("127.0.0.1/" + Port(PortOf(doc.sock.Fd())), Text(state.ParentAdminAddr[1]));
  EXPECT_EQ(site.client, PortOf(state.Listener));
  EXPECT_EQ(site.admin, PortOf(state.AdminSock));
}

TEST_F(StartUpRecords, OfTheOtherTypes_HoldNoDatabase) {
  const std::string zeros(sizeof(DBInfo), '\0');
  for (const char type : {'C', 'S', 'D', 'X'}) {
    const Site site(type);
    const Parent parent;
    site.folder.Write("korvo.db", "own mail /s /d\n");
    MainCore_State.Database.DBName[0] = 'x';
    EXPECT_EQ(1, Start(site, site.OwnLine("top") + parent.Line("top", 'C'))) << type;
    EXPECT_EQ(zeros,
              std::string(reinterpret_cast<const char *>(&MainCore_State.Database), sizeof(DBInfo)))
        << type;
    EXPECT_EQ(type == 'S' || type == 'D' ? 1 : 0, MainCore_State.ParentCount) << type;
    close(MainCore_State.Listener);
    close(MainCore_State.AdminSock);
    MainCore_State = {};
  }
}

TEST_F(StartUpRecords, SocketsOfAStart_AreLeftBlocking) {
  const Site site('C');
  const Seams seams;
  EXPECT_EQ(1, Start(site, site.OwnLine("-")));
  EXPECT_EQ(0, seams.Count(Call::kIoctl));
  EXPECT_EQ(2, seams.Count(Call::kSocket));
}

TEST_F(StartUpRecords, SocketsOfAFailedStart_StayOpen) {
  const Site site('C');
  {
    const Setting hook("KORVO_HOOK", "9");
    EXPECT_EQ(9, Start(site, site.OwnLine("-")));
  }
  EXPECT_EQ(site.client, PortOf(MainCore_State.Listener));
  EXPECT_EQ(site.admin, PortOf(MainCore_State.AdminSock));
}

TEST_F(StartUpRecords, ListenerOfAStartWithoutAnAdminSocket_StaysOpen) {
  const Site site('C');
  Seams seams;
  seams.Fail(Call::kBind, EADDRINUSE, 2);
  EXPECT_EQ(-EADDRINUSE, Start(site, site.OwnLine("-")));
  EXPECT_EQ(site.client, PortOf(MainCore_State.Listener));
  EXPECT_EQ(-1, MainCore_State.AdminSock);
}

}  // namespace
