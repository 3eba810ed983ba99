// korvo-query: one QUERY or GETDOC, and the page that answers it.
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

#include "tools/common/peer.h"
#include "tools/common/tool.h"
#include "tools/query/answer.h"
#include "tools/query/request.h"

namespace {

constexpr int kAnswerError = 1;  // exit status
constexpr std::chrono::seconds kDefaultTimeout(60);

constexpr const char *kHelp =
    "usage: korvo-query [OPTION]... WORD|NAME=TERMS...\n"
    "       korvo-query [OPTION]... --doc NUMBER\n"
    "\n"
    "  --host HOST        of the service, a name or an IPv4 address; KORVO_HOST, or 127.0.0.1\n"
    "  --port PORT        its client port; KORVO_PORT\n"
    "  --group GROUP      the Search Manager to ask, or with --doc the Document Manager;\n"
    "                     KORVO_GROUP\n"
    "  --macro MACRO      the page macro, without .mo; KORVO_MACRO\n"
    "  --max-hits NUMBER  at most so many documents; 0, or without it: as many as the Search\n"
    "                     Manager gives. korvo-searchmgr then gives 100, and never more than 10000\n"
    "  --doc NUMBER       one document in place of a search\n"
    "  --type TYPE        record type\n"
    "  --header NAME=VALUE\n"
    "                     a further field of the request, as in --header SORT=Date; once or more\n"
    "  --raw              show control characters as they are also on a terminal\n"
    "  --timeout SECONDS  wait so long for the service in all; 60\n"
    "  --help             this text\n"
    "  --version          name and version\n"
    "\n"
    "What no option says, the environment may: a name in capitals above.  Port, group and macro\n"
    "are needed.  @OPER=AND or @OPER=OR among the words says how they are joined.\n"
    "Status: 0; 1 the answer carries an error line; 64 wrong use; 66 the answer is empty; 68 the\n"
    "host is unknown; 69 the service cannot be reached; 75 the time ran out.\n";

constexpr option kOptions[] = {{"doc", required_argument, nullptr, 'd'},
                               {"group", required_argument, nullptr, 'g'},
                               {"header", required_argument, nullptr, 'F'},
                               {"help", no_argument, nullptr, 'h'},
                               {"host", required_argument, nullptr, 'H'},
                               {"macro", required_argument, nullptr, 'm'},
                               {"max-hits", required_argument, nullptr, 'n'},
                               {"port", required_argument, nullptr, 'p'},
                               {"raw", no_argument, nullptr, 'r'},
                               {"timeout", required_argument, nullptr, 't'},
                               {"type", required_argument, nullptr, 'T'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

// The value, or another when there is none or it is empty.
const char *FromEnvironment(const char *name, const char *otherwise) {
  const char *value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : otherwise;
}

struct Command {
  Peer peer = {FromEnvironment("KORVO_HOST", "127.0.0.1"), 0, kDefaultTimeout};
  Request request;
  bool raw = false;
};

void TakeOption(Command *command, int letter) {
  if (Peer_TakeOption(&command->peer, letter)) return;
  switch (letter) {
    case 'g': command->request.group = optarg; break;
    case 'm': command->request.macro = optarg; break;
    case 'T': command->request.type = optarg; break;
    case 'n': command->request.max_hits = Tool_Number("--max-hits", optarg, 0, INT32_MAX); break;
    case 'd': command->request.doc = Tool_Number("--doc", optarg, 0, INT32_MAX); break;
    case 'F': command->request.headers.emplace_back(optarg); break;
    case 'r': command->raw = true; break;
    default: Tool_TakeInfoOption(letter, kHelp);
  }
}

Command ReadCommand(int argc, char **argv) {
  Command command;
  command.request.group = FromEnvironment("KORVO_GROUP", "");
  command.request.macro = FromEnvironment("KORVO_MACRO", "");
  for (int letter; (letter = Tool_NextOption(argc, argv, ":", kOptions)) != -1;)
    TakeOption(&command, letter);
  // Read last: an option that replaces it makes a wrong one harmless.
  const char *port = FromEnvironment("KORVO_PORT", nullptr);
  if (command.peer.port == 0 && port != nullptr)
    command.peer.port = Tool_Number("KORVO_PORT", port, 1, kPeerMaxPort);
  command.request.predicate.assign(argv + optind, argv + argc);
  return command;
}

int Connect(Peer *peer, const sockaddr_in &address) {
  const int sock = Peer_Socket(SOCK_STREAM);
  if (connect(sock, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) return sock;
  if (errno != EINPROGRESS) Peer_FailUnreachable(*peer, errno);
  Peer_Wait(peer, sock, POLLOUT);
  const int err = Peer_PendingError(sock);
  if (err != 0) Peer_FailUnreachable(*peer, err);
  return sock;
}

void Send(Peer *peer, int sock, std::string_view line) {
  while (!line.empty()) {
    Peer_Wait(peer, sock, POLLOUT);
    const ssize_t sent = send(sock, line.data(), line.size(), MSG_NOSIGNAL);
    if (sent >= 0)
      line.remove_prefix(static_cast<std::size_t>(sent));
    else if (errno != EAGAIN && errno != EINTR)
      Peer_FailUnreachable(*peer, errno);
  }
}

// Copies the answer to standard output until the service closes the connection.
Answer Receive(Peer *peer, int sock, bool readable) {
  Answer answer;
  char buffer[65536];
  for (;;) {
    Peer_Wait(peer, sock, POLLIN);
    const ssize_t got = recv(sock, buffer, sizeof buffer, 0);
    if (got == 0) break;
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (got < 0)
      Tool_Fail(EX_UNAVAILABLE, "%s/%d broke off after %zu bytes: %s", peer->host, peer->port,
                answer.size, std::strerror(errno));
    const std::string_view bytes(buffer, static_cast<std::size_t>(got));
    Tool_Print(readable ? Answer_Readable(bytes, answer.last) : bytes);
    Answer_Add(&answer, bytes);
  }
  if (readable && answer.last != '\n') Tool_Print("\n");
  return answer;
}

}  // namespace

int main(int argc, char **argv) {
  Tool_Start();
  Command command = ReadCommand(argc, argv);
  std::string line, wrong;
  if (!Request_Format(command.request, &line, &wrong)) Tool_Fail(EX_USAGE, "%s", wrong.c_str());

  const sockaddr_in address = Peer_Address(&command.peer, "--port (or KORVO_PORT)");
  const int sock = Connect(&command.peer, address);
  Send(&command.peer, sock, line);
  const Answer answer = Receive(&command.peer, sock, !command.raw && isatty(STDOUT_FILENO) == 1);
  if (answer.size == 0)
    Tool_Fail(
        EX_NOINPUT,
        "%s/%d gave an empty answer: it cannot open the macro %s, or nothing was found and the macro has no frames",
        command.peer.host, command.peer.port, command.request.macro.c_str());
  return answer.error ? kAnswerError : EX_OK;
}
