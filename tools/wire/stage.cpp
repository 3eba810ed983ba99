#include "tools/wire/stage.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace {

bool Bind(int sock, const sockaddr_in &address) {
  return bind(sock, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

int Socket(int type) { return socket(AF_INET, type | SOCK_CLOEXEC, 0); }

bool IsFree(int port) {
  const int tcp = Socket(SOCK_STREAM), udp = Socket(SOCK_DGRAM);
  const bool is_free = Bind(tcp, Stage_Loopback(port)) && Bind(udp, Stage_Loopback(port));
  close(tcp);
  close(udp);
  return is_free;
}

// An abstract name is exclusive and goes with the process.
int Claim(int port) {
  sockaddr_un name = {};
  name.sun_family = AF_UNIX;
  const std::string text = "korvo-test-port-" + std::to_string(port);
  std::memcpy(name.sun_path + 1, text.data(), text.size());
  const int claim = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
  if (bind(claim, reinterpret_cast<const sockaddr *>(&name), size) == 0) return claim;
  close(claim);
  return -1;
}

std::string Error(const char *what) { return std::string(what) + ": " + std::strerror(errno); }

bool IsRole(const std::string &name, const char *role) {
  return name.substr(0, name.find('-')) == role;
}

bool Listens(Role subject, const std::string &name) {
  if (subject == Role::kClient) return IsRole(name, "daemon");
  return subject == Role::kDaemon && (IsRole(name, "searchmgr") || IsRole(name, "docmgr"));
}

bool IsSame(const sockaddr_in &a, const sockaddr_in &b) {
  return a.sin_port == b.sin_port && a.sin_addr.s_addr == b.sin_addr.s_addr;
}

bool Wait(int sock, short events, int wait_ms) {
  pollfd ready = {sock, events, 0};
  return poll(&ready, 1, wait_ms) > 0;
}

}  // namespace

sockaddr_in Stage_Loopback(int port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

int Stage_MsSince(std::chrono::steady_clock::time_point begin) {
  const auto since = std::chrono::steady_clock::now() - begin;
  return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}

int Stage_ReservePort(Stage *stage) {
  constexpr int kFirst = 20000, kCount = 12000;
  static int next = static_cast<int>(getpid()) * 13 % kCount;
  for (int tried = 0; tried < kCount; ++tried) {
    next = (next + 1) % kCount;
    const int claim = Claim(kFirst + next);
    if (claim < 0) continue;
    if (IsFree(kFirst + next)) {
      stage->claims.push_back(claim);
      return kFirst + next;
    }
    close(claim);
  }
  return 0;
}

int Stage_Listen(Stage *stage, in_addr address, int *port) {
  if (*port == 0) *port = Stage_ReservePort(stage);
  sockaddr_in own = Stage_Loopback(*port);
  own.sin_addr = address;
  const int sock = Socket(SOCK_STREAM), on = 1;
  setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (*port != 0 && Bind(sock, own) && listen(sock, 128) == 0) return sock;
  close(sock);
  return -1;
}

bool Stage_Enter(Stage *stage, const std::string &name) {
  Actor &actor = stage->actors[name];
  int port = 0;
  if (IsRole(name, "admin")) {
    // The service answers no port above 32767.
    actor.datagrams = true;
    actor.sock = Socket(SOCK_DGRAM);
    port = Stage_ReservePort(stage);
    stage->scene.ports[name] = port;
    return port != 0 && Bind(actor.sock, Stage_Loopback(port));
  }
  actor.listens = Listens(stage->subject, name);
  if (!actor.listens) return true;
  actor.listener = Stage_Listen(stage, {htonl(INADDR_LOOPBACK)}, &port);
  stage->scene.ports[name] = port;
  return actor.listener >= 0;
}

bool Stage_Connect(Stage *stage, Actor *actor, std::string *why) {
  if (actor->sock >= 0) return true;
  actor->came.clear();
  actor->ended = actor->reset = actor->heard = false;
  if (!actor->listens) {
    actor->sock = Socket(SOCK_STREAM);
    if (connect(actor->sock, reinterpret_cast<const sockaddr *>(&stage->client_port),
                sizeof stage->client_port) == 0)
      return true;
    *why = Error("cannot connect");
    close(actor->sock);
    actor->sock = -1;
    return false;
  }
  if (actor->listener < 0 || !Wait(actor->listener, POLLIN, stage->patience)) {
    *why = "nobody connected";
    return false;
  }
  actor->sock = accept4(actor->listener, nullptr, nullptr, SOCK_CLOEXEC);
  return actor->sock >= 0;
}

bool Stage_Send(Stage *stage, Actor *actor, const std::string &bytes, std::string *why) {
  if (actor->datagrams) {
    const ssize_t sent =
        sendto(actor->sock, bytes.data(), bytes.size(), 0,
               reinterpret_cast<const sockaddr *>(&stage->admin_port), sizeof stage->admin_port);
    actor->peer = stage->admin_port;
    // A port that nobody has any more is found out by the answer that does not come.
    if (sent < 0 && errno != ECONNREFUSED) *why = Error("cannot send");
    return sent >= 0 || errno == ECONNREFUSED;
  }
  const auto begin = std::chrono::steady_clock::now();
  while (actor->listens && !actor->heard)
    if (!Stage_Receive(actor, std::max(0, stage->patience - Stage_MsSince(begin)))) break;
  std::size_t done = 0;
  while (done < bytes.size()) {
    if (!Wait(actor->sock, POLLOUT, stage->patience)) {
      *why = "nobody reads what is sent";
      return false;
    }
    const ssize_t sent =
        send(actor->sock, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && errno != EAGAIN && errno != EINTR) {
      *why = Error("cannot send");
      return false;
    }
    if (sent > 0) done += static_cast<std::size_t>(sent);
  }
  return true;
}

bool Stage_Receive(Actor *actor, int wait_ms) {
  if (actor->ended) return true;
  if (!Wait(actor->sock, POLLIN, wait_ms)) return false;
  char buffer[65536];
  sockaddr_in sender = {};
  socklen_t size = sizeof sender;
  const ssize_t got =
      recvfrom(actor->sock, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr *>(&sender), &size);
  if (actor->datagrams && (got <= 0 || !IsSame(sender, actor->peer))) return true;
  if (got > 0) {
    const std::string_view bytes(buffer, static_cast<std::size_t>(got));
    actor->came.append(bytes);
    actor->heard = actor->heard || bytes.find('\n') != std::string_view::npos;
    return true;
  }
  actor->ended = actor->heard = got == 0 || errno != EINTR;
  actor->reset = got < 0 && errno == ECONNRESET;
  return true;
}

void Stage_Part(Actor *actor, bool reset) {
  const linger now = {1, 0};
  if (reset) setsockopt(actor->sock, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  if (actor->sock >= 0) close(actor->sock);
  actor->sock = -1;
  actor->came.clear();
}

void Stage_Leave(Actor *actor) {
  if (actor->listener >= 0) close(actor->listener);
  actor->listener = -1;
}

void Stage_Close(Stage *stage) {
  for (auto &[name, actor] : stage->actors) {
    Stage_Part(&actor, false);
    Stage_Leave(&actor);
  }
  stage->actors.clear();
  for (const int claim : stage->claims) close(claim);
  stage->claims.clear();
}
