// The same service at every size: four engines against one database, and under load while engines
// die, hang and come back.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>

#include "searchmgr/query.h"
#include "tests/scale/library.h"
#include "tests/service/tree.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kEngines = 4;
constexpr int kQueries = 500;
constexpr int kHits = 50;
constexpr int kDeadline = 2000;  // milliseconds
constexpr int kBeyond = 500;     // that an answer may take more

std::string EngineId(int number) { return "e" + std::to_string(number); }

// Indexed once for all cases.
struct Data {
  Data() {
    one = Build("one", 0, 1);
    for (int i = 0; i < kEngines; ++i) Build(EngineId(i), i, kEngines);
  }
  std::string Build(const std::string &name, int first, int step) {
    std::string path = folder.Path() + "/" + name;
    const std::string documents = folder.Write(name + ".txt", Library().Documents(first, step));
    std::printf("indexing %s\n", name.c_str());
    EXPECT_EQ(std::system(
                  (std::string(KORVO_INDEX) + " --no-spelling " + path + " " + documents).c_str()),
              0);
    return path;
  }
  std::string Path(int engine) const { return folder.Path() + "/" + EngineId(engine); }

  Folder folder;
  std::string one;
};

Data &TheData() {
  static Data data;
  return data;
}

// A Search Manager over four engines, a Document Manager beside each; and one over the whole.
class Scale : public testing::Test {
 protected:
  Scale() {
    Data &data = TheData();
    tree.Line('C', "web1", "-");
    for (const char *id : {"many", "one"}) {
      tree.Line('S', id, "web1");
      tree.Line('D', id, "web1");
    }
    tree.Database("one", data.one, data.one);
    tree.Database("many", "-", "-");
    for (int i = 0; i < kEngines; ++i) {
      tree.Line('E', EngineId(i), "many");
      tree.Line('D', EngineId(i), "web1");
      tree.Database(EngineId(i), data.Path(i), data.Path(i));
    }
    tree.Start('C', "web1");
    for (const char *id : {"many", "one"}) {
      tree.Start('S', id);
      tree.Start('D', id);
    }
    for (int i = 0; i < kEngines; ++i) {
      tree.Start('D', EngineId(i));
      tree.Start('E', EngineId(i));
    }
  }

  Tree tree;
};

// The numbers of the documents of an answer, in its order, as the library has them.
std::vector<int> Numbers(const std::string &answer) {
  std::vector<int> numbers;
  std::istringstream lines(answer);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t type = line.find("\t@RECTYPE="), number = line.find("\t@DOCNUM=");
    if (type == std::string::npos || number == std::string::npos) continue;
    const int docnum = std::stoi(line.substr(number + 9)) - 1;
    const bool sharded = line.compare(type + 10, 1, "e") == 0;
    numbers.push_back(sharded ? docnum * kEngines + std::stoi(line.substr(type + 11)) : docnum);
  }
  return numbers;
}

std::map<int, double> Weights(const Xapian::Database &database, const std::string &predicate) {
  SearchQuery query;
  const Schema schema = Schema_Of(database);
  EXPECT_EQ(Query_Parse(database, schema, predicate.c_str(), &query), nullptr) << predicate;
  Xapian::Enquire enquire(database);
  enquire.set_query(query.query);
  const Xapian::MSet hits = enquire.get_mset(0, kLibraryDocuments);
  std::map<int, double> weights;
  for (auto hit = hits.begin(); hit != hits.end(); ++hit)
    weights[static_cast<int>(*hit) - 1] = hit.get_weight();
  return weights;
}

std::string Line(const std::string &predicate) {
  return "\t@COMMAND=QUERY\t@STATUS=1\t@MAXHITS=" + std::to_string(kHits) + predicate + "\n";
}

}  // namespace

TEST_F(Scale, FourEnginesGiveTheHitsOfOneDatabase) {
  // An answer of all engines: on a busy machine one may have been left out for a second.
  const auto ask_all = [this](const std::string &predicate) {
    std::string answer;
    EXPECT_TRUE(Eventually([&] {
      answer = tree.Exchange('S', "many", Line(predicate));
      return answer.find(" shards=4/4 ") != std::string::npos;
    }));
    return answer;
  };
  const Xapian::Database database(TheData().one);
  int hits = 0;
  for (const std::string &predicate : Library().Queries(kQueries)) {
    const std::vector<int> one = Numbers(tree.Exchange('S', "one", Line(predicate)));
    const std::vector<int> many = Numbers(ask_all(predicate));
    ASSERT_EQ(one.size(), many.size()) << predicate;
    const std::map<int, double> weights = Weights(database, predicate);
    EXPECT_EQ(std::set<int>(many.begin(), many.end()).size(), many.size()) << predicate;
    for (std::size_t i = 0; i < one.size(); ++i) {
      // Another document stands there only with the same weight.
      ASSERT_TRUE(weights.count(many[i]) == 1) << predicate;
      EXPECT_NEAR(weights.at(one[i]), weights.at(many[i]), 1e-9 * weights.at(one[i]) + 1e-12)
          << predicate << " at " << i;
    }
    hits += static_cast<int>(one.size());
  }
  std::printf("%d queries, %d hits the same over %d engines and one database\n", kQueries, hits,
              kEngines);
  EXPECT_GT(hits, kQueries);
}

namespace {

// Clients that ask without a pause, and what they saw.
class Load {
 public:
  explicit Load(Tree *tree) : tree_(tree), queries_(Library().Queries(kQueries)) {
    for (const std::string &query : queries_)
      hits_.push_back(Numbers(tree_->Exchange('S', "one", Query(query))).size());
    for (int i = 0; i < 4; ++i) clients_.emplace_back([this, i] { Client(i); });
  }
  ~Load() {
    stop_ = true;
    for (std::thread &client : clients_) client.join();
  }

  // Waits until an answer that was asked for from now on says so.
  bool Sees(const std::string &shards) {
    const int from = asked_;
    return Eventually([&] {
      const std::lock_guard hold(lock_);
      return last_from_[shards] > from;
    });
  }
  int Answers() const { return answers_; }
  double Slowest() const { return slowest_; }
  int Wrong() const { return wrong_; }
  int Fetched() const { return fetched_; }
  std::string FirstWrong() {
    const std::lock_guard hold(lock_);
    return first_wrong_;
  }

 private:
  static std::string Query(const std::string &query) {
    return "\t@COMMAND=QUERY\t@STATUS=1\t@DEADLINE=" + std::to_string(kDeadline) + query + "\n";
  }

  void Client(int number) {
    for (std::size_t i = static_cast<std::size_t>(number) * 100; !stop_; ++i) {
      const int ordinal = ++asked_;
      const auto begin = Clock::now();
      const std::size_t query = i % queries_.size();
      const std::string answer = tree_->Exchange('S', "many", Query(queries_[query]));
      const std::chrono::duration<double, std::milli> spent = Clock::now() - begin;
      Note(ordinal, answer, hits_[query], spent.count());
      if (ordinal % kFetched == 0) Fetch(answer);
    }
  }

  // The document of the last hit, from the Document Manager that the hit names.
  void Fetch(const std::string &answer) {
    const std::size_t hit = answer.rfind("\t@COMMAND=HIT\t@SEARCHGROUP=");
    if (hit == std::string::npos) return;
    const std::size_t group = hit + 27, type = answer.find("\t@RECTYPE=", group);
    const std::string line = answer.substr(type, answer.find('\n', type) - type);
    const std::string document =
        tree_->Exchange('D', answer.substr(group, type - group), "\t@COMMAND=GETDOC" + line + "\n");
    const std::lock_guard hold(lock_);
    ++fetched_;
    if (document.starts_with("\t@COMMAND=HIT\t")) return;
    if (wrong_++ == 0) first_wrong_ = line + document;
  }

  void Note(int ordinal, const std::string &answer, std::size_t hits, double spent) {
    const std::vector<int> numbers = Numbers(answer);
    const bool all = answer.find(" shards=4/4 ") != std::string::npos;
    const bool whole = answer.ends_with("\t@COMMAND=SEARCHCOMPLETE\n") &&
                       std::set<int>(numbers.begin(), numbers.end()).size() == numbers.size() &&
                       (all ? numbers.size() == hits : numbers.size() <= hits);
    const std::lock_guard hold(lock_);
    const std::size_t shards = answer.find(" shards=");
    if (shards != std::string::npos) {
      int &last = last_from_[answer.substr(shards + 8, 3)];
      last = std::max(last, ordinal);
    }
    if ((!whole || shards == std::string::npos) && wrong_++ == 0) first_wrong_ = answer;
    slowest_ = std::max(slowest_.load(), spent);
    ++answers_;
  }

  Tree *tree_;
  static constexpr int kFetched = 10;  // of so many answers one
  const std::vector<std::string> queries_;
  std::vector<std::size_t> hits_;  // of each, over one database
  std::vector<std::thread> clients_;
  std::atomic<bool> stop_ = false;
  std::atomic<int> asked_ = 0, answers_ = 0, wrong_ = 0, fetched_ = 0;
  std::atomic<double> slowest_ = 0;
  std::mutex lock_;
  std::map<std::string, int> last_from_;
  std::string first_wrong_;
};

// PINGs without a pause, from a socket of its own; the slowest answer in milliseconds.
class Pings {
 public:
  explicit Pings(int port) : port_(port), pinger_([this] { Run(); }) {}
  ~Pings() {
    stop_ = true;
    pinger_.join();
  }
  double Slowest() const { return slowest_; }
  int Lost() const { return lost_; }

 private:
  void Run() {
    const Socket sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in own = LoopbackAddress(TakePort()), to = LoopbackAddress(port_);
    EXPECT_EQ(bind(sock.Fd(), reinterpret_cast<const sockaddr *>(&own), sizeof own), 0);
    const std::string ping = "\t@COMMAND=PING\t@SEQNUM=1\n";
    while (!stop_) {
      const auto begin = Clock::now();
      sendto(sock.Fd(), ping.data(), ping.size(), 0, reinterpret_cast<const sockaddr *>(&to),
             sizeof to);
      char pong[100];
      if (!sock.Readable(5000) || recv(sock.Fd(), pong, sizeof pong, 0) <= 0) ++lost_;
      slowest_ = std::max(slowest_.load(),
                          std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  const int port_;
  std::atomic<bool> stop_ = false;
  std::atomic<double> slowest_ = 0;
  std::atomic<int> lost_ = 0;
  std::thread pinger_;
};

// What the managers' log says of answers that were none.
std::string Refusals(const Process &manager) {
  std::istringstream log(manager.Log());
  std::string refusals;
  for (std::string line; std::getline(log, line);)
    if (line.find("Unable to answer") != std::string::npos) refusals += line + "\n";
  return refusals;
}

void SignalGroup(Process &process, int number) { kill(-process.Pid(), number); }

}  // namespace

TEST_F(Scale, UnderLoadEachQueryIsAnsweredAndSaysWhatIsMissing) {
  // Of all that is not ended meanwhile; an engine that is stopped answers nobody.
  std::vector<std::unique_ptr<Pings>> pings;
  const std::pair<char, const char *> whole[] = {
      {'C', "web1"}, {'S', "many"}, {'D', "many"}, {'D', "e0"}, {'E', "e3"}};
  for (const auto &[type, id] : whole)
    pings.push_back(std::make_unique<Pings>(tree.AdminPort(type, id)));
  auto load = std::make_unique<Load>(&tree);
  ASSERT_TRUE(load->Sees("4/4"));

  std::printf("an engine is killed\n");
  tree.Kill('E', "e0");
  EXPECT_TRUE(load->Sees("3/4"));
  tree.Start('E', "e0");
  EXPECT_TRUE(load->Sees("4/4"));

  std::printf("an engine is stopped\n");
  SignalGroup(tree.Program('E', "e1"), SIGSTOP);
  EXPECT_TRUE(load->Sees("3/4"));
  SignalGroup(tree.Program('E', "e1"), SIGCONT);
  EXPECT_TRUE(load->Sees("4/4"));

  std::printf("an engine accepts and says nothing\n");
  {
    const Manager mute;
    tree.Send('S', "many",
              "\t@COMMAND=STARTUPANNOUNCEMENT\tID=e2\tTYPE=E\tIP=127.0.0.1\tCLIENTPORT=" +
                  std::to_string(mute.Port()) + "\tADMINPORT=9\n");
    EXPECT_TRUE(load->Sees("3/4"));
  }
  tree.End('E', "e2");
  tree.Start('E', "e2");
  EXPECT_TRUE(load->Sees("4/4"));

  std::printf("a database is replaced under its engine\n");
  const std::string path = TheData().Path(3);
  TheData().Build("other", 3, kEngines);
  std::filesystem::rename(path, path + ".old");
  std::filesystem::rename(TheData().folder.Path() + "/other", path);
  EXPECT_TRUE(tree.Program('E', "e3").WaitForLog("' was replaced\n"));
  EXPECT_TRUE(load->Sees("4/4"));

  std::printf("an engine is killed and started again, ten times\n");
  for (int i = 0; i < 10; ++i) {
    tree.Kill('E', "e0");
    EXPECT_TRUE(load->Sees("3/4"));
    tree.Start('E', "e0");
    EXPECT_TRUE(load->Sees("4/4"));
  }

  EXPECT_EQ(load->Wrong(), 0) << load->FirstWrong() << Refusals(tree.Program('S', "many"));
  EXPECT_LE(load->Slowest(), kDeadline + kBeyond);
  std::printf("%d answers, the slowest took %.0f ms of %d + %d\n", load->Answers(), load->Slowest(),
              kDeadline, kBeyond);
  EXPECT_GT(load->Fetched(), 0);
  load.reset();
  for (const auto &ping : pings) {
    EXPECT_EQ(ping->Lost(), 0);
    std::printf("the slowest PING took %.0f ms\n", ping->Slowest());
  }
  pings.clear();
  tree.Shutdown();
}
