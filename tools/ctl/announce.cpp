#include "config/announce.h"

#include <poll.h>
#include <sys/socket.h>
#include <sysexits.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <thread>

#include "debug/fd_guard.h"
#include "debug/text.h"
#include "tools/common/tool.h"
#include "tools/ctl/commands.h"
#include "tools/ctl/process.h"
#include "tools/ctl/told.h"

namespace {

// What was found of a program the last time: which of its lines answers, and the socket there, if
// that is here: another one means that it was started again.
struct Found {
  const ConfLine *serving;  // null: none answers
  unsigned long socket;
  bool operator==(const Found &other) const = default;
};

using AllFound = std::map<const ConfLine *, Found>;  // by the first line

constexpr auto kAtOnce = std::chrono::milliseconds(300);  // of those that are up, all but a few

struct Round {
  const Request &request;
  const Conf &conf;
  std::map<const ConfLine *, std::vector<const ConfLine *>> children;
  AllFound before;
  AllFound now;                              // without those that may answer yet
  std::set<const ConfLine *> held;           // parents that have not been told of all
  std::map<const ConfLine *, int> statuses;  // of the parents that answered, one with a fault or OK
};

// The first of a program's lines, and its standbys.
std::vector<const ConfLine *> LinesOf(const Conf &conf, const ConfLine &program) {
  std::vector<const ConfLine *> lines;
  for (const ConfLine &line : conf.lines)
    if (line.is_complete && line.words[0] == program.words[0] &&
        line.config.Type == program.config.Type)
      lines.push_back(&line);
  return lines;
}

std::vector<const ConfLine *> LinesOfAll(const Conf &conf,
                                         const std::vector<const ConfLine *> &programs) {
  std::vector<const ConfLine *> all;
  for (const ConfLine *program : programs) {
    const std::vector<const ConfLine *> lines = LinesOf(conf, *program);
    all.insert(all.end(), lines.begin(), lines.end());
  }
  return all;
}

// Of each program the first line that answers.  While one may answer yet, those behind it do not
// count, and nothing is found of a program of which none does.
AllFound FindAll(const Conf &conf, const std::vector<const ConfLine *> &lines,
                 const std::vector<Asked> &asked, bool is_last) {
  AllFound found;
  std::set<const ConfLine *> open;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const ConfLine *program = Conf_Find(conf, lines[i]->words[0], lines[i]->config.Type);
    Found *one = &found.try_emplace(program, Found{nullptr, 0}).first->second;
    if (one->serving != nullptr) continue;
    if (asked[i].reply == Reply::kNone && !is_last) open.insert(program);
    if (asked[i].reply == Reply::kPong && !open.contains(program))
      *one = {lines[i], Process_Socket(*lines[i])};
  }
  for (const ConfLine *program : open) found.erase(program);
  return found;
}

const ConfLine *Serving(const Round &round, const ConfLine *program) {
  const auto now = round.now.find(program);
  return now == round.now.end() ? nullptr : now->second.serving;
}

bool IsChanged(const Round &round, const ConfLine *program) {
  const auto before = round.before.find(program);
  return before == round.before.end() || before->second != round.now.at(program);
}

void Announce(const Round &round, const ConfLine &parent, const ConfLine &child) {
  SockAddr address = {};
  (void)Text_Copy(address.IP, parent.config.IP);
  address.Port = parent.config.AdminPort;
  const std::string to = Ask_Target(parent).name;
  const std::string name = Ask_Target(child).name;
  // Its fields are the engine's own to tell; nobody above it needs them.
  if (Init_Announce(&address, &child.config, nullptr) != 1)
    return Tool_Warn("cannot announce %s to %s", name.c_str(), to.c_str());
  Told_Keep(round.request.state, parent, child);
  Tool_Print(Tool_Format("announced %s to %s\n", name.c_str(), to.c_str()));
}

// Asking a Communications Manager whom it knows.

// The beginning of its answer, no more than size bytes; what came in time.  False: it cannot be
// reached, and that is said.
bool Exchange(const ConfLine &parent, const std::string &line, std::size_t size,
              std::chrono::nanoseconds time, std::string *answer) {
  Target target = Ask_Target(parent);
  target.address.sin_port = htons(static_cast<std::uint16_t>(parent.config.ClientPort));
  Peer peer = {parent.config.IP, parent.config.ClientPort, time};
  const FdGuard guard(Peer_Socket(SOCK_STREAM));
  const int sock = guard.Get();
  const auto *address = reinterpret_cast<const sockaddr *>(&target.address);
  int err = connect(sock, address, sizeof target.address) == 0 ? 0 : errno;
  if (err == EINPROGRESS)
    err = Peer_Awaits(&peer, sock, POLLOUT) ? Peer_PendingError(sock) : ETIMEDOUT;
  if (err == 0 && send(sock, line.data(), line.size(), MSG_NOSIGNAL) < 0) err = errno;
  if (err != 0) {
    Tool_Warn("cannot reach %s/%d: %s", peer.host, peer.port, std::strerror(err));
    return false;
  }
  char buffer[256];
  for (ssize_t got = 1; got != 0 && answer->size() < size;) {
    if (!Peer_Awaits(&peer, sock, POLLIN)) break;  // it asks somebody whom it knows
    got = recv(sock, buffer, sizeof buffer, 0);
    if (got < 0 && errno != EAGAIN) break;
    if (got > 0) answer->append(buffer, static_cast<std::size_t>(got));
  }
  return true;
}

enum class Known { kYes, kNo, kUnreachable };

Known Knows(const Round &round, const ConfLine &parent, const std::string &group) {
  const std::string unknown = "\t@COMMAND=ERROR\tUnable to locate SearchMgr\n";
  const std::string query = "\t@COMMAND=QUERY\t@SEARCHGROUP=" + group +
                            "\t@MACROFILE=" + round.request.macro + "\t@MAXHITS=1\tkorvoctl\n";
  std::string answer;
  if (!Exchange(parent, query, unknown.size(), round.request.peer.left, &answer))
    return Known::kUnreachable;
  return answer == unknown ? Known::kNo : Known::kYes;
}

// Those that are listed stay where they are, and the others come behind them: nobody is cut.
int AnnounceUnknown(const Round &round, const ConfLine &parent,
                    const std::vector<const ConfLine *> &managers) {
  // A group that nobody can have: its name is longer than an id.
  const Known nobody = Knows(round, parent, std::string(100, '-'));
  if (nobody == Known::kUnreachable) return EX_UNAVAILABLE;
  if (nobody == Known::kYes) {
    Tool_Warn("%s cannot open the page macro %s", Ask_Target(parent).name.c_str(),
              round.request.macro.c_str());
    return EX_DATAERR;
  }
  // A new address takes the place of the old one, and cuts; so this comes first.
  for (const ConfLine *manager : managers)
    if (const auto before = round.before.find(manager);
        before != round.before.end() && before->second.serving != round.now.at(manager).serving)
      Announce(round, parent, *round.now.at(manager).serving);
  for (const ConfLine *manager : managers) {
    const Known known = Knows(round, parent, manager->words[0]);
    if (known == Known::kUnreachable) return EX_UNAVAILABLE;
    if (known == Known::kNo) Announce(round, parent, *round.now.at(manager).serving);
  }
  return EX_OK;
}

// All Search Managers of a parent as soon as there is news of one: its own announcement may have
// cut those behind it.
int AnnounceManagers(Round *round, const ConfLine *parent,
                     const std::vector<const ConfLine *> &managers) {
  const bool is_news = round->held.contains(parent) || IsChanged(*round, parent) ||
                       std::any_of(managers.begin(), managers.end(), [&](const ConfLine *manager) {
                         return IsChanged(*round, manager);
                       });
  if (!is_news) return EX_OK;
  const ConfLine &to = *Serving(*round, parent);
  if (!round->request.macro.empty()) return AnnounceUnknown(*round, to, managers);
  // One that comes later would be cut off by those behind it in the file: they wait for it.
  bool is_open = false;
  for (const ConfLine *manager : round->children.at(parent)) {
    if (manager->config.Type != 'S') continue;
    if (!round->now.contains(manager)) is_open = true;
    const ConfLine *serving = Serving(*round, manager);
    if (serving == nullptr) continue;
    if (is_open)
      round->held.insert(parent);
    else
      Announce(*round, to, *serving);
  }
  return EX_OK;
}

// To a parent that answers.
int AnnounceTo(Round *round, const ConfLine *parent) {
  std::vector<const ConfLine *> managers;
  for (const ConfLine *child : round->children.at(parent)) {
    const ConfLine *serving = Serving(*round, child);
    if (serving == nullptr) continue;
    if (child->config.Type == 'S')
      managers.push_back(child);
    else if (IsChanged(*round, parent) || IsChanged(*round, child))
      Announce(*round, *Serving(*round, parent), *serving);
  }
  return managers.empty() ? EX_OK : AnnounceManagers(round, parent, managers);
}

void ReportSilent(const Round &round) {
  for (const auto &[program, found] : round.now)
    if (found.serving == nullptr && IsChanged(round, program))
      Tool_Print(Tool_Format("%s is silent\n", Ask_Target(*program).name.c_str()));
}

// One that could not be told is as good as new in the next round.
void AnnounceAll(Round *round, const std::vector<const ConfLine *> &parents) {
  ReportSilent(*round);
  std::vector<const ConfLine *> untold;
  for (const ConfLine *parent : parents) {
    if (Serving(*round, parent) == nullptr) continue;
    const int result = AnnounceTo(round, parent);
    round->statuses[parent] = result;
    if (result != EX_OK) untold.push_back(parent);
  }
  for (const ConfLine *parent : untold) round->now.erase(parent);
}

// One behind the other when units start at the same time: two that find the same Search Manager
// unknown would both announce it, and the second cut off whom the first has announced behind it.
FdGuard Lock(const Round &round) {
  return FdGuard(Told_Lock(round.request.state, round.request.peer.left));
}

// What was found is no news any more; of the others it stays what it was.
void KeepFound(Round *round) {
  for (const auto &[program, status] : round->statuses)
    if (status != EX_OK) round->before.erase(program);
  for (const auto &[program, found] : round->now) round->before[program] = found;
}

// Whether one of them answers, or may yet: else there is nobody to tell.
bool MayAnyHear(const Round &round, const std::vector<const ConfLine *> &parents) {
  return std::any_of(parents.begin(), parents.end(), [&round](const ConfLine *parent) {
    return !round.now.contains(parent) || Serving(round, parent) != nullptr;
  });
}

// Those that answer at once are announced at once, and those that come late behind them.  Nobody
// waits meanwhile for one that is silent.
void GoRound(Round *round, const std::vector<const ConfLine *> &programs,
             const std::vector<const ConfLine *> &parents) {
  const std::vector<const ConfLine *> lines = LinesOfAll(round->conf, programs);
  std::vector<Target> targets;
  targets.reserve(lines.size());
  for (const ConfLine *line : lines) targets.push_back(Ask_Target(*line));
  round->held.clear();
  round->statuses.clear();
  std::unique_ptr<Asking> asking;
  bool may_more_answer = false;
  {
    const FdGuard lock = Lock(*round);
    asking = std::make_unique<Asking>(targets, round->request.peer.left);
    round->now = FindAll(round->conf, lines, asking->Await(kAtOnce), false);
    may_more_answer = round->now.size() < programs.size() && MayAnyHear(*round, parents);
    AnnounceAll(round, parents);
  }
  if (!may_more_answer) return;
  KeepFound(round);
  const std::vector<Asked> asked = asking->Await(round->request.peer.left);
  const FdGuard lock = Lock(*round);
  round->now = FindAll(round->conf, lines, asked, true);
  AnnounceAll(round, parents);
}

// The worst that a parent gave, or EX_UNAVAILABLE when none of them answered.
int StatusOf(const Round &round, const std::vector<const ConfLine *> &parents) {
  if (round.statuses.empty()) return parents.empty() ? EX_OK : EX_UNAVAILABLE;
  int worst = EX_OK;
  for (const auto &[parent, status] : round.statuses) worst = std::max(worst, status);
  return worst;
}

std::vector<const ConfLine *> ParentsOf(const Round &round) {
  std::vector<const ConfLine *> parents = round.request.words.empty()
                                              ? Conf_Programs(round.conf)
                                              : Request_Lines(round.request, round.conf);
  std::erase_if(parents, [&](const ConfLine *line) { return !round.children.contains(line); });
  return parents;
}

// The parents and those below them, in the order of the file.
std::vector<const ConfLine *> ProgramsOf(const Round &round,
                                         const std::vector<const ConfLine *> &parents) {
  std::set<const ConfLine *> wanted(parents.begin(), parents.end());
  for (const ConfLine *parent : parents)
    wanted.insert(round.children.at(parent).begin(), round.children.at(parent).end());
  std::vector<const ConfLine *> programs = Conf_Programs(round.conf);
  std::erase_if(programs, [&](const ConfLine *line) { return !wanted.contains(line); });
  return programs;
}

}  // namespace

int Command_Announce(Request *request) {
  const Conf conf = Conf_Read(request->dir);
  Round round = {*request, conf, Conf_Children(conf), {}, {}, {}, {}};
  const std::vector<const ConfLine *> parents = ParentsOf(round);
  if (parents.empty() && !request->words.empty()) {
    Tool_Warn("nobody is below %s in %s", Request_Word(*request, 0), conf.path.c_str());
    return EX_OK;
  }
  const std::vector<const ConfLine *> programs = ProgramsOf(round, parents);
  GoRound(&round, programs, parents);
  const int status = StatusOf(round, parents);
  while (request->watch.count() > 0) {
    std::this_thread::sleep_for(request->watch);
    KeepFound(&round);
    GoRound(&round, programs, parents);
  }
  return status;
}
