#include "tools/ctl/ask.h"

#include <arpa/inet.h>
#include <linux/errqueue.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "debug/fd_guard.h"
#include "protocol/cmd_hdr.h"
#include "tools/common/peer.h"
#include "tools/common/tool.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int32_t kFirstSourcePort = 32000;  // up to kPeerMaxPort
constexpr std::size_t kDatagramSize = 4096;
constexpr auto kAskAgain = std::chrono::milliseconds(200);
constexpr auto kPause = std::chrono::milliseconds(50);  // behind a refusal
constexpr auto kAtOnce = std::chrono::milliseconds(1);
constexpr auto kPatience = std::chrono::seconds(1);  // of a user who is told nothing
constexpr std::size_t kMostAtOnce = 64;              // a socket holds their answers
constexpr int kLull = 5;                             // milliseconds between two of these

std::int32_t NewNumber() {
  return static_cast<std::int32_t>(Clock::now().time_since_epoch().count() / 1000 & INT32_MAX);
}

const sockaddr *Generic(const sockaddr_in &address) {
  return reinterpret_cast<const sockaddr *>(&address);
}

// The search begins anywhere, so that those who run at the same time rarely meet.
void BindBelow32768(int sock) {
  constexpr std::int32_t kCount = kPeerMaxPort + 1 - kFirstSourcePort;
  const std::int32_t first = NewNumber() % kCount;
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  for (std::int32_t i = 0; i < kCount; ++i) {
    address.sin_port = htons(static_cast<std::uint16_t>(kFirstSourcePort + (first + i) % kCount));
    if (bind(sock, Generic(address), sizeof address) == 0) return;
    if (errno != EADDRINUSE) break;
  }
  Tool_Fail(EX_OSERR, "cannot bind a source port from %d to %d: %s", kFirstSourcePort, kPeerMaxPort,
            std::strerror(errno));
}

int Open() {
  const int sock = Peer_Socket(SOCK_DGRAM);
  BindBelow32768(sock);
  return sock;
}

// One ping to each.
struct Round {
  const std::vector<Target> &targets;
  std::int32_t number;  // of the first
  Clock::time_point begin;
  std::vector<Asked> asked;
};

bool IsFrom(const Target &target, const sockaddr_in &address) {
  return target.address.sin_addr.s_addr == address.sin_addr.s_addr &&
         target.address.sin_port == address.sin_port;
}

std::int32_t NumberOf(const Round &round, std::size_t i) {
  return static_cast<std::int32_t>((static_cast<std::size_t>(round.number) + i) & INT32_MAX);
}

void SendPing(Round *round, int sock, std::size_t i) {
  const std::string ping = "\t@COMMAND=PING\t@SEQNUM=" + std::to_string(NumberOf(*round, i)) + "\n";
  const sockaddr_in &address = round->targets[i].address;
  if (address.sin_port == 0) {
    round->asked[i] = {Reply::kRefused, kAskNowhere, 0};
    return;
  }
  // A call may report what was refused to another one: that is in the queue of errors, too.
  for (int attempt = 0; attempt < 3; ++attempt)
    if (sendto(sock, ping.data(), ping.size(), 0, Generic(address), sizeof address) >= 0) return;
  round->asked[i] = {Reply::kRefused, errno, 0};
}

void TakePong(Round *round, const char *text, const sockaddr_in &sender) {
  CmdHdr hdr = {};
  Util_IntCmdHdr(&hdr, text);
  if (std::strcmp(hdr.Command, "PONG") != 0) return;
  const std::chrono::duration<double, std::milli> spent = Clock::now() - round->begin;
  for (std::size_t i = 0; i < round->targets.size(); ++i)
    if (hdr.SeqNum == NumberOf(*round, i) && IsFrom(round->targets[i], sender))
      round->asked[i] = {Reply::kPong, 0, spent.count()};
}

void TakePongs(Round *round, int sock) {
  char buffer[kDatagramSize + 1];
  for (;;) {
    sockaddr_in sender = {};
    socklen_t size = sizeof sender;
    const ssize_t got =
        recvfrom(sock, buffer, kDatagramSize, 0, reinterpret_cast<sockaddr *>(&sender), &size);
    if (got < 0) return;
    buffer[got] = '\0';
    TakePong(round, buffer, sender);
  }
}

void TakeRefusals(Round *round, int sock) {
  for (;;) {
    sockaddr_in refused = {};
    alignas(cmsghdr) char control[512];
    msghdr message = {};
    message.msg_name = &refused;
    message.msg_namelen = sizeof refused;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (recvmsg(sock, &message, MSG_ERRQUEUE) < 0) return;
    const cmsghdr *part = CMSG_FIRSTHDR(&message);
    if (part == nullptr || part->cmsg_type != IP_RECVERR) continue;
    sock_extended_err error;
    std::memcpy(&error, CMSG_DATA(part), sizeof error);
    for (std::size_t i = 0; i < round->targets.size(); ++i)
      if (IsFrom(round->targets[i], refused) && round->asked[i].reply == Reply::kNone)
        round->asked[i] = {Reply::kRefused, static_cast<int>(error.ee_errno), 0};
  }
}

void TakeAnswers(Round *round, int sock) {
  TakeRefusals(round, sock);
  TakePongs(round, sock);
}

// Until nothing more comes, or the time is over.
void TakeMany(Round *round, int sock, std::chrono::nanoseconds time) {
  pollfd ready = {sock, POLLIN, 0};
  while (Clock::now() < round->begin + time && poll(&ready, 1, kLull) > 0) TakeAnswers(round, sock);
}

// The first one that has said nothing yet, or null.
const Target *Unsettled(const Round &round) {
  for (std::size_t i = 0; i < round.targets.size(); ++i)
    if (round.asked[i].reply == Reply::kNone) return &round.targets[i];
  return nullptr;
}

bool HaveAllAnswered(const std::vector<Asked> &asked) {
  return std::all_of(asked.begin(), asked.end(),
                     [](const Asked &one) { return one.reply == Reply::kPong; });
}

void ShowWait(const Target &target, Clock::time_point begin) {
  const auto spent = std::chrono::floor<std::chrono::seconds>(Clock::now() - begin);
  Ask_Progress(
      Tool_Format("waiting for %s: %d s", target.name.c_str(), static_cast<int>(spent.count()))
          .c_str());
}

// To all, or to those alone who have said nothing yet.
void SendPings(Round *round, int sock, std::chrono::nanoseconds time) {
  std::size_t sent = 0;
  for (std::size_t i = 0; i < round->targets.size(); ++i) {
    if (round->asked[i].reply != Reply::kNone) continue;
    SendPing(round, sock, i);
    if (++sent % kMostAtOnce == 0) TakeMany(round, sock, time);
  }
}

// Until all have answered, or the time is over.
void TakeAll(Round *round, int sock, std::chrono::nanoseconds time) {
  bool is_shown = false;
  for (const Target *silent; (silent = Unsettled(*round)) != nullptr;) {
    const auto left = round->begin + time - Clock::now();
    if (left.count() <= 0) break;
    if (Clock::now() - round->begin >= kPatience) {
      ShowWait(*silent, round->begin);
      is_shown = true;
    }
    pollfd ready = {sock, POLLIN, 0};
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(
        std::min<std::chrono::nanoseconds>(left, kPatience));
    if (poll(&ready, 1, static_cast<int>(wait.count())) > 0) TakeAnswers(round, sock);
  }
  if (is_shown) Ask_Progress(nullptr);
}

int OpenForRefusals() {
  const int sock = Open();
  const int on = 1;
  setsockopt(sock, IPPROTO_IP, IP_RECVERR, &on, sizeof on);
  return sock;
}

Round NewRound(const std::vector<Target> &targets) {
  return {targets, NewNumber(), Clock::now(),
          std::vector<Asked>(targets.size(), {Reply::kNone, 0, 0})};
}

}  // namespace

Target Ask_Target(const ConfLine &line) {
  const ConfigInfo &config = line.config;
  const bool has_port = config.AdminPort > 0;
  Target target;
  target.name =
      Tool_Format("%s at %s/%s", Conf_Name(line).c_str(), config.IP,
                  has_port ? std::to_string(config.AdminPort).c_str() : line.words[4].c_str());
  target.address = {};
  target.address.sin_family = AF_INET;
  target.address.sin_addr.s_addr = inet_addr(config.IP);
  if (has_port && target.address.sin_addr.s_addr != INADDR_NONE)
    target.address.sin_port = htons(static_cast<std::uint16_t>(config.AdminPort));
  return target;
}

std::string Ask_Text(const Asked &asked) {
  if (asked.reply == Reply::kPong) return Tool_Format("PONG in %.3f ms", asked.milliseconds);
  if (asked.reply == Reply::kNone) return "no answer";
  return asked.err == kAskNowhere ? "nobody can be there" : std::strerror(asked.err);
}

std::vector<Asked> Ask_Ping(const std::vector<Target> &targets, std::chrono::nanoseconds time) {
  const FdGuard guard(OpenForRefusals());
  Round round = NewRound(targets);
  SendPings(&round, guard.Get(), time);
  TakeAll(&round, guard.Get(), time);
  return round.asked;
}

struct Asking::State {
  FdGuard sock;
  std::chrono::nanoseconds time;
  Round round;
  int sent;  // times
};

Asking::Asking(const std::vector<Target> &targets, std::chrono::nanoseconds time)
    : state_(new State{FdGuard(OpenForRefusals()), time, NewRound(targets), 1}) {
  SendPings(&state_->round, state_->sock.Get(), time);
}

Asking::~Asking() = default;

const std::vector<Asked> &Asking::Await(std::chrono::nanoseconds time) {
  constexpr int kTimes = 3;
  const int sock = state_->sock.Get();
  Round *round = &state_->round;
  const std::chrono::nanoseconds end = std::min(time, state_->time);
  for (;;) {
    const std::chrono::nanoseconds next = state_->time * state_->sent / kTimes;
    TakeAll(round, sock, std::min(end, next));
    if (Unsettled(*round) == nullptr || end <= next) return round->asked;
    SendPings(round, sock, end);
    ++state_->sent;
  }
}

bool Ask_Await(const std::vector<Target> &targets, std::chrono::nanoseconds time, pid_t pid) {
  const Clock::time_point begin = Clock::now();
  for (;;) {
    const auto left = begin + time - Clock::now();
    if (left.count() <= 0) break;
    const std::vector<Asked> asked =
        Ask_Ping(targets, std::min<std::chrono::nanoseconds>(left, kAskAgain));
    if (HaveAllAnswered(asked)) {
      Ask_Progress(nullptr);
      return true;
    }
    const std::size_t silent = static_cast<std::size_t>(
        std::find_if(asked.begin(), asked.end(),
                     [](const Asked &one) { return one.reply != Reply::kPong; }) -
        asked.begin());
    ShowWait(targets[silent], begin);
    if (pid > 0 && kill(pid, 0) != 0 && errno == ESRCH) break;
    poll(nullptr, 0, static_cast<int>(kPause.count()));
  }
  Ask_Progress(nullptr);
  return false;
}

int Ask_Send(const Target &target, const std::string &datagram) {
  if (target.address.sin_port == 0) return kAskNowhere;
  const FdGuard guard(Open());
  const int sock = guard.Get();
  if (connect(sock, Generic(target.address), sizeof target.address) != 0 ||
      send(sock, datagram.data(), datagram.size(), 0) < 0)
    return errno;
  return Peer_PendingError(sock);
}

int Ask_Complain(const Target &target, const Asked &asked) {
  if (asked.reply == Reply::kRefused) {
    Tool_Warn("cannot reach %s: %s", target.name.c_str(), Ask_Text(asked).c_str());
    return EX_UNAVAILABLE;
  }
  Tool_Warn("%s did not answer in time; --timeout gives it more", target.name.c_str());
  return EX_TEMPFAIL;
}

int Ask_ComplainOfSilent(const std::vector<Target> &targets) {
  const std::vector<Asked> asked = Ask_Ping(targets, kAtOnce);
  int status = EX_OK;
  for (std::size_t i = 0; i < targets.size(); ++i)
    if (asked[i].reply != Reply::kPong) status = Ask_Complain(targets[i], {Reply::kNone, 0, 0});
  return status;
}

void Ask_Progress(const char *text) {
  if (isatty(STDERR_FILENO) == 0) return;
  // Back to the first column, and what stood behind is gone.
  (void)Tool_Write(STDERR_FILENO, Tool_Format("\r%s\x1b[K", text != nullptr ? text : ""));
}
