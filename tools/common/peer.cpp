#include "tools/common/peer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sysexits.h>

#include <cerrno>
#include <cstring>

#include "tools/common/tool.h"

constexpr std::int32_t kMaxTimeout = 86400;  // seconds

bool Peer_TakeOption(Peer *peer, int letter) {
  switch (letter) {
    case 'H': peer->host = optarg; return true;
    case 'p': peer->port = Tool_Number("--port", optarg, 1, kPeerMaxPort); return true;
    case 't':
      peer->left = std::chrono::seconds(Tool_Number("--timeout", optarg, 1, kMaxTimeout));
      return true;
    default: return false;
  }
}

sockaddr_in Peer_Address(const Peer &peer) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(peer.port));
  if (peer.port == 0)
    Tool_Fail(EX_USAGE, "--port is missing: the port of the service, from 1 to %d", kPeerMaxPort);
  if (inet_pton(AF_INET, peer.host, &address.sin_addr) != 1)
    Tool_Fail(EX_USAGE, "--host takes a dotted IPv4 address such as 127.0.0.1, not '%s'",
              peer.host);
  return address;
}

void Peer_Wait(Peer *peer, int fd, short events) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + peer->left;
  pollfd ready = {fd, events, 0};
  int count = 0;
  do {
    peer->left = end - Clock::now();
    if (peer->left.count() <= 0)
      Tool_Fail(EX_TEMPFAIL, "%s/%d did not answer in time; --timeout gives it more", peer->host,
                peer->port);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(peer->left);
    count = poll(&ready, 1, static_cast<int>(left.count()));
  } while (count <= 0);
  peer->left = end - Clock::now();
}

int Peer_PendingError(int sock) {
  int err = 0;
  socklen_t size = sizeof err;
  return getsockopt(sock, SOL_SOCKET, SO_ERROR, &err, &size) == 0 ? err : errno;
}

void Peer_FailUnreachable(const Peer &peer, int err) {
  Tool_Fail(EX_UNAVAILABLE, "cannot reach %s/%d: %s", peer.host, peer.port, std::strerror(err));
}

int Peer_Socket(int type) {
  const int sock = socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (sock < 0) Tool_Fail(EX_OSERR, "cannot open a socket: %s", std::strerror(errno));
  return sock;
}
