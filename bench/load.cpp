// korvo-load [OPTION]... FOLDER ROW...: measures the daemon against the floor, in turns.
//
// Both servers run already.  FOLDER holds their process ids (daemon.pid, floor-ROW.pid) and, where
// there are control groups, the folders of those (daemon.group, floor.group).  Exits 1 when one
// answer was not, byte for byte, what it should have been.
#include <getopt.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "bench/admin.h"
#include "bench/client.h"
#include "bench/report.h"
#include "bench/rows.h"
#include "bench/server.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int64_t kMillisecond = 1'000'000;
constexpr std::int64_t kBurstLimit = 2'200 * kMillisecond;  // a SYN is repeated each second
constexpr int kBursts[] = {10, 50, 200};
constexpr int kBurstRounds = 7;
constexpr const char *kBurstRow = "query-10";
constexpr int kWarmUps = 200;
constexpr useconds_t kSettle = 5'000;         // until ended children have been accounted for
constexpr std::size_t kHugeAnswer = 150'000;  // bytes that the sockets between do not hold

constexpr option kOptions[] = {
    {"rounds", required_argument, nullptr, 'r'}, {"clients", required_argument, nullptr, 'c'},
    {"slice", required_argument, nullptr, 's'},  {"level", required_argument, nullptr, 'l'},
    {"peers", required_argument, nullptr, 'p'},  {"label", required_argument, nullptr, 'n'},
    {"no-head", no_argument, nullptr, 'N'},      {"bursts", no_argument, nullptr, 'b'},
    {"memory", no_argument, nullptr, 'm'},       {nullptr, 0, nullptr, 0}};

struct Plan {
  std::string folder;
  std::vector<Row> rows;
  std::vector<int> clients = {1, 16};
  int rounds = 35;
  std::int64_t slice = 100 * kMillisecond;
  std::string level = "WARNING";
  int peers = 0;
  std::string label;  // in place of a row's name
  bool head = true;
  bool bursts = false;
  bool memory = false;
};

std::string groups[kSides];
long wrong = 0;

// Of a list with commas; "none" has none.
std::vector<int> Numbers(const std::string &list) {
  if (list == "none") return {};
  std::vector<int> numbers;
  for (std::size_t at = 0; at < list.size(); at = std::min(list.find(',', at), list.size() - 1) + 1)
    numbers.push_back(std::atoi(list.c_str() + at));
  return numbers;
}

Plan ReadPlan(int argc, char **argv) {
  Plan plan;
  for (int found; (found = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
    switch (found) {
      case 'r': plan.rounds = std::atoi(optarg); break;
      case 'c': plan.clients = Numbers(optarg); break;
      case 's': plan.slice = std::atoi(optarg) * kMillisecond; break;
      case 'l': plan.level = optarg; break;
      case 'p': plan.peers = std::atoi(optarg); break;
      case 'n': plan.label = optarg; break;
      case 'N': plan.head = false; break;
      case 'b': plan.bursts = true; break;
      case 'm': plan.memory = true; break;
      default: std::exit(EX_USAGE);
    }
  }
  if (argc - optind < 2) {
    std::fprintf(stderr, "usage: korvo-load [OPTION]... FOLDER ROW...\n");
    std::exit(EX_USAGE);
  }
  plan.folder = argv[optind];
  for (int i = optind + 1; i < argc; ++i) plan.rows.push_back(Row_Make(argv[i], plan.folder));
  return plan;
}

// The floor serves each row on a port of its own.
int PortOf(Side side, std::size_t row) {
  return side == kDaemon ? kDaemonPort : kFloorPort + 2 * static_cast<int>(row);
}

void Count(const Plan &plan, std::size_t row, Side side, const Outcome &outcome) {
  if (outcome.wrong == 0) return;
  wrong += outcome.wrong;
  std::fprintf(stderr, "load: %s, %s: %ld wrong: %s\n", plan.rows[row].name.c_str(),
               kSideNames[side], outcome.wrong, outcome.complaint.c_str());
}

// Asks until the answer is right, since servers start and announcements arrive when they do.
void WarmUp(const Plan &plan) {
  for (std::size_t row = 0; row < plan.rows.size(); ++row) {
    for (const Side side : {kFloor, kDaemon}) {
      Outcome outcome;
      for (int i = 0; i < kWarmUps; ++i) {
        outcome = Client_Burst(PortOf(side, row), plan.rows[row].client, 1, kBurstLimit);
        if (outcome.latencies.size() == 1) break;
        usleep(20'000);
      }
      if (outcome.latencies.size() == 1) continue;
      Count(plan, row, side, outcome);
      std::exit(1);
    }
  }
}

template <typename Run>
void Measure(const Plan &plan, std::size_t row, Side side, Series *series, Run run) {
  const double cpu = Server_Cpu(groups[side]);
  const Clock::time_point begin = Clock::now();
  const Outcome outcome = run(PortOf(side, row), plan.rows[row].client);
  const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  usleep(kSettle);
  Count(plan, row, side, outcome);
  const double used = cpu < 0 ? -1 : Server_Cpu(groups[side]) - cpu;
  Report_Add(series, side, outcome, seconds, used);
}

// One round: both sides, and the one that was second the last time first.
template <typename Run>
void MeasureBoth(const Plan &plan, std::size_t row, int round, Series *series, Run run) {
  const Side first = round % 2 == 0 ? kFloor : kDaemon;
  Measure(plan, row, first, series, run);
  Measure(plan, row, first == kFloor ? kDaemon : kFloor, series, run);
}

void Progress(const char *what, int round, int rounds) {
  if (isatty(STDERR_FILENO) == 1)
    std::fprintf(stderr, "\r%s, round %d of %d \r", what, round, rounds);
}

void ClosedLoops(const Plan &plan) {
  std::vector<Series> table;
  for (int round = 0; round < plan.rounds; ++round) {
    Progress("closed loops", round + 1, plan.rounds);
    std::size_t line = 0;
    for (std::size_t row = 0; row < plan.rows.size(); ++row) {
      for (const int clients : plan.clients) {
        if (round == 0)
          table.push_back({plan.label.empty() ? plan.rows[row].name : plan.label, clients, {}, {}});
        MeasureBoth(plan, row, round, &table[line++], [&](int port, const Exchange &exchange) {
          return Client_Closed(port, exchange, clients, plan.slice);
        });
      }
    }
  }
  if (plan.head) Report_ClosedHead();
  for (const Series &series : table) Report_Closed(series);
}

void Bursts(const Plan &plan) {
  std::size_t row = 0;
  while (row < plan.rows.size() && plan.rows[row].name != kBurstRow) ++row;
  if (row == plan.rows.size()) return;
  std::printf("\nBursts of %s: that many connections at once, given up after %.1f seconds\n\n",
              kBurstRow, static_cast<double>(kBurstLimit) / 1e9);
  Report_BurstHead();
  for (const int clients : kBursts) {
    Series series = {kBurstRow, clients, {}, {}};
    for (int round = 0; round < kBurstRounds; ++round) {
      Progress("bursts", round + 1, kBurstRounds);
      MeasureBoth(plan, row, round, &series, [&](int port, const Exchange &exchange) {
        return Client_Burst(port, exchange, clients, kBurstLimit);
      });
    }
    Report_Burst(series);
  }
}

// A client that sends its request, or nothing, and reads nothing.
int SlowClient(int port, const std::string &request) {
  const int sock = socket(AF_INET, SOCK_STREAM, 0);
  const int size = 4096;
  setsockopt(sock, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<std::uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(sock, reinterpret_cast<const sockaddr *>(&addr), sizeof addr) != 0 ||
      (!request.empty() && send(sock, request.data(), request.size(), MSG_NOSIGNAL) < 0))
    std::perror("load: slow client");
  return sock;
}

// The private memory of the child that serves such a client, once it does not grow any more.
long ChildMemory(int pid, int port, const std::string &request) {
  const int sock = SlowClient(port, request);
  const int child = Server_AwaitChild(pid);
  long before = -2;
  Memory memory;
  for (int i = 0; i < 50 && memory.private_dirty != before; ++i) {
    before = memory.private_dirty;
    usleep(100'000);
    memory = Server_Memory(child);
  }
  close(sock);
  usleep(100'000);  // until the child has noticed
  return memory.private_dirty;
}

void MemoryTable(const Plan &plan) {
  std::size_t row = 0;
  for (std::size_t i = 0; i < plan.rows.size(); ++i)
    if (plan.rows[i].client.answer.size() > plan.rows[row].client.answer.size()) row = i;
  std::printf(
      "\nMemory in kilobytes\n\n"
      "| server | main process, resident | its peak | private of it | private of a waiting child | private of a child in %s |\n"
      "|--------|------:|------:|------:|------:|------:|\n",
      plan.rows[row].name.c_str());
  for (const Side side : {kFloor, kDaemon}) {
    const std::string file = side == kDaemon ? "daemon" : "floor-" + plan.rows[row].name;
    const int pid = Server_ReadPid(plan.folder + "/" + file + ".pid");
    const int port = PortOf(side, row);
    const Memory memory = Server_Memory(pid);
    const long waiting = ChildMemory(pid, port, "");
    const bool huge = plan.rows[row].client.answer.size() >= kHugeAnswer;
    const long at_work = huge ? ChildMemory(pid, port, plan.rows[row].client.request) : -1;
    std::printf("| %-6s | %ld | %ld | %ld | %ld | %s |\n", kSideNames[side], memory.resident,
                memory.peak, memory.private_dirty, waiting,
                huge ? std::to_string(at_work).c_str() : "-");
  }
}

}  // namespace

int main(int argc, char **argv) {
  const Plan plan = ReadPlan(argc, argv);
  for (const Side side : {kFloor, kDaemon})
    std::ifstream(plan.folder + "/" + kSideNames[side] + ".group") >> groups[side];
  {
    Admin admin;
    admin.Announce(plan.peers);
    admin.SetLevel(plan.level);
  }
  WarmUp(plan);
  if (plan.rounds > 0 && !plan.clients.empty()) ClosedLoops(plan);
  if (plan.bursts) Bursts(plan);
  if (plan.memory) MemoryTable(plan);
  if (wrong == 0) return 0;
  std::fprintf(stderr, "load: %ld requests were not answered as they should be\n", wrong);
  return 1;
}
