// korvo-wire play: one side of an exchange, for those who write the other.
#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/common/peer.h"
#include "tools/common/tool.h"
#include "tools/wire/case.h"
#include "tools/wire/commands.h"
#include "tools/wire/misbehave.h"
#include "tools/wire/run.h"

namespace {

constexpr int kPatienceMs = 60000;
constexpr int kPauseMs = 100;  // where there is no descriptor for a connection

struct Play {
  std::string file, actor, which;
  sockaddr_in to = {}, announce = {};
  int port = 0, times = 0, patience = kPatienceMs;
  const Misbehaviour *misbehaviour = nullptr;
  std::vector<Step> steps;  // of the actor alone
};

constexpr option kOptions[] = {{"as", required_argument, nullptr, 'a'},
                               {"case", required_argument, nullptr, 'c'},
                               {"to", required_argument, nullptr, 't'},
                               {"port", required_argument, nullptr, 'l'},
                               {"announce", required_argument, nullptr, 'n'},
                               {"misbehave", required_argument, nullptr, 'm'},
                               {"times", required_argument, nullptr, 'i'},
                               {"patience", required_argument, nullptr, 'p'},
                               {"help", no_argument, nullptr, 'h'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

void TakeOption(Play *play, int letter) {
  switch (letter) {
    case 'a': play->actor = optarg; break;
    case 'c': play->which = optarg; break;
    case 't': play->to = Wire_Address(optarg, "--to"); break;
    case 'l': play->port = Tool_Number("--port", optarg, 1, kPeerMaxPort); break;
    case 'n': play->announce = Wire_Address(optarg, "--announce"); break;
    case 'm': play->misbehaviour = Misbehave_Of(optarg); break;
    case 'i': play->times = Tool_Number("--times", optarg, 1, kTranscriptTimes); break;
    case 'p': play->patience = Tool_Number("--patience", optarg, 1, kTranscriptMs); break;
    default: Wire_TakeInfo(letter);
  }
}

const Case &CaseOf(const Play &play, const Transcript &transcript) {
  for (const Case &one : transcript.cases)
    if (play.which.empty() || one.name == play.which) return one;
  Tool_Fail(EX_NOINPUT, "there is no case %s in %s", play.which.c_str(), play.file.c_str());
}

void TakeSteps(Play *play) {
  const Transcript transcript = Wire_Transcript(play->file);
  for (const Step &step : CaseOf(*play, transcript).steps) {
    if (step.verb == Verb::kFile || (step.actor.empty() && step.verb != Verb::kWait)) continue;
    if (play->actor.empty()) play->actor = step.actor;
    if (step.actor.empty() || step.actor == play->actor) play->steps.push_back(step);
  }
  if (play->steps.empty())
    Tool_Fail(EX_DATAERR, "%s has nothing that is to be played", play->file.c_str());
}

Play ReadCommand(int argc, char **argv) {
  Play play;
  for (int letter; (letter = Tool_NextOption(argc, argv, ":", kOptions)) != -1;)
    TakeOption(&play, letter);
  if (argc - optind != 1 || (play.port == 0) == (play.to.sin_port == 0))
    Tool_Fail(EX_USAGE, "play takes a file, and --to HOST:PORT or --port PORT");
  play.file = argv[optind];
  TakeSteps(&play);
  return play;
}

// Until the other side goes.
void AwaitEnd(Actor *actor) {
  while (!actor->ended) Stage_Receive(actor, -1);
}

// What a misbehaviour makes of a step that sends; false: the connection is over.
bool SendSpoiled(const Play &play, Running *running, Step step, bool first, std::string *why) {
  Actor *actor = &running->stage.actors[play.actor];
  Sent sent = {Pattern_Bytes(step.items, running->stage.scene), first};
  play.misbehaviour->apply(&sent);
  step.items = {{ItemKind::kLiteral, sent.bytes, 0, {}}};
  if (sent.piece > 0) {
    step.piece = sent.piece;
    step.every = sent.every;
  }
  if (!Run_Step(running, step, why)) return false;
  if (sent.after == After::kGoOn) return true;
  if (sent.after == After::kHalfClose) shutdown(actor->sock, SHUT_WR);
  if (sent.after == After::kHalfClose || sent.after == After::kHang) AwaitEnd(actor);
  Stage_Part(actor, sent.after == After::kReset);
  return false;
}

// Plays steps over a connection; false with the place and the reason when what came was not what
// they expect.
bool PlaySteps(const Play &play, Running *running, const std::vector<Step> &steps,
               std::string *why) {
  bool first = true;
  for (const Step &step : steps) {
    why->clear();
    const bool spoiled = play.misbehaviour != nullptr && step.verb == Verb::kSend;
    const bool good =
        spoiled ? SendSpoiled(play, running, step, first, why) : Run_Step(running, step, why);
    if (step.verb == Verb::kSend) first = false;
    if (good) continue;
    if (why->empty()) return true;  // the misbehaviour has ended it
    *why = play.file + ":" + std::to_string(step.line) + ": " + *why;
    return false;
  }
  return true;
}

void SetUp(const Play &play, Running *running) {
  running->stage.patience = play.patience;
  running->stage.client_port = running->stage.admin_port = play.to;
  running->stage.scene.dir = std::filesystem::current_path();
  Actor &actor = running->stage.actors[play.actor];
  actor.listens = play.port != 0;
  if (play.port == 0 && play.actor.starts_with("admin") &&
      !Stage_Enter(&running->stage, play.actor))
    Tool_Fail(EX_OSERR, "there is no free port for %s", play.actor.c_str());
}

int PlayOut(const Play &play) {
  Running running;
  SetUp(play, &running);
  std::string why;
  const bool good = PlaySteps(play, &running, play.steps, &why);
  if (!good) Tool_Warn("%s", why.c_str());
  Stage_Close(&running.stage);
  return good ? EX_OK : kWireDiffers;
}

// What is played over one connection ends with a step that closes it.
std::vector<std::vector<Step>> Connections(const Play &play) {
  std::vector<std::vector<Step>> all(1);
  for (const Step &step : play.steps) {
    all.back().push_back(step);
    if (step.verb == Verb::kClose || step.verb == Verb::kReset) all.emplace_back();
  }
  if (all.back().empty()) all.pop_back();
  return all;
}

[[noreturn]] void PlayConnection(const Play &play, int sock, const std::vector<Step> &steps) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  Running running;
  SetUp(play, &running);
  running.stage.actors[play.actor].sock = sock;
  std::string why;
  const bool good = PlaySteps(play, &running, steps, &why);
  if (!good) Tool_Warn("%s", why.c_str());
  Stage_Close(&running.stage);
  _exit(good ? EX_OK : kWireDiffers);
}

void Announce(const Play &play) {
  if (play.announce.sin_port == 0) return;
  const std::string text = Case_Announcement(play.actor, play.port);
  const int sock = Peer_Socket(SOCK_DGRAM);
  sendto(sock, text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&play.announce),
         sizeof play.announce);
  close(sock);
}

// Every connection in a process of its own, so that one that hangs holds nobody.
int PlayIn(const Play &play) {
  Stage stage;
  int port = play.port;
  const int listener = Stage_Listen(&stage, {htonl(INADDR_ANY)}, &port);
  if (listener < 0)
    Tool_Fail(EX_UNAVAILABLE, "cannot listen on port %d: %s", port, std::strerror(errno));
  Announce(play);
  const std::vector<std::vector<Step>> connections = Connections(play);
  int failed = 0, status = 0;
  for (std::size_t number = 0; play.times == 0 || number < static_cast<std::size_t>(play.times);) {
    const int sock = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (sock < 0) {
      poll(nullptr, 0, kPauseMs);
      continue;
    }
    const pid_t pid = fork();
    if (pid < 0) Tool_Fail(EX_OSERR, "cannot start a process: %s", std::strerror(errno));
    if (pid == 0) {
      close(listener);
      PlayConnection(play, sock, connections[number % connections.size()]);
    }
    close(sock);
    ++number;
    while (waitpid(-1, &status, WNOHANG) > 0)
      if (status != 0) ++failed;
  }
  while (waitpid(-1, &status, 0) > 0)
    if (status != 0) ++failed;
  return failed > 0 ? kWireDiffers : EX_OK;
}

}  // namespace

int Wire_Play(int argc, char **argv) {
  const Play play = ReadCommand(argc, argv);
  return play.port != 0 ? PlayIn(play) : PlayOut(play);
}
