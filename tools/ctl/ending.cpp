#include <signal.h>
#include <sysexits.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/common/tool.h"
#include "tools/ctl/commands.h"
#include "tools/ctl/process.h"
#include "tools/ctl/unit.h"

namespace {

// The only line that the id names, or the end of the process.
const ConfLine *TakeOne(const Request &request, const Conf &conf) {
  return Conf_TakeOnly(Request_Lines(request, conf), Request_Word(request, 0));
}

[[noreturn]] void FailAway(const ConfLine &line) {
  Tool_Fail(EX_UNAVAILABLE, "%s does not run on this machine", Ask_Target(line).name.c_str());
}

// The same, of a program of this machine.
const ConfLine *TakeHere(const Request &request, const Conf &conf) {
  const ConfLine *line = TakeOne(request, conf);
  if (Process_Socket(*line) == 0) FailAway(*line);
  return line;
}

void AddBelow(std::vector<const ConfLine *> *below,
              const std::map<const ConfLine *, std::vector<const ConfLine *>> &children,
              const ConfLine *parent) {
  const auto found = children.find(parent);
  if (found == children.end()) return;
  for (const ConfLine *child : found->second) {
    if (std::count(below->begin(), below->end(), child) == 1) continue;  // of two parents
    if (!Conf_IsHere(*child)) continue;
    below->push_back(child);
    AddBelow(below, children, child);
  }
}

// All programs of this machine that stop and start with it.
std::vector<const ConfLine *> BelowHere(const Conf &conf, const ConfLine &line) {
  std::vector<const ConfLine *> below;
  AddBelow(&below, Conf_Children(conf), &line);
  return below;
}

// Until no connection is in hand; how many are left when the time is over.
int AwaitIdle(const ConfLine &line, std::chrono::nanoseconds time) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + time;
  int left = 0;
  for (;;) {
    const Connections connections = Process_Connections(line);
    left = connections.in_hand + connections.waiting;
    if (left == 0 || Clock::now() >= end) break;
    Ask_Progress(
        Tool_Format("waiting for %d connections of %s", left, Ask_Target(line).name.c_str())
            .c_str());
    constexpr timespec kPause = {0, 50000000};
    nanosleep(&kPause, nullptr);
  }
  Ask_Progress(nullptr);
  return left;
}

}  // namespace

int Command_Drain(Request *request) {
  const Conf conf = Conf_Read(request->dir);
  const ConfLine &line = *TakeHere(*request, conf);
  const std::string name = Ask_Target(line).name;
  if (line.config.Type == 'E')
    Tool_Fail(EX_UNAVAILABLE,
              "managers keep their connections to %s for as long as both live, and it is never "
              "without one; korvoctl stop ends it at once",
              name.c_str());
  Tool_Warn("%s goes on accepting; have the balancer keep new connections away", name.c_str());
  const int left = AwaitIdle(line, request->peer.left);
  if (left > 0)
    Tool_Fail(EX_TEMPFAIL, "%s has %d connections still; --timeout gives them more", name.c_str(),
              left);
  return EX_OK;
}

int Command_Stop(Request *request) {
  const Conf conf = Conf_Read(request->dir);
  const ConfLine &line = *TakeHere(*request, conf);
  // A manager keeps its connections to an engine for as long as both live.
  if (line.config.Type != 'E') AwaitIdle(line, request->peer.left);
  // A unit would start it again.
  if (const std::string unit = Process_Unit(Process_Main(line)); !unit.empty()) {
    Unit_Do("stop", unit, line);
    return EX_OK;
  }
  const Target target = Ask_Target(line);
  const int err = Ask_Send(target, "\t@COMMAND=SHUTDOWN\n");
  return err == 0 ? EX_OK : Ask_Complain(target, {Reply::kRefused, err, 0});
}

int Command_Restart(Request *request) {
  const Conf conf = Conf_Read(request->dir);
  const ConfLine &line = *TakeOne(*request, conf);
  std::string unit = Unit_Name(line);
  if (Process_Socket(line) != 0) {
    unit = Process_Unit(Process_Main(line));
    if (unit.empty())
      Tool_Fail(EX_UNAVAILABLE,
                "no unit of systemd runs %s, and nobody else knows how it was started",
                Ask_Target(line).name.c_str());
  } else {
    if (!Conf_IsHere(line) || Unit_State(unit).empty()) FailAway(line);
  }
  const std::vector<const ConfLine *> below = BelowHere(conf, line);
  // They may have come to the limit of their starts; systemd brings none that has.
  Unit_Reset(unit);
  for (const ConfLine *one : below) Unit_Reset(Unit_Name(*one));
  Unit_Do("restart", unit, line);
  std::vector<Target> targets = {Ask_Target(line)};
  for (const ConfLine *one : below) targets.push_back(Ask_Target(*one));
  return Ask_Await(targets, request->peer.left, 0) ? EX_OK : Ask_ComplainOfSilent(targets);
}

int Command_Reap(Request *request) {
  if (request->older.count() == 0)
    Tool_Fail(EX_USAGE, "reap needs --older, the age of a connection that may end");
  const Conf conf = Conf_Read(request->dir);
  const ConfLine &line = *TakeHere(*request, conf);
  if (line.config.Type != 'C')
    Tool_Fail(EX_UNAVAILABLE,
              "%s serves many connections with a process, and how old one is cannot be told",
              Conf_Name(line).c_str());
  const pid_t main = Process_Main(line);
  if (main == 0)
    Tool_Fail(EX_NOPERM,
              "the processes of %s belong to another user: do it as that one, or as root",
              Conf_Name(line).c_str());
  int status = EX_OK;
  for (const ProcessInfo &info : Process_Group(main)) {
    if (info.pid == main || info.age < static_cast<double>(request->older.count())) continue;
    if (kill(info.pid, SIGTERM) == 0) {
      Tool_Print(Tool_Format("ended process %d, %d s old\n", static_cast<int>(info.pid),
                             static_cast<int>(info.age)));
    } else if (errno != ESRCH) {
      Tool_Warn("cannot end process %d: %s", static_cast<int>(info.pid), std::strerror(errno));
      status = EX_NOPERM;
    }
  }
  return status;
}
