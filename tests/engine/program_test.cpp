// The Search Engine as its parents and Xapian's own client meet it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <xapian.h>

#include <filesystem>

#include "tests/service/tree.h"

namespace {

bool Has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

int Count(const std::string &text, const std::string &part) {
  int count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

// An engine "e1" over a database; its parents do not run.
struct Engine {
  explicit Engine(const std::string &path) {
    tree.Line('S', "grp1", "web1");
    tree.Line('D', "grp1", "web1");
    tree.Line('E', "e1", "grp1");
    tree.Database("e1", path, "/dev/null");
  }
  Xapian::Database Open() {
    return Xapian::Remote::open("127.0.0.1", static_cast<unsigned>(tree.Port('E', "e1")), 5000,
                                5000);
  }
  std::string Log() { return tree.Program('E', "e1").Log(); }

  Tree tree;
};

constexpr const char *kUnreadable = "[Engine: Open] Unable to read database '";

}  // namespace

TEST(Engine, ServesItsDatabaseToXapiansClient) {
  const Folder folder;
  Engine engine(BuildIndex(folder, "db", kPackages));
  engine.tree.Start('E', "e1");
  const Xapian::Database database = engine.Open();
  EXPECT_EQ(database.get_doccount(), 4u);
  Xapian::Enquire enquire(database);
  enquire.set_query(Xapian::Query("shell"));
  EXPECT_EQ(enquire.get_mset(0, 10).size(), 2u);
  EXPECT_TRUE(Has(engine.Log(), "[Engine: Startup] Search Engine Initialization Complete.\n"));
  EXPECT_TRUE(Has(engine.Log(), "[Init: DisplayDB] FieldList\t= "));
}

TEST(Engine, AnnouncesItselfToBothParentsWithItsFields) {
  const Folder folder;
  Engine engine(BuildIndex(folder, "db", kPackages));
  engine.tree.Line('C', "web1", "-");
  engine.tree.Start('C', "web1");
  for (const char type : {'S', 'D'}) {
    engine.tree.Start(type, "grp1");
    engine.tree.Send(type, "grp1", "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=INFO\n");
  }
  engine.tree.Start('E', "e1");
  for (const char type : {'S', 'D'}) {
    Process &parent = engine.tree.Program(type, "grp1");
    EXPECT_TRUE(parent.WaitForLog("[Init: RecvAnn] Child ID       = e1\n"));
    EXPECT_TRUE(parent.WaitForLog("\tFIELDLIST=DESCRIPTION,PACKAGE,SECTION,VERSION"))
        << parent.Log();
  }
}

TEST(Engine, AMissingDatabaseIsALineAtTheStartAndOneAConnection_UntilItIsThere) {
  const Folder folder;
  Engine engine(folder.Path() + "/db");
  engine.tree.Start('E', "e1");
  const std::string path = folder.Path() + "/db";
  EXPECT_EQ(Count(engine.Log(), "[Engine: Open] Unable to read database '" + path +
                                    "': DatabaseNotFoundError: Couldn't stat '" + path +
                                    "' (No such file or directory)\n"),
            1)
      << engine.Log();
  EXPECT_EQ(engine.tree.Exchange('E', "e1", ""), "");
  EXPECT_EQ(Count(engine.Log(), kUnreadable), 2);
  BuildIndex(folder, "db", kPackages);
  EXPECT_EQ(engine.Open().get_doccount(), 4u);
  EXPECT_EQ(Count(engine.Log(), kUnreadable), 2);
}

TEST(Engine, ADamagedDatabaseIsALineToo) {
  const Folder folder;
  Engine engine(BuildIndex(folder, "db", kPackages));
  folder.Write("db/iamglass", "not what it should be");
  engine.tree.Start('E', "e1");
  EXPECT_EQ(Count(engine.Log(), kUnreadable), 1);
  EXPECT_EQ(engine.tree.Exchange('E', "e1", ""), "");
  engine.tree.Ping('E', "e1");
}

TEST(Engine, ADatabaseMovedIntoItsPlaceEndsWhatServesTheOldOne) {
  const Folder folder;
  Engine engine(BuildIndex(folder, "db", kPackages));
  const std::string other = BuildIndex(folder, "other", "Package: vi\n");
  engine.tree.Start('E', "e1");
  Xapian::Database held = engine.Open();
  std::filesystem::rename(folder.Path() + "/db", folder.Path() + "/old");
  std::filesystem::rename(other, folder.Path() + "/db");
  EXPECT_TRUE(Eventually([&] {
    try {
      held.reopen();
      held.get_document(1).get_data();
      return false;
    } catch (const Xapian::NetworkError &) {
      return true;
    }
  }));
  EXPECT_EQ(engine.Open().get_doccount(), 1u);
  engine.tree.Ping('E', "e1");
  EXPECT_TRUE(
      Has(engine.Log(), "[Engine: Watch] Database '" + folder.Path() + "/db' was replaced\n"));
}

TEST(Engine, ADatabaseThatGrowsKeepsItsConnections) {
  const Folder folder;
  Engine engine(BuildIndex(folder, "db", kPackages));
  engine.tree.Start('E', "e1");
  Xapian::Database held = engine.Open();
  RunIndexer({folder.Path() + "/db", folder.Write("more.txt", "Package: vi\n")});
  EXPECT_TRUE(Eventually([&] {
    held.reopen();
    return held.get_doccount() == 5;
  }));
}

TEST(Engine, ShutdownAndDeathEndItsServers) {
  const Folder folder;
  Engine engine(BuildIndex(folder, "db", kPackages));
  for (const bool killed : {false, true}) {
    Process &program = engine.tree.Start('E', "e1");
    Xapian::Database held = engine.Open();
    if (killed)
      program.Signal(SIGKILL);
    else
      engine.tree.Send('E', "e1", "\t@COMMAND=SHUTDOWN\n");
    EXPECT_EQ(ExitStatus(program.Wait()), killed ? -1 : 0);
    program.WaitForGroup();
    EXPECT_THROW(held.reopen(), Xapian::NetworkError);
  }
}

TEST(Engine, WithoutTheProcessThatWatchesItsDatabase_Ends) {
  const Folder folder;
  Engine engine(BuildIndex(folder, "db", kPackages));
  Process &program = engine.tree.Start('E', "e1");
  const std::vector<pid_t> children = engine.tree.Workers('E', "e1");
  ASSERT_EQ(children.size(), 1u);
  kill(children.front(), SIGKILL);
  EXPECT_EQ(ExitStatus(program.Wait()), 0);
  EXPECT_TRUE(Has(program.Log(), "[MainCore: Shutdown] Tovak has left the building.\n"))
      << program.Log();
}

TEST(Engine, OutlivesHostileClients) {
  const Folder folder;
  Engine engine(BuildIndex(folder, "db", kPackages));
  engine.tree.Start('E', "e1");
  for (const std::string &bytes :
       {std::string(1, '\0'), std::string(100000, 'x'), std::string("\t@COMMAND=QUERY\tbash\n"),
        std::string(100, '\xff')}) {
    const Socket client = ConnectTo(engine.tree.Port('E', "e1"));
    client.Send(bytes);
    shutdown(client.Fd(), SHUT_WR);
    client.ReadAll();
  }
  engine.tree.Send('E', "e1", "\t@COMMAND=COLOUR\n");
  engine.tree.Ping('E', "e1");
  EXPECT_TRUE(Has(engine.Log(), "[CommMgr: Admin] Unknown command COLOUR\n"));
  EXPECT_EQ(engine.Open().get_doccount(), 4u);
}

TEST(Engine, WithoutXapiansServer_SaysSoAndCloses) {
  const Folder folder;
  Engine engine(BuildIndex(folder, "db", kPackages));
  const std::string path = getenv("PATH");
  setenv("PATH", folder.Path().c_str(), 1);
  engine.tree.Start('E', "e1");
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(engine.tree.Exchange('E', "e1", ""), "");
  EXPECT_TRUE(Has(engine.Log(), "[Engine: Serve] Unable to run xapian-progsrv: errno = 2\n"));
  engine.tree.Ping('E', "e1");
}

TEST(Engine, GivesItsServersADayOfSilence) {
  const Folder folder;
  Engine engine(BuildIndex(folder, "db", kPackages));
  engine.tree.Start('E', "e1");
  const Xapian::Database held = engine.Open();
  bool found = false;
  for (const auto &process : std::filesystem::directory_iterator("/proc")) {
    const std::string line = ReadFile(process.path() / "cmdline");
    if (line.find(folder.Path() + "/db") == std::string::npos) continue;
    found |= line == std::string("xapian-progsrv\0--timeout\086400000\0", 34) + folder.Path() +
                         "/db" + std::string(1, '\0');
  }
  EXPECT_TRUE(found);
}
