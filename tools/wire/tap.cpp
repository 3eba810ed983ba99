// korvo-wire tap: a relay that tells what passes.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sysexits.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <list>
#include <string>
#include <utility>

#include "tools/common/tool.h"
#include "tools/wire/commands.h"
#include "tools/wire/exchange.h"
#include "tools/wire/lines.h"
#include "tools/wire/recorder.h"

namespace {

using Clock = ExchangeClock;

constexpr const char *kClientResets = "client resets";
constexpr const char *kServerResets = "client < reset";
constexpr std::size_t kHeld = 1 << 20;  // bytes for a reader that is slow; its writer waits
constexpr int kPauseMs = 100;           // where there is no descriptor for a connection

struct Pair;

struct Side {
  Pair *pair = nullptr;
  int sock = -1;
  std::uint32_t watched = 0;  // events that wake the loop
  std::string out;            // has yet to be sent there
  bool ended = false;         // nothing more comes from there
  bool shut = false;          // and the other side knows it
};

// An exchange and its two connections.
struct Pair {
  Side client, server;
  bool connected = false, over = false;
  Exchange exchange;
};

struct Tap {
  sockaddr_in own = {}, forward = {};
  std::string folder;
  bool redact = false;
  int listener = -1, epoll = -1;
  int count = 0;
  bool is_full = false;  // there is no descriptor for another connection
  bool is_over = false;  // an exchange is
  Clock::time_point begin;
  std::list<Pair> pairs;
};

constexpr option kOptions[] = {{"record", required_argument, nullptr, 'r'},
                               {"redact", no_argument, nullptr, 'x'},
                               {"help", no_argument, nullptr, 'h'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

// What is lost of the recording and of the output is said once, and holds nobody.
void Lose(const std::string &what, const char *why) {
  static std::atomic_flag said;
  if (!said.test_and_set())
    Tool_Warn("cannot write %s: %s; what cannot be written is left out", what.c_str(), why);
}

void Finish(Tap *tap, Pair *pair, const char *end) {
  if (pair->over) return;
  pair->over = tap->is_over = true;
  pair->exchange.end = end;
  pair->exchange.last = Clock::now();
  if (tap->folder.empty())
    Lines_Add(Exchange_Json(pair->exchange));
  else
    Recorder_Add(std::move(pair->exchange));
}

// Passes a reset on.
void Break(Tap *tap, Pair *pair, const char *step, const char *end) {
  const linger now = {1, 0};
  for (const int sock : {pair->client.sock, pair->server.sock})
    setsockopt(sock, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  Exchange_Note(&pair->exchange, step);
  Finish(tap, pair, end);
}

void BreakOffClient(Tap *tap, Pair *pair) { Break(tap, pair, kClientResets, "reset"); }
void BreakOffServer(Tap *tap, Pair *pair) { Break(tap, pair, kServerResets, "reset"); }

// Sends what there is; false: that side is gone.
bool Flush(Side *side) {
  while (!side->out.empty()) {
    const ssize_t sent = send(side->sock, side->out.data(), side->out.size(), MSG_NOSIGNAL);
    if (sent < 0) return errno == EAGAIN || errno == EINTR;
    side->out.erase(0, static_cast<std::size_t>(sent));
  }
  return true;
}

// What has come from one side goes to the other at once.
void Pass(Tap *tap, Pair *pair, Side *from, Side *to) {
  char buffer[65536];
  const ssize_t got = recv(from->sock, buffer, sizeof buffer, 0);
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
  const bool asks = from == &pair->client;
  if (got < 0) return asks ? BreakOffClient(tap, pair) : BreakOffServer(tap, pair);
  if (got == 0) {
    from->ended = true;
    return Exchange_Note(&pair->exchange, asks ? "client half-closes" : "client < end");
  }
  const std::string_view bytes(buffer, static_cast<std::size_t>(got));
  to->out += bytes;
  const bool sent = !pair->connected || Flush(to);
  asks ? Exchange_TakeRequest(&pair->exchange, bytes) : Exchange_TakeAnswer(&pair->exchange, bytes);
  if (!sent) asks ? BreakOffServer(tap, pair) : BreakOffClient(tap, pair);
}

void ShutWhatEnded(Tap *tap, Pair *pair) {
  Side *const sides[] = {&pair->client, &pair->server};
  for (int i = 0; i < 2; ++i) {
    Side *from = sides[i], *to = sides[1 - i];
    if (!from->ended || from->shut || !to->out.empty() || !pair->connected) continue;
    from->shut = true;
    shutdown(to->sock, SHUT_WR);
  }
  // The daemon reads one line and closes behind its answer; a client that stays is let go.
  if (pair->server.shut) Finish(tap, pair, "closed");
}

void Connected(Tap *tap, Pair *pair) {
  int err = 0;
  socklen_t size = sizeof err;
  getsockopt(pair->server.sock, SOL_SOCKET, SO_ERROR, &err, &size);
  if (err != 0) return Break(tap, pair, kServerResets, "refused");
  pair->connected = true;
  pair->exchange.connected = Clock::now();
  if (!Flush(&pair->server)) BreakOffServer(tap, pair);
}

void Prepare(int sock) {
  const int on = 1;
  setsockopt(sock, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// False: nobody waits, or there is no descriptor for whoever does.
bool Accept(Tap *tap) {
  const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int client =
      server < 0 ? -1 : accept4(tap->listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (client < 0) {
    tap->is_full = errno != EAGAIN;
    if (server >= 0) close(server);
    return false;
  }
  Prepare(client);
  Prepare(server);
  Pair *pair = &tap->pairs.emplace_back();
  pair->client.pair = pair->server.pair = pair;
  pair->client.sock = client;
  pair->server.sock = server;
  pair->exchange.number = ++tap->count;
  pair->exchange.redacted = tap->redact;
  pair->exchange.recorded = !tap->folder.empty();
  Exchange_Begin(&pair->exchange,
                 std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - tap->begin));
  if (connect(server, reinterpret_cast<const sockaddr *>(&tap->forward), sizeof tap->forward) == 0)
    Connected(tap, pair);
  else if (errno != EINPROGRESS)
    Break(tap, pair, kServerResets, "refused");
  return true;
}

std::uint32_t EventsOf(const Side &side, const Side &other) {
  std::uint32_t events = 0;
  if (!side.pair->connected && &side == &side.pair->server) return EPOLLOUT;
  if (!side.ended && other.out.size() < kHeld) events |= EPOLLIN;
  if (!side.out.empty()) events |= EPOLLOUT;
  return events;
}

// A side that has ended and has nothing to take is left alone: it would wake this for ever.
void Watch(const Tap &tap, Side *side, std::uint32_t events) {
  if (side->watched == events) return;
  const int change = side->watched == 0 ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
  epoll_event wanted = {events, {.ptr = side}};
  epoll_ctl(tap.epoll, events == 0 ? EPOLL_CTL_DEL : change, side->sock, &wanted);
  side->watched = events;
}

void WatchBoth(const Tap &tap, Pair *pair) {
  if (pair->over) return;
  Watch(tap, &pair->client, EventsOf(pair->client, pair->server));
  Watch(tap, &pair->server, EventsOf(pair->server, pair->client));
}

void Serve(Tap *tap, Side *side, std::uint32_t events) {
  Pair *pair = side->pair;
  const bool asks = side == &pair->client;
  if (pair->over) return;
  if (!asks && !pair->connected)
    Connected(tap, pair);
  else if ((events & EPOLLOUT) != 0 && !Flush(side))
    asks ? BreakOffClient(tap, pair) : BreakOffServer(tap, pair);
  if (!pair->over && (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0 && !side->ended)
    Pass(tap, pair, side, asks ? &pair->server : &pair->client);
  if (!pair->over) ShutWhatEnded(tap, pair);
  WatchBoth(*tap, pair);
}

// Nobody is asked to wait in the queue while there is no descriptor.
void WatchListener(const Tap &tap) {
  epoll_event wanted = {tap.is_full ? 0U : std::uint32_t{EPOLLIN}, {.ptr = nullptr}};
  epoll_ctl(tap.epoll, EPOLL_CTL_MOD, tap.listener, &wanted);
}

void AcceptAll(Tap *tap) {
  while (Accept(tap)) WatchBoth(*tap, &tap->pairs.back());
  if (tap->is_full) WatchListener(*tap);
}

void Sweep(Tap *tap) {
  tap->is_over = false;
  tap->pairs.remove_if([](const Pair &pair) {
    if (!pair.over) return false;
    close(pair.client.sock);
    close(pair.server.sock);
    return true;
  });
}

void Turn(Tap *tap) {
  epoll_event events[64];
  const int woken = epoll_wait(tap->epoll, events, std::size(events), tap->is_full ? kPauseMs : -1);
  if (std::exchange(tap->is_full, false)) WatchListener(*tap);
  for (int i = 0; i < woken; ++i) {
    if (events[i].data.ptr == nullptr)
      AcceptAll(tap);
    else
      Serve(tap, static_cast<Side *>(events[i].data.ptr), events[i].events);
  }
  if (tap->is_over) Sweep(tap);
}

Tap ReadCommand(int argc, char **argv) {
  Tap tap;
  for (int letter; (letter = Tool_NextOption(argc, argv, ":", kOptions)) != -1;) {
    if (letter == 'r') tap.folder = optarg;
    if (letter == 'x') tap.redact = true;
    Wire_TakeInfo(letter);
  }
  if (argc - optind != 2)
    Tool_Fail(EX_USAGE, "tap takes where to listen and where to forward to, both HOST:PORT");
  tap.own = Wire_Address(argv[optind], "LISTEN");
  tap.forward = Wire_Address(argv[optind + 1], "FORWARD");
  return tap;
}

}  // namespace

int Wire_Tap(int argc, char **argv) {
  Tap tap = ReadCommand(argc, argv);
  const int on = 1;
  tap.listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  setsockopt(tap.listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(tap.listener, reinterpret_cast<const sockaddr *>(&tap.own), sizeof tap.own) != 0 ||
      listen(tap.listener, SOMAXCONN) != 0)
    Tool_Fail(EX_UNAVAILABLE, "cannot listen on port %d: %s", ntohs(tap.own.sin_port),
              std::strerror(errno));
  std::error_code error;
  if (!tap.folder.empty()) std::filesystem::create_directories(tap.folder, error);
  if (error)
    Tool_Fail(EX_CANTCREAT, "cannot make %s: %s", tap.folder.c_str(), error.message().c_str());
  // Two descriptors an exchange.
  rlimit files = {};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
  signal(SIGPIPE, SIG_IGN);  // nobody is held by a reader that goes, either
  Lines_Start([](const char *why) { Lose("to standard output", why); });
  if (!tap.folder.empty()) {
    tap.count = Recorder_HighestNumber(tap.folder);
    Recorder_Start(tap.folder, Lose);
  }
  tap.epoll = epoll_create1(EPOLL_CLOEXEC);
  epoll_event wanted = {EPOLLIN, {.ptr = nullptr}};
  epoll_ctl(tap.epoll, EPOLL_CTL_ADD, tap.listener, &wanted);
  tap.begin = Clock::now();
  for (;;) Turn(&tap);
}
