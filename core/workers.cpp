#include "core/workers.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>

#include "core/signals.h"
#include "core/state.h"
#include "debug/log.h"
#include "debug/text.h"

namespace {

constexpr int kMostWorkers = 1000;
constexpr int kWorkersAProcessor = 4;
constexpr int kQueue = 128;                   // of the listener
constexpr int kConnectionsOfAWorker = 10000;  // what it has gathered by then goes with it
constexpr int kDeathsASecond = 10;
constexpr timespec kPause = {0, 100000000};  // before a call that failed is tried again
constexpr int kLookAgain = 1000;             // milliseconds

// The main process's.
struct Workers {
  std::array<pid_t, kMostWorkers> pids;  // 0: to be forked
  int count;
  bool renew;
  std::time_t second;  // in which deaths are counted
  int deaths;
};

constinit Workers workers = {};

// A worker's.  The handler of the timer cuts the connection that takes too long.
MainCore_ClientFn client_handler = nullptr;
volatile std::sig_atomic_t serving = -1;
volatile std::sig_atomic_t cut = 0;
volatile std::sig_atomic_t leave = 0;
const char *volatile last_word = nullptr;  // of the request in hand

void Handle(int signal_number, void (*handler)(int), int flags) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  for (const int ending : {SIGINT, SIGTERM, SIGUSR1}) sigaddset(&action.sa_mask, ending);
  sigaction(signal_number, &action, nullptr);
}

sigset_t Only(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal_number : signals) sigaddset(&set, signal_number);
  return set;
}

// Serving one connection.

void SetTimer(int milliseconds) {
  const itimerval timer = {{0, 0}, {milliseconds / 1000, milliseconds % 1000 * 1000L}};
  setitimer(ITIMER_REAL, &timer, nullptr);
}

// The timer's end; what it calls is async-signal-safe.  Before the handler the reader finds the end
// of the stream; behind MainCore_EndAfter the worker gives up.
void Cut(int) {
  const int saved = errno;
  const int sock = static_cast<int>(serving);
  if (const char *word = last_word; word != nullptr) {
    send(sock, word, std::strlen(word), MSG_DONTWAIT | MSG_NOSIGNAL);
    _exit(0);
  }
  cut = 1;
  shutdown(sock, SHUT_RDWR);
  errno = saved;
}

void Command(int listener, int sock, const char *text) {
  SetTimer(0);
  if (cut == 0) return client_handler(listener, sock, text);
  DPRINTF(nullptr, kWarning, "[MainCore: Worker] No command came within %d seconds: socket %d\n",
          kWorkerPatience, sock);
}

void Serve(int listener, int sock) {
  const timeval patience = {kWorkerPatience, 0};
  setsockopt(sock, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  serving = sock;
  cut = 0;
  SetTimer(kWorkerPatience * 1000);
  MainCore_Read(listener, sock, Command);
  SetTimer(0);
  last_word = nullptr;
  Sock_Close(sock);
}

// False: another worker was faster, or the connection is gone again.
bool Accept(int listener) {
  SockAddr peer = {};
  socklen_t size = sizeof peer.Addr;
  const int sock = accept(listener, reinterpret_cast<sockaddr *>(&peer.Addr), &size);
  if (sock >= 0) {
    Sock_ConvertIP(&peer);
    DPRINTF(nullptr, kStatus,
            "[MainCore: Listen] ListSock=%d, newsock=%d. New connection from %s/%1d\n", listener,
            sock, peer.IP, peer.Port);
    Serve(listener, sock);
    return true;
  }
  if (errno == EAGAIN || errno == ECONNABORTED || errno == EINTR) return false;
  DPRINTF(nullptr, kFatal, "[MainCore: Worker] Unable to accept: errno = %d\n", errno);
  nanosleep(&kPause, nullptr);
  return false;
}

// A worker's life.

bool IsRenewed() {
  sigset_t pending;
  sigpending(&pending);
  return leave != 0 || sigismember(&pending, SIGHUP) == 1;
}

// Of all that wait the kernel wakes one a connection.
int WatchListener(int listener) {
  const int watch = epoll_create1(EPOLL_CLOEXEC);
  epoll_event event = {};
  event.events = EPOLLIN | EPOLLEXCLUSIVE;
  if (watch >= 0 && epoll_ctl(watch, EPOLL_CTL_ADD, listener, &event) == 0) return watch;
  DPRINTF(nullptr, kFatal, "[MainCore: Worker] Unable to watch the listener: errno = %d\n", errno);
  nanosleep(&kPause, nullptr);
  _exit(EX_OSERR);
}

// The main process's signals, but for SIGHUP, which comes only between two connections.  A parent
// may have held back the timer's.  Mask is what a wait lets through.
void TakeSignals(sigset_t *mask) {
  for (const int ending : {SIGINT, SIGTERM, SIGUSR1}) Handle(ending, MainCore_SigHndlr, 0);
  Handle(SIGALRM, Cut, SA_RESTART);
  Handle(
      SIGHUP, [](int) { leave = 1; }, 0);
  Handle(SIGCHLD, SIG_DFL, 0);
  const sigset_t wanted = Only({SIGCHLD, SIGALRM});
  sigprocmask(SIG_UNBLOCK, &wanted, nullptr);
  sigprocmask(SIG_SETMASK, nullptr, mask);
  sigdelset(mask, SIGHUP);
}

[[noreturn]] void Work(int listener, pid_t main_process) {
  MainCore_LeaveAtOnce();
  sigset_t mask;
  TakeSignals(&mask);
  // Also when nobody could tell it: a main process that was killed leaves no worker behind.
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != main_process) raise(SIGTERM);
  Sock_Close(MainCore_State.AdminSock);
  const int watch = WatchListener(listener);
  for (int served = 0; served < kConnectionsOfAWorker;) {
    // The one that was woken may have been stopped before it took the connection: the others look
    // for themselves now and then.
    epoll_event event;
    const int ready = epoll_pwait(watch, &event, 1, kLookAgain, &mask);
    if (IsRenewed()) break;
    if (ready >= 0 && Accept(listener)) ++served;
  }
  _exit(0);
}

// The main process.

std::time_t Now() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec;
}

// Whether as many have died in this second as may be replaced.
bool IsPaused() { return workers.deaths >= kDeathsASecond && workers.second == Now(); }

void NoteDeath(pid_t pid, int status) {
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return;
  if (WIFSIGNALED(status))
    DPRINTF(nullptr, kFatal, "[MainCore: Workers] Worker %d was ended by signal %d\n", pid,
            WTERMSIG(status));
  else
    DPRINTF(nullptr, kFatal, "[MainCore: Workers] Worker %d ended with status %d\n", pid,
            WEXITSTATUS(status));
  const std::time_t second = Now();
  workers.deaths = second == workers.second ? workers.deaths + 1 : 1;
  workers.second = second;
}

void ReapWorkers() {
  int status = 0;
  for (pid_t pid = 0; (pid = waitpid(-1, &status, WNOHANG)) > 0;)
    for (int i = 0; i < workers.count; ++i)
      if (workers.pids[static_cast<std::size_t>(i)] == pid) {
        workers.pids[static_cast<std::size_t>(i)] = 0;
        NoteDeath(pid, status);
      }
}

// Forks what is missing.  False: not all of it could be.
bool ForkMissing(int listener) {
  const pid_t main_process = getpid();
  for (int i = 0; i < workers.count; ++i) {
    pid_t *pid = &workers.pids[static_cast<std::size_t>(i)];
    if (*pid != 0) continue;
    if (IsPaused()) return false;
    const pid_t forked = fork();  // no wait behind a failure: PING is answered throughout
    if (forked == 0) Work(listener, main_process);
    if (forked < 0) {
      DPRINTF(nullptr, kFatal, "[MainCore: Workers] Unable to fork a worker: errno = %d\n", errno);
      return false;
    }
    *pid = forked;
  }
  return true;
}

// A worker is never without its own way to take the signal that renews it.
bool FillUp(int listener) {
  const sigset_t renewal = Only({SIGHUP});
  sigset_t before;
  sigprocmask(SIG_BLOCK, &renewal, &before);
  const bool full = ForkMissing(listener);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return full;
}

void Renew() {
  DPRINTF(nullptr, kStatus, "[MainCore: Workers] Renewing the workers\n");
  for (int i = 0; i < workers.count; ++i)
    if (workers.pids[static_cast<std::size_t>(i)] != 0)
      kill(workers.pids[static_cast<std::size_t>(i)], SIGHUP);
  workers.renew = false;
}

void ServeDatagram(int admin_sock, MainCore_AdminFn admin) {
  const int level = Debug_Level;
  MainCore_UDPRead(admin_sock, admin);
  if (workers.renew || Debug_Level != level) Renew();
}

// A finished worker interrupts the wait, and only the wait.
sigset_t WatchWorkers() {
  Handle(
      SIGCHLD, [](int) {}, 0);
  const sigset_t children = Only({SIGCHLD});
  sigset_t mask;
  sigprocmask(SIG_BLOCK, &children, &mask);
  sigdelset(&mask, SIGCHLD);
  return mask;
}

}  // namespace

int MainCore_SetWorkers() {
  const char *text = std::getenv("KORVO_WORKERS");
  if (text == nullptr) {
    const long processors = std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L);
    workers.count = static_cast<int>(std::min(processors * kWorkersAProcessor, long{kMostWorkers}));
    return 1;
  }
  workers.count = Text_ToInt32(text);
  const bool is_number = text[std::strspn(text, "0123456789")] == '\0';
  if (is_number && workers.count >= 1 && workers.count <= kMostWorkers) return 1;
  DPRINTF(nullptr, kFatal,
          "[MainCore: Workers] KORVO_WORKERS takes a number from 1 to %d, not '%s'\n", kMostWorkers,
          text);
  return 0;
}

void MainCore_EndAfter(int milliseconds, const char *word) {
  SetTimer(0);  // a word has to be there when the timer ends
  last_word = word;
  SetTimer(milliseconds);
}

void MainCore_RenewWorkers() { workers.renew = true; }

int MainCore_WorkerLoop(int listener, int admin_sock, MainCore_ClientFn client,
                        MainCore_AdminFn admin) {
  if (!MainCore_CanWatch(admin_sock)) return -EMFILE;
  client_handler = client;
  listen(listener, kQueue);
  fcntl(listener, F_SETFL, fcntl(listener, F_GETFL) | O_NONBLOCK);
  const sigset_t mask = WatchWorkers();
  for (;;) {
    ReapWorkers();
    const bool full = FillUp(listener);
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(admin_sock, &ready);
    if (pselect(admin_sock + 1, &ready, nullptr, nullptr, full ? nullptr : &kPause, &mask) > 0)
      ServeDatagram(admin_sock, admin);
  }
}
