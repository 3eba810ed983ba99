#include "tools/common/peer.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sysexits.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "tools/common/tool.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int32_t kMaxTimeout = 86400;  // seconds

// Waits until the look-up is over or the time is; its error.
int AwaitName(Peer *peer, gaicb *request) {
  const Clock::time_point end = Clock::now() + peer->left;
  const gaicb *const waited[] = {request};
  int err = 0;
  while ((err = gai_error(request)) == EAI_INPROGRESS) {
    peer->left = end - Clock::now();
    if (peer->left.count() <= 0)
      Tool_Fail(EX_TEMPFAIL, "the host %s was not found in time; --timeout gives it more",
                peer->host);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(peer->left);
    const timespec left = {static_cast<std::time_t>(seconds.count()),
                           static_cast<long>((peer->left - seconds).count())};
    gai_suspend(waited, 1, &left);
  }
  peer->left = end - Clock::now();
  return err;
}

// The C library looks the name up in a thread of its own: getaddrinfo(3) waits as long as it likes.
in_addr AddressOfName(Peer *peer) {
  addrinfo wanted = {};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_STREAM;  // of any kind, but one entry an address
  gaicb request = {};
  request.ar_name = peer->host;
  request.ar_request = &wanted;
  gaicb *requests[] = {&request};
  int err = getaddrinfo_a(GAI_NOWAIT, requests, 1, nullptr);
  if (err == 0) err = AwaitName(peer, &request);
  if (err != 0)
    Tool_Fail(EX_NOHOST, "cannot find the host '%s': %s", peer->host, gai_strerror(err));
  sockaddr_in found = {};
  std::memcpy(&found, request.ar_result->ai_addr, sizeof found);
  freeaddrinfo(request.ar_result);
  return found.sin_addr;
}

}  // namespace

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

sockaddr_in Peer_Address(Peer *peer, const char *port_option) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(peer->port));
  if (peer->port == 0)
    Tool_Fail(EX_USAGE, "%s is missing: the port of the service, from 1 to %d", port_option,
              kPeerMaxPort);
  if (inet_pton(AF_INET, peer->host, &address.sin_addr) != 1)
    address.sin_addr = AddressOfName(peer);
  return address;
}

bool Peer_Awaits(Peer *peer, int fd, short events) {
  const Clock::time_point end = Clock::now() + peer->left;
  pollfd ready = {fd, events, 0};
  int count = 0;
  do {
    peer->left = end - Clock::now();
    if (peer->left.count() <= 0) return false;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(peer->left);
    count = poll(&ready, 1, static_cast<int>(left.count()));
  } while (count <= 0);
  peer->left = end - Clock::now();
  return true;
}

void Peer_Wait(Peer *peer, int fd, short events) {
  if (!Peer_Awaits(peer, fd, events))
    Tool_Fail(EX_TEMPFAIL, "%s/%d did not answer in time; --timeout gives it more", peer->host,
              peer->port);
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
