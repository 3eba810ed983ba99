#include "core/loop.h"

#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/signals.h"
#include "core/state.h"
#include "debug/log.h"
#include "protocol/process.h"

namespace {

constexpr int kForkAttempts = 6;

MainCore_ReadFn read_connection = MainCore_TCPRead;

// The connection's own process.  It closes the admin socket too, so that a restarted daemon can
// bind the port while an old child still serves.
[[noreturn]] void ServeInChild(int listener, int sock, MainCore_ClientFn handler) {
  Sock_Close(listener);
  Sock_Close(MainCore_State.AdminSock);
  MainCore_Read(-1, sock, handler);
  Sock_Close(sock);
  _exit(0);
}

}  // namespace

void MainCore_SetReader(MainCore_ReadFn reader) { read_connection = reader; }

void MainCore_Read(int listener, int sock, MainCore_ClientFn handler) {
  read_connection(listener, sock, handler);
}

bool MainCore_CanWatch(int fd) {
  if (fd < FD_SETSIZE) return true;
  DPRINTF(nullptr, kFatal, "[MainCore: main] Descriptor %d is beyond the %d that can be watched.\n",
          fd, FD_SETSIZE);
  return false;
}

int MainCore_Loop(int listener, int admin_sock, MainCore_ClientFn client, MainCore_AdminFn admin) {
  const int nfds = std::max(listener, admin_sock) + 1;
  if (!MainCore_CanWatch(nfds - 1)) return -EMFILE;
  for (;;) {
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(admin_sock, &ready);
    FD_SET(listener, &ready);
    if (select(nfds, &ready, nullptr, nullptr, nullptr) > 0) {
      if (FD_ISSET(admin_sock, &ready)) MainCore_UDPRead(admin_sock, admin);
      if (FD_ISSET(listener, &ready)) MainCore_Listen(listener, 1, client);
    }
    MainCore_Reap();
  }
}

void MainCore_Listen(int listener, int fork_flag, MainCore_ClientFn handler) {
  SockAddr peer = {};
  int sock = -1;
  const int rc = Sock_Accept(listener, &peer, &sock);
  if (rc != kSockOk) {
    DPRINTF(nullptr, kFatal, "[MainCore: Listen] Error %d from Sock_Accept().\n", rc);
    return;
  }
  DPRINTF(nullptr, kStatus,
          "[MainCore: Listen] ListSock=%d, newsock=%d. New connection from %s/%1d\n", listener,
          sock, peer.IP, peer.Port);
  if (fork_flag == 0) {
    MainCore_Read(listener, sock, handler);
  } else {
    const int pid = Util_Fork(kForkAttempts);
    if (pid == 0) ServeInChild(listener, sock, handler);
    if (pid < 0)
      DPRINTF(nullptr, kFatal, "[MainCore: Listen] Unable to fork for TCPRead: errno = %d\n",
              errno);
  }
  Sock_Close(sock);
}

void MainCore_TCPRead(int listener, int sock, MainCore_ClientFn handler) {
  DPRINTF(nullptr, kStatus, "[MainCore: TCPRead] TCP Read started.  Reading Socket %d\n", sock);
  // Zero between its uses.  Behind a command that came whole it is cleared where it was used alone:
  // what a child has not touched costs it no page.
  static char command[kCommandSize + 1];
  bool overflowed = false;
  for (;;) {
    int length = kCommandSize;
    const int rc = Sock_RecvDelim(sock, command, &length, "\n");
    if (rc == kSockOk && !overflowed) {
      // A client that left in the middle of a line has sent no command.
      if (length == 0) std::memset(command, 0, sizeof command);
      DPRINTF(nullptr, kInfo, "[MainCore: TCPRead] Socket %d...Data Dump:\n", sock);
      HEXDUMP(nullptr, kInfo, command, length, nullptr);
      handler(listener, sock, command);
      std::memset(command, 0, static_cast<std::size_t>(length));
      return;
    }
    overflowed = rc == kSockOverflow;  // the line goes on, and what is left of it is no command
    if (overflowed) {
      DPRINTF(nullptr, kFatal,
              "[MainCore: TCPRead] Incoming command has overflowed the receiving buffer.\n");
      HEXDUMP(nullptr, kFatal, command, kCommandSize, "This is the filled buffer\n");
    }
    std::memset(command, 0, sizeof command);
    if (rc == kSockOk || overflowed) continue;
    DPRINTF(nullptr, kFatal, "[MainCore: TCPRead] Error %d from Sock_RecvTCP: socket %d\n", rc,
            sock);
    DPRINTF(nullptr, kFatal, "[MainCore: TCPRead] Terminating this Read thread and socket.\n");
    Sock_Close(sock);  // Kept: the caller closes it once more, and that fails
    return;
  }
}

void MainCore_UDPRead(int admin_sock, MainCore_AdminFn handler) {
  char datagram[kCommandSize + 1] = {};
  int length = kCommandSize;
  SockAddr sender = {};
  const int rc = Sock_RecvUDP(admin_sock, datagram, &length, &sender, 0);
  if (rc != kSockOk) {
    DPRINTF(nullptr, kFatal,
            "[MainCore: UDPRead] Error %d from Sock_RecvUDP.  Calling Dr. Vostrelan.\n", rc);
    return;
  }
  HEXDUMP(nullptr, kInfo, datagram, length, "MainCore_UDPReadThread Dump:\n");
  return handler(admin_sock, &sender, datagram, length);
}
