#include "core/signals.h"

#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "debug/log.h"
#include "debug/signal_hold.h"

namespace {

bool Set(int signal_number, sighandler_t action) {
  return sysv_signal(signal_number, action) != SIG_ERR;
}

bool at_once = false;

// Whoever stopped reading the log or standard output must not keep a process from ending.  A write
// that waits is interrupted from here on, the first after a second, so that a reader who is only
// late gets the lines.  Asking for room before a write would not do: every process of the group may
// write to the same pipe, and what is asked for is gone.
void LimitWaits() {
  struct sigaction interrupt = {};
  interrupt.sa_handler = [](int) {};
  sigaction(SIGALRM, &interrupt, nullptr);
  sigset_t alarm;
  sigemptyset(&alarm);
  sigaddset(&alarm, SIGALRM);
  sigprocmask(SIG_UNBLOCK, &alarm, nullptr);
  const itimerval ticks = {.it_interval = {0, 100000}, .it_value = {1, 0}};
  setitimer(ITIMER_REAL, &ticks, nullptr);
}

[[noreturn]] void Shutdown() {
  DPRINTF(nullptr, kFatal, "[MainCore: Shutdown] Tovak has left the building.\n");
  if (at_once) _exit(0);
  MainCore_Exit(0);
}

// A parent may have held back what must be able to end this process.  What else it holds back stays
// so: a SIGHUP from a terminal would end a process that it was not to reach.
void Unblock() {
  const sigset_t ending = EndingSignals();
  sigprocmask(SIG_UNBLOCK, &ending, nullptr);
}

}  // namespace

void MainCore_Exit(int status) {
  const SignalHold hold;
  std::exit(status);
}

void MainCore_LeaveAtOnce() { at_once = true; }

void MainCore_Reap() {
  while (wait4(-1, nullptr, WNOHANG, nullptr) > 0) {
  }
}

void MainCore_SigHndlr(int signal_number) {
  switch (signal_number) {
    case SIGINT:
      LimitWaits();
      DPRINTF(nullptr, kFatal, "[MainCore: SigHndlr] Recieved SIGINT.\n");
      Shutdown();
    case SIGTERM:
      LimitWaits();
      DPRINTF(nullptr, kFatal, "[MainCore: SigHndlr] Recieved SIGTERM.\n");
      Shutdown();
    case SIGUSR1:
      LimitWaits();
      DPRINTF(nullptr, kFatal, "[MainCore: SigHndlr] Recieved SIGUSR1.\n");
      Shutdown();
    case SIGCHLD: {
      const int saved = errno;
      MainCore_Reap();
      errno = saved;
      if (Set(SIGCHLD, MainCore_SigHndlr)) return;
      DPRINTF(nullptr, kFatal, "[MainCore: SigHndlr] Can't redirect SIGCHLD\n");
      MainCore_Exit(0);
    }
    default:
      DPRINTF(nullptr, kFatal, "[MainCore: SigHndlr] Received Unkown signal %d\n.  Ignoring. ",
              signal_number);
  }
}

int MainCore_SetSignals() {
  if (!Set(SIGINT, MainCore_SigHndlr)) {
    DPRINTF(nullptr, kFatal, "[MainCore: main] Can't redirect SIGINT\n");
    return 0;
  }
  if (!Set(SIGTERM, MainCore_SigHndlr)) {
    DPRINTF(nullptr, kFatal, "[MainCore: main] Can't redirect SIGTERM\n");
    return 0;
  }
  if (!Set(SIGPIPE, SIG_IGN)) {
    DPRINTF(nullptr, kFatal, "[MainCore: main] Can't set to ignore SIGPIPE\n");
    return 0;
  }
  if (!Set(SIGUSR1, MainCore_SigHndlr)) {
    DPRINTF(nullptr, kFatal, "[MainCore: main] Can't redirect SIGUSR1\n");
    return 0;
  }
  if (!Set(SIGCHLD, SIG_IGN)) {
    DPRINTF(nullptr, kFatal, "[MainCore: main] Can't ignore SIGCHLD\n");
    return 0;
  }
  Unblock();  // behind the handlers: one of the three may be waiting already
  return 1;
}
