#include <signal.h>
#include <sysexits.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "tools/common/tool.h"
#include "tools/ctl/commands.h"

namespace {

bool IsLevel(std::string_view word) {
  for (const std::string_view level : {"INFO", "STATUS", "WARNING", "FATAL", "OFF"})
    if (word == level) return true;
  return false;
}

// The last word: the id is before it, if there is one.
std::string TakeLevel(const Request &request) {
  const char *level = Request_Word(request, Request_HasPlace(request) ? 0 : 1);
  if (!Request_HasPlace(request) && request.words.size() == 1 && IsLevel(request.words[0]))
    Tool_Fail(EX_USAGE, "level needs the id of a program in korvo.conf, or --port, besides %s",
              request.words[0].c_str());
  if (!IsLevel(level))
    Tool_Fail(EX_USAGE, "level takes INFO, STATUS, WARNING, FATAL or OFF, not '%s'", level);
  return level;
}

// To all of them, also behind one that cannot be reached.
int SendAll(const std::vector<Target> &targets, const std::string &datagram) {
  int status = EX_OK;
  for (const Target &target : targets)
    if (const int err = Ask_Send(target, datagram); err != 0)
      status = Ask_Complain(target, {Reply::kRefused, err, 0});
  return status;
}

int SetLevel(const std::vector<Target> &targets, const std::string &level) {
  return SendAll(targets, "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=" + level + "\n");
}

int PrintJson(const std::vector<Target> &targets, const std::vector<Asked> &asked) {
  std::string text;
  int status = EX_OK;
  for (std::size_t i = 0; i < targets.size(); ++i) {
    const bool is_up = asked[i].reply == Reply::kPong;
    text += Tool_Format("%s{\"program\": %s, \"answer\": %s, \"ms\": %s}", i == 0 ? "[" : ",\n ",
                        Request_Json(targets[i].name).c_str(),
                        Request_Json(is_up ? "PONG" : Ask_Text(asked[i])).c_str(),
                        is_up ? Tool_Format("%.3f", asked[i].milliseconds).c_str() : "null");
    if (!is_up) status = asked[i].reply == Reply::kNone ? EX_TEMPFAIL : EX_UNAVAILABLE;
  }
  Tool_Print(text + "]\n");
  return status;
}

}  // namespace

int Command_Ping(Request *request) {
  const std::vector<Target> targets = Request_Targets(request);
  const std::vector<Asked> asked = Ask_Ping(targets, request->peer.left);
  if (request->form == Form::kJson) return PrintJson(targets, asked);
  int status = EX_OK;
  for (std::size_t i = 0; i < targets.size(); ++i) {
    if (asked[i].reply == Reply::kPong)
      Tool_Print(
          Tool_Format("PONG from %s in %.3f ms\n", targets[i].name.c_str(), asked[i].milliseconds));
    else
      status = Ask_Complain(targets[i], asked[i]);
  }
  return status;
}

int Command_Level(Request *request) {
  const std::string level = TakeLevel(*request);
  const std::vector<Target> targets = Request_Targets(request);
  if (request->spell.count() == 0) return SetLevel(targets, level);
  // Held back, so that they end the wait and not the process.
  sigset_t ending;
  sigemptyset(&ending);
  for (const int signal_number : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&ending, signal_number);
  sigprocmask(SIG_BLOCK, &ending, nullptr);
  const int status = SetLevel(targets, level);
  for (auto left = request->spell; left.count() > 0; --left) {
    Ask_Progress(
        Tool_Format("level %s: %d s left", level.c_str(), static_cast<int>(left.count())).c_str());
    const timespec second = {1, 0};
    if (sigtimedwait(&ending, nullptr, &second) > 0) break;
  }
  Ask_Progress(nullptr);
  return std::max(status, SetLevel(targets, "WARNING"));
}

int Command_Shutdown(Request *request) {
  return SendAll(Request_Targets(request), "\t@COMMAND=SHUTDOWN\n");
}

int Command_Wait(Request *request) {
  const std::vector<Target> targets = Request_Targets(request);
  if (Ask_Await(targets, request->peer.left, request->pid)) return EX_OK;
  if (request->pid > 0 && kill(request->pid, 0) != 0 && errno == ESRCH)
    Tool_Fail(EX_UNAVAILABLE, "process %d ended before %s answered; its log says why", request->pid,
              targets[0].name.c_str());
  return Ask_ComplainOfSilent(targets);
}
