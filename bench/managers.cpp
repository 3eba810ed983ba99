// korvo-bench-managers FOLDER ROW...: plays the Search Manager and the Document Manager of the
// rows.
//
// Writes the files of the rows, then answers each request that they know with an answer made
// beforehand and closes first, so that the ports in TIME_WAIT are its own.  A request with one byte
// different is reported and gets no answer.  FOLDER/ready says that it listens.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unordered_map>

#include "bench/rows.h"

namespace {

std::unordered_map<std::string, std::string> answers;

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

void Serve(int sock) {
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

int main(int argc, char **argv) {
  if (argc < 3) return 64;
  std::signal(SIGPIPE, SIG_IGN);
  for (int i = 2; i < argc; ++i) {
    const Row row = Row_Make(argv[i], argv[1]);
    Row_WriteFiles(row);
    if (!row.search.request.empty()) answers[row.search.request] = row.search.answer;
    if (!row.document.request.empty()) answers[row.document.request] = row.document.answer;
  }
  const int events = epoll_create1(0);
  if (events < 0) Fail("epoll_create1");
  for (const int port : {kSearchPort, kDocPort}) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = Listen(port);
    if (epoll_ctl(events, EPOLL_CTL_ADD, event.data.fd, &event) != 0) Fail("epoll_ctl");
  }
  if (std::fclose(std::fopen((std::string(argv[1]) + "/ready").c_str(), "w")) != 0) Fail("ready");
  for (;;) {
    epoll_event ready[2];
    const int count = epoll_wait(events, ready, 2, -1);
    for (int i = 0; i < count; ++i) {
      const int sock = accept(ready[i].data.fd, nullptr, nullptr);
      if (sock < 0) continue;
      Serve(sock);
      close(sock);
    }
  }
}
