#include "debug/collector.h"

#include "debug/log.h"
#include "debug/text.h"
#include "net/sock.h"

namespace {

constexpr const char *kDefaultHost = "127.0.0.1";
constexpr int kDefaultPort = 113;

int log_socket = -1;  // open from Debug_Init to the end of the process
SockAddr log_dest = {};

int SendText(const char *text, int len) {
  return Sock_SendUDP(log_socket, text, len, &log_dest, 0);
}

}  // namespace

int Debug_SetDest(const char *host, int port) {
  if (!Text_Copy(log_dest.IP, host))
    DPRINTF(nullptr, kWarning, "[DEBUG: SetDest] Host '%s' cut to %d characters\n", host,
            static_cast<int>(sizeof log_dest.IP) - 1);
  log_dest.Port = static_cast<std::int16_t>(port);
  return Sock_ConvertIP(&log_dest) == kSockOk ? 1 : 0;
}

int Debug_Init() {
  if (Debug_SetDest(kDefaultHost, kDefaultPort) != 1)
    DPRINTF(nullptr, kWarning, "[DEBUG: Init] Error setting UDP Destination.\n");
  SetLevel(kWarning);
  Debug_SetSend(nullptr);
  if (Sock_OpenUDP(nullptr, 1, &log_socket) != kSockOk) {
    // Kept: the number is that of the socket, not of the failure.
    DPRINTF(stdout, kFatal, "[DEBUG: Init] Error initing socket to Syslogd, rc = %d\n", log_socket);
    log_socket = -1;
    return 0;
  }
  Debug_SetSend(SendText);
  DPRINTF(stdout, kWarning, "[DEBUG: Init] Debug subsystem initialized successfully.\n");
  return 1;
}
