#include "web/health.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>
#include <string_view>

#include "debug/fd_guard.h"

namespace {

// The daemon keeps ports in 16 signed bits, and a system gives higher ones.
constexpr int kFirstPort = 20000, kPorts = 12768;
constexpr int kTries = 20;

bool BindLow(int sock) {
  static std::minstd_rand chance(static_cast<unsigned>(getpid()));
  for (int i = 0; i < kTries; ++i) {
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_port =
        htons(static_cast<std::uint16_t>(kFirstPort + static_cast<int>(chance() % kPorts)));
    if (bind(sock, reinterpret_cast<const sockaddr *>(&own), sizeof own) == 0) return true;
  }
  return false;
}

}  // namespace

int Health_Ask(const WebConf &conf) {
  constexpr std::string_view kPing = "\t@COMMAND=PING\t@SEQNUM=1\n";
  FdGuard sock(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (sock.Get() < 0 || !BindLow(sock.Get())) return -1;
  sockaddr_in daemon = {};
  daemon.sin_family = AF_INET;
  daemon.sin_port = htons(static_cast<std::uint16_t>(conf.admin_port));
  inet_pton(AF_INET, conf.daemon_address.c_str(), &daemon.sin_addr);
  if (connect(sock.Get(), reinterpret_cast<const sockaddr *>(&daemon), sizeof daemon) != 0 ||
      send(sock.Get(), kPing.data(), kPing.size(), 0) < 0)
    return -1;
  return sock.Release();
}

bool Health_IsAnswered(int sock) {
  constexpr std::string_view kPong = "\t@COMMAND=PONG\t@SEQNUM=1\n";
  char answer[128];
  const ssize_t got = recv(sock, answer, sizeof answer, 0);
  return got > 0 && std::string_view(answer, static_cast<std::size_t>(got)) == kPong;
}
