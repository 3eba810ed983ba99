#include "web/server.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "debug/fd_guard.h"
#include "web/visit.h"

namespace {

constexpr std::size_t kMemory =
    16384;  // of a connection: a longer header is refused by the library
constexpr int kBacklog = 1024;
constexpr int kLongestWait = 60000;  // milliseconds, while nothing is due

std::chrono::seconds Seconds(std::int32_t count) { return std::chrono::seconds(count); }

// What the library tells.

void *TakeTarget(void *cls, const char *target, MHD_Connection *connection) {
  auto *server = static_cast<Server *>(cls);
  const MHD_ConnectionInfo *info =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
  Visit &visit = server->visits.emplace_back();
  visit.self = std::prev(server->visits.end());
  visit.server = server;
  visit.connection = connection;
  visit.browser = static_cast<Browser *>(info->socket_context);
  visit.target = target;
  visit.arrived = WebClock::now();
  return &visit;
}

MHD_Result TakeRequest(void *, MHD_Connection *, const char *, const char *method, const char *,
                       const char *, std::size_t *size, void **context) {
  auto *visit = static_cast<Visit *>(*context);
  visit->head = std::strcmp(method, "HEAD") == 0;
  const bool refused = !visit->head && std::strcmp(method, "GET") != 0;
  if (!refused && (!visit->complete || *size > 0)) {  // a body is not read
    if (!visit->complete) visit->arrived = WebClock::now();
    visit->complete = true;
    *size = 0;
    return MHD_YES;
  }
  visit->browser->visiting = true;
  return (refused ? Visit_Refuse(visit) : Visit_Serve(visit)) ? MHD_YES : MHD_NO;
}

void EndRequest(void *, MHD_Connection *, void **context, MHD_RequestTerminationCode) {
  auto *visit = static_cast<Visit *>(*context);
  if (visit == nullptr) return;
  Browser *browser = visit->browser;
  std::list<Browser> &browsers = visit->server->browsers;
  browser->visiting = false;
  browser->since = WebClock::now();
  browsers.splice(browsers.end(), browsers, browser->self);
  Visit_Finish(visit);
  *context = nullptr;
}

std::string AddressText(const sockaddr *address) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(address)->sin_addr, text, sizeof text);
  return text;
}

std::string AddressOf(MHD_Connection *connection) {
  return AddressText(
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS)->client_addr);
}

// Whether a browser of that address may connect.
MHD_Result Admit(void *cls, const sockaddr *from, socklen_t) {
  const auto *server = static_cast<const Server *>(cls);
  const std::string address = AddressText(from);
  const auto most = server->conf.client_connections;
  if (most == 0 || Rates_IsFree(address)) return MHD_YES;
  const auto open =
      std::count_if(server->browsers.begin(), server->browsers.end(),
                    [&address](const Browser &browser) { return browser.address == address; });
  return open < most ? MHD_YES : MHD_NO;
}

void TakeConnection(void *cls, MHD_Connection *connection, void **context,
                    MHD_ConnectionNotificationCode code) {
  auto *server = static_cast<Server *>(cls);
  if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
    server->browsers.erase(static_cast<Browser *>(*context)->self);
    server->freed = true;
    return;
  }
  const int fd = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
  server->browsers.push_back({fd, AddressOf(connection), WebClock::now(), false, {}});
  server->browsers.back().self = std::prev(server->browsers.end());
  *context = &server->browsers.back();
}

sockaddr_in AddressFrom(const std::string &address, std::int32_t port) {
  sockaddr_in found = {};
  found.sin_family = AF_INET;
  found.sin_port = htons(static_cast<std::uint16_t>(port));
  inet_pton(AF_INET, address.c_str(), &found.sin_addr);
  return found;
}

// The socket that listens; -1, and errno.
int OpenListener(const WebConf &conf) {
  const sockaddr_in own = AddressFrom(conf.listen_address, conf.listen_port);
  FdGuard listener(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (listener.Get() < 0) return -1;
  const int on = 1;
  setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const bool listens =
      bind(listener.Get(), reinterpret_cast<const sockaddr *>(&own), sizeof own) == 0 &&
      listen(listener.Get(), kBacklog) == 0;
  return listens ? listener.Release() : -1;
}

// Not every version of the library leaves the reason of a failure in errno, so it is given a socket
// that listens.
bool Listen(Server *server) {
  const WebConf &conf = server->conf;
  const int listener = OpenListener(conf);
  if (listener < 0) return false;
  server->http = MHD_start_daemon(
      MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, 0, Admit, server, TakeRequest, server,
      MHD_OPTION_LISTEN_SOCKET, listener, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMemory,
      MHD_OPTION_CONNECTION_LIMIT, static_cast<unsigned>(conf.clients), MHD_OPTION_URI_LOG_CALLBACK,
      TakeTarget, server, MHD_OPTION_NOTIFY_COMPLETED, EndRequest, server,
      MHD_OPTION_NOTIFY_CONNECTION, TakeConnection, server, MHD_OPTION_END);
  return server->http != nullptr;
}

// The loop.

// A browser whose time is over is closed; the library sees its end.
void CutOff(Server *server, WebTime now) {
  for (Browser &browser : server->browsers) {
    if (browser.visiting) continue;
    if (browser.since + Seconds(server->conf.sender_time) > now) break;
    shutdown(browser.fd, SHUT_RDWR);
  }
  const auto limit =
      std::chrono::milliseconds(server->conf.deadline) + Seconds(server->conf.reader_time);
  for (Visit &visit : server->visits) {
    if (visit.arrived + limit > now) continue;
    shutdown(visit.browser->fd, SHUT_RDWR);
    visit.left = true;
  }
}

// Whose descriptor an entry is; neither: the library's, or the signals'.
struct Watched {
  Exchange *exchange;  // its connection to the daemon
  Visit *visit;        // its browser, or its PING
};

struct Loop {
  Server *server;
  int signals;
  std::vector<pollfd> polled;    // open ones alone: poll refuses more than may be open
  std::vector<Watched> watched;  // an entry of polled each
  WebTime end;                   // of everything, once the server stops
};

void Watch(Loop *loop, int fd, short events, Watched watched) {
  if (fd < 0 || events == 0) return;
  loop->polled.push_back({fd, events, 0});
  loop->watched.push_back(watched);
}

void Collect(Loop *loop) {
  Server *server = loop->server;
  const MHD_DaemonInfo *info = MHD_get_daemon_info(server->http, MHD_DAEMON_INFO_EPOLL_FD);
  loop->polled.clear();
  loop->watched.clear();
  Watch(loop, info->epoll_fd, POLLIN, {});
  Watch(loop, loop->signals, POLLIN, {});
  // One that is held up is left out: poll would tell of its end again and again.
  for (Exchange *exchange : server->door.asking)
    Watch(loop, exchange->fd, Exchange_Events(*exchange), {exchange, nullptr});
  for (Visit &visit : server->visits) {
    if (!visit.suspended) continue;
    Watch(loop, visit.browser->fd, POLLRDHUP, {nullptr, &visit});
    Watch(loop, visit.health, POLLIN, {nullptr, &visit});
  }
}

void TakeSignals(Loop *loop) {
  signalfd_siginfo info = {};
  while (read(loop->signals, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    if (info.ssi_signo == SIGHUP)
      (void)Journal_Open(&loop->server->journal);
    else
      loop->server->stopping = true;
  }
}

void DispatchVisit(Server *server, Visit *visit, int fd) {
  if (fd == visit->health) return Visit_Resume(visit);
  visit->left = true;
  Door_Leave(&server->door, &visit->exchange);
}

void Dispatch(Loop *loop) {
  if (loop->polled[1].revents != 0) TakeSignals(loop);
  for (std::size_t i = 0; i < loop->polled.size(); ++i) {
    if (loop->polled[i].revents == 0) continue;
    const Watched &watched = loop->watched[i];
    if (watched.exchange != nullptr) Exchange_Step(watched.exchange);
    if (watched.visit != nullptr) DispatchVisit(loop->server, watched.visit, loop->polled[i].fd);
  }
}

// What is over, late or ready goes on.
void Advance(Server *server) {
  const WebTime now = WebClock::now();
  Door_Turn(&server->door, now);
  CutOff(server, now);
  for (Visit &visit : server->visits) {
    const bool late = visit.health >= 0 && visit.exchange.deadline <= now;
    if (visit.suspended && (late || Visit_IsReady(visit))) Visit_Resume(&visit);
  }
}

// When the next thing is due, in milliseconds.
int WaitTime(const Loop &loop, WebTime now) {
  const Server &server = *loop.server;
  if (server.freed) return 0;
  WebTime next = std::min(loop.end, now + std::chrono::milliseconds(kLongestWait));
  const auto cut =
      std::chrono::milliseconds(server.conf.deadline) + Seconds(server.conf.reader_time);
  for (const Visit &visit : server.visits) {
    if (visit.suspended) next = std::min(next, visit.exchange.deadline);
    next = std::min(next, visit.arrived + cut);
  }
  for (const Exchange *exchange : server.door.asking) next = std::min(next, exchange->deadline);
  for (const Browser &browser : server.browsers) {
    if (browser.visiting) continue;
    next = std::min(next, browser.since + Seconds(server.conf.sender_time));
    break;  // those behind it were heard of later
  }
  MHD_UNSIGNED_LONG_LONG own = 0;
  if (MHD_get_timeout(server.http, &own) == MHD_YES)
    next = std::min(next, now + std::chrono::milliseconds(own));
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - now);
  return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

void Turn(Loop *loop) {
  Collect(loop);
  // One that fails tells of nothing.
  (void)poll(loop->polled.data(), loop->polled.size(), WaitTime(*loop, WebClock::now()));
  Dispatch(loop);
  Advance(loop->server);
  loop->server->freed = false;
  MHD_run(loop->server->http);
  Advance(loop->server);  // a new request asks at once
}

// Requests that are not whole yet do not count.
bool IsServing(const Server &server) {
  return std::any_of(server.visits.begin(), server.visits.end(),
                     [](const Visit &visit) { return visit.begun; });
}

// No browser is accepted any more; the running requests have their deadline.
void Finish(Loop *loop) {
  Server *server = loop->server;
  close(MHD_quiesce_daemon(server->http));
  loop->end = WebClock::now() + std::chrono::milliseconds(server->conf.deadline);
  while (IsServing(*server) && WebClock::now() < loop->end) Turn(loop);
  for (Visit &visit : server->visits) {
    visit.left = true;
    Visit_Resume(&visit);
  }
  MHD_run(server->http);
  MHD_stop_daemon(server->http);
}

// Tells systemd, where it has asked for it.
void Notify(std::string_view state) {
  const char *path = std::getenv("NOTIFY_SOCKET");
  sockaddr_un to = {};
  to.sun_family = AF_UNIX;
  if (path == nullptr || std::strlen(path) >= sizeof to.sun_path) return;
  const std::size_t length = std::strlen(path);
  std::memcpy(to.sun_path, path, length);
  if (*path == '@') to.sun_path[0] = '\0';
  const int sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  (void)sendto(sock, state.data(), state.size(), MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr *>(&to),
               static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
  close(sock);
}

int CatchSignals() {
  sigset_t caught;
  sigemptyset(&caught);
  for (const int number : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&caught, number);
  sigprocmask(SIG_BLOCK, &caught, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  return signalfd(-1, &caught, SFD_NONBLOCK | SFD_CLOEXEC);
}

// A thousand browsers need more descriptors than a shell gives.  False: there are none for even
// one.
bool FindDescriptors(WebConf *conf, std::string *wrong) {
  constexpr std::int64_t kOthers = 64;  // the program's own, files and PINGs
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  const auto most = static_cast<std::int64_t>(std::min<rlim_t>(limit.rlim_cur, INT32_MAX));
  const std::int64_t left = most - conf->connections - kOthers;
  if (left <= 0) *wrong = std::to_string(most) + " descriptors are too few to serve anybody";
  if (left >= conf->clients || left <= 0) return left > 0;
  std::fprintf(stderr,
               "korvo-web: %d clients need more than the %d descriptors there are: %d are served\n",
               conf->clients, static_cast<int>(most), static_cast<int>(left));
  conf->clients = static_cast<std::int32_t>(left);
  return true;
}

}  // namespace

int Server_Run(const WebConf &conf, const Texts &texts, std::string *wrong) {
  Server server = {conf, texts, {}, {}, {}, {}, nullptr, {}, {}, false, false};
  server.door = {AddressFrom(conf.daemon_address, conf.daemon_port),
                 static_cast<std::size_t>(conf.connections),
                 static_cast<std::size_t>(conf.waiting),
                 {},
                 {}};
  server.rates = {
      static_cast<double>(conf.client_rate), static_cast<double>(conf.client_burst), {}};
  server.journal = {-1, conf.log, conf.log_queries == "yes"};
  if (!FindDescriptors(&server.conf, wrong)) return EX_OSERR;
  Loop loop = {&server, CatchSignals(), {}, {}, WebTime::max()};
  if (!Journal_Open(&server.journal)) {
    *wrong = conf.log + ": cannot be opened: " + std::strerror(errno);
    return EX_CANTCREAT;
  }
  if (!Listen(&server)) {
    *wrong = "cannot listen on " + conf.listen_address + " port " +
             std::to_string(conf.listen_port) + ": " + std::strerror(errno);
    return EX_UNAVAILABLE;
  }
  Notify("READY=1");
  while (!server.stopping) Turn(&loop);
  Notify("STOPPING=1");
  Finish(&loop);
  return EX_OK;
}
