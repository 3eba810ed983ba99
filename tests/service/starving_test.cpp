// What is killed, stopped, full or gone while the service works.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <xapian.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/service/tree.h"

namespace {

using Clock = std::chrono::steady_clock;

// Whoever waits for what hangs waits for ever, or for the ten seconds of a library.
constexpr std::chrono::seconds kBound(8);
constexpr const char *kDied = "[MainCore: Workers] Worker ";

bool Has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

std::string Doc(const std::string &name) { return "Package: " + name + "\nText: common\n\n"; }

std::string EngineAt(const std::string &id, const std::string &ip, int port) {
  return "\t@COMMAND=STARTUPANNOUNCEMENT\tID=" + id + "\tTYPE=E\tIP=" + ip +
         "\tCLIENTPORT=" + std::to_string(port) + "\tADMINPORT=9\n";
}

// A pipe that is full already, and waits from then on.
struct FullPipe {
  FullPipe() {
    EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const std::string much(65536, 'x');
    while (write(ends[1], much.data(), much.size()) > 0) {
    }
    fcntl(ends[1], F_SETFL, 0);
  }
  ~FullPipe() {
    for (const int end : ends) close(end);
  }
  std::function<void()> AsLog() const {
    const int end = ends[1];
    return [end] { dup2(end, STDERR_FILENO); };
  }
  int ends[2];
};

// Both managers over a database of their own, each with so many workers.
class Starving : public testing::Test {
 protected:
  Starving() {
    tree_.Line('C', "web1", "-");
    tree_.Line('S', "grp1", "web1");
    tree_.Line('D', "grp1", "web1");
    path_ = BuildIndex(data_, "own", Doc("own1") + Doc("own2"));
    tree_.Database("grp1", path_, path_);
  }
  ~Starving() override { unsetenv("KORVO_WORKERS"); }

  void Start(int workers, const std::function<void()> &prepare = {}) {
    setenv("KORVO_WORKERS", std::to_string(workers).c_str(), 1);
    for (const char type : {'S', 'D'}) tree_.Start(type, "grp1", prepare);
  }

  void AddEngine(const std::string &id) {
    tree_.Line('E', id, "grp1");
    const std::string path = BuildIndex(data_, id, Doc(id + "a") + Doc(id + "b"));
    tree_.Database(id, path, path);
    tree_.Start('E', id);
  }

  std::string Ask(const std::string &fields = "") {
    return tree_.Exchange('S', "grp1", "\t@COMMAND=QUERY\t@STATUS=1" + fields + "\tcommon\n");
  }
  std::string Get(const std::string &type = "grp1db") {
    return tree_.Exchange('D', "grp1", "\t@COMMAND=GETDOC\t@RECTYPE=" + type + "\t@DOCNUM=1\n");
  }
  // The one who looks at the database at start-up has left by then.
  std::vector<pid_t> Workers(char type, std::size_t count) {
    EXPECT_TRUE(Eventually([&] { return tree_.Workers(type, "grp1").size() == count; }));
    return tree_.Workers(type, "grp1");
  }
  bool Logs(char type, const std::string &text) {
    return Has(tree_.Program(type, "grp1").Log(), text);
  }

  Folder data_;
  Tree tree_;
  std::string path_;
};

constexpr const char *kComplete = "\t@COMMAND=SEARCHCOMPLETE\n";
constexpr const char *kDocument = "\t@COMMAND=HIT\t@DOCNUM=1\tPackage=";

}  // namespace

TEST_F(Starving, WorkersThatAreKilledUnderLoadAreReplaced) {
  Start(4);
  std::atomic<bool> stop = false;
  std::vector<std::thread> clients;
  for (int i = 0; i < 4; ++i)
    clients.emplace_back([&] {
      while (!stop) {
        Ask();
        Get();
      }
    });
  for (int round = 0; round < 20; ++round)
    for (const char type : {'S', 'D'}) {
      const std::vector<pid_t> workers = tree_.Workers(type, "grp1");
      if (!workers.empty())
        kill(workers[static_cast<std::size_t>(round) % workers.size()], SIGKILL);
      tree_.Ping(type, "grp1");
    }
  stop = true;
  for (std::thread &client : clients) client.join();
  for (const char type : {'S', 'D'}) {
    EXPECT_EQ(Workers(type, 4).size(), 4u);
    EXPECT_TRUE(Logs(type, " was ended by signal 9\n"));
  }
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(Ask().ends_with(kComplete));
    EXPECT_TRUE(Get().starts_with(kDocument));
  }
}

TEST_F(Starving, WorkersThatAreStoppedLeaveTheWorkToTheOthers) {
  Start(3);
  for (const char type : {'S', 'D'}) {
    const std::vector<pid_t> workers = Workers(type, 3);
    ASSERT_EQ(workers.size(), 3u);
    kill(workers[0], SIGSTOP);
    kill(workers[1], SIGSTOP);
  }
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(Ask().ends_with(kComplete));
    EXPECT_TRUE(Get().starts_with(kDocument));
  }
  for (const char type : {'S', 'D'}) {
    for (const pid_t worker : tree_.Workers(type, "grp1")) kill(worker, SIGCONT);
    tree_.Send(type, "grp1", "\t@COMMAND=SHUTDOWN\n");
    EXPECT_EQ(ExitStatus(tree_.Program(type, "grp1").Wait()), 0);
    for (const int status : tree_.Program(type, "grp1").WaitForGroup())
      EXPECT_EQ(ExitStatus(status), 0);
    EXPECT_FALSE(Logs(type, kDied));
  }
}

TEST_F(Starving, AFullPipeBehindTheLogKeepsNobodyFromEnding) {
  for (const int signal_number : {SIGTERM, SIGINT, SIGUSR1}) {
    const FullPipe pipe;
    Start(3, [&] {
      fcntl(pipe.ends[1], F_SETFL, O_NONBLOCK);
      pipe.AsLog()();
    });
    fcntl(pipe.ends[1], F_SETFL, 0);  // from here on whoever logs waits
    tree_.Send('S', "grp1", "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=INFO\n");
    tree_.Send('D', "grp1", EngineAt("none", "nowhere", 1));
    const Socket stuck = ConnectTo(tree_.Port('D', "grp1"));
    stuck.Send("\t@COMMAND=GETDOC\t@SCRIPT=unknown\t@DOCNUM=1\n");
    for (const char type : {'S', 'D'}) {
      const pid_t group = tree_.Program(type, "grp1").Pid();
      kill(-group, signal_number);
      EXPECT_EQ(ExitStatus(tree_.Program(type, "grp1").Wait()), 0);
      for (const int status : tree_.Program(type, "grp1").WaitForGroup())
        EXPECT_EQ(ExitStatus(status), 0);
    }
  }
}

TEST_F(Starving, TheMainProcessAloneEndsAllBehindAFullPipe) {
  const FullPipe pipe;
  Start(3, [&] {
    fcntl(pipe.ends[1], F_SETFL, O_NONBLOCK);
    pipe.AsLog()();
  });
  fcntl(pipe.ends[1], F_SETFL, 0);
  for (const char type : {'S', 'D'}) {
    tree_.Program(type, "grp1").Signal(SIGTERM);
    EXPECT_EQ(ExitStatus(tree_.Program(type, "grp1").Wait()), 0);
    for (const int status : tree_.Program(type, "grp1").WaitForGroup())
      EXPECT_EQ(ExitStatus(status), 0);
  }
}

TEST_F(Starving, AFullDiskBehindTheLogIsNoMatter) {
  Start(2, [] { dup2(open("/dev/full", O_WRONLY), STDERR_FILENO); });
  for (const char type : {'S', 'D'}) {
    tree_.Send(type, "grp1", "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=INFO\n");
    tree_.Ping(type, "grp1");
  }
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(Ask("\t@SCRIPT=unknown").ends_with(kComplete));
    EXPECT_TRUE(Get().starts_with(kDocument));
  }
}

TEST_F(Starving, FewDescriptorsAreEnough) {
  Start(2, [] {
    const rlimit few = {20, 20};
    setrlimit(RLIMIT_NOFILE, &few);
  });
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(Ask().ends_with(kComplete));
    EXPECT_TRUE(Get().starts_with(kDocument));
  }
  // More engines than descriptors, that hold each connection and say nothing.
  const Manager mute;
  for (int i = 0; i < 30; ++i)
    for (const char type : {'S', 'D'})
      tree_.Send(type, "grp1", EngineAt("mute" + std::to_string(i), "127.0.0.1", mute.Port()));
  for (const char type : {'S', 'D'}) tree_.Ping(type, "grp1");
  for (int i = 0; i < 10; ++i) {
    const auto begin = Clock::now();
    const std::string answer = Ask("\t@DEADLINE=1500");
    EXPECT_LT(Clock::now() - begin, kBound);
    EXPECT_TRUE(answer.ends_with(kComplete)) << answer;
    EXPECT_TRUE(Get().starts_with(kDocument));
  }
  EXPECT_TRUE(Logs('S', "[Shard: Open] Unable to read 'mute0': no descriptor is left for it\n"));
}

TEST_F(Starving, AnEngineThatIsKilledWhileItIsReadFromIsAnError) {
  Start(2);
  AddEngine("e1");
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(Get("e1").starts_with(kDocument));
    std::atomic<bool> stop = false;
    std::atomic<int> odd = 0;
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i)
      clients.emplace_back([&] {
        while (!stop) {
          const std::string answer = Get("e1");
          if (!answer.starts_with(kDocument) &&
              answer != "\t@COMMAND=ERROR\tUnable to read the database\n")
            ++odd;
        }
      });
    for (int i = 0; i < 10; ++i) Get("e1");
    tree_.Kill('E', "e1");
    for (int i = 0; i < 10; ++i) Get("e1");
    tree_.Start('E', "e1");
    stop = true;
    for (std::thread &client : clients) client.join();
    EXPECT_EQ(odd, 0);
  }
  EXPECT_TRUE(Get("e1").starts_with(kDocument));
  EXPECT_FALSE(Logs('D', kDied));
}

TEST_F(Starving, AThousandAnnouncementsInARowAreOne) {
  Start(4);
  AddEngine("e1");
  const int port = tree_.Port('E', "e1");
  for (int i = 0; i < 1000; ++i) {
    for (const char type : {'S', 'D'}) tree_.Send(type, "grp1", EngineAt("e1", "127.0.0.1", port));
    if (i % 50 == 0)
      for (const char type : {'S', 'D'}) tree_.Ping(type, "grp1");
  }
  for (const char type : {'S', 'D'}) tree_.Ping(type, "grp1");
  EXPECT_TRUE(Has(Ask(), " shards=2/2 "));
  EXPECT_TRUE(Get("e1").starts_with(kDocument));
  for (const char type : {'S', 'D'}) {
    EXPECT_EQ(Workers(type, 4).size(), 4u);
    EXPECT_FALSE(Logs(type, kDied));
  }
}

TEST_F(Starving, HundredsOfEnginesAtNowhereCostNoDescriptors) {
  Start(1);
  EXPECT_TRUE(Ask().ends_with(kComplete));
  EXPECT_TRUE(Get().starts_with(kDocument));
  const std::size_t before = Descriptors(Workers('S', 1).at(0));
  const int closed = ReservePort();
  for (int i = 0; i < 300; ++i) {
    for (const char type : {'S', 'D'})
      tree_.Send(type, "grp1", EngineAt("none" + std::to_string(i), "127.0.0.1", closed));
    if (i % 50 == 49)
      for (const char type : {'S', 'D'}) tree_.Ping(type, "grp1");
  }
  for (int i = 0; i < 20; ++i) {
    const auto begin = Clock::now();
    const std::string answer = Ask("\t@DEADLINE=2000");
    EXPECT_LT(Clock::now() - begin, kBound);
    EXPECT_TRUE(Has(answer, " shards=1/301 ")) << answer;
    EXPECT_EQ(Get("none7"), "\t@COMMAND=ERROR\tUnable to read the database\n");
    EXPECT_TRUE(Get().starts_with(kDocument));
  }
  EXPECT_LE(Descriptors(Workers('S', 1).at(0)), before + 2);
  for (const char type : {'S', 'D'}) EXPECT_FALSE(Logs(type, kDied));
}

TEST_F(Starving, EnginesThatGreetAndSayNoMoreLeaveTimeForTheRest) {
  Start(1);
  constexpr int kEngines = 40;
  const Manager greets;
  std::atomic<bool> stop = false;
  std::thread engine([&] {
    std::vector<Socket> all;
    while (!stop)
      if (greets.Called()) {
        all.push_back(greets.Accept());
        all.back().Send("x");
      } else {
        usleep(1000);
      }
  });
  for (int i = 0; i < kEngines; ++i)
    tree_.Send('S', "grp1", EngineAt("greets" + std::to_string(i), "127.0.0.1", greets.Port()));
  tree_.Ping('S', "grp1");
  for (int i = 0; i < 3; ++i) {
    const std::string answer = Ask("\t@DEADLINE=1000");
    EXPECT_TRUE(Has(answer, " shards=1/41 ")) << answer;
  }
  stop = true;
  engine.join();
}

TEST_F(Starving, AThousandRequestsWithFailingEnginesLeaveNoDescriptor) {
  Start(1);
  AddEngine("e1");
  AddEngine("e2");
  const int closed = ReservePort();
  for (const char type : {'S', 'D'}) {
    tree_.Send(type, "grp1", EngineAt("none", "127.0.0.1", closed));
    tree_.Ping(type, "grp1");
  }
  EXPECT_TRUE(Eventually([&] { return Has(Ask(), " shards=3/4 "); }));
  EXPECT_TRUE(Get("e1").starts_with(kDocument));
  EXPECT_TRUE(Get("e2").starts_with(kDocument));
  const pid_t search = Workers('S', 1).at(0), doc = Workers('D', 1).at(0);
  const std::size_t search_before = Descriptors(search), doc_before = Descriptors(doc);
  for (int i = 0; i < 1000; ++i) {
    // The servers of its connections, not the engine.
    if (i % 10 == 0)
      for (const pid_t server : tree_.Workers('E', "e1")) kill(server, SIGHUP);
    EXPECT_TRUE(Ask().ends_with(kComplete));
    const std::string document = Get(i % 2 == 0 ? "e1" : "none");
    EXPECT_TRUE(document.starts_with("\t@COMMAND=")) << document;
  }
  EXPECT_TRUE(Eventually([&] { return Has(Ask(), " shards=3/4 "); }));
  ASSERT_EQ(Workers('S', 1).at(0), search);
  ASSERT_EQ(Workers('D', 1).at(0), doc);
  EXPECT_LE(Descriptors(search), search_before + 1);
  EXPECT_LE(Descriptors(doc), doc_before + 1);
}

TEST_F(Starving, AnnouncementsWithBrokenFieldsChangeNothing) {
  Start(1);
  const std::string command = "\t@COMMAND=STARTUPANNOUNCEMENT";
  for (const std::string &rest :
       {std::string(), std::string("\tID="), std::string("\tID=x\tTYPE=E"),
        std::string("\tID=x\tTYPE=E\tIP=127.0.0.1\tCLIENTPORT=1"),
        std::string("\tID=\tTYPE=E\tIP=127.0.0.1\tCLIENTPORT=1\tADMINPORT=1"),
        std::string("\tID=x\tTYPE=\tIP=127.0.0.1\tCLIENTPORT=1\tADMINPORT=1"),
        std::string("\tID=x\tTYPE=D\tIP=127.0.0.1\tCLIENTPORT=1\tADMINPORT=1"),
        "\tID=" + std::string(2000, 'i') + "\tTYPE=E\tIP=127.0.0.1\tCLIENTPORT=1\tADMINPORT=1",
        std::string("\tTYPE=E\tIP=127.0.0.1\tCLIENTPORT=1\tADMINPORT=1"), std::string(3000, '\t'),
        std::string(3000, '='), std::string(4000, '\xff')}) {
    tree_.Send('S', "grp1", command + rest + "\n");
    tree_.Send('D', "grp1", command + rest + "\n");
    tree_.Send('S', "grp1", command + rest);
  }
  for (int c = 1; c < 256; ++c)
    if (c != '\t' && c != '\n' && c != '\r')
      tree_.Send('S', "grp1", command + "\tID" + static_cast<char>(c) + "x\tTYPE=E\n");
  for (const char type : {'S', 'D'}) tree_.Ping(type, "grp1");
  EXPECT_TRUE(Has(Ask(), " shards=1/1 "));
  for (const char type : {'S', 'D'})
    EXPECT_TRUE(Logs(type, "[Manager: Admin] An engine announced itself without an ID\n"));
  // Without a record type a document is one of the database here.
  EXPECT_TRUE(Get("").starts_with(kDocument));
}

TEST_F(Starving, ADatabaseThatIsReplacedUnderLoadLosesNoRequest) {
  // There is always one at the path.
  std::filesystem::rename(path_, data_.Path() + "/first");
  std::filesystem::create_directory_symlink(data_.Path() + "/first", path_);
  Start(3);
  std::atomic<bool> stop = false;
  std::atomic<int> bad = 0;
  std::vector<std::thread> clients;
  for (int i = 0; i < 3; ++i)
    clients.emplace_back([&] {
      while (!stop) {
        if (!Ask().ends_with(kComplete)) ++bad;
        if (!Get().starts_with(kDocument)) ++bad;
      }
    });
  for (int round = 0; round < 10; ++round) {
    const std::string name = "new" + std::to_string(round);
    const std::string fresh = BuildIndex(data_, name, Doc(name) + Doc("other"));
    const std::string link = data_.Path() + "/link" + std::to_string(round);
    std::filesystem::create_directory_symlink(fresh, link);
    std::filesystem::rename(link, path_);
  }
  stop = true;
  for (std::thread &client : clients) client.join();
  EXPECT_EQ(bad, 0) << tree_.Program('S', "grp1").Log() << tree_.Program('D', "grp1").Log();
  EXPECT_TRUE(Has(Get(), "\tPackage=new9\t"));
}

TEST_F(Starving, ADatabaseThatIsWrittenToAllTheTimeIsRead) {
  std::string many;  // so that a search is slower than a commit
  for (int i = 0; i < 5000; ++i) many += Doc("p" + std::to_string(i));
  EXPECT_EQ(RunIndexer({path_, data_.Write("many.txt", many)}).status, 0);
  Start(3);
  std::atomic<bool> stop = false;
  std::atomic<int> bad = 0, asked = 0;
  std::vector<std::thread> clients;
  for (int i = 0; i < 3; ++i)
    clients.emplace_back([&] {
      while (!stop) {
        if (!Ask().ends_with(kComplete)) ++bad;
        if (!Get().starts_with(kDocument)) ++bad;
        ++asked;
      }
    });
  std::string some;
  for (int i = 0; i < 30; ++i) some += Doc("s" + std::to_string(i));
  const Finished indexer = RunIndexer({"--commit", "1", path_, data_.Write("some.txt", some)});
  EXPECT_EQ(indexer.status, 0) << indexer.errors;
  {  // faster than any indexer
    Xapian::WritableDatabase database(path_, Xapian::DB_OPEN | Xapian::DB_NO_SYNC);
    for (unsigned i = 0; i < 1000; ++i) {
      Xapian::Document document = database.get_document(i * 7919 % 5000 + 1);
      document.add_posting("common", 100 + i);
      database.replace_document(document.get_docid(), document);
      database.commit();
    }
  }
  stop = true;
  for (std::thread &client : clients) client.join();
  EXPECT_EQ(bad, 0) << "of " << asked << tree_.Program('S', "grp1").Log()
                    << tree_.Program('D', "grp1").Log();
}

TEST(Configuration, LinesOfTheDatabasesThatAreTooLongAreNoMatter) {
  Folder data;
  const std::string path = BuildIndex(data, "db", Doc("one"));
  Tree tree;
  tree.Line('C', "web1", "-");
  tree.Line('S', "grp1", "web1");
  tree.Line('D', "grp1", "web1");
  tree.Database("other", std::string(5000, 's'), std::string(500, 'd'));
  tree.Database("grp1", path, std::string(3000, 'd'));
  tree.Start('S', "grp1");
  tree.Start('D', "grp1");
  EXPECT_TRUE(tree.Exchange('S', "grp1", "\t@COMMAND=QUERY\tcommon\n").ends_with(kComplete));
  EXPECT_EQ(tree.Exchange('D', "grp1", "\t@COMMAND=GETDOC\t@DOCNUM=1\n"),
            "\t@COMMAND=ERROR\tUnable to read the database\n");
}
