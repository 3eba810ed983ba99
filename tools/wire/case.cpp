#include "tools/wire/case.h"

#include <algorithm>
#include <chrono>
#include <vector>

#include "tools/wire/run.h"

namespace {

using Clock = std::chrono::steady_clock;

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
  return dash == std::string::npos ? kRunId : name.substr(dash + 1);
}

bool NoPong(const Running &running, std::string *why) {
  *why = "the program does not answer a PING; its log is " +
         Transcript_Quote(Program_Errors(running.program));
  return false;
}

// Pings until the answer is there.  What comes too early is lost.
bool AwaitDaemon(Running *running, Actor *admin, std::string *why) {
  const auto begin = Clock::now();
  while (!Program_Wait(&running->program, 0) && Stage_MsSince(begin) < running->stage.patience) {
    if (!Stage_Send(&running->stage, admin, "\t@COMMAND=PING\t@SEQNUM=1\n", why)) return false;
    if (Stage_Receive(admin, 10) && !admin->came.empty()) return true;
  }
  return NoPong(*running, why);
}

// Behind its answer everything that came before it has been carried out.
bool Announce(Running *running, const std::vector<std::string> &names, std::string *why) {
  Actor *admin = &running->stage.actors["admin-"];
  if (!AwaitDaemon(running, admin, why)) return false;
  for (const std::string &name : names) {
    if (!running->stage.actors[name].listens) continue;
    const std::string text = Case_Announcement(name, running->stage.scene.ports[name]);
    if (!Stage_Send(&running->stage, admin, text, why)) return false;
  }
  if (!Stage_Send(&running->stage, admin, "\t@COMMAND=PING\t@SEQNUM=2\n", why)) return false;
  while (admin->came.find("\t@COMMAND=PONG\t@SEQNUM=2\n") == std::string::npos)
    if (!Stage_Receive(admin, running->stage.patience)) return NoPong(*running, why);
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
  for (const Step &step : which.steps)
    if (step.actor.starts_with("admin") && subject.admin_port.sin_port == 0)
      return "it needs --admin PORT";
  return {};
}

}  // namespace

std::string Case_Announcement(const std::string &actor, int port) {
  return std::string("\t@COMMAND=STARTUPANNOUNCEMENT\tID=") + IdOf(actor) +
         "\tTYPE=" + (actor[0] == 's' ? "S" : "D") +
         "\tIP=127.0.0.1\tCLIENTPORT=" + std::to_string(port) + "\tADMINPORT=9\n";
}

Outcome Case_Run(const Case &which, const Subject &subject) {
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
