#include <signal.h>
#include <sysexits.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "tools/common/tool.h"
#include "tools/ctl/commands.h"
#include "tools/ctl/process.h"

namespace {

constexpr int kNagiosCritical = 2;

struct Status {
  const ConfLine *line;
  Target target;
  Asked asked;
  std::vector<ProcessInfo> group;  // none: it is elsewhere, or this user may not see it
  Connections connections;
};

std::vector<Status> LookAt(const std::vector<const ConfLine *> &lines,
                           std::chrono::nanoseconds time) {
  std::vector<Target> targets;
  targets.reserve(lines.size());
  for (const ConfLine *line : lines) targets.push_back(Ask_Target(*line));
  const std::vector<Asked> asked = Ask_Ping(targets, time);
  std::vector<Status> all;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    Status status = {lines[i], targets[i], asked[i], {}, {}};
    if (const pid_t main = Process_Main(*lines[i]); main > 0) status.group = Process_Group(main);
    if (Process_Socket(*lines[i]) != 0) status.connections = Process_Connections(*lines[i]);
    all.push_back(status);
  }
  return all;
}

bool IsUp(const Status &status) { return status.asked.reply == Reply::kPong; }

bool IsHere(const Status &status) { return Process_Socket(*status.line) != 0; }

int Memory(const Status &status) {
  long long bytes = 0;
  for (const ProcessInfo &info : status.group) bytes += info.resident;
  return static_cast<int>(bytes / 1024);
}

int Uptime(const Status &status) { return static_cast<int>(status.group[0].age); }

std::string AnswerText(const Status &status) {
  if (IsUp(status)) return Tool_Format("PONG in %.3f ms", status.asked.milliseconds);
  return status.asked.reply == Reply::kNone ? "no answer" : std::strerror(status.asked.err);
}

std::string Plain(const Status &status) {
  std::string text =
      Tool_Format("%s: %s\n", status.target.name.c_str(), AnswerText(status).c_str());
  if (!IsHere(status)) return text;
  text += Tool_Format("  connections: %d in hand, %d not accepted yet\n",
                      status.connections.in_hand, status.connections.waiting);
  if (status.group.empty())
    return text + "  its processes belong to another user: ask as that one, or as root\n";
  return text + Tool_Format("  process %d: up %d s, %d in its group, %d KiB resident\n",
                            static_cast<int>(status.group[0].pid), Uptime(status),
                            static_cast<int>(status.group.size()), Memory(status));
}

std::string Json(const Status &status) {
  std::string text =
      Tool_Format("{\"id\": %s, \"type\": \"%c\", \"answer\": %s, \"ms\": %s",
                  Request_Json(status.line->words[0]).c_str(), status.line->config.Type,
                  Request_Json(IsUp(status) ? "PONG" : AnswerText(status)).c_str(),
                  IsUp(status) ? Tool_Format("%.3f", status.asked.milliseconds).c_str() : "null");
  if (IsHere(status))
    text += Tool_Format(", \"connections\": %d, \"waiting\": %d", status.connections.in_hand,
                        status.connections.waiting);
  if (!status.group.empty())
    text += Tool_Format(", \"pid\": %d, \"uptime\": %d, \"processes\": %d, \"memory\": %d",
                        static_cast<int>(status.group[0].pid), Uptime(status),
                        static_cast<int>(status.group.size()), Memory(status));
  return text + "}";
}

std::string Nagios(const std::vector<Status> &all) {
  const bool is_ok = std::all_of(all.begin(), all.end(), IsUp);
  std::string text, figures;
  for (const Status &status : all) {
    const std::string name = Conf_Name(*status.line);
    text += (text.empty() ? "" : ", ") + name + " " + AnswerText(status);
    if (IsUp(status))
      figures += Tool_Format(" '%s time'=%.6fs", name.c_str(), status.asked.milliseconds / 1000);
    if (IsHere(status))
      figures += Tool_Format(" '%s connections'=%d", name.c_str(), status.connections.in_hand);
  }
  return Tool_Format("KORVO %s - %s |%s\n", is_ok ? "OK" : "CRITICAL", text.c_str(),
                     figures.c_str());
}

std::string Prometheus(const std::vector<Status> &all) {
  std::string text = "# TYPE korvo_up gauge\n";
  std::string times = "# TYPE korvo_ping_seconds gauge\n";
  std::string connections = "# TYPE korvo_connections gauge\n";
  std::string processes = "# TYPE korvo_processes gauge\n";
  for (const Status &status : all) {
    const std::string id = Request_Json(status.line->words[0]);
    const char type = status.line->config.Type;
    text += Tool_Format("korvo_up{id=%s,type=\"%c\"} %d\n", id.c_str(), type, IsUp(status) ? 1 : 0);
    if (IsUp(status))
      times += Tool_Format("korvo_ping_seconds{id=%s,type=\"%c\"} %.6f\n", id.c_str(), type,
                           status.asked.milliseconds / 1000);
    if (IsHere(status))
      connections += Tool_Format("korvo_connections{id=%s,type=\"%c\"} %d\n", id.c_str(), type,
                                 status.connections.in_hand);
    if (!status.group.empty())
      processes += Tool_Format("korvo_processes{id=%s,type=\"%c\"} %d\n", id.c_str(), type,
                               static_cast<int>(status.group.size()));
  }
  return text + times + connections + processes;
}

std::string Shown(const std::vector<Status> &all, Form form) {
  if (form == Form::kNagios) return Nagios(all);
  if (form == Form::kPrometheus) return Prometheus(all);
  std::string text;
  for (const Status &status : all)
    text += form == Form::kPlain ? Plain(status) : (text.empty() ? "[" : ",\n ") + Json(status);
  return form == Form::kPlain ? text : text + "]\n";
}

// Ending.

// The only line that the id names, of a program of this machine; or the end of the process.
const ConfLine *TakeHere(const Request &request, const Conf &conf) {
  const std::vector<const ConfLine *> lines = Request_Lines(request, conf);
  if (lines.size() > 1)
    Tool_Fail(EX_USAGE, "%s names %d programs; take one, such as %s", Request_Word(request, 0),
              static_cast<int>(lines.size()), Conf_Name(*lines[0]).c_str());
  if (Process_Socket(*lines[0]) == 0)
    Tool_Fail(EX_UNAVAILABLE, "%s does not run on this machine",
              Ask_Target(*lines[0]).name.c_str());
  return lines[0];
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

// The unit that the process belongs to, or nothing.
std::string UnitOf(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/cgroup");
  std::string unit;
  for (std::string text; std::getline(file, text);) {
    const std::size_t end = text.rfind(".service");
    const std::size_t begin = text.rfind("/korvo-", end);
    if (end != std::string::npos && begin != std::string::npos)
      unit = text.substr(begin + 1, end + 7 - begin);
  }
  return unit;
}

}  // namespace

int Command_Status(Request *request) {
  const Conf conf = Conf_Read(request->dir);
  const std::vector<Status> all = LookAt(Request_Lines(*request, conf), request->peer.left);
  Tool_Print(Shown(all, request->form));
  const auto down = std::find_if_not(all.begin(), all.end(), IsUp);
  if (down == all.end()) return EX_OK;
  if (request->form == Form::kNagios) return kNagiosCritical;
  if (request->form == Form::kPrometheus) return EX_OK;  // that it is down is what was asked for
  return down->asked.reply == Reply::kNone ? EX_TEMPFAIL : EX_UNAVAILABLE;
}

int Command_Drain(Request *request) {
  const Conf conf = Conf_Read(request->dir);
  const ConfLine &line = *TakeHere(*request, conf);
  const int left = AwaitIdle(line, request->peer.left);
  if (left > 0)
    Tool_Fail(EX_TEMPFAIL, "%s has %d connections still; --timeout gives them more",
              Ask_Target(line).name.c_str(), left);
  return EX_OK;
}

int Command_Stop(Request *request) {
  const Conf conf = Conf_Read(request->dir);
  const ConfLine &line = *TakeHere(*request, conf);
  // A manager keeps its connections to an engine for as long as both live.
  if (line.config.Type != 'E') AwaitIdle(line, request->peer.left);
  const Target target = Ask_Target(line);
  const int err = Ask_Send(target, "\t@COMMAND=SHUTDOWN\n");
  return err == 0 ? EX_OK : Ask_Complain(target, {Reply::kRefused, err, 0});
}

int Command_Restart(Request *request) {
  const Conf conf = Conf_Read(request->dir);
  const ConfLine &line = *TakeHere(*request, conf);
  const std::string unit = UnitOf(Process_Main(line));
  if (unit.empty())
    Tool_Fail(EX_UNAVAILABLE,
              "no unit of systemd runs %s, and nobody else knows how it was started",
              Ask_Target(line).name.c_str());
  Tool_Print("systemctl restart " + unit + "\n");
  return EX_OK;
}

int Command_Reap(Request *request) {
  const Conf conf = Conf_Read(request->dir);
  const ConfLine &line = *TakeHere(*request, conf);
  if (request->older.count() == 0)
    Tool_Fail(EX_USAGE, "reap needs --older, the age of a connection that may end");
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
