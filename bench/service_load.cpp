// korvo-service-load CLIENTS ROUNDS SECONDS SIDE...: whole services under the same requests, in
// turns.
//
// A SIDE is NAME,KIND,TARGET,REQUESTS,GROUP.  KIND says who is asked:
//   tcp     a port of this machine, a connection a request
//   size    the same, where answers are compared by their size alone
//   turns   the same, each line of a request on a connection of its own, one after the other
//   cgi     a program that gets the request as QUERY_STRING, a process a request
//   xapian  a database, in this process: the best ten and their data
//   match   the same, without their data
// GROUP is the control group of those who serve, or -.  The first answer to each request is what
// every later one has to be.
//
// With SECONDS 0 a round asks each side for the next kStep requests, else for as many as are
// answered within that time.  CLIENTS is a list: all of it takes turns too.
#include <fcntl.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xapian.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "bench/client.h"
#include "bench/requests.h"
#include "bench/server.h"
#include "bench/statistics.h"

extern char **environ;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kStep = 110;                   // five rounds ask for all of 550
constexpr auto kLongest = std::chrono::seconds(60);  // that an answer may take
constexpr double kSlow = 0.9;                        // seconds; a dropped connection takes one more
constexpr useconds_t kSettle = 5'000;                // until ended children are accounted for
constexpr Xapian::doccount kHits = 10;

struct Side {
  std::string name, kind, target, group;
  std::vector<std::string> requests;
  std::vector<std::string> answers;  // the first of each request; empty: not asked yet
  std::size_t next = 0;              // request
};

// What one side did in one round.
struct Sample {
  double mean = 0, rate = 0, cpu = -1;  // seconds, answers a second, seconds of processor an answer
};

struct Series {
  std::vector<Sample> samples;
  std::vector<std::int64_t> latencies;
  long slow = 0, queued = 0;  // slow, and of these those that met a full queue at their own server
};

// One request under way.
struct Attempt {
  int fd = -1;
  pid_t pid = 0;
  bool connecting = false;
  std::size_t request = 0;
  std::size_t sent = 0;  // of the request, for turns
  std::string answer;
  Clock::time_point begun;
  bool queued = false;
};

[[noreturn]] void Fail(const Side &side, const std::string &what) {
  std::fprintf(stderr, "%s: %s\n", side.name.c_str(), what.c_str());
  std::exit(1);
}

double Seconds(Clock::duration time) { return std::chrono::duration<double>(time).count(); }

double Spent(int who) {
  rusage usage = {};
  getrusage(who, &usage);
  const auto seconds = [](const timeval &time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

bool IsLocal(const Side &side) { return side.kind == "xapian" || side.kind == "match"; }

// The processor time of who serves a side, until now; below 0: not known.
double Cpu(const Side &side) {
  if (side.kind == "cgi") return Spent(RUSAGE_CHILDREN);
  if (IsLocal(side)) return Spent(RUSAGE_SELF);
  const double cpu = side.group == "-" ? -1 : Server_Cpu(side.group);
  return cpu < 0 ? -1 : cpu / 1e6;
}

// What is sent next over a connection of its own: all of the request, or a line of it.
std::string_view NextPart(const Side &side, const Attempt &attempt) {
  std::string_view rest = side.requests[attempt.request];
  if (side.kind != "turns") return rest;
  rest.remove_prefix(attempt.sent);
  return rest.substr(0, rest.find('\n') + 1);
}

void Connect(const Side &side, Attempt *attempt) {
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<std::uint16_t>(std::stoi(side.target)));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  attempt->fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
  if (connect(attempt->fd, reinterpret_cast<const sockaddr *>(&addr), sizeof addr) != 0 &&
      errno != EINPROGRESS)
    Fail(side, std::strerror(errno));
}

void Send(const Side &side, Attempt *attempt) {
  const std::string_view part = NextPart(side, *attempt);
  if (send(attempt->fd, part.data(), part.size(), MSG_NOSIGNAL) !=
      static_cast<ssize_t>(part.size()))
    Fail(side, std::string("send: ") + std::strerror(errno));
  attempt->sent += part.size();
}

void Spawn(const Side &side, Attempt *attempt) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) Fail(side, std::strerror(errno));
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  setenv("QUERY_STRING", side.requests[attempt->request].c_str(), 1);
  std::string program = side.target;
  char *const arguments[] = {program.data(), nullptr};
  const int err =
      posix_spawn(&attempt->pid, program.c_str(), &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (err != 0) Fail(side, std::strerror(err));
  close(ends[1]);
  attempt->fd = ends[0];
}

// The best ten of a database that this process has open, as the Search Manager finds them.
std::string Match(const Xapian::Database &database, const std::string &words, bool data) {
  Xapian::QueryParser parser;
  parser.set_database(database);
  parser.set_default_op(Xapian::Query::OP_AND);
  parser.set_stemmer(Xapian::Stem("english"));
  parser.set_stemming_strategy(Xapian::QueryParser::STEM_SOME);
  Xapian::Enquire enquire(database);
  enquire.set_query(parser.parse_query(words, 0));
  const Xapian::MSet hits = enquire.get_mset(0, kHits);
  std::string answer = "found\n";
  for (auto hit = hits.begin(); hit != hits.end(); ++hit)
    answer += std::to_string(*hit) + (data ? hit.get_document().get_data() : "") + "\n";
  return answer;
}

class Round {
 public:
  Round(Side *side, Series *series, int clients)
      : side_(side),
        series_(series),
        attempts_(static_cast<std::size_t>(clients)),
        events_(epoll_create1(EPOLL_CLOEXEC)) {}
  ~Round() { close(events_); }
  Round(const Round &) = delete;
  Round &operator=(const Round &) = delete;

  // For that long, or for kStep requests.
  void Run(double seconds) {
    const double cpu = Cpu(*side_);
    begun_ = Clock::now();
    seconds_ = seconds;
    IsLocal(*side_) ? RunHere() : RunThere();
    const double time = seconds > 0 ? seconds : Seconds(Clock::now() - begun_);
    usleep(kSettle);
    Sample sample = {sum_ / count_, within_ / time, -1};
    if (cpu >= 0) sample.cpu = (Cpu(*side_) - cpu) / count_;
    series_->samples.push_back(sample);
  }

 private:
  bool GoesOn() const {
    return seconds_ > 0 ? Seconds(Clock::now() - begun_) < seconds_ : asked_ < kStep;
  }

  void RunHere() {
    const Xapian::Database database(side_->target);
    while (GoesOn()) {
      Attempt attempt = Next();
      attempt.answer = Match(database, side_->requests[attempt.request], side_->kind == "xapian");
      Note(&attempt);
    }
  }

  void RunThere() {
    for (Attempt &attempt : attempts_)
      if (GoesOn()) Begin(&attempt);
    const auto last = Clock::now() + kLongest + std::chrono::seconds(static_cast<int>(seconds_));
    while (open_ > 0) {
      if (Clock::now() > last) Fail(*side_, "an answer does not come");
      epoll_event ready[64];
      const int count = epoll_wait(events_, ready, 64, 1000);
      for (int i = 0; i < count; ++i) Move(static_cast<Attempt *>(ready[i].data.ptr));
    }
  }

  Attempt Next() {
    Attempt attempt;
    attempt.request = side_->next++ % side_->requests.size();
    attempt.begun = Clock::now();
    ++asked_;
    return attempt;
  }

  void Begin(Attempt *attempt) {
    do {
      *attempt = Next();
    } while (side_->requests[attempt->request].empty());  // a page without documents
    ++open_;
    Open(attempt);
  }

  void Open(Attempt *attempt) {
    const bool program = side_->kind == "cgi";
    program ? Spawn(*side_, attempt) : Connect(*side_, attempt);
    epoll_event event = {};
    attempt->connecting = !program;
    event.events = program ? EPOLLIN : EPOLLOUT;
    event.data.ptr = attempt;
    epoll_ctl(events_, EPOLL_CTL_ADD, attempt->fd, &event);
  }

  void Ask(Attempt *attempt) {
    Send(*side_, attempt);
    attempt->connecting = false;
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.ptr = attempt;
    epoll_ctl(events_, EPOLL_CTL_MOD, attempt->fd, &event);
  }

  void Move(Attempt *attempt) {
    if (attempt->connecting) return Ask(attempt);
    char buffer[65536];
    const ssize_t got = read(attempt->fd, buffer, sizeof buffer);
    if (got > 0) {
      attempt->answer.append(buffer, static_cast<std::size_t>(got));
    } else if (got == 0 || errno != EAGAIN) {
      if (got < 0) Fail(*side_, std::string("read: ") + std::strerror(errno));
      End(attempt);
    }
  }

  void End(Attempt *attempt) {
    attempt->queued = attempt->queued || Client_MetFullQueue(attempt->fd);
    // A program that has only just been started may still hold it too.
    epoll_ctl(events_, EPOLL_CTL_DEL, attempt->fd, nullptr);
    close(attempt->fd);
    if (attempt->pid > 0) waitpid(attempt->pid, nullptr, 0);
    if (side_->kind == "turns" && attempt->sent < side_->requests[attempt->request].size())
      return Open(attempt);
    Note(attempt);
    --open_;
    if (GoesOn()) Begin(attempt);
  }

  void Note(Attempt *attempt) {
    const auto now = Clock::now();
    std::string &expected = side_->answers[attempt->request];
    if (expected.empty()) expected = attempt->answer;
    const bool same = side_->kind == "size" ? expected.size() == attempt->answer.size()
                                            : expected == attempt->answer;
    if (!same || expected.empty())
      Fail(*side_, "the answer to request " + std::to_string(attempt->request + 1) + " changed");
    const double time = Seconds(now - attempt->begun);
    if (seconds_ == 0 || Seconds(now - begun_) <= seconds_) ++within_;
    sum_ += time;
    ++count_;
    series_->latencies.push_back(static_cast<std::int64_t>(time * 1e9));
    if (time <= kSlow) return;
    ++series_->slow;
    if (attempt->queued) ++series_->queued;
  }

  Side *side_;
  Series *series_;
  std::vector<Attempt> attempts_;
  int events_;
  Clock::time_point begun_;
  double seconds_ = 0;
  std::size_t asked_ = 0;
  int open_ = 0;
  double sum_ = 0, count_ = 0, within_ = 0;
};

Side ReadSide(const std::string &text) {
  std::istringstream parts(text);
  Side side;
  std::string requests;
  std::getline(parts, side.name, ',');
  std::getline(parts, side.kind, ',');
  std::getline(parts, side.target, ',');
  std::getline(parts, requests, ',');
  std::getline(parts, side.group);
  side.requests = Requests_Read(requests);
  side.answers.resize(side.requests.size());
  return side;
}

std::vector<int> Numbers(const std::string &list) {
  std::istringstream parts(list);
  std::vector<int> numbers;
  for (std::string number; std::getline(parts, number, ',');) numbers.push_back(std::stoi(number));
  return numbers;
}

std::vector<double> Column(const Series &series, double Sample::*value) {
  std::vector<double> column;
  for (const Sample &sample : series.samples) column.push_back(sample.*value);
  return column;
}

// Milliseconds; "-": not known.
std::string Milliseconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", seconds * 1e3);
  return seconds < 0 ? "-" : text;
}

// Of a series to another, round by round.
std::string Ratio(const Series &series, const Series &base, double Sample::*value) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < series.samples.size(); ++i)
    if (base.samples[i].*value > 0)
      ratios.push_back(series.samples[i].*value / (base.samples[i].*value));
  const bool known = !ratios.empty() && series.samples.front().*value > 0;
  return known ? Statistics_WithQuartiles(ratios, 2) : "-";
}

void PrintHead(const Side &base, int clients) {
  std::printf(
      "| service | clients | time, ms | p50 | p99 | CPU, ms | time to %s's | CPU to %s's | searches a second | to those of %d | above 0.9 s | of these at its own full queue |\n"
      "|---|--:|--:|--:|--:|--:|---|---|--:|---|--:|--:|\n",
      base.name.c_str(), base.name.c_str(), clients);
}

// base: of the first side with as many clients; few: of this side with the first number of clients.
void Print(const Side &side, int clients, Series series, const Series &base, const Series &few) {
  std::sort(series.latencies.begin(), series.latencies.end());
  const auto at = [&](double percent) {
    return Milliseconds(static_cast<double>(Client_Percentile(series.latencies, percent)) / 1e9);
  };
  const auto median = [&](double Sample::*value) {
    return Statistics_Quantile(Column(series, value), 0.5);
  };
  std::printf("| %s | %d | %s | %s | %s | %s | %s | %s | %.0f | %s | %ld of %zu | %ld |\n",
              side.name.c_str(), clients, Milliseconds(median(&Sample::mean)).c_str(),
              at(50).c_str(), at(99).c_str(), Milliseconds(median(&Sample::cpu)).c_str(),
              Ratio(series, base, &Sample::mean).c_str(), Ratio(series, base, &Sample::cpu).c_str(),
              median(&Sample::rate), Ratio(series, few, &Sample::rate).c_str(), series.slow,
              series.latencies.size(), series.queued);
}

// Every request once: whatever is asked for the first time costs more.
void WarmUp(std::vector<Side> *sides) {
  for (Side &side : *sides) {
    Series ignored;
    for (std::size_t asked = 0; asked < side.requests.size(); asked += kStep)
      Round(&side, &ignored, 1).Run(0);
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 5) return 64;
  const std::vector<int> clients = Numbers(argv[1]);
  const int rounds = std::atoi(argv[2]);
  const double seconds = std::atof(argv[3]);
  std::vector<Side> sides;
  for (int i = 4; i < argc; ++i) sides.push_back(ReadSide(argv[i]));
  WarmUp(&sides);
  std::vector<std::vector<Series>> table(clients.size(), std::vector<Series>(sides.size()));
  for (int round = 0; round < rounds; ++round)
    for (std::size_t row = 0; row < clients.size(); ++row) {
      for (std::size_t i = 0; i < sides.size(); ++i) {
        const std::size_t turn = round % 2 == 0 ? i : sides.size() - 1 - i;
        Round(&sides[turn], &table[row][turn], clients[row]).Run(seconds);
      }
    }
  PrintHead(sides.front(), clients.front());
  for (std::size_t row = 0; row < clients.size(); ++row)
    for (std::size_t i = 0; i < sides.size(); ++i)
      Print(sides[i], clients[row], table[row][i], table[row].front(), table.front()[i]);
}
