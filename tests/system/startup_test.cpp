#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sstream>

#include "tests/system/harness.h"

namespace {

constexpr const char *kLevel = "[DEBUG: SetLevel] Global Debug Level Set to 103\n";

constexpr const char *kBanner =
    "\n\n"
    "*********************************************************************\n"
    "* KORVO Communications Manager - Morvane Technologies, Inc.         *\n"
    "*                                                                   *\n";

// Runs a program to its end.
struct Ended {
  int status;
  std::string output;
  std::string log;
};
Ended RunToEnd(const std::vector<std::string> &argv, const Folder &folder,
               const std::function<void()> &prepare = {}) {
  Process process(argv, folder.Path(), prepare);
  const int status = process.Wait();
  return {ExitStatus(status), process.Output(), process.Log()};
}

std::string Usage(const std::string &name) {
  return "\n\n\n\n\n\n\n\n\n\n                 D O N ' T     P A N I C\n\n\n\n\n\n\n\n\n"
         "USAGE:\t" +
         name +
         " [program id] <config dir>\n"
         "        " +
         name +
         " -?\n"
         "\n"
         "        OPTIONS\n"
         "\t\t\t[program id] A unique identifier for this\n"
         "\t\t\t             instance of the application. \n"
         "\t\t\t             Usually associated with RECTYPE\n"
         "\t\t\t             or SEARCHGROUP\n"
         "\n"
         "\t\t\t<config dir> An optional argument commanding the \n"
         "\t\t\t             application to use the given config\n"
         "\t\t\t             directory instead of /usr/local/korvo/etc.\n"
         "\n\n";
}

TEST(Startup, NoArguments_IsUsage) {
  const Folder folder;
  const Ended ended = RunToEnd({KORVO_COMMMGR}, folder);
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ(0u, ended.output.find(kBanner));
  const std::string usage = Usage(KORVO_COMMMGR);
  ASSERT_GT(ended.output.size(), usage.size());
  EXPECT_EQ(usage, ended.output.substr(ended.output.size() - usage.size()));
  EXPECT_EQ("", ended.log);
}

TEST(Startup, QuestionMark_IsUsageWhateverFollows) {
  const Folder folder;
  const Ended ended = RunToEnd({KORVO_COMMMGR, "-?", "x", "y"}, folder);
  EXPECT_EQ(0, ended.status);
  EXPECT_NE(std::string::npos, ended.output.find(Usage(KORVO_COMMMGR)));
}

TEST(Startup, Banner_EveryLineOfTheBoxIs69Wide) {
  const Folder folder;
  std::istringstream lines(RunToEnd({KORVO_COMMMGR}, folder).output);
  std::string line;
  int boxed = 0;
  while (std::getline(lines, line)) {
    if (line.empty() || line[0] != '*') continue;
    ++boxed;
    EXPECT_EQ(69u, line.size()) << line;
    EXPECT_EQ('*', line.back()) << line;
  }
  EXPECT_EQ(10, boxed);
}

TEST(Startup, UnknownId_IsStatus0) {
  const Folder folder;
  const std::string conf = folder.Write("korvo.conf", "other C 127.0.0.1 20 30 -\n");
  const Ended ended = RunToEnd({KORVO_COMMMGR, "web1", folder.Path()}, folder);
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ(std::string(kLevel) + "[Init: ReadConf] Could not locate id = 'web1' in file '" + conf +
                "'\n",
            ended.log);
}

TEST(Startup, FourArguments_UseTheDefaultDirectory) {
  const Folder folder;
  folder.Write("korvo.conf", "web1 C 127.0.0.1 20 30 -\n");
  const Ended ended = RunToEnd({KORVO_COMMMGR, "no such id", folder.Path(), "x"}, folder);
  EXPECT_EQ(0, ended.status);
  EXPECT_NE(std::string::npos, ended.log.find("'/usr/local/korvo/etc/korvo.conf'")) << ended.log;
}

TEST(Startup, DirectoryTooLong_IsRefused) {
  const Folder folder;
  const std::string dir = "/" + std::string(300, 'x');
  const Ended ended = RunToEnd({KORVO_COMMMGR, "web1", dir}, folder);
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ(std::string(kLevel) + "[MainCore: main] Config dir is longer than 244 characters: '" +
                dir + "'\n",
            ended.log);
}

TEST(Startup, ConfIsADirectory_CannotBeOpened) {
  const Folder folder;
  const std::string conf = folder.Path() + "/korvo.conf";
  ASSERT_EQ(0, mkdir(conf.c_str(), 0700));
  const Ended ended = RunToEnd({KORVO_COMMMGR, "web1", folder.Path()}, folder);
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ(std::string(kLevel) + "[Init: ReadConf] Unable to open '" + conf + "': errno = 21\n",
            ended.log);
}

struct BadConf {
  const char *line;
  const char *message;
};

TEST(Startup, BadAddress_IsStatus0) {
  const BadConf kBad[] = {
      {"web1 C 127.0.0.1 0 30 -\n", "[Init: TCPIPSetup] Invalid client port = 0.\n"},
      {"web1 C 127.0.0.1 32768 30 -\n", "[Init: TCPIPSetup] Invalid client port = -32768.\n"},
      {"web1 C 127.0.0.1 4294967297 30 -\n", "[Init: TCPIPSetup] Invalid client port = -1.\n"},
      {"web1 C 127.0.0.1 20 none -\n", "[Init: TCPIPSetup] Invalid admin port = 0.\n"},
  };
  for (const BadConf &bad : kBad) {
    const Folder folder;
    folder.Write("korvo.conf", bad.line);
    const Ended ended = RunToEnd({KORVO_COMMMGR, "web1", folder.Path()}, folder);
    EXPECT_EQ(0, ended.status) << bad.line;
    EXPECT_EQ(std::string(kLevel) + bad.message, ended.log);
  }
}

TEST(Startup, AddressZero_IsStatus254) {
  const Folder folder;
  folder.Write("korvo.conf", "web1 C 0.0.0.0 20 30 -\n");
  const Ended ended = RunToEnd({KORVO_COMMMGR, "web1", folder.Path()}, folder);
  EXPECT_EQ(254, ended.status);
  EXPECT_EQ(
      std::string(kLevel) +
          "[SOCK: ConvertIP] Error converting to network address.  Network Address result is 0.\n",
      ended.log);
}

TEST(Startup, PortInUse_IsStatus158) {
  Daemon first;
  const Folder folder;
  const std::string client = std::to_string(first.ClientPort());
  folder.Write("korvo.conf", "web2 C 127.0.0.1 " + client + " 30 -\n");
  const Ended ended = RunToEnd({KORVO_COMMMGR, "web2", folder.Path()}, folder);
  EXPECT_EQ(158, ended.status);
  EXPECT_EQ(
      std::string(kLevel) +
          "[SOCK: Listen] Error 98 (0x62) from bind().  Unable to bind socket 4 to address 127.0.0.1:" +
          client + ".\n",
      ended.log);
  EXPECT_NE(std::string::npos, ended.output.find("errno = 98\n"));
}

TEST(Startup, AdminPortInUse_IsStatus158) {
  Daemon first;
  const Folder folder;
  const std::string admin = std::to_string(first.AdminPort());
  folder.Write("korvo.conf",
               "web2 C 127.0.0.1 " + std::to_string(ReservePort()) + " " + admin + " -\n");
  const Ended ended = RunToEnd({KORVO_COMMMGR, "web2", folder.Path()}, folder);
  EXPECT_EQ(158, ended.status);
  EXPECT_EQ(
      std::string(kLevel) +
          "[SOCK: OpenUDP] Error 98 (0x62) from bind().  Unable to bind socket 5 to address 127.0.0.1:" +
          admin + ".\n",
      ended.log);
}

TEST(Startup, Success_LogsConfigurationAndNamesNoParent) {
  const Daemon daemon;
  EXPECT_EQ(std::string(kLevel) +
                "[Init: DisplayCfg] Configuration Info\n"
                "[Init: DisplayCfg] ------------------\n"
                "[Init: DisplayCfg] ID         = web1\n"
                "[Init: DisplayCfg] Type       = C\n"
                "[Init: DisplayCfg] ParentID   = \n"
                "[Init: DisplayCfg] IP         = 127.0.0.1\n"
                "[Init: DisplayCfg] ClientPort = " +
                std::to_string(daemon.ClientPort()) +
                "\n"
                "[Init: DisplayCfg] AdminPort  = " +
                std::to_string(daemon.AdminPort()) +
                "\n"
                "[CommMgr: Startup] Communication Manager Initialization Complete.\n",
            daemon.Log());
}

TEST(Startup, ParentOfACommunicationsManager_IsNeitherReadNorTold) {
  const Folder folder;
  const int port = ReservePort();
  folder.Write("korvo.conf", "web1 C 127.0.0.1 " + std::to_string(port) + " " +
                                 std::to_string(ReservePort()) + " nobody\n");
  Process process({KORVO_COMMMGR, "web1", folder.Path()}, folder.Path());
  EXPECT_TRUE(process.WaitForLog("Initialization Complete."));
  EXPECT_NE(std::string::npos, process.Log().find("ParentID   = nobody\n"));
  EXPECT_EQ(std::string::npos, process.Log().find("Announce"));
}

TEST(Startup, SessionLeader_GoesOn) {
  const Folder folder;
  folder.Write("korvo.conf", "web1 C 127.0.0.1 " + std::to_string(ReservePort()) + " " +
                                 std::to_string(ReservePort()) + " -\n");
  Process process({KORVO_COMMMGR, "web1", folder.Path()}, folder.Path(), [] { setsid(); });
  EXPECT_TRUE(process.WaitForLog("Initialization Complete."));
  EXPECT_EQ(process.Pid(), getpgid(process.Pid()));
}

TEST(Startup, Group_IsItsOwn) {
  Daemon daemon;
  EXPECT_EQ(daemon.Program().Pid(), getpgid(daemon.Program().Pid()));
}

TEST(Startup, HeldBackSignals_AreLetThrough) {
  const Folder folder;
  folder.Write("korvo.conf", "web1 C 127.0.0.1 " + std::to_string(ReservePort()) + " " +
                                 std::to_string(ReservePort()) + " -\n");
  Process process({KORVO_COMMMGR, "web1", folder.Path()}, folder.Path(), [] {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
  });
  EXPECT_TRUE(process.WaitForLog("Initialization Complete."));
  process.Signal(SIGTERM);
  EXPECT_EQ(0, ExitStatus(process.Wait()));
}

bool Listens(int port) {
  const Socket sock(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<std::uint16_t>(port));
  return connect(sock.Fd(), reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0;
}

TEST(Startup, ClosedDescriptors_LeadToTheNullDevice) {
  const Folder folder;
  const int port = ReservePort();
  folder.Write("korvo.conf", "web1 C 127.0.0.1 " + std::to_string(port) + " " +
                                 std::to_string(ReservePort()) + " -\n");
  Process process({KORVO_COMMMGR, "web1", folder.Path()}, folder.Path(), [] {
    for (int fd = 0; fd < 3; ++fd) close(fd);
  });
  const std::string fds = "/proc/" + std::to_string(process.Pid()) + "/fd/";
  const auto target = [&](int fd) {
    char path[256];
    const ssize_t length = readlink((fds + std::to_string(fd)).c_str(), path, sizeof path);
    return std::string(path, length > 0 ? static_cast<std::size_t>(length) : 0);
  };
  const auto both_ways = [&](int fd) {  // the mode of the link is that of the descriptor
    struct stat link = {};
    lstat((fds + std::to_string(fd)).c_str(), &link);
    return (link.st_mode & 0600) == 0600;
  };
  for (int fd = 0; fd < 3; ++fd)
    EXPECT_TRUE(Eventually([&] { return target(fd) == "/dev/null" && both_ways(fd); }))
        << target(fd);
  EXPECT_TRUE(Eventually([&] { return Listens(port); }));
  const Socket client = ConnectTo(port);
  client.Send("no command\n");
  EXPECT_EQ("", client.ReadAll()) << "the log came down the connection";
}

// korvoctl status reads it there; the program prints it nowhere.
TEST(Startup, File_HoldsItsVersion) {
  EXPECT_NE(std::string::npos, ReadFile(KORVO_COMMMGR).find("@(#)korvo 1.0.0\n"));
}

TEST(Startup, Banner_AppearsAtOnceAndOnce) {
  Daemon daemon;
  EXPECT_EQ(0u, daemon.Program().Output().find(kBanner));
  daemon.Exchange("x\n");
  const Socket waiting = daemon.Client();
  daemon.Ping();
  daemon.Send("\t@COMMAND=SHUTDOWN\n");
  EXPECT_EQ("", waiting.ReadAll());
  EXPECT_EQ(0, ExitStatus(daemon.Program().Wait()));
  EXPECT_EQ(std::string::npos, daemon.Program().Output().find("KORVO", 100));
}

// A login shell allows 1024 open files; who needs more may have them up to the hard limit.
rlimit MostOpenFiles() {
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  return {limit.rlim_max, limit.rlim_max};
}

TEST(Startup, DescriptorBeyondTheReadSet_IsRefused) {
  const rlimit most = MostOpenFiles();
  if (most.rlim_cur < 1027) GTEST_SKIP() << "needs 1027 open files: the hard limit is lower";
  const Folder folder;
  folder.Write("korvo.conf", "web1 C 127.0.0.1 " + std::to_string(ReservePort()) + " " +
                                 std::to_string(ReservePort()) + " -\n");
  const Ended ended = RunToEnd({KORVO_COMMMGR, "web1", folder.Path()}, folder, [&most] {
    setrlimit(RLIMIT_NOFILE, &most);
    for (int fd = 3; fd < 1024; ++fd) dup2(0, fd);
  });
  EXPECT_EQ(232, ended.status);
  EXPECT_NE(
      std::string::npos,
      ended.log.find("[MainCore: main] Descriptor 1026 is beyond the 1024 that can be watched.\n"))
      << ended.log;
}

TEST(Startup, HighestDescriptorOfTheReadSet_IsServed) {
  const rlimit most = MostOpenFiles();
  if (most.rlim_cur < 1024) GTEST_SKIP() << "needs 1024 open files: the hard limit is lower";
  Daemon daemon(KORVO_COMMMGR, [&most] {
    setrlimit(RLIMIT_NOFILE, &most);
    // Behind these come the configuration file, the listener and the admin socket, which is 1023.
    for (int fd = 3; fd < 1021; ++fd) dup2(0, fd);
  });
  daemon.Ping();
}

// The programs of the other types.

struct Family {
  Folder folder;
  int own_client = ReservePort(), own_admin = ReservePort();
  Socket parent{socket(AF_INET, SOCK_DGRAM, 0)};
  int parent_admin = ReservePort();

  Family() {
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<std::uint16_t>(parent_admin));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(0, bind(parent.Fd(), reinterpret_cast<sockaddr *>(&addr), sizeof addr));
  }
  std::string Line(const std::string &id, char type, const std::string &parent_id) const {
    return id + " " + type + " 127.0.0.1 " + std::to_string(own_client) + " " +
           std::to_string(own_admin) + " " + parent_id + "\n";
  }
  std::string ParentLine(const std::string &id, char type) const {
    return id + " " + type + " 127.0.0.1 7 " + std::to_string(parent_admin) + " -\n";
  }
  std::string Announcement(char type) const {
    return std::string("\t@COMMAND=STARTUPANNOUNCEMENT\tID=grp1\tTYPE=") + type +
           "\tIP=127.0.0.1\tCLIENTPORT=" + std::to_string(own_client) +
           "\tADMINPORT=" + std::to_string(own_admin) + "\n";
  }
  std::string Heard() const {
    char bytes[2048];
    if (!parent.Readable(kPatienceMs)) return {};
    const ssize_t got = recv(parent.Fd(), bytes, sizeof bytes, 0);
    return {bytes, static_cast<std::size_t>(got)};
  }
};

std::string Sibling(char type) { return std::string(SIBLING_DIR) + "/sibling_" + type; }

TEST(Siblings, ManagersAnnounceThemselvesToTheirParent) {
  for (const char type : {'S', 'D'}) {
    const Family family;
    family.folder.Write("korvo.conf",
                        family.Line("grp1", type, "web1") + family.ParentLine("web1", 'C'));
    Process process({Sibling(type), "grp1", family.folder.Path()}, family.folder.Path());
    EXPECT_EQ(family.Announcement(type), family.Heard());
    EXPECT_NE(std::string::npos, process.Log().find("[Sibling: Startup] 1 parents\n"));
  }
}

TEST(Siblings, ManagerWithoutItsParent_DoesNotStart) {
  const Family family;
  const std::string conf = family.folder.Write("korvo.conf", family.Line("grp1", 'S', "web1"));
  const Ended ended = RunToEnd({Sibling('S'), "grp1", family.folder.Path()}, family.folder);
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ(std::string(kLevel) + "[Init: ReadConf] Could not locate id = 'web1' in file '" + conf +
                "'\n",
            ended.log);
}

TEST(Siblings, EngineAnnouncesItselfToBothParents) {
  const Family family;
  family.folder.Write("korvo.conf", family.Line("grp1", 'E', "top") +
                                        family.ParentLine("top", 'S') +
                                        family.ParentLine("top", 'D'));
  family.folder.Write("korvo.db", "# a comment\ngrp1 mail /s /d\n");
  Process process({Sibling('E'), "grp1", family.folder.Path()}, family.folder.Path());
  EXPECT_EQ(family.Announcement('E'), family.Heard());
  EXPECT_EQ(family.Announcement('E'), family.Heard());
  EXPECT_NE(std::string::npos, process.Log().find("[Init: DisplayDB] DBName         = mail\n"));
  EXPECT_NE(std::string::npos, process.Log().find("[Sibling: Startup] 2 parents\n"));
}

TEST(Siblings, EngineWithoutADocumentManager_HasOneParent) {
  const Family family;
  const std::string conf = family.folder.Write(
      "korvo.conf", family.Line("grp1", 'E', "top") + family.ParentLine("top", 'S'));
  family.folder.Write("korvo.db", "grp1 mail /s /d\n");
  Process process({Sibling('E'), "grp1", family.folder.Path()}, family.folder.Path());
  EXPECT_EQ(family.Announcement('E'), family.Heard());
  EXPECT_TRUE(process.WaitForLog("[Sibling: Startup] 1 parents\n"));
  EXPECT_NE(
      std::string::npos,
      process.Log().find("[Init: ReadConf] Could not locate id = 'top' in file '" + conf + "'\n"));
}

TEST(Siblings, EngineWithoutADatabaseLine_DoesNotStart) {
  const Family family;
  family.folder.Write("korvo.conf",
                      family.Line("grp1", 'E', "top") + family.ParentLine("top", 'S'));
  family.folder.Write("korvo.db", "other mail /s /d\n");
  const Ended ended = RunToEnd({Sibling('E'), "grp1", family.folder.Path()}, family.folder);
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ(std::string(kLevel) + "[Init: ReadDB] Could not locate id = 'grp1' in file '" +
                family.folder.Path() + "/korvo.db'\n",
            ended.log);
}

TEST(Siblings, AdministrativeCommandsAreTheSame) {
  const Family family;
  family.folder.Write("korvo.conf",
                      family.Line("grp1", 'S', "web1") + family.ParentLine("web1", 'C'));
  Process process({Sibling('S'), "grp1", family.folder.Path()}, family.folder.Path());
  family.Heard();
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<std::uint16_t>(family.own_admin));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const auto send = [&](const std::string &text) {
    sendto(family.parent.Fd(), text.data(), text.size(), 0, reinterpret_cast<sockaddr *>(&addr),
           sizeof addr);
  };
  send("\t@COMMAND=PING\t@SEQNUM=5\n");
  EXPECT_EQ("\t@COMMAND=PONG\t@SEQNUM=5\n", family.Heard());
  send("\t@COMMAND=SHUTDOWN\n");
  EXPECT_EQ(0, ExitStatus(process.Wait()));
}

}  // namespace
