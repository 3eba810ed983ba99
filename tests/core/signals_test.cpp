#include "core/signals.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>

#include "debug/log.h"
#include "tests/core/core_seams.h"
#include "tests/core/running.h"
#include "tests/support/log_capture.h"

namespace {

struct Ending {
  int number;
  const char *name;
  const char *line;
};
constexpr Ending kEndings[] = {
    {SIGINT, "SIGINT", "[MainCore: SigHndlr] Recieved SIGINT.\n"},
    {SIGTERM, "SIGTERM", "[MainCore: SigHndlr] Recieved SIGTERM.\n"},
    {SIGUSR1, "SIGUSR1", "[MainCore: SigHndlr] Recieved SIGUSR1.\n"},
};

struct sigaction DispositionOf(int number) {
  struct sigaction action = {};
  sigaction(number, nullptr, &action);
  return action;
}

bool Blocked(int number) {
  sigset_t mask;
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  return sigismember(&mask, number) == 1;
}

// Ends a child that a case looks at from within.
void Verdict(bool good) { _exit(good ? 0 : 1); }

TEST(SetSignals, EndingSignals_AreOneShotUnblockedAndInterrupt) {
  for (const Ending &ending : kEndings) {
    const Ended ended = RunInChild(kInfo, [&] {
      if (MainCore_SetSignals() != 1) _exit(2);
      const struct sigaction action = DispositionOf(ending.number);
      Verdict(action.sa_handler == MainCore_SigHndlr && (action.sa_flags & SA_RESETHAND) != 0 &&
              (action.sa_flags & SA_NODEFER) != 0 && (action.sa_flags & SA_RESTART) == 0);
    });
    EXPECT_EQ(0, ended.status) << ending.name;
    EXPECT_EQ("", ended.log);
  }
}

TEST(SetSignals, PipesAndChildren_AreIgnored) {
  EXPECT_EQ(0, RunInChild(kInfo, [] {
                 Verdict(MainCore_SetSignals() == 1 &&
                         DispositionOf(SIGPIPE).sa_handler == SIG_IGN &&
                         DispositionOf(SIGCHLD).sa_handler == SIG_IGN);
               }).status);
}

TEST(SetSignals, HeldBackByTheParent_ThreeAreLifted) {
  EXPECT_EQ(0, RunInChild(kInfo, [] {
                 sigset_t all, before, now;
                 sigfillset(&all);
                 sigprocmask(SIG_SETMASK, &all, nullptr);
                 sigprocmask(SIG_SETMASK, nullptr, &before);
                 if (MainCore_SetSignals() != 1) _exit(2);
                 sigprocmask(SIG_SETMASK, nullptr, &now);
                 for (const Ending &ending : kEndings) sigdelset(&before, ending.number);
                 for (int number = 1; number < NSIG; ++number)
                   if (sigismember(&before, number) != sigismember(&now, number)) _exit(3);
                 _exit(0);
               }).status);
}

int again = 0;

// A line of the log that meets the same signal once more.
int RaiseAgain(const char *, int) {
  raise(again);
  return 1;
}

TEST(SetSignals, SameSignalWhileItsHandlerRuns_FindsTheDefault) {
  for (const Ending &ending : kEndings) {
    again = ending.number;
    const Ended ended = RunInChild(kFatal, [&] {
      MainCore_SetSignals();
      Debug_SetSend(RaiseAgain);
      raise(ending.number);
    });
    ASSERT_TRUE(WIFSIGNALED(ended.status)) << ending.name << " " << ended.status;
    EXPECT_EQ(ending.number, WTERMSIG(ended.status));
  }
}

TEST(SigHndlr, EndingSignal_IsTwoLinesAndStatus0) {
  for (const Ending &ending : kEndings) {
    const Ended ended = RunInChild(kFatal, [&] {
      MainCore_SetSignals();
      raise(ending.number);
    });
    EXPECT_EQ(0, ended.status);
    EXPECT_EQ(std::string(ending.line) + "[MainCore: Shutdown] Tovak has left the building.\n",
              ended.log);
  }
}

TEST(SigHndlr, EndingSignal_IsNotLoggedAbove104) {
  for (const Ending &ending : kEndings) {
    const Ended ended = RunInChild(kOff, [&] {
      MainCore_SetSignals();
      raise(ending.number);
    });
    EXPECT_EQ(0, ended.status) << ending.name;
    EXPECT_EQ("", ended.log);
  }
}

TEST(SigHndlr, EndingSignal_WritesWhatStandardOutputStillHolds) {
  for (const Ending &ending : kEndings) {
    const Ended ended = RunInChild(kOff, [&] {
      MainCore_SetSignals();
      std::printf("left behind");
      raise(ending.number);
    });
    EXPECT_EQ(0, ended.status) << ending.name;
    EXPECT_EQ("left behind", ended.output);
  }
}

TEST(SigHndlr, OtherSignal_IsLoggedAt104AndReturns) {
  EXPECT_EQ("[MainCore: SigHndlr] Received Unkown signal 12\n.  Ignoring. ",
            MessagesAt(kFatal, [] { MainCore_SigHndlr(SIGUSR2); }));
}

// A child that has ended and that nobody has waited for.
void MakeZombie() {
  const pid_t pid = fork();
  if (pid == 0) _exit(0);
  siginfo_t info;
  waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
}

bool HasChildren() { return waitpid(-1, nullptr, WNOHANG) >= 0; }

TEST(SigHndlr, ChildSignal_ReapsAllThatEnded) {
  const Ended ended = RunInChild(kInfo, [] {
    for (int i = 0; i < 3; ++i) MakeZombie();
    MainCore_SigHndlr(SIGCHLD);
    Verdict(!HasChildren());
  });
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ("", ended.log);
}

TEST(SigHndlr, ChildSignal_ReapsAChildOfAnotherGroup) {
  EXPECT_EQ(0, RunInChild(kInfo, [] {
                 const pid_t pid = fork();
                 if (pid == 0) _exit(setpgid(0, 0));
                 siginfo_t info;
                 waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
                 MainCore_SigHndlr(SIGCHLD);
                 Verdict(info.si_status == 0 && !HasChildren());
               }).status);
}

TEST(SigHndlr, ChildSignal_DoesNotWaitForAChildThatLives) {
  EXPECT_EQ(0, RunInChild(kInfo, [] {
                 const pid_t living = fork();
                 if (living == 0) {
                   for (;;) pause();
                 }
                 MakeZombie();
                 MainCore_SigHndlr(SIGCHLD);
                 const bool alone = waitpid(-1, nullptr, WNOHANG) == 0;
                 kill(living, SIGKILL);
                 waitpid(living, nullptr, 0);
                 Verdict(alone && !HasChildren());
               }).status);
}

// The row installs itself, so that it shows how any handler is installed.
TEST(SigHndlr, ChildSignal_FindsTheDefaultWhileItRunsAndIsInstalledAgain) {
  EXPECT_EQ(0,
            RunInChild(kInfo, [] {
              MainCore_SigHndlr(SIGCHLD);
              bool reset = false, blocked = true;
              wait_seam.ask = [&](int) {
                reset = DispositionOf(SIGCHLD).sa_handler == SIG_DFL;
                blocked = Blocked(SIGCHLD);
                return 0;
              };
              raise(SIGCHLD);
              Verdict(reset && !blocked && DispositionOf(SIGCHLD).sa_handler == MainCore_SigHndlr);
            }).status);
}

TEST(SigHndlr, ChildSignal_InterruptsASystemCall) {
  EXPECT_EQ(0, RunInChild(kInfo, [] {
                 int ends[2];
                 if (pipe(ends) != 0) _exit(2);
                 MainCore_SigHndlr(SIGCHLD);
                 const pid_t reader = getpid();
                 if (fork() == 0) {
                   close(ends[0]);
                   // Again and again: the first may come before the reader waits.
                   for (int i = 0; i < kPatienceMs && getppid() == reader; ++i) {
                     kill(reader, SIGCHLD);
                     usleep(1000);
                   }
                   (void)!write(ends[1], "x", 1);  // it was never interrupted
                   _exit(0);
                 }
                 char byte;
                 const ssize_t got = read(ends[0], &byte, 1);
                 Verdict(got < 0 && errno == EINTR);
               }).status);
}

TEST(SigHndlr, ChildSignalThatCannotBeInstalledAgain_EndsWithItsLineAndStatus0) {
  const auto fail = [] {
    signal_seam.ask = [](int) { return EINVAL; };
    MainCore_SigHndlr(SIGCHLD);
  };
  const Ended shown = RunInChild(kFatal, fail);
  EXPECT_EQ(0, shown.status);
  EXPECT_EQ("[MainCore: SigHndlr] Can't redirect SIGCHLD\n", shown.log);
  const Ended dropped = RunInChild(kOff, fail);
  EXPECT_EQ(0, dropped.status);
  EXPECT_EQ("", dropped.log);
}

}  // namespace
