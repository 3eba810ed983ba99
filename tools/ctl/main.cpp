// korvoctl: the administrative datagrams of a running program of the service.
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "debug/log.h"
#include "debug/text.h"
#include "protocol/cmd_hdr.h"
#include "tools/common/peer.h"
#include "tools/common/tool.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kDefaultTimeout(5);
constexpr std::int32_t kFirstSourcePort = 32000;  // up to kPeerMaxPort
constexpr std::size_t kDatagramSize = 4096;

constexpr const char *kHelp =
    "usage: korvoctl ping [OPTION]...         ask whether the program lives\n"
    "       korvoctl level LEVEL [OPTION]...  set the level of its log: INFO, STATUS, WARNING,\n"
    "                                         FATAL or OFF\n"
    "       korvoctl shutdown [OPTION]...     end it\n"
    "\n"
    "  --host HOST        of the program, a name or an IPv4 address; 127.0.0.1\n"
    "  --port PORT        its admin port; needed\n"
    "  --timeout SECONDS  wait so long for the answer to a ping; 5\n"
    "  --help             this text\n"
    "  --version          name and version\n"
    "\n"
    "Status: 0; 64 wrong use; 68 the host is unknown; 69 nobody listens there; 75 no answer in\n"
    "time.\n";

constexpr option kOptions[] = {
    {"help", no_argument, nullptr, 'h'},       {"host", required_argument, nullptr, 'H'},
    {"port", required_argument, nullptr, 'p'}, {"timeout", required_argument, nullptr, 't'},
    {"version", no_argument, nullptr, 'V'},    {nullptr, 0, nullptr, 0}};

struct Command {
  Peer peer = {"127.0.0.1", 0, kDefaultTimeout};
  std::string word;
  std::string level;  // of "level"
};

bool IsLevel(std::string_view word) {
  for (const std::string_view level : {"INFO", "STATUS", "WARNING", "FATAL", "OFF"})
    if (word == level) return true;
  return false;
}

void TakeLevel(Command *command, const char *level) {
  if (level == nullptr || !IsLevel(level))
    Tool_Fail(EX_USAGE, "level takes INFO, STATUS, WARNING, FATAL or OFF, not '%s'",
              level == nullptr ? "" : level);
  command->level = level;
}

Command ReadCommand(int argc, char **argv) {
  Command command;
  for (int letter; (letter = Tool_NextOption(argc, argv, ":", kOptions)) != -1;)
    if (!Peer_TakeOption(&command.peer, letter)) Tool_TakeInfoOption(letter, kHelp);
  if (optind == argc) Tool_Fail(EX_USAGE, "needs a command: ping, level LEVEL or shutdown");
  command.word = argv[optind++];
  if (command.word == "level")
    TakeLevel(&command, optind < argc ? argv[optind++] : nullptr);
  else if (command.word != "ping" && command.word != "shutdown")
    Tool_Fail(EX_USAGE, "there is no command %s; ping, level LEVEL and shutdown are all",
              command.word.c_str());
  if (optind < argc)
    Tool_Fail(EX_USAGE, "%s takes nothing more; leave out %s", command.word.c_str(), argv[optind]);
  return command;
}

std::int32_t NewNumber() {
  return static_cast<std::int32_t>(Clock::now().time_since_epoch().count() / 1000 & INT32_MAX);
}

// A port that the service can answer to: it keeps ports in 16 signed bits, and the system would
// choose a higher one.  The search begins anywhere, so that those who run at the same time rarely
// meet.
void BindBelow32768(int sock) {
  constexpr std::int32_t kCount = kPeerMaxPort + 1 - kFirstSourcePort;
  const std::int32_t first = NewNumber() % kCount;
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  for (std::int32_t i = 0; i < kCount; ++i) {
    address.sin_port = htons(static_cast<std::uint16_t>(kFirstSourcePort + (first + i) % kCount));
    if (bind(sock, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) return;
    if (errno != EADDRINUSE) break;
  }
  Tool_Fail(EX_OSERR, "cannot bind a source port from %d to %d: %s", kFirstSourcePort, kPeerMaxPort,
            std::strerror(errno));
}

// Connected, so that a refusal is reported here and nobody else's datagrams arrive.
int Open(Peer *peer) {
  const sockaddr_in address = Peer_Address(peer, "--port");
  const int sock = Peer_Socket(SOCK_DGRAM);
  BindBelow32768(sock);
  if (connect(sock, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
    Peer_FailUnreachable(*peer, errno);
  return sock;
}

void Send(const Peer &peer, int sock, const std::string &datagram) {
  if (send(sock, datagram.data(), datagram.size(), 0) < 0) Peer_FailUnreachable(peer, errno);
}

// A refusal that is known already; from another machine it may come too late.
void CheckRefused(const Peer &peer, int sock) {
  const int err = Peer_PendingError(sock);
  if (err != 0) Peer_FailUnreachable(peer, err);
}

bool IsPong(const char *text, std::int32_t number) {
  CmdHdr hdr = {};
  Util_IntCmdHdr(&hdr, text);
  return std::strcmp(hdr.Command, "PONG") == 0 && hdr.SeqNum == number;
}

void AwaitPong(Peer *peer, int sock, std::int32_t number) {
  char buffer[kDatagramSize + 1];
  for (;;) {
    Peer_Wait(peer, sock, POLLIN);
    const ssize_t got = recv(sock, buffer, kDatagramSize, 0);
    if (got < 0 && errno != EAGAIN && errno != EINTR) Peer_FailUnreachable(*peer, errno);
    if (got < 0) continue;
    buffer[got] = '\0';
    if (IsPong(buffer, number)) return;
  }
}

void Ping(Peer *peer, int sock) {
  const std::int32_t number = NewNumber();
  const Clock::time_point begin = Clock::now();
  Send(*peer, sock, "\t@COMMAND=PING\t@SEQNUM=" + std::to_string(number) + "\n");
  AwaitPong(peer, sock, number);
  const double spent = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
  char text[NI_MAXHOST + 64];
  (void)Text_FormatTo(text, sizeof text, "PONG from %s/%d in %.3f ms\n", peer->host, peer->port,
                      spent);
  Tool_Print(text);
}

}  // namespace

int main(int argc, char **argv) {
  Tool_Start();
  Debug_Level = kOff;  // what a stranger's datagram lacks is no news to the user
  Command command = ReadCommand(argc, argv);
  const int sock = Open(&command.peer);
  if (command.word == "ping")
    Ping(&command.peer, sock);
  else if (command.word == "level")
    Send(command.peer, sock, "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=" + command.level + "\n");
  else
    Send(command.peer, sock, "\t@COMMAND=SHUTDOWN\n");
  CheckRefused(command.peer, sock);
  return EX_OK;
}
