#include <sysexits.h>

#include <algorithm>
#include <cstring>

#include "debug/log.h"
#include "tools/common/tool.h"
#include "tools/ctl/commands.h"
#include "tools/ctl/entries.h"
#include "tools/ctl/messages.h"
#include "tools/ctl/process.h"
#include "tools/ctl/told.h"
#include "tools/ctl/unit.h"

namespace {

constexpr int kNagiosCritical = 2;
constexpr std::size_t kLastEntries = 3;

// A message of the log, and what to do about it.
struct Trouble {
  std::string time, text, remedy;
};

struct Status {
  const ConfLine *line;
  Target target;
  Asked asked;
  std::vector<ProcessInfo> group;  // none: it is elsewhere, or this user may not see it
  Connections connections;
  std::string program, version;       // of the main process; empty: not known
  bool is_replaced;                   // its file, since it started
  std::string unit, unit_state;       // empty: none
  std::vector<std::string> told;      // "ID:TYPE"
  std::vector<std::string> findings;  // of check, when it does not answer
  std::vector<Trouble> log;           // the last messages that call for a hand
};

bool IsUp(const Status &status) { return status.asked.reply == Reply::kPong; }

bool IsHere(const Status &status) { return Process_Socket(*status.line) != 0; }

// What calls for a hand: the level is not in the log, and a text that may come at several is taken
// for one of the highest.
bool IsTrouble(const std::vector<const Message *> &known) {
  return !known.empty() && known[0]->level >= kWarning && known[0]->module != "DEBUG: SetLevel" &&
         known[0]->remedy != "None.";
}

// What this tool has brought about: it asks for a group that nobody can have, and for those that it
// announces then.
bool IsOwnDoing(std::string_view text, const std::vector<std::string> &told) {
  constexpr std::string_view kBefore = "[CommMgr: ClientCmd] Unable to locate SearchGroup '";
  constexpr std::string_view kBehind = "' amongst my flock";
  if (!text.starts_with(kBefore)) return false;
  text.remove_prefix(kBefore.size());
  if (!text.ends_with(kBehind)) return false;
  text.remove_suffix(kBehind.size());
  return text.empty() || std::count(told.begin(), told.end(), std::string(text) + ":S") > 0;
}

std::string TimeOf(const Entry &entry) {
  const std::string before = "TIME: ";
  const std::size_t at = entry.header.find(before);
  if (at == std::string::npos) return "";
  const std::size_t begin = at + before.size();
  return entry.header.substr(begin, entry.header.find('\n', begin) - begin);
}

// The last ones, each where it came last.
std::vector<Trouble> TroublesIn(const std::string &log, const std::vector<Message> &messages,
                                const std::vector<std::string> &told) {
  std::vector<Trouble> troubles;
  for (const Entry &entry : Entries_All(log)) {
    const std::vector<const Message *> known = Messages_Find(messages, entry.body);
    if (!IsTrouble(known)) continue;
    const std::string text = entry.body.substr(0, entry.body.find('\n'));
    if (IsOwnDoing(text, told)) continue;
    std::erase_if(troubles, [&text](const Trouble &earlier) { return earlier.text == text; });
    troubles.push_back({TimeOf(entry), text, known[0]->remedy});
    if (troubles.size() > kLastEntries) troubles.erase(troubles.begin());
  }
  return troubles;
}

// All that this machine knows of a program that is, or should be, on it.
void LookInside(Status *status, const Request &request, const std::vector<Message> &messages) {
  const ConfLine &line = *status->line;
  if (!Conf_IsHere(line)) return;
  const pid_t main = Process_Main(line);
  if (main > 0) {
    status->group = Process_Group(main);
    status->program = Process_Name(main);
    status->version = Process_Version(main);
    status->is_replaced = Process_IsReplaced(main);
    status->unit = Process_Unit(main);
  }
  if (IsHere(*status)) status->connections = Process_Connections(line);
  if (!IsUp(*status)) {
    status->findings = Command_Findings(request.dir, Conf_Name(line));
    if (status->unit.empty()) status->unit = Unit_Name(line);
  }
  if (!status->unit.empty()) status->unit_state = Unit_State(status->unit);
  if (status->unit_state.empty()) status->unit.clear();
  status->told = Told_List(request.state, line);
  status->log = TroublesIn(Entries_Tail(main, status->unit), messages, status->told);
}

std::vector<Status> LookAt(const std::vector<const ConfLine *> &lines, const Request &request) {
  std::vector<Target> targets;
  targets.reserve(lines.size());
  for (const ConfLine *line : lines) targets.push_back(Ask_Target(*line));
  const std::vector<Asked> asked = Ask_Ping(targets, request.peer.left);
  std::vector<Message> messages;
  (void)Messages_Read(request.messages, &messages);  // without them no message has a level
  std::vector<Status> all;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    Status status = {lines[i], targets[i], asked[i], {}, {}, "", "", false, "", "", {}, {}, {}};
    LookInside(&status, request, messages);
    all.push_back(status);
  }
  return all;
}

long long Memory(const Status &status) {
  long long bytes = 0;
  for (const ProcessInfo &info : status.group) bytes += info.resident;
  return bytes;
}

int Uptime(const Status &status) { return static_cast<int>(status.group[0].age); }

std::string Joined(const std::vector<std::string> &words, const char *between) {
  std::string text;
  for (const std::string &word : words) {
    if (!text.empty()) text += between;
    text += word;
  }
  return text;
}

std::string ProcessText(const Status &status) {
  if (status.group.empty())
    return IsHere(status) ? "  its processes belong to another user: ask as that one, or as root\n"
                          : "";
  const std::string program = status.program + (status.version.empty() ? "" : " " + status.version);
  std::string text =
      Tool_Format("  process %d, %s: up %d s, %d in its group, %d KiB resident\n",
                  static_cast<int>(status.group[0].pid), program.c_str(), Uptime(status),
                  static_cast<int>(status.group.size()), static_cast<int>(Memory(status) / 1024));
  if (status.is_replaced)
    text += "  its file was replaced since it started: a restart takes the new one\n";
  return text;
}

std::string Plain(const Status &status) {
  std::string text =
      Tool_Format("%s: %s\n", status.target.name.c_str(), Ask_Text(status.asked).c_str());
  if (IsHere(status))
    text += Tool_Format("  connections: %d in hand, %d not accepted yet\n",
                        status.connections.in_hand, status.connections.waiting);
  text += ProcessText(status);
  if (!status.unit.empty())
    text += Tool_Format("  unit %s: %s\n", status.unit.c_str(), status.unit_state.c_str());
  if (!status.told.empty())
    text += Tool_Format("  told by korvoctl of %s\n", Joined(status.told, ", ").c_str());
  for (const std::string &finding : status.findings)
    text += Tool_Format("  check: %s\n", finding.c_str());
  for (const Trouble &trouble : status.log)
    text += Tool_Format("  log, %s: %s\n    remedy: %s\n", trouble.time.c_str(),
                        Tool_Visible(trouble.text).c_str(), trouble.remedy.c_str());
  return text;
}

std::string JsonList(const std::vector<std::string> &texts) {
  std::vector<std::string> quoted;
  quoted.reserve(texts.size());
  for (const std::string &text : texts) quoted.push_back(Request_Json(text));
  return Tool_Format("[%s]", Joined(quoted, ", ").c_str());
}

std::string Json(const Status &status) {
  std::string text =
      Tool_Format("{\"id\": %s, \"type\": \"%c\", \"answer\": %s, \"ms\": %s",
                  Request_Json(status.line->words[0]).c_str(), status.line->config.Type,
                  Request_Json(IsUp(status) ? "PONG" : Ask_Text(status.asked)).c_str(),
                  IsUp(status) ? Tool_Format("%.3f", status.asked.milliseconds).c_str() : "null");
  if (IsHere(status))
    text += Tool_Format(", \"connections\": %d, \"waiting\": %d", status.connections.in_hand,
                        status.connections.waiting);
  if (!status.group.empty())
    text += Tool_Format(
        ", \"pid\": %d, \"uptime\": %d, \"processes\": %d, \"memory\": %d, \"program\": %s, "
        "\"version\": %s, \"replaced\": %s",
        static_cast<int>(status.group[0].pid), Uptime(status),
        static_cast<int>(status.group.size()), static_cast<int>(Memory(status) / 1024),
        Request_Json(status.program).c_str(),
        status.version.empty() ? "null" : Request_Json(status.version).c_str(),
        status.is_replaced ? "true" : "false");
  if (!status.unit.empty())
    text += Tool_Format(", \"unit\": %s, \"unitstate\": %s", Request_Json(status.unit).c_str(),
                        Request_Json(status.unit_state).c_str());
  std::vector<std::string> log;
  for (const Trouble &trouble : status.log)
    log.push_back(Tool_Format(
        "{\"time\": %s, \"text\": %s, \"remedy\": %s}", Request_Json(trouble.time).c_str(),
        Request_Json(trouble.text).c_str(), Request_Json(trouble.remedy).c_str()));
  return text + Tool_Format(", \"told\": %s, \"findings\": %s, \"log\": [%s]}",
                            JsonList(status.told).c_str(), JsonList(status.findings).c_str(),
                            Joined(log, ", ").c_str());
}

std::string Nagios(const std::vector<Status> &all) {
  const bool is_ok = std::all_of(all.begin(), all.end(), IsUp);
  std::string text, figures;
  for (const Status &status : all) {
    const std::string name = Conf_Name(*status.line);
    text += (text.empty() ? "" : ", ") + name + " " + Ask_Text(status.asked);
    if (IsUp(status))
      figures += Tool_Format(" '%s time'=%.6fs", name.c_str(), status.asked.milliseconds / 1000);
    if (IsHere(status))
      figures += Tool_Format(" '%s connections'=%d", name.c_str(), status.connections.in_hand);
  }
  return Tool_Format("KORVO %s - %s |%s\n", is_ok ? "OK" : "CRITICAL", text.c_str(),
                     figures.c_str());
}

// A family of figures: its lines stand together.
struct Family {
  const char *name;
  std::string lines;
};

std::string Prometheus(const std::vector<Status> &all) {
  Family up = {"korvo_up", ""}, times = {"korvo_ping_seconds", ""};
  Family connections = {"korvo_connections", ""}, processes = {"korvo_processes", ""};
  Family memory = {"korvo_memory_bytes", ""}, uptime = {"korvo_uptime_seconds", ""};
  for (const Status &status : all) {
    const std::string labels =
        Tool_Format("{id=%s,type=\"%c\"} ", Request_Json(status.line->words[0]).c_str(),
                    status.line->config.Type);
    const auto add = [&labels](Family *family, const std::string &value) {
      family->lines.append(family->name).append(labels).append(value).append("\n");
    };
    add(&up, IsUp(status) ? "1" : "0");
    if (IsUp(status)) add(&times, Tool_Format("%.6f", status.asked.milliseconds / 1000));
    if (IsHere(status)) add(&connections, std::to_string(status.connections.in_hand));
    if (status.group.empty()) continue;
    add(&processes, std::to_string(status.group.size()));
    add(&memory, std::to_string(Memory(status)));
    add(&uptime, std::to_string(Uptime(status)));
  }
  std::string text;
  for (const Family &family : {up, times, connections, processes, memory, uptime})
    text += Tool_Format("# TYPE %s gauge\n", family.name) + family.lines;
  return text;
}

std::string Shown(const std::vector<Status> &all, Form form) {
  if (form == Form::kNagios) return Nagios(all);
  if (form == Form::kPrometheus) return Prometheus(all);
  std::string text;
  for (const Status &status : all)
    text += form == Form::kPlain ? Plain(status) : (text.empty() ? "[" : ",\n ") + Json(status);
  return form == Form::kPlain ? text : text + "]\n";
}

}  // namespace

int Command_Status(Request *request) {
  const Conf conf = Conf_Read(request->dir);
  const std::vector<Status> all = LookAt(Request_Lines(*request, conf), *request);
  Tool_Print(Shown(all, request->form));
  const auto down = std::find_if_not(all.begin(), all.end(), IsUp);
  if (down == all.end()) return EX_OK;
  if (request->form == Form::kNagios) return kNagiosCritical;
  if (request->form == Form::kPrometheus) return EX_OK;  // that it is down is what was asked for
  return down->asked.reply == Reply::kNone ? EX_TEMPFAIL : EX_UNAVAILABLE;
}
