// tools/common/peer.h: the service that a tool speaks to.
#ifndef TOOLS_COMMON_PEER_H
#define TOOLS_COMMON_PEER_H

#include <netinet/in.h>

#include <chrono>
#include <cstdint>

// The service keeps ports in 16 signed bits.
inline constexpr std::int32_t kPeerMaxPort = 32767;

struct Peer {
  const char *host;               // dotted text, or a name
  std::int32_t port;              // 0: not given yet
  std::chrono::nanoseconds left;  // that the tool still waits
};

// Takes --host, --port or --timeout, known by the letters H, p and t.  False: it is another option.
bool Peer_TakeOption(Peer *peer, int letter);

// The address in network form: of a name the first that the machine's own look-up gives, in the
// time that is left.  Or the end of the process: with EX_USAGE when there is no port (port_option
// is what a user would have given it by), EX_NOHOST when nobody has that name, EX_TEMPFAIL when no
// time is left.
sockaddr_in Peer_Address(Peer *peer, const char *port_option);

// Waits until the descriptor is ready for the events and takes the time off peer->left; false: none
// is left.
bool Peer_Awaits(Peer *peer, int fd, short events);

// The same; ends the process with EX_TEMPFAIL when no time is left.  What the tool does between two
// waits costs nothing, so a pager that holds its output up does not make the service look slow.
void Peer_Wait(Peer *peer, int fd, short events);

// The error of a socket that its last call could not report yet, or 0.
int Peer_PendingError(int sock);

// The end of the process with EX_UNAVAILABLE.
[[noreturn]] void Peer_FailUnreachable(const Peer &peer, int err);

// A socket whose calls do not block, or the end of the process with EX_OSERR.
int Peer_Socket(int type);

#endif
