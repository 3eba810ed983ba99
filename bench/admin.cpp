#include "bench/admin.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "bench/rows.h"

namespace {

constexpr int kPings = 200;
constexpr int kPingMilliseconds = 100;
constexpr int kBatch = 32;  // datagrams that a socket's buffer holds for sure

sockaddr_in Loopback(int port) {
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<std::uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return addr;
}

std::string Announcement(const std::string &id, char type, int port) {
  return "\t@COMMAND=STARTUPANNOUNCEMENT\tID=" + id + "\tTYPE=" + type +
         "\tIP=127.0.0.1\tCLIENTPORT=" + std::to_string(port) +
         "\tADMINPORT=" + std::to_string(port) + "\n";
}

}  // namespace

Admin::Admin() : sock_(socket(AF_INET, SOCK_DGRAM, 0)) {
  const sockaddr_in own = Loopback(kOwnPort);
  if (sock_ >= 0 && bind(sock_, reinterpret_cast<const sockaddr *>(&own), sizeof own) == 0) return;
  std::perror("load: port of the administrative socket");
  std::exit(1);
}

Admin::~Admin() { close(sock_); }

void Admin::Send(const std::string &datagram) {
  const sockaddr_in daemon = Loopback(kDaemonAdminPort);
  sendto(sock_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr *>(&daemon),
         sizeof daemon);
}

void Admin::AwaitPong() {
  ++sequence_;
  const std::string pong = "\t@COMMAND=PONG\t@SEQNUM=" + std::to_string(sequence_) + "\n";
  for (int i = 0; i < kPings; ++i) {
    Send("\t@COMMAND=PING\t@SEQNUM=" + std::to_string(sequence_) + "\n");
    pollfd readable = {sock_, POLLIN, 0};
    while (poll(&readable, 1, kPingMilliseconds) > 0) {
      char reply[128];
      const ssize_t count = recv(sock_, reply, sizeof reply, MSG_DONTWAIT);
      if (count < 0) break;  // nobody listens there yet
      if (pong == std::string(reply, static_cast<std::size_t>(count))) return;
    }
    usleep(1000 * 10);
  }
  std::fprintf(stderr, "load: the daemon does not answer\n");
  std::exit(1);
}

void Admin::Announce(int others) {
  AwaitPong();
  for (int i = 0; i < others; ++i) {
    const std::string id = "other" + std::to_string(i);
    Send(Announcement(id, 'S', kSearchPort));
    Send(Announcement(id, 'D', kDocPort));
    if (i % kBatch == kBatch - 1) AwaitPong();
  }
  Send(Announcement(kSearchGroup, 'S', kSearchPort));
  Send(Announcement(kDocGroup, 'D', kDocPort));
  AwaitPong();
}

void Admin::SetLevel(const std::string &level) {
  Send("\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=" + level + "\n");
  AwaitPong();
}
