// Load: 64 clients at once, every kind of request, while managers fail, die and come back.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "tests/soak/draft.h"
#include "tests/soak/footing.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kClients = 64;
constexpr int kShortForm = 1500;   // requests
constexpr int kLongForm = 100000;  // at least
constexpr int kNoise = 200;        // managers that announce themselves and are not asked
constexpr int kBatch = 10;         // announcements before each PING
constexpr auto kLongest = std::chrono::seconds(60);          // that an exchange may take
constexpr auto kLongestHit = std::chrono::milliseconds(50);  // and for each of its documents
constexpr int kComplaints = 5;

double Seconds(Clock::duration time) { return std::chrono::duration<double>(time).count(); }

// The number behind the name; -1: it has not come whole.
int NumberIn(const std::string &request, const std::string &name) {
  const std::size_t at = request.find(name);
  if (at == std::string::npos) return -1;
  const std::size_t end = request.find_first_of("\t\n", at);
  if (end == std::string::npos) return -1;
  return static_cast<int>(std::strtol(request.c_str() + at + name.size(), nullptr, 10));
}

std::string Excerpt(const std::string &text, std::size_t from) {
  std::string shown;
  for (const char byte : text.substr(from, 120))
    shown += byte >= ' ' && byte <= '~' ? std::string(1, byte) : byte == '\n' ? "\\n" : "?";
  return shown;
}

class Load {
 public:
  Load();

  void Run(int requests, int minutes, bool in_turn);
  void AnnounceNoise(int count);
  void Drain();  // until nothing is left of the visits
  int Announced() const { return announced_; }
  pid_t Pid() { return daemon_.Program().Pid(); }
  bool Stuck() const { return stuck_; }
  void ExpectQuietLog() const;
  void Report() const;

 private:
  struct Current {
    Exchange exchange;
    Clock::time_point since;
  };
  using Deeds = std::map<int, std::shared_ptr<Deed>>;

  BackEnd::Find FindIn(const Deeds &deeds, const std::string &name) const;
  void Announce(char type, const std::string &id, int port);
  void SendNoise();
  void Talk();
  void Mortality(BackEnd *manager);
  void LookAround();
  void Start(bool in_turn);
  void Finish(int number, const Seen &seen);
  void Complain(const Exchange &exchange, const std::string &what);
  std::string Difference(const std::string &got, const std::set<std::string> &right) const;

  Events events_;
  Daemon daemon_;
  Folder folder_;
  std::vector<Page> pages_ = Pages_Write(folder_);
  Deeds searches_, fetches_;
  BackEnd search_{events_, FindIn(searches_, "@SEQNUM=")};
  BackEnd docs_{events_, FindIn(fetches_, "@DOCNUM=")};
  BackEnd mortal_search_{events_, FindIn(searches_, "@SEQNUM=")};
  BackEnd mortal_docs_{events_, FindIn(fetches_, "@DOCNUM=")};
  Random random_ = Form_Random(0);
  std::map<int, Current> running_;
  std::map<pid_t, int> zombies_;
  std::map<std::string, int> counts_;
  std::string asked_;  // the PONG that has not come yet
  Clock::time_point asked_at_;
  const Clock::time_point begin_ = Clock::now();
  std::pair<Clock::duration, std::string> slowest_;
  int next_number_ = 1;
  int next_document_ = 1;
  int announced_ = 0;
  int pings_ = 0;
  int deaths_ = 0;
  int complaints_ = 0;
  bool stuck_ = false;
};

Load::Load() {
  const int refusing[] = {ReservePort(), ReservePort()};
  // The Search Managers that are asked come first: an announcement drops those behind it.
  Announce('S', kSteady[0], search_.Port());
  Announce('S', kMortal[0], mortal_search_.Port());
  Announce('S', kRefusing[0], refusing[0]);
  Announce('D', kSteady[1], docs_.Port());
  Announce('D', kMortal[1], mortal_docs_.Port());
  Announce('D', kRefusing[1], refusing[1]);
  daemon_.Ping();
  AnnounceNoise(20 * kNoise);
  for (BackEnd *manager : {&mortal_search_, &mortal_docs_}) Mortality(manager);
  LookAround();
  Talk();
}

BackEnd::Find Load::FindIn(const Deeds &deeds, const std::string &name) const {
  return [&deeds, name](const std::string &request, bool *whole) -> std::shared_ptr<Deed> {
    const int number = NumberIn(request, name);
    *whole = number >= 0;
    const auto found = deeds.find(number);
    return found != deeds.end() ? found->second : nullptr;
  };
}

void Load::Announce(char type, const std::string &id, int port) {
  ++announced_;
  daemon_.Send(Announcement(type, id, port));
}

// Re-announces a steady manager, or one of those that nobody asks.
void Load::SendNoise() {
  if (OneIn(random_, 10)) return Announce('S', kSteady[0], search_.Port());
  if (OneIn(random_, 10)) return Announce('D', kSteady[1], docs_.Port());
  const char type = OneIn(random_, 4) ? 'S' : 'D';
  Announce(type, "noise-" + std::to_string(Between(random_, 1, kNoise)), 9);
}

void Load::AnnounceNoise(int count) {
  for (int i = 0; i < count; ++i) {
    SendNoise();
    if (i % kBatch == 0) daemon_.Ping();
  }
  daemon_.Ping();
}

// Announcements and a PING, again once its answer has come.
void Load::Talk() {
  events_.After(10, [this] { Talk(); });
  if (!asked_.empty()) {
    if (!daemon_.Answers(0)) {
      if (Clock::now() - asked_at_ < kLongest) return;
      ADD_FAILURE() << "no answer to PING";
      stuck_ = true;
      return;
    }
    EXPECT_EQ(asked_, daemon_.Receive());
  }
  for (int i = 0; i < kBatch; ++i) SendNoise();
  const std::string number = std::to_string(++pings_);
  daemon_.Send("\t@COMMAND=PING\t@SEQNUM=" + number + "\n");
  asked_ = "\t@COMMAND=PONG\t@SEQNUM=" + number + "\n";
  asked_at_ = Clock::now();
}

void Load::Mortality(BackEnd *manager) {
  events_.After(Between(random_, 20, 300), [this, manager] {
    ++deaths_;
    manager->Kill();
    events_.After(Between(random_, 1, 40), [this, manager] {
      manager->Start();
      Mortality(manager);
    });
  });
}

// Nothing hangs, and no child stays behind as a zombie: one that is looked at twice.
void Load::LookAround() {
  events_.After(50, [this] { LookAround(); });
  std::map<pid_t, int> zombies;
  for (const pid_t child : Footing_Children(Pid()))
    if (Footing_IsZombie(child)) zombies[child] = zombies_[child] + 1;
  for (const auto &[pid, times] : zombies) {
    if (times < 2) continue;
    stuck_ = true;
    ADD_FAILURE() << pid << " is a zombie";
    break;
  }
  zombies_ = zombies;
  for (const auto &[number, current] : running_) {
    const auto documents = static_cast<int>(current.exchange.documents.size());
    if (Clock::now() - current.since < kLongest + documents * kLongestHit) continue;
    Complain(current.exchange, "hangs");
    stuck_ = true;
  }
}

void Load::Start(bool in_turn) {
  const int number = next_number_++;
  Draft draft{pages_, Form_Random(static_cast<std::uint64_t>(number)), &next_document_};
  draft.exchange.number = number;
  Kinds_Write(&draft, in_turn);
  ++counts_[draft.exchange.kind];
  if (draft.exchange.search != nullptr) searches_[number] = draft.exchange.search;
  fetches_.insert(draft.exchange.fetched.begin(), draft.exchange.fetched.end());
  const auto at = running_.emplace(number, Current{std::move(draft.exchange), Clock::now()}).first;
  Visitor::Send(events_, daemon_.ClientPort(), at->second.exchange.visit,
                [this, number](const Seen &seen) { Finish(number, seen); });
}

void Load::Finish(int number, const Seen &seen) {
  const auto node = running_.extract(number);
  const Exchange &exchange = node.mapped().exchange;
  slowest_ = std::max(slowest_, {Clock::now() - node.mapped().since, exchange.kind});
  const std::set<std::string> right = Exchange_Answers(exchange);
  bool matches = right.count(seen.answer) != 0;
  if (exchange.left_early)
    for (const std::string &answer : right) matches = matches || answer.starts_with(seen.answer);
  if (!matches) Complain(exchange, Difference(seen.answer, right));
  if (seen.error != 0 && !(exchange.cut_short && seen.error == ECONNRESET))
    Complain(exchange, "the answer ended with error " + std::to_string(seen.error));
  searches_.erase(number);
  for (const auto &[document, deed] : exchange.fetched) fetches_.erase(document);
}

void Load::Complain(const Exchange &exchange, const std::string &what) {
  if (++complaints_ > kComplaints) return;
  ADD_FAILURE() << "exchange " << exchange.number << " (" << exchange.kind << "): " << what;
}

std::string Load::Difference(const std::string &got, const std::set<std::string> &right) const {
  std::size_t same = 0;
  const std::string *nearest = nullptr;
  for (const std::string &answer : right) {
    const auto mismatch = std::mismatch(got.begin(), got.end(), answer.begin(), answer.end());
    const auto count = static_cast<std::size_t>(mismatch.first - got.begin());
    if (nearest == nullptr || count > same) nearest = &answer, same = count;
  }
  return std::to_string(right.size()) + " answers are right; from byte " + std::to_string(same) +
         " of " + std::to_string(got.size()) + " on it is\n  " + Excerpt(got, same) +
         "\nand should be, of " + std::to_string(nearest->size()) + " bytes,\n  " +
         Excerpt(*nearest, same);
}

void Load::Run(int requests, int minutes, bool in_turn) {
  const auto begin = Clock::now();
  const int last = next_number_ + requests;
  const auto enough = [&] {
    return stuck_ || complaints_ > kComplaints ||
           (next_number_ >= last && Clock::now() - begin >= std::chrono::minutes(minutes));
  };
  events_.Run([&] {
    while (!enough() && running_.size() < kClients) Start(in_turn);
    return enough() && (running_.empty() || stuck_);
  });
}

void Load::Drain() {
  const auto begin = Clock::now();
  events_.Run([&] {
    const bool drained = Footing_Children(Pid()).empty() && search_.Idle() && docs_.Idle() &&
                         mortal_search_.Idle() && mortal_docs_.Idle();
    return drained || stuck_ || Clock::now() - begin > kLongest;
  });
  EXPECT_EQ(std::vector<pid_t>(), Footing_Children(Pid()));
  for (const BackEnd *manager : {&search_, &docs_, &mortal_search_, &mortal_docs_})
    EXPECT_EQ("", manager->Complaint());
}

// Everything was accepted and served.
void Load::ExpectQuietLog() const {
  const std::string log = daemon_.Log();
  for (const char *text :
       {"[SOCK: Accept]", "Unable to fork", "Dr. Vostrelan", "[Comm: Admin]", "SigHndlr"})
    EXPECT_EQ(std::string::npos, log.find(text)) << text;
}

void Load::Report() const {
  std::printf("%d requests in %.1f s: %d PINGs, %d announcements, managers died %d times\n",
              next_number_ - 1, Seconds(Clock::now() - begin_), pings_, announced_, deaths_);
  std::printf("The slowest took %.1f s (%s)\n", Seconds(slowest_.first), slowest_.second.c_str());
  for (const auto &[kind, count] : counts_) std::printf("  %6d %s\n", count, kind.c_str());
}

TEST(Load, EveryKindAtOnce_AnswersAreExactAndNothingIsLeftBehind) {
  Load load;
  load.Run(2 * Kinds_Count(), 0, true);
  load.Drain();
  const auto descriptors = Footing_Descriptors(load.Pid());
  const long pages = Footing_ResidentPages(load.Pid());
  const int announced = load.Announced();

  const bool long_form = Form_Minutes() > 0;
  load.Run(long_form ? kLongForm : kShortForm, Form_Minutes(), false);
  load.Drain();

  EXPECT_EQ(descriptors, Footing_Descriptors(load.Pid()));
  EXPECT_LE(Footing_ResidentPages(load.Pid()) - pages, (load.Announced() - announced) / 1000);
  load.ExpectQuietLog();
  load.Report();
}

}  // namespace
