#include "bench/player.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void Fail(const char *call) {
  std::perror(call);
  std::exit(1);
}

void SetOption(int sock, int level, int option, int value) {
  if (setsockopt(sock, level, option, &value, sizeof value) != 0) Fail("setsockopt");
}

// Connections are accepted once their request is there: one wake-up an exchange.  The send buffer,
// which they inherit, takes the longest answer whole.
int Listen(int port) {
  const int sock = socket(AF_INET, SOCK_STREAM, 0);
  if (sock < 0) Fail("socket");
  SetOption(sock, SOL_SOCKET, SO_REUSEADDR, 1);
  SetOption(sock, SOL_SOCKET, SO_SNDBUF, 1 << 18);
  SetOption(sock, IPPROTO_TCP, TCP_DEFER_ACCEPT, 1);
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<std::uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(sock, reinterpret_cast<const sockaddr *>(&addr), sizeof addr) != 0) Fail("bind");
  if (listen(sock, 4096) != 0) Fail("listen");
  return sock;
}

void Serve(int sock, const Answers &answers) {
  char request[4096];
  const ssize_t got = recv(sock, request, sizeof request, MSG_DONTWAIT);
  if (got <= 0) return;
  const std::string text(request, static_cast<std::size_t>(got));
  const auto answer = answers.find(text);
  if (answer == answers.end()) {
    std::fprintf(stderr, "managers: unexpected request: %s\n", text.c_str());
    return;
  }
  const std::string &bytes = answer->second;
  // The end of the connection travels with the last bytes, so that nobody can close before.
  if (send(sock, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_MORE) !=
      static_cast<ssize_t>(bytes.size()))
    std::perror("managers: send");
}

}  // namespace

void Player_Run(const std::vector<int> &ports, const Answers &answers, const std::string &ready) {
  std::signal(SIGPIPE, SIG_IGN);
  const int events = epoll_create1(0);
  if (events < 0) Fail("epoll_create1");
  for (const int port : ports) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = Listen(port);
    if (epoll_ctl(events, EPOLL_CTL_ADD, event.data.fd, &event) != 0) Fail("epoll_ctl");
  }
  std::FILE *file = std::fopen(ready.c_str(), "w");
  if (file == nullptr || std::fclose(file) != 0) Fail("ready");
  for (;;) {
    epoll_event event;
    if (epoll_wait(events, &event, 1, -1) != 1) continue;
    const int sock = accept(event.data.fd, nullptr, nullptr);
    if (sock < 0) continue;
    Serve(sock, answers);
    close(sock);
  }
}
