// debug/signal_hold.h: keeps the signals that end a process away from a section.
//
// The handler of SIGINT, SIGTERM and SIGUSR1 logs and exits, so it must never interrupt a function
// that is not async-signal-safe (POSIX.1, 2.4.3).  Whoever calls stdio, ctime, malloc or exit holds
// the three back for as long as the object lives; a signal that came meanwhile is delivered when it
// dies.
#ifndef DEBUG_SIGNAL_HOLD_H
#define DEBUG_SIGNAL_HOLD_H

#include <csignal>

// The three.
inline sigset_t EndingSignals() {
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGINT);
  sigaddset(&ending, SIGTERM);
  sigaddset(&ending, SIGUSR1);
  return ending;
}

class SignalHold {
 public:
  SignalHold() {
    const sigset_t ending = EndingSignals();
    sigprocmask(SIG_BLOCK, &ending, &before_);
  }
  ~SignalHold() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  SignalHold(const SignalHold &) = delete;
  SignalHold &operator=(const SignalHold &) = delete;

 private:
  sigset_t before_;
};

#endif
