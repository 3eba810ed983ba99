#include "core/startup.h"

#include <gtest/gtest.h>

#include "debug/log.h"
#include "tests/core/running.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"

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

}  // namespace
