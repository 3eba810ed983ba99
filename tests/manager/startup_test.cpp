// What both managers do besides their own command.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "tests/service/running.h"

namespace {

class Managers : public testing::TestWithParam<char> {};

const char *Program(char type) { return type == 'S' ? KORVO_SEARCHMGR : KORVO_DOCMGR; }

int Count(const std::string &text, const std::string &part) {
  int count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

std::string Unreadable(char type) {
  return type == 'S' ? "\t@COMMAND=ERROR\tNo part of the documents can be read\n"
                     : "\t@COMMAND=ERROR\tUnable to read the database\n";
}

bool Has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Types, Managers, testing::Values('S', 'D'),
                         [](const auto &type) { return std::string(1, type.param); });

TEST_P(Managers, AnnounceThemselvesWhenTheyServe) {
  const Folder folder;
  Running manager(GetParam(), BuildIndex(folder, "db", kPackages));
  EXPECT_EQ(manager.Announcement(),
            std::string("\t@COMMAND=STARTUPANNOUNCEMENT\tID=grp1\tTYPE=") + GetParam() +
                "\tIP=127.0.0.1\tCLIENTPORT=" + std::to_string(manager.Ports().client_port) +
                "\tADMINPORT=" + std::to_string(manager.Ports().admin_port) + "\n");
  const std::string log = manager.Program().Log();
  EXPECT_TRUE(Has(log, "[Init: DisplayDB] DBName         = packages\n")) << log;
  EXPECT_TRUE(Has(log, GetParam() == 'S'
                           ? "[SearchMgr: Startup] Search Manager Initialization Complete.\n"
                           : "[DocMgr: Startup] Document Manager Initialization Complete.\n"))
      << log;
  EXPECT_FALSE(Has(log, "Unable")) << log;
}

TEST_P(Managers, WithoutALineInTheDatabaseFile_ServeWhatEnginesHave) {
  const Folder folder;
  Layout layout;
  layout.Write(folder, GetParam(), "/dev/null");
  folder.Write("korvo.db", "grp2 packages /a /b\n");
  Process manager({Program(GetParam()), "grp1", folder.Path()}, folder.Path());
  EXPECT_TRUE(manager.WaitForLog("Initialization Complete"));
  EXPECT_TRUE(Has(manager.Log(), "[Init: ReadDB] Could not locate id = 'grp1' in file '" +
                                     folder.Path() + "/korvo.db'\n"));
}

TEST_P(Managers, WithoutADatabase_StartAndAnswerWithAnError) {
  const Folder folder;
  const std::string database = folder.Path() + "/db";
  Running manager(GetParam(), database);
  EXPECT_TRUE(manager.Program().WaitForLog("[Shard: Open] Unable to read '" + database + "': "));
  const std::string command =
      GetParam() == 'S' ? "\t@COMMAND=QUERY\tbash\n" : "\t@COMMAND=GETDOC\t@DOCNUM=1\n";
  EXPECT_EQ(manager.Exchange(command), Unreadable(GetParam()));

  BuildIndex(folder, "db", kPackages);  // served from now on, without a restart
  EXPECT_TRUE(Has(manager.Exchange(command), "\t@COMMAND=HIT\t"));
}

TEST_P(Managers, WithADatabaseThatIsNone_AnswerWithAnError) {
  const Folder folder;
  BuildIndex(folder, "db", kPackages);
  folder.Write("db/iamglass", "not what it should be");
  Running manager(GetParam(), folder.Path() + "/db");
  const std::string command =
      GetParam() == 'S' ? "\t@COMMAND=QUERY\tbash\n" : "\t@COMMAND=GETDOC\t@DOCNUM=1\n";
  EXPECT_EQ(manager.Exchange(command), Unreadable(GetParam()));
  manager.Ping();
}

TEST_P(Managers, AnswerPingAndTakeALevel) {
  const Folder folder;
  Running manager(GetParam(), BuildIndex(folder, "db", kPackages));
  manager.Send("\t@COMMAND=PING\t@SEQNUM=42\n");
  EXPECT_EQ(manager.Receive(), "\t@COMMAND=PONG\t@SEQNUM=42\n");
  manager.Send("\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=INFO\n");
  manager.Send("\t@COMMAND=COLOUR\n");
  manager.Ping();
  const std::string log = manager.Program().Log();
  EXPECT_TRUE(Has(log, "[DEBUG: SetLevel] Global Debug Level Set to 101\n")) << log;
  EXPECT_TRUE(Has(log, "[CommMgr: Admin] Unknown command COLOUR\n")) << log;
}

TEST_P(Managers, Shutdown_EndsThemAndTheirWorkers) {
  const Folder folder;
  setenv("KORVO_WORKERS", "2", 1);
  Running manager(GetParam(), BuildIndex(folder, "db", kPackages));
  unsetenv("KORVO_WORKERS");
  const Socket silent = ConnectTo(manager.Ports().client_port);
  manager.Ping();
  manager.Send("\t@COMMAND=SHUTDOWN\n");
  EXPECT_EQ(ExitStatus(manager.Program().Wait()), 0);
  for (const int status : manager.Program().WaitForGroup()) EXPECT_EQ(ExitStatus(status), 0);
  // And whoever was still trying the database.
  EXPECT_GE(Count(manager.Program().Log(), "[MainCore: Shutdown] Tovak has left the building.\n"),
            3);
}

TEST_P(Managers, OutliveHostileClients) {
  const Folder folder;
  Running manager(GetParam(), BuildIndex(folder, "db", kPackages));
  const std::string unknown = "\t@COMMAND=ERROR\tUnable to figure out this command\n";
  EXPECT_EQ(manager.Exchange("\n"), unknown);
  EXPECT_EQ(manager.Exchange("QUERY\n"), unknown);
  EXPECT_EQ(manager.Exchange("\t@COMMAND=query\tbash\n"), unknown);
  EXPECT_EQ(manager.Exchange("\t@COMMAND=STARTUPANNOUNCEMENT\tID=x\n"), unknown);
  EXPECT_EQ(manager.Exchange("\t" + std::string(4000, '@') + "\n"), unknown);
  EXPECT_EQ(manager.Exchange(std::string(9000, 'x') + "\n\t@COMMAND=x\n"), unknown);
  std::string bytes = "\t@COMMAND=";
  for (int i = 255; i > 0; --i)
    if (i != '\n') bytes += static_cast<char>(i);
  EXPECT_EQ(manager.Exchange(bytes + "\n"), unknown);
  {
    const Socket leaves = ConnectTo(manager.Ports().client_port);
    leaves.Send("\t@COMMAND=QUERY\tba");
  }
  {
    const Socket hidden = ConnectTo(manager.Ports().client_port);
    hidden.Send(
        std::string("\0\t@COMMAND=x\n", 13));  // a NUL hides the newline behind it: no command yet
    shutdown(hidden.Fd(), SHUT_WR);
    EXPECT_EQ(hidden.ReadAll(), "");
  }
  manager.Ping();
  for (const std::string &datagram :
       {std::string(), std::string(60000, 'x'), std::string("\0\n", 2)})
    manager.Send(datagram);
  manager.Ping();
}
