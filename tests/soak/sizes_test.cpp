// Both word sizes side by side: the same random exchanges give the same bytes and the same log.
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <regex>
#include <thread>

#include "tests/soak/events.h"
#include "tests/soak/footing.h"
#include "tests/soak/hostile.h"
#include "tests/soak/visitor.h"
#include "tests/support/log_capture.h"

namespace {

constexpr int kBatch = 200;  // exchanges with one daemon of each size
constexpr int kShortForm = 1;
constexpr int kLongForm = 50;  // batches
constexpr std::size_t kShown = 300;

// What came of a batch, as far as both sizes agree.
struct Record {
  std::vector<std::string> exchanges;
  std::string log;
  std::string output;
  int status = -1;
};

// A manager that gives one connection after the other its answer, and keeps what it was asked.
class Answerer {
 public:
  Answerer(Events &events, std::string *transcript, std::string (*make)(Random &random))
      : events_(events), transcript_(transcript), make_(make) {
    events_.Watch(manager_.Fd(), EPOLLIN, [this] { Serve(); });
  }
  int Port() const { return manager_.Port(); }
  void Begin(std::uint64_t seed) { random_.seed(seed); }

 private:
  void Serve();

  Events &events_;
  Manager manager_;
  std::string *transcript_;
  std::string (*make_)(Random &random);
  Random random_ = Form_Random(0);
};

void Answerer::Serve() {
  const Socket socket = manager_.Accept();
  const int room = 1 << 18;  // the answer whole
  setsockopt(socket.Fd(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
  char request[8192];
  const ssize_t got = recv(socket.Fd(), request, sizeof request, 0);
  if (got > 0) transcript_->append("<- ").append(request, static_cast<std::size_t>(got));
  socket.Send(make_(random_));
}

class Batch {
 public:
  explicit Batch(std::uint64_t number);
  Record Run(const std::string &program);

 private:
  std::string Exchange(Daemon &daemon, std::uint64_t number);
  std::string Command(Daemon &daemon, const std::string &line);
  std::string Administer(Daemon &daemon, const std::string &datagram);

  const std::uint64_t first_;
  Random random_;
  Folder folder_;
  std::vector<std::string> macros_;
  std::string transcript_;
  Events events_;
  Answerer search_{events_, &transcript_, Hostile_Search};
  Answerer docs_{events_, &transcript_, Hostile_Document};
  const Ports ports_ = {search_.Port(), docs_.Port(), ReservePort()};
};

Batch::Batch(std::uint64_t number)
    : first_(2'000'000'000 + number * kBatch),
      random_(Form_Random(first_ + 1'000'000'000)),
      macros_(Hostile_Macros(random_, folder_)) {}

// A command is over when its process is gone, so that no two write to the log at a time.
std::string Batch::Command(Daemon &daemon, const std::string &line) {
  Visit visit;
  visit.request = line;
  visit.end = Visit::End::kEndAndRead;
  std::string answer;
  bool done = false;
  Visitor::Send(events_, daemon.ClientPort(), visit, [&](const Seen &seen) {
    answer = seen.answer;
    done = true;
  });
  const auto give_up = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
  events_.Run([&] { return done || std::chrono::steady_clock::now() > give_up; });
  EXPECT_TRUE(done) << "no end of the answer to:\n" << line;
  while (!Footing_Children(daemon.Program().Pid()).empty() &&
         std::chrono::steady_clock::now() < give_up)
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  EXPECT_LT(std::chrono::steady_clock::now(), give_up) << "a process that does not end";
  return answer;
}

std::string Batch::Administer(Daemon &daemon, const std::string &datagram) {
  const std::string last = "\t@COMMAND=PONG\t@SEQNUM=424242\n";
  daemon.Send(datagram);
  daemon.Send("\t@COMMAND=PING\t@SEQNUM=424242\n");
  std::string answers, answer;
  do answers += answer = daemon.Receive();
  while (answer != last && !answer.empty());
  EXPECT_EQ(last, answer);
  return answers;
}

std::string Batch::Exchange(Daemon &daemon, std::uint64_t number) {
  Random random = Form_Random(number);
  transcript_.clear();
  search_.Begin(random());
  docs_.Begin(random());
  if (OneIn(random, 4)) {
    const std::string datagram = Hostile_Datagram(random, ports_);
    return "datagram " + datagram + "\n-> " + Administer(daemon, datagram);
  }
  const std::string line = Hostile_Line(random, macros_);
  const std::string answer = Command(daemon, line);
  return "line " + line + "\n" + transcript_ + "\n-> " + answer;
}

// Without times and process ids, the ports of clients, and the addresses of buffers.
std::string Common(const std::string &log) {
  static const std::regex kVaries(
      "(New connection from |Command from )127\\.0\\.0\\.1/-?[0-9]+|"
      "(HEXDUMP @ )[0-9a-f]{8}|(\n)[0-9a-f]{8}: ");
  return std::regex_replace(StripHeaders(log), kVaries, "$1$2$3");
}

Record Batch::Run(const std::string &program) {
  Record record;
  Daemon daemon(program);
  const std::size_t start = daemon.Program().RawLog().size();
  daemon.Send(Announcement('S', "search", ports_.search));
  daemon.Send(Announcement('D', "docs", ports_.docs));
  daemon.Ping();
  for (int i = 0; i < kBatch && !testing::Test::HasFailure(); ++i)
    record.exchanges.push_back(Exchange(daemon, first_ + static_cast<std::uint64_t>(i)));
  daemon.Program().Signal(SIGTERM);
  record.status = daemon.Program().Wait();
  record.log = Common(daemon.Program().RawLog().substr(start));
  record.output = daemon.Program().Output();
  return record;
}

// Two texts from a little before their first difference on.
std::string Difference(const std::string &native, const std::string &m32) {
  const auto mismatch = std::mismatch(native.begin(), native.end(), m32.begin(), m32.end());
  const auto at = static_cast<std::size_t>(mismatch.first - native.begin());
  const std::size_t from = at - std::min(at, kShown);
  return "at byte " + std::to_string(at) + "\n--- native\n" + native.substr(from, 2 * kShown) +
         "\n--- 32 bits\n" + m32.substr(from, 2 * kShown);
}

void ExpectSame(const Record &native, const Record &m32) {
  EXPECT_EQ(native.status, m32.status);
  ASSERT_EQ(native.exchanges.size(), m32.exchanges.size());
  for (std::size_t i = 0; i < native.exchanges.size(); ++i)
    EXPECT_TRUE(native.exchanges[i] == m32.exchanges[i])
        << "exchange " << i << ": " << Difference(native.exchanges[i], m32.exchanges[i]);
  EXPECT_TRUE(native.log == m32.log) << "log: " << Difference(native.log, m32.log);
  EXPECT_TRUE(native.output == m32.output) << Difference(native.output, m32.output);
}

TEST(WordSizes, RandomExchanges_GiveTheSameBytesAndTheSameLog) {
  const char *m32 = std::getenv("KORVO_COMMMGR_M32");
  if (m32 == nullptr || access(m32, X_OK) != 0)
    GTEST_SKIP() << "KORVO_COMMMGR_M32 names no 32-bit korvo-commmgr";
  const int batches = Form_Minutes() > 0 ? kLongForm : kShortForm;
  std::size_t bytes = 0, logged = 0;
  for (int number = 0; number < batches && !HasFailure(); ++number) {
    SCOPED_TRACE("batch " + std::to_string(number));
    Batch batch(static_cast<std::uint64_t>(number));
    const Record native = batch.Run(KORVO_COMMMGR);
    ExpectSame(native, batch.Run(m32));
    for (const std::string &exchange : native.exchanges) bytes += exchange.size();
    logged += native.log.size();
  }
  if (HasFailure()) return;
  std::printf("%d exchanges of %zu bytes and a log of %zu bytes are the same in both sizes\n",
              batches * kBatch, bytes, logged);
}

}  // namespace
