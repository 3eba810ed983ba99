// How the counters of a process reach its files: linked into every program of the coverage build.
//
// A daemon's processes leave by _exit, which writes no counters, and tests end process groups by
// SIGKILL, which would cut a file in the middle.  So whoever leaves, by either way, hands its
// counters to a process outside of its group, which writes them.  A process that a signal's default
// action ends has no counts.
#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <initializer_list>

extern "C" {

void __gcov_dump();
[[noreturn]] void __real__exit(int status);

}  // extern "C"

namespace {

// Complaints of the writer go to the log that check.py reads; who holds it locked still writes.
void OpenLog() {
  close_range(0, ~0U, 0);
  const int log = openat(AT_FDCWD, COUNTERS_LOG, O_WRONLY | O_APPEND);
  if (log < 0) return;
  dup2(log, STDOUT_FILENO);
  dup2(log, STDERR_FILENO);
  flock(log, LOCK_SH);
}

// The limits that a case sets are not for the writer, whose files they would cut.
void LiftLimits() {
  for (const auto resource : {RLIMIT_AS, RLIMIT_FSIZE, RLIMIT_NOFILE}) {
    rlimit limit;
    getrlimit(resource, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(resource, &limit);
  }
}

// The process has nothing left to do but to end.
void HandOver() {
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, nullptr);
  OpenLog();
  const pid_t writer = _Fork();  // past the fork that tests make fail
  if (writer > 0) return;
  if (writer == 0) setsid();
  LiftLimits();
  __gcov_dump();
  if (writer == 0) __real__exit(0);
}

}  // namespace

// The linker sends every call of the program through __wrap_NAME.
extern "C" {

[[noreturn]] void __wrap__exit(int status) {
  HandOver();
  __real__exit(status);
}

// Called for every counted file when the process exits, behind all that it had to do.
void __wrap___gcov_exit() {
  static bool done = false;
  if (done) return;
  done = true;
  std::fflush(nullptr);
  HandOver();
}

}  // extern "C"
