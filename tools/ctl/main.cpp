// korvoctl: the hand of an operator, on the programs of the service and on their configuration.
#include <sysexits.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <string_view>

#include "debug/log.h"
#include "tools/common/tool.h"
#include "tools/ctl/commands.h"

namespace {

constexpr std::int32_t kMaxTime = 30 * 86400;  // seconds
constexpr std::int32_t kMaxTimeout = 86400;

constexpr option kOptions[] = {{"count", no_argument, nullptr, 'c'},
                               {"dir", required_argument, nullptr, 'd'},
                               {"explain", no_argument, nullptr, 'e'},
                               {"follow", no_argument, nullptr, 'F'},
                               {"for", required_argument, nullptr, 'f'},
                               {"help", no_argument, nullptr, 'h'},
                               {"host", required_argument, nullptr, 'H'},
                               {"json", no_argument, nullptr, 'j'},
                               {"level", required_argument, nullptr, 'l'},
                               {"macro", required_argument, nullptr, 'M'},
                               {"macros", required_argument, nullptr, 'm'},
                               {"messages", required_argument, nullptr, 'g'},
                               {"module", required_argument, nullptr, 'k'},
                               {"nagios", no_argument, nullptr, 'n'},
                               {"older", required_argument, nullptr, 'o'},
                               {"pid", required_argument, nullptr, 'i'},
                               {"port", required_argument, nullptr, 'p'},
                               {"prometheus", no_argument, nullptr, 'P'},
                               {"state", required_argument, nullptr, 's'},
                               {"timeout", required_argument, nullptr, 't'},
                               {"version", no_argument, nullptr, 'V'},
                               {"watch", required_argument, nullptr, 'w'},
                               {nullptr, 0, nullptr, 0}};

enum class Id { kNone, kOptional, kNeeded, kOrPort };

struct Command {
  const char *name;
  Id id;
  int words;         // behind the id, at most
  char options[10];  // their letters
  int (*run)(Request *request);
  const char *help;
};

// clang-format off
constexpr Command kCommands[] = {
    {"check", Id::kOptional, 0, {'d', 'm', 'j'}, Command_Check,
     "  check [ID]           look for what is wrong in korvo.conf and korvo.db\n"},
    {"list", Id::kNone, 0, {'d', 't', 'j'}, Command_List,
     "  list                 show the tree of korvo.conf and who answers\n"},
    {"units", Id::kNone, 0, {'d'}, Command_Units,
     "  units                name the units of systemd for this machine's programs\n"},
    {"ping", Id::kOrPort, 0, {'d', 'H', 'p', 't', 'j'}, Command_Ping,
     "  ping ID              ask whether the program lives, and how fast it answers\n"},
    {"wait", Id::kOrPort, 0, {'d', 'H', 'p', 't', 'i'}, Command_Wait,
     "  wait ID              wait until it answers\n"},
    {"announce", Id::kOptional, 0, {'d', 't', 'w', 'M', 's'}, Command_Announce,
     "  announce [ID]        announce to it, or to all, the programs below\n"},
    {"level", Id::kOrPort, 1, {'d', 'H', 'p', 't', 'f'}, Command_Level,
     "  level ID LEVEL       set the level of its log: INFO, STATUS, WARNING, FATAL or OFF\n"},
    {"status", Id::kNeeded, 0, {'d', 't', 'j', 'n', 'P', 's', 'g'}, Command_Status,
     "  status ID            show how it is, and why it is not\n"},
    {"drain", Id::kNeeded, 0, {'d', 't'}, Command_Drain,
     "  drain ID             wait until it has no connection in hand\n"},
    {"stop", Id::kNeeded, 0, {'d', 't'}, Command_Stop,
     "  stop ID              wait so, but no longer than --timeout, and end it\n"},
    {"restart", Id::kNeeded, 0, {'d', 't'}, Command_Restart,
     "  restart ID           have its unit of systemd start it, and await it and those below it\n"},
    {"reap", Id::kNeeded, 0, {'d', 'o'}, Command_Reap,
     "  reap ID              end its connections above an age\n"},
    {"log", Id::kNone, 1, {'d', 'F', 'l', 'k', 'i', 'c', 'e', 'g', 'j'}, Command_Log,
     "  log [FILE | ID]      show a log, or standard input, or what is wanted of it\n"},
    {"shutdown", Id::kOrPort, 0, {'d', 'H', 'p', 't'}, Command_Shutdown,
     "  shutdown ID          end it at once\n"},
};
// clang-format on

constexpr const char *kUsage =
    "usage: korvoctl COMMAND [ID] [OPTION]...\n"
    "\n";

constexpr const char *kOptionHelp =
    "\n"
    "ID is a program's in korvo.conf, or ID:TYPE for one line of several with that id.\n"
    "\n"
    "  --dir DIR            the folder of korvo.conf and korvo.db\n"
    "  --host HOST          in place of an id: a name or an IPv4 address; 127.0.0.1\n"
    "  --port PORT          in place of an id: the admin port\n"
    "  --timeout TIME       wait so long for answers; 5s\n"
    "  --for TIME           of level: set it back to WARNING after 30s, 5m, 2h\n"
    "  --json               of check, list, ping, status and log --count: as JSON\n"
    "  --macro MACRO        of announce: a page macro; asks with it which Search Managers are known\n"
    "  --macros DIR         of check: look at the page frames and macros there\n"
    "  --nagios             of status: a line and an exit status for Nagios\n"
    "  --older TIME         of reap: the age\n"
    "  --prometheus         of status: figures for Prometheus\n"
    "  --state DIR          of announce and status: where it is kept who was announced\n"
    "  --watch TIME         of announce: do so again after that time, for ever\n"
    "  --count              of log: how often each message came\n"
    "  --explain            of log: cause, effect and remedy of each message\n"
    "  --follow             of log: go on with what comes\n"
    "  --level LEVEL        of log: messages of INFO, STATUS, WARNING or FATAL, 101 to 105, and above\n"
    "  --messages FILE      of log and status: what is known of the messages\n"
    "  --module NAME        of log: messages of Init, or of Init: ReadConf\n"
    "  --pid NUMBER         of log: messages of that process; of wait: no longer than that one lives\n"
    "  --help               this text\n"
    "  --version            name and version\n"
    "\n"
    "Status: 0; 1 check found what programs survive; 64 wrong use; 66 korvo.conf cannot be read;\n"
    "68 the host is unknown; 69 nobody listens there; 75 no answer in time; 78 korvo.conf has no\n"
    "such program, or check found what keeps one from starting.\n";

std::string Help() {
  std::string text = kUsage;
  for (const Command &command : kCommands) text += command.help;
  return text + kOptionHelp;
}

const char *NameOf(int letter) {
  for (const option *one = kOptions; one->name != nullptr; ++one)
    if (one->val == letter) return one->name;
  return "";
}

// A number of seconds, or of what the letter behind it says.
std::chrono::seconds TakeTime(const char *name, const char *text, std::int32_t most = kMaxTime) {
  const char *end = text + std::strlen(text);
  std::int32_t value = 0;
  const auto [stop, code] = std::from_chars(text, end, value);
  const std::string_view unit(stop, static_cast<std::size_t>(end - stop));
  const std::int32_t factor = unit.empty() || unit == "s" ? 1
                              : unit == "m"               ? 60
                              : unit == "h"               ? 3600
                                                          : 0;
  if (code != std::errc{} || factor == 0 || value < 1 || value > most / factor)
    Tool_Fail(EX_USAGE, "%s takes a time such as 30s, 5m or 2h, not '%s'", name, text);
  return std::chrono::seconds(value * factor);
}

// As the level command has it, or a number.
std::int32_t TakeLevel(const char *text) {
  constexpr const char *kNames[] = {"INFO", "STATUS", "WARNING", "FATAL"};
  std::int32_t level = kInfo;
  for (const char *name : kNames) {
    if (std::strcmp(name, text) == 0) return level;
    ++level;
  }
  const char *end = text + std::strlen(text);
  const auto [stop, code] = std::from_chars(text, end, level);
  if (code != std::errc{} || stop != end || level < kInfo || level > kOff)
    Tool_Fail(EX_USAGE, "--level takes INFO, STATUS, WARNING, FATAL or %d to %d, not '%s'", kInfo,
              kOff, text);
  return level;
}

void TakeOption(Request *request, int letter) {
  // With units, which the other tools have no use for.
  if (letter == 't') {
    request->peer.left = TakeTime("--timeout", optarg, kMaxTimeout);
    return;
  }
  if (Peer_TakeOption(&request->peer, letter)) return;
  switch (letter) {
    case 'd': request->dir = optarg; break;
    case 'j': request->form = Form::kJson; break;
    case 'M': request->macro = optarg; break;
    case 'm': request->macros = optarg; break;
    case 'c': request->count = true; break;
    case 'e': request->explain = true; break;
    case 'F': request->follow = true; break;
    case 'g': request->messages = optarg; break;
    case 'i': request->pid = Tool_Number("--pid", optarg, 1, INT32_MAX); break;
    case 'k': request->module = optarg; break;
    case 'l': request->level = TakeLevel(optarg); break;
    case 'n': request->form = Form::kNagios; break;
    case 'o': request->older = TakeTime("--older", optarg); break;
    case 'P': request->form = Form::kPrometheus; break;
    case 's': request->state = optarg; break;
    case 'w': request->watch = TakeTime("--watch", optarg); break;
    case 'f': request->spell = TakeTime("--for", optarg); break;
    default: Tool_TakeInfoOption(letter, Help().c_str());
  }
}

const Command &FindCommand(const char *name) {
  for (const Command &command : kCommands)
    if (std::strcmp(name, command.name) == 0) return command;
  Tool_Fail(EX_USAGE, "there is no command %s; --help shows all", name);
}

void CheckOptions(const Command &command, const std::string &letters) {
  for (const char letter : letters)
    if (std::strchr(command.options, letter) == nullptr)
      Tool_Fail(EX_USAGE, "%s does not take --%s; --help shows what it is for", command.name,
                NameOf(letter));
}

void CheckForms(const std::string &letters) {
  std::string form;
  for (const char letter : letters) {
    if (letter != 'j' && letter != 'n' && letter != 'P') continue;
    if (!form.empty() && form != NameOf(letter))
      Tool_Fail(EX_USAGE, "--%s and --%s are two forms of one answer; take one", form.c_str(),
                NameOf(letter));
    form = NameOf(letter);
  }
}

void CheckWords(const Command &command, const Request &request) {
  const std::size_t ids = command.id == Id::kNone || Request_HasPlace(request) ? 0 : 1;
  if (request.words.empty() && ids == 1 && command.id == Id::kNeeded)
    Tool_Fail(EX_USAGE, "%s needs the id of a program in korvo.conf", command.name);
  if (request.words.empty() && ids == 1 && command.id == Id::kOrPort)
    Tool_Fail(EX_USAGE, "%s needs the id of a program in korvo.conf, or --port", command.name);
  const std::size_t most = ids + static_cast<std::size_t>(command.words);
  if (request.words.size() > most)
    Tool_Fail(EX_USAGE, "%s takes nothing more; leave out %s", command.name,
              request.words[most].c_str());
}

}  // namespace

int main(int argc, char **argv) {
  Tool_Start();
  Debug_Level = kOff;  // what a stranger's datagram lacks is no news to the user
  Request request;
  std::string letters;
  for (int letter; (letter = Tool_NextOption(argc, argv, ":", kOptions)) != -1;) {
    letters += static_cast<char>(letter);
    TakeOption(&request, letter);
  }
  if (optind == argc) Tool_Fail(EX_USAGE, "needs a command; --help shows all");
  const Command &command = FindCommand(argv[optind++]);
  request.command = command.name;
  request.words.assign(argv + optind, argv + argc);
  CheckOptions(command, letters);
  CheckForms(letters);
  CheckWords(command, request);
  return command.run(&request);
}
