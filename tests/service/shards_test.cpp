// Several engines behind one Search Manager: what is missing is left out, and said.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/service/tree.h"

namespace {

using Clock = std::chrono::steady_clock;

// Whoever waits for what hangs waits for ever, or for the ten seconds of a library.
constexpr std::chrono::seconds kBound(8);

std::string Doc(const std::string &name, const std::string &text) {
  return "Package: " + name + "\nText: " + text + "\n\n";
}

int Count(const std::string &text, const std::string &part) {
  int count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

bool Has(const std::string &text, const std::string &part) { return Count(text, part) > 0; }

// Three engines with two documents each under one Search Manager with a database of its own.
class Shards : public testing::Test {
 protected:
  Shards() {
    tree_.Line('C', "web1", "-");
    tree_.Line('S', "grp1", "web1");
    tree_.Line('D', "grp1", "web1");
    for (const std::string id : {"e1", "e2", "e3"}) {
      tree_.Line('E', id, "grp1");
      const std::string path =
          BuildIndex(data_, id, Doc(id + "a", "common") + Doc(id + "b", "common"));
      tree_.Database(id, path, path);
    }
    tree_.Line('D', "e2", "web1");  // stands beside its data
    const std::string own = BuildIndex(data_, "own", Doc("own", "common"));
    tree_.Database("grp1", own, own);
    tree_.Start('C', "web1");
    tree_.Start('S', "grp1");
    for (const char *id : {"grp1", "e2"}) tree_.Start('D', id);
    for (const char *id : {"e1", "e2", "e3"}) tree_.Start('E', id);
  }

  std::string Ask(const std::string &fields = "") {
    return tree_.Exchange('S', "grp1", "\t@COMMAND=QUERY\t@STATUS=1" + fields + "\tcommon\n");
  }
  bool IsWhole() {
    return Eventually([&] { return Has(Ask(), " shards=4/4 "); });
  }
  // The whole group of an engine, its servers included.
  void SignalAll(const std::string &id, int number) { kill(-tree_.Program('E', id).Pid(), number); }

  Folder data_;
  Tree tree_;
};

constexpr const char *kHit = "\t@COMMAND=HIT\t";

// Stands before an engine and lets so many of its bytes through, for each connection anew.
class Relay {
 public:
  Relay(int engine, int bytes) : engine_(engine), bytes_(bytes), server_([this] { Serve(); }) {}
  ~Relay() {
    stop_ = true;
    ConnectTo(front_.Port()).Close();
    server_.join();
    for (std::thread &connection : connections_) connection.join();
  }
  int Port() const { return front_.Port(); }

 private:
  void Serve() {
    for (;;) {
      Socket client = front_.Accept();
      if (stop_) return;
      connections_.emplace_back(
          [this, held = std::move(client)]() mutable { Pass(std::move(held)); });
    }
  }

  // To the end of either side, of the bytes, or of the test.
  void Pass(Socket client) const {
    const Socket engine = ConnectTo(engine_);
    char buffer[4096];
    for (int left = bytes_; left > 0 && !stop_;) {
      pollfd ends[] = {{client.Fd(), POLLIN, 0}, {engine.Fd(), POLLIN, 0}};
      poll(ends, 2, 20);
      if (ends[0].revents != 0) {
        const ssize_t got = recv(client.Fd(), buffer, sizeof buffer, 0);
        if (got <= 0 || send(engine.Fd(), buffer, static_cast<std::size_t>(got), 0) != got) return;
      }
      if (ends[1].revents != 0) {
        const std::size_t most =
            std::min<std::size_t>(sizeof buffer, static_cast<std::size_t>(left));
        const ssize_t got = recv(engine.Fd(), buffer, most, 0);
        if (got <= 0) return;
        send(client.Fd(), buffer, static_cast<std::size_t>(got), MSG_NOSIGNAL);
        left -= static_cast<int>(got);
      }
    }
  }

  const int engine_, bytes_;
  Manager front_;
  std::atomic<bool> stop_ = false;
  std::vector<std::thread> connections_;
  std::thread server_;
};

}  // namespace

TEST_F(Shards, NameTheirDocumentsForGood) {
  const std::string answer = Ask();
  EXPECT_TRUE(Has(answer, "\t@COMMAND=RAW\t<!--korvo matches=7 first=1 shown=7 shards=4/4 ms="))
      << answer;
  EXPECT_TRUE(Has(answer, "\t@SEARCHGROUP=grp1\t@RECTYPE=grp1db\t@DOCNUM=1\n")) << answer;
  for (const char *number : {"1", "2"}) {
    for (const char *id : {"e1", "e3"})
      EXPECT_TRUE(Has(answer, std::string("\t@SEARCHGROUP=grp1\t@RECTYPE=") + id +
                                  "\t@DOCNUM=" + number + "\n"))
          << answer;
    EXPECT_TRUE(
        Has(answer, std::string("\t@SEARCHGROUP=e2\t@RECTYPE=e2\t@DOCNUM=") + number + "\n"))
        << answer;
  }
}

TEST_F(Shards, GiveAPageOfAllTheirDocuments) {
  const std::string base = data_.Path() + "/page";
  data_.Write("page.mo", TextOp("[") + ValueOp("Package") + TextOp("]") + EndOp());
  data_.Write("page.hdr", "<");
  data_.Write("page.tail", ">");
  const std::string page = tree_.Exchange(
      'C', "web1", "\t@COMMAND=QUERY\t@SEARCHGROUP=grp1\t@MACROFILE=" + base + "\tcommon\n");
  for (const char *name : {"[own]", "[e1a]", "[e1b]", "[e2a]", "[e2b]", "[e3a]", "[e3b]"})
    EXPECT_EQ(Count(page, name), 1) << page;
  EXPECT_EQ(tree_.Exchange('C', "web1",
                           "\t@COMMAND=GETDOC\t@SEARCHGROUP=grp1\t@RECTYPE=e3\t@MACROFILE=" + base +
                               "\t@DOCNUM=2\n"),
            "<[e3b]>");
}

TEST_F(Shards, OneThatIsKilledIsLeftOutUntilItIsStartedAgain) {
  ASSERT_TRUE(IsWhole());
  tree_.Kill('E', "e1");
  const std::string answer = Ask();
  EXPECT_TRUE(Has(answer, " shards=3/4 ")) << answer;
  EXPECT_EQ(Count(answer, kHit), 5);
  EXPECT_TRUE(Has(answer, "\t@COMMAND=SEARCHCOMPLETE\n"));
  EXPECT_EQ(tree_.Exchange('D', "grp1", "\t@COMMAND=GETDOC\t@RECTYPE=e1\t@DOCNUM=1\n"),
            "\t@COMMAND=ERROR\tUnable to read the database\n");
  EXPECT_TRUE(tree_.Program('S', "grp1").WaitForLog("[Shard: Open] Unable to read 'e1': "));
  tree_.Start('E', "e1");
  EXPECT_TRUE(Has(Ask(), " shards=4/4 "));
  EXPECT_TRUE(Has(tree_.Exchange('D', "grp1", "\t@COMMAND=GETDOC\t@RECTYPE=e1\t@DOCNUM=1\n"),
                  "\tPackage=e1a\t"));
}

TEST_F(Shards, AnEngineThatStartedAgainUnheardIsFoundAfterASecond) {
  ASSERT_TRUE(IsWhole());
  SignalAll("e1", SIGSTOP);
  EXPECT_TRUE(Has(Ask("\t@DEADLINE=3000"), " shards=3/4 "));
  SignalAll("e1", SIGCONT);
  EXPECT_TRUE(Eventually([&] {  // by the worker that had left it out: all have to work
    tree_.ExchangeAll('S', "grp1", std::vector<std::string>(32, "\t@COMMAND=QUERY\tcommon\n"));
    return Has(tree_.Program('S', "grp1").Log(), "[Shard: Open] 'e1' is back\n");
  }));
  EXPECT_TRUE(IsWhole());
}

TEST_F(Shards, OneThatHangsHoldsNobodyBeyondTheDeadline) {
  ASSERT_TRUE(IsWhole());
  SignalAll("e2", SIGSTOP);
  for (int i = 0; i < 20; ++i) {  // in whatever state a worker is
    const auto begin = Clock::now();
    const std::string answer = Ask("\t@DEADLINE=1000");
    EXPECT_LT(Clock::now() - begin, kBound) << i;
    EXPECT_TRUE(Has(answer, " shards=3/4 ")) << answer;
    EXPECT_EQ(Count(answer, kHit), 5) << answer;
  }
  SignalAll("e2", SIGCONT);
  EXPECT_TRUE(IsWhole());
}

TEST_F(Shards, AllThatHangAtOnceLeaveWhatIsHere) {
  ASSERT_TRUE(IsWhole());
  for (const char *id : {"e1", "e2", "e3"}) SignalAll(id, SIGSTOP);
  for (int i = 0; i < 10; ++i) {
    const auto begin = Clock::now();
    const std::string answer = Ask("\t@DEADLINE=1000");
    EXPECT_LT(Clock::now() - begin, kBound) << i;
    EXPECT_TRUE(Has(answer, " shards=1/4 ")) << answer;
    EXPECT_EQ(Count(answer, kHit), 1) << answer;
  }
  for (const char *id : {"e1", "e2", "e3"}) SignalAll(id, SIGCONT);
}

TEST_F(Shards, ServersThatHangAloneAreConnectedToAnew) {
  ASSERT_TRUE(IsWhole());
  const pid_t engine = tree_.Program('E', "e3").Pid();
  SignalAll("e3", SIGSTOP);
  kill(engine, SIGCONT);  // it takes connections again
  const std::string answer = Ask("\t@DEADLINE=1000");
  EXPECT_TRUE(Has(answer, " shards=3/4 ") || Has(answer, " shards=4/4 ")) << answer;
  EXPECT_TRUE(IsWhole());
  SignalAll("e3", SIGCONT);
}

TEST_F(Shards, AnEngineThatAcceptsAndSaysNothingIsLeftOut) {
  const Manager mute;
  tree_.Send('S', "grp1",
             "\t@COMMAND=STARTUPANNOUNCEMENT\tID=mute\tTYPE=E\tIP=127.0.0.1\tCLIENTPORT=" +
                 std::to_string(mute.Port()) + "\tADMINPORT=9\n");
  tree_.Ping('S', "grp1");
  const auto begin = Clock::now();
  const std::string answer = Ask();
  EXPECT_LT(Clock::now() - begin, kBound);
  EXPECT_TRUE(Has(answer, " shards=4/5 ")) << answer;
  EXPECT_EQ(Count(answer, kHit), 7);
  EXPECT_TRUE(tree_.Program('S', "grp1")
                  .WaitForLog("[Shard: Open] Unable to read 'mute': it does not answer\n"));
}

TEST_F(Shards, AnEngineThatClosesOrIsNowhereIsLeftOut) {
  const int closed = ReservePort();
  for (const std::string &fields :
       {"IP=127.0.0.1\tCLIENTPORT=" + std::to_string(closed),
        std::string("IP=nowhere\tCLIENTPORT=1"), std::string("IP=0.0.0.0\tCLIENTPORT=0"),
        std::string("IP=127.0.0.1\tCLIENTPORT=-1")}) {
    tree_.Send('S', "grp1",
               "\t@COMMAND=STARTUPANNOUNCEMENT\tID=none\tTYPE=E\t" + fields + "\tADMINPORT=9\n");
    tree_.Ping('S', "grp1");
    EXPECT_TRUE(Has(Ask(), " shards=4/5 ")) << fields;
  }
  EXPECT_TRUE(tree_.Program('S', "grp1")
                  .WaitForLog("[Shard: Open] Unable to read 'none': its address is 'nowhere'\n"));
  EXPECT_TRUE(
      tree_.Program('S', "grp1").WaitForLog("[Shard: Open] Unable to read 'none': errno = 111\n"));
}

TEST_F(Shards, AnEngineThatHangsUpIsLeftOut) {
  const Manager closes;
  tree_.Send('S', "grp1",
             "\t@COMMAND=STARTUPANNOUNCEMENT\tID=closes\tTYPE=E\tIP=127.0.0.1\tCLIENTPORT=" +
                 std::to_string(closes.Port()) + "\tADMINPORT=9\n");
  tree_.Ping('S', "grp1");
  const Socket client = ConnectTo(tree_.Port('S', "grp1"));
  client.Send("\t@COMMAND=QUERY\t@STATUS=1\tcommon\n");
  closes.Accept().Close();
  EXPECT_TRUE(Has(client.ReadAll(), " shards=4/5 "));
  EXPECT_TRUE(tree_.Program('S', "grp1")
                  .WaitForLog("[Shard: Open] Unable to read 'closes': it closes the connection\n"));
}

TEST_F(Shards, AnEngineThatGreetsWithGarbageIsLeftOut) {
  const Manager garbage;
  tree_.Send('S', "grp1",
             "\t@COMMAND=STARTUPANNOUNCEMENT\tID=bad\tTYPE=E\tIP=127.0.0.1\tCLIENTPORT=" +
                 std::to_string(garbage.Port()) + "\tADMINPORT=9\n");
  tree_.Ping('S', "grp1");
  const Socket client = ConnectTo(tree_.Port('S', "grp1"));
  client.Send("\t@COMMAND=QUERY\t@STATUS=1\t@DEADLINE=4000\tcommon\n");
  const Socket first = garbage.Accept();
  first.Send(std::string(1000, '\xff'));
  const Socket second = garbage.Accept();
  second.Send(std::string(1000, '\xff'));
  EXPECT_TRUE(Has(client.ReadAll(), " shards=4/5 "));
}

TEST_F(Shards, AnEngineThatBreaksOffAnywhereIsLeftOut) {
  ASSERT_TRUE(IsWhole());
  bool whole = false;
  int broken = 0;
  for (int bytes = 1; !whole && bytes < 100000; bytes += 1 + bytes / 16) {
    const Relay relay(tree_.Port('E', "e1"), bytes);
    tree_.Send('S', "grp1",
               "\t@COMMAND=STARTUPANNOUNCEMENT\tID=breaks\tTYPE=E\tIP=127.0.0.1\tCLIENTPORT=" +
                   std::to_string(relay.Port()) + "\tADMINPORT=9\n");
    tree_.Ping('S', "grp1");
    const std::string answer = Ask();
    whole = Has(answer, " shards=5/5 ");
    EXPECT_TRUE(whole || Has(answer, " shards=4/5 ")) << bytes << answer;
    EXPECT_TRUE(answer.ends_with("\t@COMMAND=SEARCHCOMPLETE\n")) << bytes << answer;
    EXPECT_EQ(Count(answer, kHit), whole ? 9 : 7) << bytes << answer;
    broken += whole ? 0 : 1;
  }
  EXPECT_TRUE(whole);
  EXPECT_GT(broken, 10);
}

TEST_F(Shards, ADatabaseReplacedUnderARunningEngineIsSearched) {
  ASSERT_TRUE(IsWhole());
  const std::string other = BuildIndex(data_, "other", Doc("new", "common"));
  std::filesystem::rename(data_.Path() + "/e1", data_.Path() + "/old");
  std::filesystem::rename(other, data_.Path() + "/e1");
  EXPECT_TRUE(Eventually([&] { return Has(Ask(), "matches=6 "); }));
  EXPECT_TRUE(IsWhole());
}

TEST_F(Shards, AStubBesideThemNamesTheDocumentsOfEach) {
  const std::string x = BuildIndex(data_, "x", Doc("xa", "common") + Doc("xb", "common"));
  const std::string y = BuildIndex(data_, "y", Doc("ya", "common"));
  std::filesystem::rename(data_.Path() + "/own", data_.Path() + "/old");
  data_.Write("own", "auto " + x + "\nauto " + y + "\n");
  const std::string base = data_.Path() + "/page";
  data_.Write("page.mo", TextOp("[") + ValueOp("Package") + TextOp("]") + EndOp());
  data_.Write("page.hdr", "<");
  data_.Write("page.tail", ">");
  EXPECT_TRUE(IsWhole());
  const std::string page = tree_.Exchange(
      'C', "web1", "\t@COMMAND=QUERY\t@SEARCHGROUP=grp1\t@MACROFILE=" + base + "\tcommon\n");
  for (const char *name :
       {"[xa]", "[xb]", "[ya]", "[e1a]", "[e1b]", "[e2a]", "[e2b]", "[e3a]", "[e3b]"})
    EXPECT_EQ(Count(page, name), 1) << page;
}

TEST_F(Shards, AnEngineOfTheManagersIdStandsForItsDatabase) {
  tree_.Line('E', "grp1", "grp1");
  tree_.Start('E', "grp1");
  const std::string answer = Ask();
  EXPECT_TRUE(Has(answer, " shards=4/4 ")) << answer;
  EXPECT_EQ(Count(answer, kHit), 7) << answer;
  EXPECT_EQ(Count(answer, "\t@SEARCHGROUP=grp1\t@RECTYPE=grp1\t@DOCNUM=1\n"), 1) << answer;
}

TEST_F(Shards, ADatabaseReplacedHereIsSearchedAtOnce) {
  ASSERT_TRUE(IsWhole());
  const std::string other =
      BuildIndex(data_, "other", Doc("new", "common") + Doc("newer", "common"));
  std::filesystem::rename(data_.Path() + "/own", data_.Path() + "/old");
  std::filesystem::rename(other, data_.Path() + "/own");
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(Has(Ask(), "matches=8 "));
}

TEST_F(Shards, DocumentsAddedAreFoundAtOnce) {
  ASSERT_TRUE(IsWhole());
  RunIndexer({data_.Path() + "/e1", data_.Write("more.txt", Doc("e1c", "common"))});
  RunIndexer({data_.Path() + "/own", data_.Write("more.txt", Doc("own2", "common"))});
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(Has(Ask(), "matches=9 "));
}

TEST(EmptyShards, SayNothingOfTheFields) {
  const Folder data;
  Tree tree;
  tree.Line('C', "web1", "-");
  tree.Line('S', "grp1", "web1");
  tree.Line('E', "e1", "grp1");
  const std::string own = BuildIndex(data, "own", Doc("gone", "common"));
  EXPECT_EQ(
      RunIndexer({"--id", "Package", own, data.Write("gone.txt", Doc("gone", "common"))}).status,
      0);
  EXPECT_EQ(RunIndexer({"--id", "Package", "--delete", own, "gone"}).status, 0);
  const std::string schema =
      data.Write("schema", "@language english\nPackage keyword id sort\nText text\n");
  const std::string path = data.Path() + "/e1";
  EXPECT_EQ(RunIndexer({"--schema", schema, path, data.Write("in.txt", Doc("a", "stars"))}).status,
            0);
  tree.Database("grp1", own, own);
  tree.Database("e1", path, path);
  tree.Start('S', "grp1");
  tree.Start('E', "e1");
  const std::string answer = tree.Exchange(
      'S', "grp1", "\t@COMMAND=QUERY\t@STATUS=1\t@SORT=Package\tstar Package=\"a\"\n");
  EXPECT_TRUE(Has(answer, "<!--korvo matches=1 ")) << answer;
}

TEST_F(Shards, LeaveNoProcessBehind) {
  ASSERT_TRUE(IsWhole());
  for (const char *id : {"e1", "e2", "e3"}) tree_.End('E', id);
  tree_.Send('S', "grp1", "\t@COMMAND=SHUTDOWN\n");
  EXPECT_EQ(ExitStatus(tree_.Program('S', "grp1").Wait()), 0);
  for (const int status : tree_.Program('S', "grp1").WaitForGroup())
    EXPECT_EQ(ExitStatus(status), 0);
}

TEST(NoShards, AreAnErrorThatSaysSo) {
  Tree tree;
  tree.Line('C', "web1", "-");
  tree.Line('S', "grp1", "web1");
  tree.Database("grp1", "-", "-");
  tree.Start('S', "grp1");
  EXPECT_EQ(tree.Exchange('S', "grp1", "\t@COMMAND=QUERY\tcommon\n"),
            "\t@COMMAND=ERROR\tNo part of the documents can be read\n");
  tree.Line('D', "grp1", "web1");
  tree.Start('D', "grp1");
  EXPECT_EQ(tree.Exchange('D', "grp1", "\t@COMMAND=GETDOC\t@RECTYPE=x\t@DOCNUM=1\n"),
            "\t@COMMAND=ERROR\tThere is no database of this record type\n");
}

TEST(NoShards, AnythingElseThatHangsEndsAtTheDeadline) {
  const Manager mute;
  Folder folder;
  Tree tree;
  tree.Line('C', "web1", "-");
  tree.Line('S', "grp1", "web1");
  tree.Line('D', "grp1", "web1");
  const std::string stub =
      folder.Write("stub", "remote 127.0.0.1:" + std::to_string(mute.Port()) + "\n");
  tree.Database("grp1", stub, stub);
  tree.Start('S', "grp1");
  tree.Start('D', "grp1");
  const auto begin = Clock::now();
  EXPECT_EQ(tree.Exchange('S', "grp1", "\t@COMMAND=QUERY\t@DEADLINE=300\tcommon\n"),
            "\t@COMMAND=ERROR\tThe search took too long\n");
  EXPECT_LT(Clock::now() - begin, kBound);
  EXPECT_EQ(tree.Exchange('D', "grp1", "\t@COMMAND=GETDOC\t@DOCNUM=1\n"),
            "\t@COMMAND=ERROR\tThe document took too long\n");
  tree.Ping('S', "grp1");
  EXPECT_EQ(tree.Program('S', "grp1").Log().find("[MainCore: Workers] Worker "), std::string::npos);
}
