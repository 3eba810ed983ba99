#include "tools/common/peer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sysexits.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "tools/common/tool.h"

sockaddr_in Peer_Address(const Peer &peer) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(peer.port));
  if (peer.port == 0)
    Tool_Fail(EX_USAGE, "--port is missing: the port of the service, from 1 to %d", kPeerMaxPort);
  if (inet_pton(AF_INET, peer.host, &address.sin_addr) != 1)
    Tool_Fail(EX_USAGE, "--host takes a dotted IPv4 address such as 127.0.0.1, not '%s'", peer.host);
  return address;
}

void Peer_Wait(Peer *peer, int fd, short events) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point begin = Clock::now();
  int left = peer->left;
  for (;;) {
    pollfd ready = {fd, events, 0};
    const int count = poll(&ready, 1, left);
    const auto spent = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    left = peer->left - static_cast<int>(std::min<long long>(spent.count(), peer->left));
    if (count > 0) break;
    if (left == 0)
      Tool_Fail(EX_TEMPFAIL, "%s/%d did not answer in time; --timeout gives it more", peer->host, peer->port);
  }
  peer->left = left;
}

int Peer_Socket(int type) {
  const int sock = socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (sock < 0) Tool_Fail(EX_OSERR, "cannot open a socket: %s", std::strerror(errno));
  return sock;
}
