#include "tools/wire/run.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kLookEveryMs = 2;
constexpr const char *kId = "packages";  // of both managers, as in the examples of the documents

int MsSince(Clock::time_point begin) {
  return static_cast<int>(std::chrono::duration_cast<milliseconds>(Clock::now() - begin).count());
}

Actor *ActorOf(Running *running, const Step &step) { return &running->stage.actors[step.actor]; }

std::string Came(const Actor &actor) {
  std::string came = "came " + Pattern_Show({{ItemKind::kLiteral, actor.came, 0, {}}}, {});
  if (actor.came.empty()) came = "nothing came";
  if (actor.reset) return came + " and then a reset";
  return actor.ended ? came + " and then the end" : came;
}

bool Expected(const std::string &what, const Actor &actor, std::string *why) {
  *why = "expected " + what + "; " + Came(actor);
  return false;
}

bool Send(Running *running, const Step &step, std::string *why) {
  Actor *actor = ActorOf(running, step);
  if (!Stage_Connect(&running->stage, actor, why)) return false;
  const std::string bytes = Pattern_Bytes(step.items, running->stage.scene);
  if (step.piece == 0) return Stage_Send(&running->stage, actor, bytes, why);
  const auto piece = static_cast<std::size_t>(step.piece);
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    if (at > 0) std::this_thread::sleep_for(milliseconds(step.every));
    if (!Stage_Send(&running->stage, actor, bytes.substr(at, piece), why)) return false;
  }
  return true;
}

// Receives until the items fit what has come, or never will.
bool Expect(Running *running, const Step &step, std::string *why) {
  Actor *actor = ActorOf(running, step);
  Stage *stage = &running->stage;
  const std::string shown = Pattern_Show(step.items, stage->scene);
  const auto begin = Clock::now();
  if (!Stage_Connect(stage, actor, why)) {
    *why = "expected " + shown + "; " + *why;
    return false;
  }
  for (;;) {
    // A datagram is whole or not there.
    const bool ended = actor->ended || (actor->datagrams && !actor->came.empty());
    std::size_t length = 0;
    const Fit fit = Pattern_Match(step.items, actor->came, ended, &stage->scene, &length);
    if (fit == Fit::kYes) {
      if (actor->datagrams && length < actor->came.size()) return Expected(shown, *actor, why);
      actor->came.erase(0, length);
      break;
    }
    if (fit == Fit::kNo) return Expected(shown, *actor, why);
    const int left = stage->patience - MsSince(begin);
    if (left <= 0 || !Stage_Receive(actor, left)) return Expected(shown, *actor, why);
  }
  return true;
}

bool ExpectEnd(Running *running, const Step &step, std::string *why) {
  Actor *actor = ActorOf(running, step);
  const bool reset = step.verb == Verb::kExpectReset;
  const char *what = reset ? "the end or a reset" : "the end";
  if (!Stage_Connect(&running->stage, actor, why)) return false;
  const auto begin = Clock::now();
  while (!actor->ended && actor->came.empty()) {
    const int left = running->stage.patience - MsSince(begin);
    if (left <= 0 || !Stage_Receive(actor, left)) return Expected(what, *actor, why);
  }
  if (!actor->came.empty() || (actor->reset && !reset)) return Expected(what, *actor, why);
  return true;
}

bool ExpectNothing(Running *running, const Step &step, std::string *why) {
  Actor *actor = ActorOf(running, step);
  if (!Stage_Connect(&running->stage, actor, why)) return false;
  Stage_Receive(actor, step.count);
  return (actor->came.empty() && !actor->ended) || Expected("nothing", *actor, why);
}

bool NotCalled(Running *running, const Step &step, std::string *why) {
  const Actor *actor = ActorOf(running, step);
  pollfd ready = {actor->listener, POLLIN, 0};
  if (actor->sock < 0 && poll(&ready, 1, 0) <= 0) return true;
  *why = "expected that nobody calls " + step.actor + "; somebody did";
  return false;
}

bool Log(Running *running, const Step &step, std::string *why) {
  const std::string wanted = Pattern_Bytes(step.items, running->stage.scene);
  const auto begin = Clock::now();
  for (;;) {
    const std::string log = Program_Errors(running->program);
    const bool found = log.find(wanted) != std::string::npos;
    if (found == (step.verb == Verb::kLogHas)) return true;
    if (!found && MsSince(begin) < running->stage.patience) {
      std::this_thread::sleep_for(milliseconds(kLookEveryMs));
      continue;
    }
    *why = std::string(found ? "expected no line of the log with " : "expected in the log ") +
           Transcript_Quote(wanted) + "; the log is " +
           Pattern_Show({{ItemKind::kLiteral, log, 0, {}}}, {});
    return false;
  }
}

bool File(Running *running, const Step &step, std::string *why) {
  const std::string path = running->stage.scene.dir + "/" + step.actor;
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  if (Program_WriteFile(path, Pattern_Bytes(step.items, running->stage.scene))) return true;
  *why = "cannot write " + path;
  return false;
}

bool Start(Running *running, const Step &step, std::string *why) {
  std::vector<std::string> arguments;
  for (const Item &item : step.items)
    arguments.push_back(Pattern_Bytes({item}, running->stage.scene));
  Program_Stop(&running->program);
  running->program = {-1, running->stage.scene.dir, false, -1};
  const std::string port = std::to_string(running->stage.scene.ports["daemon"]);
  if (Program_Start(&running->program, running->command, arguments,
                    {"KORVO_HOST=127.0.0.1", "KORVO_PORT=" + port,
                     std::string("KORVO_GROUP=") + kId, "KORVO_MACRO=package"}))
    return true;
  *why = "cannot start " + running->command;
  return false;
}

bool Finished(Running *running, std::string *why) {
  if (Program_Wait(&running->program, running->stage.patience)) return true;
  *why = "expected the end of the program; it goes on";
  return false;
}

bool Output(Running *running, const Step &step, std::string *why) {
  if (!Finished(running, why)) return false;
  Actor shown;
  shown.came = Program_Output(running->program);
  std::size_t length = 0;
  const Fit fit = Pattern_Match(step.items, shown.came, true, &running->stage.scene, &length);
  if (fit == Fit::kYes && length == shown.came.size()) return true;
  const std::string output = Pattern_Show(step.items, running->stage.scene);
  return Expected("the output " + (output.empty() ? std::string("\"\"") : output), shown, why);
}

bool Status(Running *running, const Step &step, std::string *why) {
  if (!Finished(running, why)) return false;
  const bool same = running->program.status == step.count;
  if (same == (step.verb == Verb::kStatus)) return true;
  *why = std::string("expected ") + (same ? "another status than " : "the status ") +
         std::to_string(step.count) + "; it was " + std::to_string(running->program.status);
  return false;
}

bool Act(Running *running, const Step &step, std::string *why) {
  Actor *actor = ActorOf(running, step);
  switch (step.verb) {
    case Verb::kSend: return Send(running, step, why);
    case Verb::kExpect: return Expect(running, step, why);
    case Verb::kExpectEnd:
    case Verb::kExpectReset: return ExpectEnd(running, step, why);
    case Verb::kExpectNothing: return ExpectNothing(running, step, why);
    case Verb::kConnect: return Stage_Connect(&running->stage, actor, why);
    case Verb::kClose: Stage_Part(actor, false); return true;
    case Verb::kReset: Stage_Part(actor, true); return true;
    case Verb::kHalfClose: shutdown(actor->sock, SHUT_WR); return true;
    case Verb::kLeave: Stage_Leave(actor); return true;
    case Verb::kNotCalled: return NotCalled(running, step, why);
    case Verb::kWait: std::this_thread::sleep_for(milliseconds(step.count)); return true;
    case Verb::kLogHas:
    case Verb::kLogLacks: return Log(running, step, why);
    case Verb::kFile: return File(running, step, why);
    case Verb::kStart: return Start(running, step, why);
    case Verb::kOutput: return Output(running, step, why);
    default: return Status(running, step, why);
  }
}

// Actors in the order in which the case names them.
std::vector<std::string> ActorsOf(const Case &which) {
  std::vector<std::string> names;
  for (const Step &step : which.steps)
    if (!step.actor.empty() && step.verb != Verb::kFile &&
        std::find(names.begin(), names.end(), step.actor) == names.end())
      names.push_back(step.actor);
  return names;
}

bool Enter(Running *running, const std::vector<std::string> &names, std::string *why) {
  for (const std::string &name : names)
    if (!Stage_Enter(&running->stage, name)) {
      *why = "there is no free port for " + name;
      return false;
    }
  return true;
}

// The rest of a name, or the id that both managers have in the examples.
std::string IdOf(const std::string &name) {
  const std::size_t dash = name.find('-');
  return dash == std::string::npos ? kId : name.substr(dash + 1);
}

// Pings until the answer is there.  What comes too early is lost.
bool AwaitDaemon(Running *running, Actor *admin, std::string *why) {
  const auto begin = Clock::now();
  while (!Program_Wait(&running->program, 0) && MsSince(begin) < running->stage.patience) {
    if (!Stage_Send(&running->stage, admin, "\t@COMMAND=PING\t@SEQNUM=1\n", why)) return false;
    if (Stage_Receive(admin, 10) && !admin->came.empty()) return true;
  }
  *why = "the program does not answer a PING; its log is " +
         Transcript_Quote(Program_Errors(running->program));
  return false;
}

// Behind its answer everything that came before it has been carried out.
bool Announce(Running *running, const std::vector<std::string> &names, std::string *why) {
  Actor *admin = &running->stage.actors["admin-"];
  if (!AwaitDaemon(running, admin, why)) return false;
  for (const std::string &name : names) {
    if (!running->stage.actors[name].listens) continue;
    const std::string text = Run_Announcement(name, running->stage.scene.ports[name]);
    if (!Stage_Send(&running->stage, admin, text, why)) return false;
  }
  if (!Stage_Send(&running->stage, admin, "\t@COMMAND=PING\t@SEQNUM=2\n", why)) return false;
  while (admin->came.find("\t@COMMAND=PONG\t@SEQNUM=2\n") == std::string::npos)
    if (!Stage_Receive(admin, running->stage.patience))
      return Expected("\"\\t@COMMAND=PONG\\t@SEQNUM=2\\n\"", *admin, why);
  return true;
}

bool StartDaemon(Running *running, const std::vector<std::string> &names, std::string *why) {
  Stage *stage = &running->stage;
  const int client = Stage_ReservePort(stage), admin = Stage_ReservePort(stage);
  stage->client_port = Stage_Loopback(client);
  stage->admin_port = Stage_Loopback(admin);
  const std::string line =
      "web1 C 127.0.0.1 " + std::to_string(client) + " " + std::to_string(admin) + " -\n";
  if (!Stage_Enter(stage, "admin-") || !Program_WriteFile(stage->scene.dir + "/korvo.conf", line) ||
      !Program_Start(&running->program, running->command, {"web1", stage->scene.dir}, {})) {
    *why = "cannot start " + running->command;
    return false;
  }
  return Announce(running, names, why);
}

bool SetUp(Running *running, const Case &which, const Subject &subject, std::string *why) {
  Stage *stage = &running->stage;
  stage->scene.dir = running->program.folder = Program_MakeFolder();
  stage->subject = subject.role;
  stage->patience = subject.patience;
  stage->client_port = subject.client_port;
  stage->admin_port = subject.admin_port;
  running->command = subject.command;
  if (stage->scene.dir.empty()) {
    *why = "cannot make a folder";
    return false;
  }
  const std::vector<std::string> names = ActorsOf(which);
  if (!Enter(running, names, why)) return false;
  return subject.role != Role::kDaemon || StartDaemon(running, names, why);
}

// Why the case cannot be held against the subject, or an empty text.
std::string SkipReason(const Case &which, const Subject &subject) {
  if (subject.role != Role::kSearchMgr && subject.role != Role::kDocMgr) return {};
  for (const Step &step : which.steps) {
    if (step.actor.starts_with("admin") && subject.admin_port.sin_port == 0)
      return "it needs --admin PORT";
    if (step.verb == Verb::kLogHas || step.verb == Verb::kLogLacks)
      return "it needs the log of the program";
  }
  return {};
}

}  // namespace

std::string Run_Announcement(const std::string &actor, int port) {
  return std::string("\t@COMMAND=STARTUPANNOUNCEMENT\tID=") + IdOf(actor) +
         "\tTYPE=" + (actor[0] == 's' ? "S" : "D") +
         "\tIP=127.0.0.1\tCLIENTPORT=" + std::to_string(port) + "\tADMINPORT=9\n";
}

bool Run_Step(Running *running, const Step &step, std::string *why) {
  const auto begin = Clock::now();
  if (!Act(running, step, why)) return false;
  const int took = MsSince(begin);
  if (step.before > 0 && took >= step.before) {
    *why = "expected it before " + std::to_string(step.before) + " ms; it took " +
           std::to_string(took) + " ms";
    return false;
  }
  if (took >= step.not_before) return true;
  *why = "expected it not before " + std::to_string(step.not_before) + " ms; it took " +
         std::to_string(took) + " ms";
  return false;
}

Outcome Run_Case(const Case &which, const Subject &subject) {
  Outcome outcome;
  outcome.why = SkipReason(which, subject);
  outcome.line = which.line;
  if (!outcome.why.empty()) {
    outcome.result = Result::kSkipped;
    return outcome;
  }
  Running running;
  bool good = SetUp(&running, which, subject, &outcome.why);
  for (std::size_t i = 0; good && i < which.steps.size(); ++i) {
    outcome.line = which.steps[i].line;
    good = Run_Step(&running, which.steps[i], &outcome.why);
  }
  if (!good) outcome.result = Result::kFailed;
  Stage_Close(&running.stage);
  Program_Stop(&running.program);
  Program_RemoveFolder(running.program.folder);
  return outcome;
}
