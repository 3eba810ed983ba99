// A storm of the three signals that end a process, on processes that log all they do.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <thread>

#include "tests/soak/backend.h"
#include "tests/soak/footing.h"
#include "tests/soak/form.h"
#include "tests/soak/pages.h"
#include "tests/soak/visitor.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kShortForm = 25;  // rounds
constexpr int kLongForm = 1000;
constexpr int kClients = 8;
constexpr int kSignals[] = {SIGUSR1, SIGTERM, SIGINT};
constexpr const char *kNames[] = {"SIGUSR1", "SIGTERM", "SIGINT"};
constexpr auto kLongest = std::chrono::seconds(20);

std::size_t Count(const std::string &text, const std::string &part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

// The messages of a log that bear a header, by process.
std::map<pid_t, std::string> ByProcess(const std::string &log) {
  const std::string header = std::string(63, '-') + "\nPID: ";
  std::map<pid_t, std::string> messages;
  std::size_t at = log.find(header);
  while (at != std::string::npos) {
    const std::size_t begin = at + header.size();
    at = log.find(header, begin);
    const auto pid = static_cast<pid_t>(std::strtol(log.c_str() + begin, nullptr, 10));
    messages[pid] += log.substr(begin, at - begin);
  }
  return messages;
}

// How often each signal may have reached a process.
class Sent {
 public:
  void ToGroup(int number) { ++group_[number]; }
  void ToRest(pid_t main, int number) {
    ToGroup(number);
    --alone_[main][number];
  }
  void To(pid_t pid, int number) { ++alone_[pid][number]; }
  int Most(pid_t pid, int number) { return group_[number] + alone_[pid][number]; }
  int Any(pid_t pid) {
    int most = 0;
    for (const int number : kSignals) most = std::max(most, Most(pid, number));
    return most;
  }

 private:
  std::map<int, int> group_;
  std::map<pid_t, std::map<int, int>> alone_;
};

struct Tally {
  int by_handler = 0, by_default = 0, served = 0, signals = 0;
};

// One daemon, from its start to the end of its last process.
class Round {
 public:
  Round(const Page &page, const Random &random, Tally *tally);
  void Run();

 private:
  void Visit();
  void Chatter();
  void Strike(int left);
  void SendSignal();
  void WaitForAll();
  void Judge();
  void JudgeStatus(pid_t pid, int status, const std::string &messages);
  void JudgeLines(pid_t pid, const std::string &messages);

  Random random_;
  Tally *tally_;
  Daemon daemon_;
  const pid_t main_ = daemon_.Program().Pid();
  Events events_;
  const std::string request_;
  BackEnd search_;
  Sent sent_;
  std::map<pid_t, int> statuses_;
  int visiting_ = 0;
  bool over_ = false;
  int last_ = 0;
};

std::shared_ptr<Deed> RawAnswer(const std::string &request) {
  auto deed = std::make_shared<Deed>();
  deed->request = request;
  deed->answer = "\t@COMMAND=RAW\tpart of a page\n\t@COMMAND=SEARCHCOMPLETE\n";
  return deed;
}

Round::Round(const Page &page, const Random &random, Tally *tally)
    : random_(random),
      tally_(tally),
      request_("\t@COMMAND=QUERY\t@SEARCHGROUP=search\t@MACROFILE=" + page.base + "\twords\n"),
      search_(events_, [this](const std::string &request, bool *whole) {
        *whole = request.ends_with('\n');
        return RawAnswer(request_);
      }) {
  daemon_.Send(Announcement('S', "search", search_.Port()));
  daemon_.SetLevel("INFO");
}

// Clients that ask, that say nothing sensible, and that say nothing, one after the other.
void Round::Visit() {
  if (over_) return;
  ++visiting_;
  ::Visit visit;
  visit.request = OneIn(random_, 3) ? "nonsense\n" : OneIn(random_, 3) ? "" : request_;
  Visitor::Send(events_, daemon_.ClientPort(), visit, [this](const Seen &) {
    --visiting_;
    Visit();
  });
}

void Round::Chatter() {
  if (over_) return;
  daemon_.Send("\t@COMMAND=PONG\t@SEQNUM=1\tX=" + std::string(1000, 'x') + "\n");
  events_.After(1, [this] { Chatter(); });
}

void Round::SendSignal() {
  const int number = kSignals[Between(random_, 0, 2)];
  ++tally_->signals;
  const std::vector<pid_t> children = Footing_Children(main_);
  const int target = Between(random_, 0, 3);
  if (target == 0) {
    sent_.ToGroup(number);
    kill(-main_, number);
  } else if (target == 1 || children.empty()) {
    sent_.To(main_, number);
    kill(main_, number);
  } else {
    const pid_t child = children[static_cast<std::size_t>(
        Between(random_, 0, static_cast<int>(children.size()) - 1))];
    sent_.To(child, number);
    kill(child, number);
  }
}

// Some signals at once, some a little apart; at last one for the main process.
void Round::Strike(int left) {
  SendSignal();
  while (left > 0 && OneIn(random_, 2)) SendSignal(), --left;
  if (left > 0) return events_.After(Between(random_, 0, 3), [this, left] { Strike(left - 1); });
  over_ = true;
  last_ = kSignals[Between(random_, 0, 2)];
  sent_.To(main_, last_);
  kill(main_, last_);
}

// Children that ended before their parent are nobody's to wait for; the others become ours.
// The group is told again once no child can be born any more: a fork under way escapes a signal to
// the group that is pending in its parent already.
void Round::WaitForAll() {
  statuses_[main_] = daemon_.Program().Wait();
  sent_.ToRest(main_, last_);
  kill(-main_, last_);
  const auto begin = Clock::now();
  int status = 0;
  for (pid_t pid = 0; (pid = waitpid(-main_, &status, WNOHANG)) >= 0;) {
    if (pid > 0) statuses_[pid] = status;
    if (pid == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (Clock::now() - begin < kLongest) continue;
    ADD_FAILURE() << "a process hangs";
    kill(-main_, SIGKILL);
    return;
  }
}

void Round::Run() {
  for (int i = 0; i < kClients; ++i) Visit();
  Chatter();
  events_.After(Between(random_, 0, 25), [this] { Strike(Between(random_, 0, 6)); });
  events_.Run([this] { return over_; });
  WaitForAll();
  events_.Run([this] { return visiting_ == 0; });
  Judge();
}

// A process that a signal ended found the default, since its handler had been called before.
void Round::JudgeStatus(pid_t pid, int status, const std::string &messages) {
  if (WIFSIGNALED(status)) {
    ++tally_->by_default;
    EXPECT_LE(2, sent_.Most(pid, WTERMSIG(status))) << pid << " by signal " << WTERMSIG(status);
    return;
  }
  EXPECT_EQ(0, ExitStatus(status)) << pid;
  const bool handled = Count(messages, "Tovak has left the building.\n") > 0;
  handled ? ++tally_->by_handler : ++tally_->served;
  EXPECT_TRUE(handled || pid != main_) << "the main process has left without its lines";
}

void Round::JudgeLines(pid_t pid, const std::string &messages) {
  std::size_t received = 0;
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    const std::size_t times =
        Count(messages, "[MainCore: SigHndlr] Recieved " + std::string(kNames[i]) + ".\n");
    EXPECT_LE(times, 1u) << pid << ": a handler runs once";
    EXPECT_LE(static_cast<int>(times), sent_.Most(pid, kSignals[i])) << pid;
    received += times;
  }
  const std::size_t left = Count(messages, "[MainCore: Shutdown] Tovak has left the building.\n");
  EXPECT_TRUE(left == 0 || received > 0) << pid << " left without being told";
  EXPECT_TRUE(received == 0 || left > 0 || sent_.Any(pid) > 1) << pid << " did not say goodbye";
}

void Round::Judge() {
  const std::map<pid_t, std::string> messages = ByProcess(daemon_.Program().RawLog());
  for (const auto &[pid, status] : statuses_) {
    const auto found = messages.find(pid);
    JudgeStatus(pid, status, found != messages.end() ? found->second : "");
  }
  for (const auto &[pid, text] : messages) JudgeLines(pid, text);
  EXPECT_EQ(1u, Count(daemon_.Program().Output(), "KORVO Communications Manager"));
}

TEST(Storm, SignalsAtRandomInstants_EveryProcessEndsAndSaysSo) {
  const Folder folder;
  const std::vector<Page> pages = Pages_Write(folder);
  const int rounds = Form_Minutes() > 0 ? kLongForm : kShortForm;
  Tally tally;
  int round = 0;
  for (; round < rounds && !HasFailure(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    Round(pages[0], Form_Random(1'000'000'000 + static_cast<std::uint64_t>(round)), &tally).Run();
  }
  std::printf(
      "%d rounds, %d signals: %d processes ended by their handlers, %d by the default, "
      "%d had served\n",
      round, tally.signals, tally.by_handler, tally.by_default, tally.served);
}

}  // namespace
