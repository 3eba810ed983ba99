#include "net/sock.h"

#include <arpa/inet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "debug/log.h"
#include "debug/text.h"

namespace {

constexpr socklen_t kAddrSize = sizeof(sockaddr_in);
static_assert(kAddrSize == 16);

unsigned Hex(int code) { return static_cast<unsigned>(code); }

sockaddr *Generic(SockAddr *addr) { return reinterpret_cast<sockaddr *>(&addr->Addr); }

// Kept: asks for blocking mode.  The call is there for its failure.
int RequestMode(int sock) {
  int off = 0;
  return ioctl(sock, FIONBIO, &off);
}

int SetOption(int sock, int option, int value) {
  return setsockopt(sock, SOL_SOCKET, option, &value, sizeof value);
}

// Kept: Sock_Listen shares these texts, which name Sock_Connect.
int SetTCPOptions(int sock) {
  if (SetOption(sock, SO_REUSEADDR, 1) != 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(nullptr, kWarning,
            "[SOCK: Connect] Error %d (0x%0x) from setsockopt().  Unable to set reuseaddr to %d.\n",
            err, Hex(err), 1);
    return -err;
  }
  if (SetOption(sock, SO_RCVBUF, kSockBuffer) != 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(nullptr, kWarning,
            "[SOCK: Connect] Error %d (0x%0x) from setsockopt().  Unable to set rcvbuflen to %d.\n",
            err, Hex(err), kSockBuffer);
    return -err;
  }
  if (SetOption(sock, SO_SNDBUF, kSockBuffer) != 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(nullptr, kWarning,
            "[SOCK: Connect] Error %d (0x%0x) from setsockopt().  Unable to set sndbuflen to %d.\n",
            err, Hex(err), kSockBuffer);
    return -err;
  }
  return kSockOk;
}

int ConvertOnce(SockAddr *addr) {
  return addr->Addr.sin_addr.s_addr == 0 ? Sock_ConvertIP(addr) : kSockOk;
}

// How many of the count waiting bytes to take: up to the first delimiter, else all.  A NUL ends the
// search.
int CountToTake(const char *bytes, int count, const char *delims, bool *found) {
  const std::size_t searched = strnlen(bytes, static_cast<std::size_t>(count));
  const char *end = bytes + searched;
  for (; *delims != '\0'; ++delims) {
    const void *match = std::memchr(bytes, *delims, static_cast<std::size_t>(end - bytes));
    if (match == nullptr) continue;
    *found = true;
    end = static_cast<const char *>(match) + 1;  // an earlier delimiter may still come
  }
  return *found ? static_cast<int>(end - bytes) : count;
}

// Past the stream of standard output, which a signal could find half written.
void PrintErrno(int number) {
  char line[32];
  (void)Text_FormatTo(line, sizeof line, "errno = %d\n", number);
  if (write(STDOUT_FILENO, line, std::strlen(line)) < 0) return;  // nobody is left to tell
}

int TextToAddr(SockAddr *addr) {
  if (addr->Port <= 0) return kSockBadAddr;
  addr->Addr.sin_family = AF_INET;
  addr->Addr.sin_addr.s_addr =
      inet_addr(addr->IP);  // Kept: text that is no address is 255.255.255.255
  if (addr->Addr.sin_addr.s_addr == 0) {
    DPRINTF(
        nullptr, kWarning,
        "[SOCK: ConvertIP] Error converting to network address.  Network Address result is 0.\n");
    return kSockBadAddr;
  }
  addr->Addr.sin_port = htons(static_cast<std::uint16_t>(addr->Port));
  return kSockOk;
}

int AddrToText(SockAddr *addr) {
  if (addr->Addr.sin_addr.s_addr == 0) {
    DPRINTF(nullptr, kWarning,
            "[SOCK: ConvertIP] Error converting from network address.  Network Address is 0.\n");
    return kSockBadAddr;
  }
  if (!Text_Copy(addr->IP, inet_ntoa(addr->Addr.sin_addr)) || addr->IP[0] == '\0') {
    DPRINTF(
        nullptr, kWarning,
        "[SOCK: ConvertIP] Error converting from network address.  IP result string is NULL.\n");
    return kSockBadAddr;
  }
  addr->Port = static_cast<std::int16_t>(ntohs(addr->Addr.sin_port));
  return kSockOk;
}

}  // namespace

int Sock_GetError(int sock) {
  const int failed = errno;
  PrintErrno(failed);
  int pending = 0;
  socklen_t size = sizeof pending;
  if (getsockopt(sock, SOL_SOCKET, SO_ERROR, &pending, &size) != 0) {
    const int err = errno;
    DPRINTF(nullptr, kWarning, "[SOCK: GetError] Uhmm, Houston...We have a problem.\n");
    DPRINTF(nullptr, kWarning,
            "@[SOCK: GetError] We can't seem to get our socket errors here for sock %d.\n", sock);
    DPRINTF(nullptr, kWarning, "@[SOCK: GetError] The system reports this as errno = %d.\n", err);
    DPRINTF(nullptr, kWarning, "@[SOCK: GetError] What are your recommendations ?\n");
    return 0;
  }
  return pending != 0 ? pending : failed;
}

int Sock_Init() {
  DPRINTF(stdout, kWarning, "[SOCK: Init] Socket subsystem initialized successfully.\n");
  return kSockOk;
}

int Sock_Term() { return kSockOk; }

int Sock_Connect(SockAddr *addr, int options, int *place) {
  if (addr == nullptr || place == nullptr) return kSockBadArg;
  *place = -1;

  const int sock = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (sock < 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(nullptr, kWarning,
            "[SOCK: Connect] Error %d (0x%0x) from socket().  Unable to get a new socket.\n", err,
            Hex(err));
    return -err;
  }
  if ((options & kSockNonBlock) != 0 && RequestMode(sock) != 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(
        nullptr, kWarning,
        "[SOCK: Connect] Error %d (0x%0x) from ioctl().  Unable to set socket %d to non-blocking.\n",
        err, Hex(err), sock);
    return -err;
  }
  int rc = SetTCPOptions(sock);
  if (rc != kSockOk) return rc;
  rc = ConvertOnce(addr);
  if (rc != kSockOk) return rc;

  if (connect(sock, Generic(addr), kAddrSize) != 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(
        nullptr, kWarning,
        "[SOCK: Connect] Error %d (0x%0x) from connect().  Unable to connect socket %d to %s:%1d.\n",
        err, Hex(err), sock, addr->IP, addr->Port);
    return -err;
  }
  *place = sock;
  return kSockOk;
}

int Sock_Listen(SockAddr *addr, int nonblock, int *place) {
  if (addr == nullptr || place == nullptr) return kSockBadArg;
  *place = -1;

  const int sock = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (sock < 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(nullptr, kWarning,
            "[SOCK: Listen] Error %d (0x%0x) from socket().  Unable to get a new socket.\n", err,
            Hex(err));
    return -err;
  }
  if (nonblock != 0 && RequestMode(sock) != 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(
        nullptr, kWarning,
        "[SOCK: Listen] Error %d (0x%0x) from ioctl().  Unable to set socket %d to non-blocking.\n",
        err, Hex(err), sock);
    return -err;
  }
  int rc = SetTCPOptions(sock);
  if (rc != kSockOk) return rc;
  rc = ConvertOnce(addr);
  if (rc != kSockOk) return rc;

  if (bind(sock, Generic(addr), kAddrSize) != 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(
        nullptr, kWarning,
        "[SOCK: Listen] Error %d (0x%0x) from bind().  Unable to bind socket %d to address %s:%1d.\n",
        err, Hex(err), sock, addr->IP, addr->Port);
    return -err;
  }
  if (listen(sock, kSockBacklog) != 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(nullptr, kWarning,
            "[SOCK: Listen] Error %d (0x%0x) from listen().  Unable to listen on socket %d.\n", err,
            Hex(err), sock);
    return -err;
  }
  *place = sock;
  return kSockOk;
}

int Sock_Accept(int listener, SockAddr *peer, int *place) {
  if (listener < 0 || peer == nullptr || place == nullptr) return kSockBadArg;
  *place = -1;

  std::memset(peer->IP, 0, 4);
  socklen_t size = kAddrSize;
  const int sock = accept(listener, Generic(peer), &size);
  if (sock < 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(
        nullptr, kWarning,
        "[SOCK: Accept] Error %d (0x%0x) from accept().  Unable to accept new connection on socket %d.\n",
        err, Hex(err), sock);
    return -err;
  }
  const int rc = Sock_ConvertIP(peer);
  if (rc != kSockOk) {
    DPRINTF(nullptr, kWarning,
            "[SOCK: Accept] Closing new connection on socket %d because could not convert IP.\n",
            sock);
    Sock_Close(sock);
    return rc;
  }
  *place = sock;
  return kSockOk;
}

int Sock_OpenUDP(SockAddr *addr, int nonblock, int *place) {
  if (place == nullptr) return kSockBadArg;
  *place = -1;

  const int sock = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (sock < 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(nullptr, kWarning,
            "[SOCK: OpenUDP] Error %d (0x%0x) from socket().  Unable to get a new socket.\n", err,
            Hex(err));
    return -err;
  }
  if (nonblock != 0 && RequestMode(sock) != 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(
        nullptr, kWarning,
        "[SOCK: OpenUDP] Error %d (0x%0x) from ioctl().  Unable to set socket %d to non-blocking.\n",
        err, Hex(err), sock);
    return -err;
  }
  if (addr != nullptr) {
    const int rc = ConvertOnce(addr);
    if (rc != kSockOk) return rc;
    if (bind(sock, Generic(addr), kAddrSize) != 0) {
      const int err = Sock_GetError(sock);
      DPRINTF(
          nullptr, kWarning,
          "[SOCK: OpenUDP] Error %d (0x%0x) from bind().  Unable to bind socket %d to address %s:%1d.\n",
          err, Hex(err), sock, addr->IP, addr->Port);
      return -err;
    }
  }
  *place = sock;
  return kSockOk;
}

int Sock_SendTCP(int sock, const char *data, int len, int flags) {
  if (sock < 0) {
    DPRINTF(nullptr, kWarning, "[Sock: SendTCP] Invalid Socket: %d\n", sock);
    return kSockBadArg;
  }
  if (data == nullptr) {
    DPRINTF(nullptr, kWarning, "[Sock: SendTCP] data is NULL for sock %d\n", sock);
    return kSockBadArg;
  }
  if (len <= 0) {
    DPRINTF(nullptr, kWarning, "[Sock: SendTCP] datalen == 0 for sock %d\n", sock);
    return kSockBadArg;
  }
  if (send(sock, data, static_cast<std::size_t>(len), flags) < 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(nullptr, kWarning,
            "[SOCK: SendTCP] Error %d (0x%0x) from send().  Unable to send on socket %d.\n", err,
            Hex(err), sock);
    return -err;
  }
  return kSockOk;
}

int Sock_RecvTCP(int sock, char *buf, int *len, int flags) {
  if (sock < 0 || buf == nullptr || len == nullptr || *len <= 0) return kSockBadArg;
  const ssize_t count = recv(sock, buf, static_cast<std::size_t>(*len), flags);
  if (count < 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(nullptr, kWarning,
            "[SOCK: RecvTCP] Error %d (0x%0x) from recv().  Unable to receive on socket %d.\n", err,
            Hex(err), sock);
    return -err;
  }
  *len = static_cast<int>(count);
  return kSockOk;
}

int Sock_RecvDelim(int sock, char *buf, int *len, const char *delims) {
  if (sock < 0 || buf == nullptr || len == nullptr || *len <= 0 || delims == nullptr)
    return kSockBadArg;
  const int capacity = *len;
  int got = 0;
  bool found = false;
  while (got < capacity && !found) {
    int count = capacity - got;
    int rc = Sock_RecvTCP(sock, buf + got, &count, MSG_PEEK);
    if (rc != kSockOk) return rc;
    if (count <= 0) {  // Kept: the bytes of earlier passes are not counted
      *len = 0;
      return kSockOk;
    }
    int taken = CountToTake(buf + got, count, delims, &found);
    rc = Sock_RecvTCP(sock, buf + got, &taken, 0);
    if (rc != kSockOk) taken = 0;
    std::memset(buf + got + taken, 0, static_cast<std::size_t>(count - taken));
    if (rc != kSockOk) return rc;
    got += taken;
  }
  if (!found) return kSockOverflow;
  *len = got;
  return kSockOk;
}

int Sock_TransactTCP(SockAddr *addr, const char *request, int request_len, char *reply,
                     int *reply_len, int flags) {
  if (addr == nullptr) return kSockBadArg;
  char port[8];
  (void)Text_FormatTo(port, sizeof port, "%d", addr->Port);
  int sock = -1;
  int rc = Sock_Connect(addr, flags, &sock);
  if (rc != kSockOk) {
    DPRINTF(nullptr, kWarning, "[Sock: TransactTCP] Unable to connect to %s:%s\n", addr->IP, port);
    return rc;
  }
  rc = Sock_SendTCP(sock, request, request_len, flags);
  if (rc != kSockOk) {
    DPRINTF(nullptr, kWarning, "[Sock: TransactTCP] Unable to send to %s:%s\n", addr->IP, port);
    return rc;
  }
  rc = Sock_RecvTCP(sock, reply, reply_len, flags);
  if (rc != kSockOk) {
    DPRINTF(nullptr, kWarning, "[Sock: TransactTCP] Unable to recv from %s:%s\n", addr->IP, port);
    return rc;
  }
  Sock_Close(sock);
  return kSockOk;
}

int Sock_ConnectAndSend(SockAddr *addr, int *place, const char *data, int len, int flags) {
  if (addr == nullptr) return kSockBadArg;
  int sock = -1;
  if (place != nullptr) *place = -1;
  int rc = Sock_Connect(addr, 0, place != nullptr ? &sock : nullptr);
  if (rc != kSockOk) {
    DPRINTF(nullptr, kWarning, "[Socket: Conn&Send] Unable to connect to %s:%d: rc = %d\n",
            addr->IP, addr->Port, rc);
    return rc;
  }
  rc = Sock_SendTCP(sock, data, len, flags);
  if (rc != kSockOk) {
    DPRINTF(nullptr, kWarning, "[Socket: Conn&Send] Unable to send to %s:%d: rc = %d\n", addr->IP,
            addr->Port, rc);
    Sock_Close(sock);
    return rc;
  }
  *place = sock;
  return kSockOk;
}

int Sock_SendUDP(int sock, const char *data, int len, SockAddr *dest, int flags) {
  if (sock < 0 || data == nullptr || len <= 0 || dest == nullptr) return kSockBadArg;
  const int rc = Sock_ConvertIP(dest);
  if (rc != kSockOk) return rc;
  if (sendto(sock, data, static_cast<std::size_t>(len), flags, Generic(dest), kAddrSize) < 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(
        nullptr, kWarning,
        "[SOCK: SendUDP] Error %d (0x%0x) from sendto().  Unable to send on socket %d to %s:%d.\n",
        err, Hex(err), sock, dest->IP, dest->Port);
    return -err;
  }
  return kSockOk;
}

int Sock_RecvUDP(int sock, char *buf, int *len, SockAddr *sender, int flags) {
  if (sock < 0 || buf == nullptr || len == nullptr || *len < 0 || sender == nullptr)
    return kSockBadArg;
  std::memset(sender->IP, 0, 4);
  socklen_t size = kAddrSize;
  const ssize_t count =
      recvfrom(sock, buf, static_cast<std::size_t>(*len), flags, Generic(sender), &size);
  if (count < 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(nullptr, kWarning,
            "[SOCK: RecvUDP] Error %d (0x%0x) from recvfrom().  Unable to receive on socket %d.\n",
            err, Hex(err), sock);
    return -err;
  }
  *len = static_cast<int>(count);
  return Sock_ConvertIP(sender);
}

int Sock_Close(int sock) {
  if (sock < 0) return kSockBadArg;
  if (close(sock) != 0) {
    const int err = Sock_GetError(sock);
    DPRINTF(nullptr, kWarning,
            "[SOCK: Close] Error %d (0x%0x) from close().  Unable to close socket %d.\n", err,
            Hex(err), sock);
    return -err;
  }
  return kSockOk;
}

int Sock_Shutdown(int sock, int how) {
  // Kept: the limits stand the wrong way round, so every socket and every value is refused.
  constexpr int kFirst = SHUT_RDWR;
  constexpr int kLast = SHUT_RD;
  if constexpr (kFirst <= kLast) {
    if (sock < 0 || how < kFirst || how > kLast) return kSockBadArg;
    if (shutdown(sock, how) == 0) return kSockOk;
    const int err = Sock_GetError(sock);
    DPRINTF(
        nullptr, kWarning,
        "[SOCK: Close] Error %d (0x%0x) from shutdown().  Unable to shutdown socket %d, how: %d.\n",
        err, Hex(err), sock, how);
    return -err;
  }
  return kSockBadArg;
}

int Sock_ConvertIP(SockAddr *addr) {
  return addr->IP[0] != '\0' ? TextToAddr(addr) : AddrToText(addr);
}
