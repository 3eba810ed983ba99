// korvo-wire: exchanges over the wire, checked, played, listened to and sent again.
#include <arpa/inet.h>
#include <netdb.h>
#include <sysexits.h>

#include <cstring>

#include "tools/common/peer.h"
#include "tools/common/tool.h"
#include "tools/wire/commands.h"

namespace {

constexpr const char *kHelp =
    "usage: korvo-wire check [OPTION]... daemon|client COMMAND\n"
    "       korvo-wire check [OPTION]... searchmgr|docmgr HOST:PORT\n"
    "       korvo-wire play [OPTION]... --to HOST:PORT|--port PORT FILE\n"
    "       korvo-wire tap [OPTION]... LISTEN FORWARD\n"
    "       korvo-wire replay [OPTION]... --to HOST:PORT FOLDER\n"
    "\n"
    "  --cases PATH       folder with the cases, or one file of them; those that are installed\n"
    "  --case NAME        this case alone; with check once or more\n"
    "  --format FORMAT    of check: text, tap or junit\n"
    "  --jobs NUMBER      cases at the same time; twice the number of processors\n"
    "  --patience MS      what has to come comes in that time; 10000 with check, else 60000\n"
    "  --admin HOST:PORT  the admin port of a manager, for the cases with datagrams\n"
    "  --as ACTOR         who is played; the first of the file\n"
    "  --to HOST:PORT     connects to it; replay takes two, and compares them with each other\n"
    "  --port PORT        listens there, for one connection behind the other\n"
    "  --announce HOST:PORT\n"
    "                     says so to the admin port of a daemon\n"
    "  --misbehave HOW    drips, hangs, resets, half-closes, 40960-bytes, 40961-bytes,\n"
    "                     no-newline, nuls, 10000-hits or unknown-words\n"
    "  --times NUMBER     ends behind so many connections\n"
    "  --record FOLDER    writes each exchange there, as a transcript\n"
    "  --redact           without what users typed, and without the answers\n"
    "  --speed NUMBER     so many times as fast as it was recorded; 1\n"
    "  --help, --version  show this; show the version\n";

struct Command {
  const char *word;
  int (*run)(int argc, char **argv);
};

constexpr Command kCommands[] = {
    {"check", Wire_Check}, {"play", Wire_Play}, {"tap", Wire_Tap}, {"replay", Wire_Replay}};

}  // namespace

void Wire_TakeInfo(int letter) { Tool_TakeInfoOption(letter, kHelp); }

sockaddr_in Wire_Address(const char *text, const char *what) {
  const char *colon = std::strrchr(text, ':');
  const std::string host = colon == nullptr ? "127.0.0.1" : std::string(text, colon);
  Peer peer = {host.c_str(), 0, std::chrono::seconds(60)};
  peer.port = Tool_Number(what, colon == nullptr ? text : colon + 1, 1, kPeerMaxPort);
  return Peer_Address(&peer, what);
}

Transcript Wire_Transcript(const std::string &path) {
  Transcript transcript;
  std::string wrong;
  const int status = Transcript_Read(path, &transcript, &wrong);
  if (status != EX_OK) Tool_Fail(status, "%s", wrong.c_str());
  return transcript;
}

int main(int argc, char **argv) {
  Tool_Start();
  for (const Command &command : kCommands)
    if (argc > 1 && std::strcmp(argv[1], command.word) == 0) return command.run(argc - 1, argv + 1);
  constexpr option kOptions[] = {{"help", no_argument, nullptr, 'h'},
                                 {"version", no_argument, nullptr, 'V'},
                                 {nullptr, 0, nullptr, 0}};
  for (int letter; (letter = Tool_NextOption(argc, argv, "+:", kOptions)) != -1;)
    Wire_TakeInfo(letter);
  Tool_Fail(EX_USAGE, "the first argument is a command; --help shows all");
}
