#include "debug/log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <limits>
#include <string>

#include "debug/fd_guard.h"
#include "debug/signal_hold.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"

namespace {

const std::string kSeparator = std::string(63, '-') + "\n";

std::string HeaderAt(std::time_t seconds) {
  return "---------------------------------------------------------------\nPID: " +
         std::to_string(getpid()) + ", TIME: " + std::ctime(&seconds);
}

// The sink of a test: what came, and what to answer.
std::string sent;
int sent_length = 0;
int send_result = 1;
int Collect(const char *text, int length) {
  sent += text;
  sent_length = length;
  return send_result;
}

class Sink {
 public:
  explicit Sink(Debug_SendFn send = Collect) {
    sent.clear();
    send_result = 1;
    Debug_SetSend(send);
  }
  ~Sink() { Debug_SetSend(nullptr); }
};

sigset_t MaskNow() {
  sigset_t mask;
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  return mask;
}

std::string HeldBack() {
  const sigset_t mask = MaskNow();
  std::string names;
  if (sigismember(&mask, SIGINT)) names += "INT ";
  if (sigismember(&mask, SIGTERM)) names += "TERM ";
  if (sigismember(&mask, SIGUSR1)) names += "USR1 ";
  if (sigismember(&mask, SIGUSR2)) names += "USR2 ";
  if (sigismember(&mask, SIGCHLD)) names += "CHLD ";
  return names;
}

std::string held_in_sink;
int NoteHeld(const char *, int) {
  held_in_sink = HeldBack();
  return 1;
}

char StateOf(pid_t process) {
  const std::string stat = FileText("/proc/" + std::to_string(process) + "/stat");
  return stat[stat.rfind(')') + 2];
}

// The signals that wait for a process.
unsigned long SignalsOf(pid_t process) {
  const std::string status = FileText("/proc/" + std::to_string(process) + "/status");
  return std::strtoul(status.c_str() + status.find("ShdPnd:") + 7, nullptr, 16);
}

volatile sig_atomic_t delivered = 0;
void NoteSignal(int) { delivered = 1; }

std::int64_t clock_seconds = 0;  // what the clock shows; 0: the time as it is

}  // namespace

extern "C" {

std::time_t __real_time(std::time_t *);
std::time_t __wrap_time(std::time_t *place) {
  return clock_seconds != 0 ? static_cast<std::time_t>(clock_seconds) : __real_time(place);
}

}  // extern "C"

TEST(Log, DPRINTF_KeptMessage_IsSeparatorHeaderAndText) {
  const LogCapture log(103);
  const std::time_t before = std::time(nullptr);
  DPRINTF(nullptr, kWarning, "[Test: Log] %s %d\n", "answer", 42);
  const std::time_t after = std::time(nullptr);
  const std::string text = "[Test: Log] answer 42\n";
  EXPECT_TRUE(log.Raw() == HeaderAt(before) + text || log.Raw() == HeaderAt(after) + text)
      << log.Raw();
}

TEST(Log, DPRINTF_After32BitsOfSeconds_HeaderShowsTheTime) {
  const LogCapture log(103);
  setenv("TZ", "UTC", 1);
  tzset();
  clock_seconds = std::int64_t{INT32_MAX} + 1;
  DPRINTF(nullptr, kWarning, "[Test: Log] late\n");
  clock_seconds = 0;
  unsetenv("TZ");
  tzset();
  EXPECT_EQ(log.Raw(), "---------------------------------------------------------------\nPID: " +
                           std::to_string(getpid()) +
                           ", TIME: Tue Jan 19 03:14:08 2038\n[Test: Log] late\n");
}

TEST(Log, DPRINTF_AtInFormat_IsContinuationWithoutHeader) {
  const LogCapture log(103);
  EXPECT_EQ(DPRINTF(nullptr, kWarning, "@abc %d\n", 5), 1);
  EXPECT_EQ(log.Raw(), "abc 5\n");
}

TEST(Log, DPRINTF_TwoAts_OnlyTheFirstIsDropped) {
  const LogCapture log(103);
  DPRINTF(nullptr, kWarning, "@@abc\n");
  EXPECT_EQ(log.Raw(), "@abc\n");
}

TEST(Log, DPRINTF_AtInPrintedText_IsNoContinuation) {
  const LogCapture log(103);
  DPRINTF(nullptr, kWarning, "%s\n", "@abc");
  EXPECT_EQ(log.Raw().substr(0, 64), kSeparator);
  EXPECT_EQ(log.Messages(), "@abc\n");
}

TEST(Log, DPRINTF_PercentInPrintedText_IsNotFormattedAgain) {
  const LogCapture log(103);
  DPRINTF(nullptr, kWarning, "%s\n", "100%d %s");
  EXPECT_EQ(log.Messages(), "100%d %s\n");
}

TEST(Log, DPRINTF_BeforeSetLevel_PrintsEveryLevel) {
  EXPECT_EQ(Debug_Level, 0);
  const LogCapture log(Debug_Level);
  EXPECT_EQ(DPRINTF(nullptr, kInfo, "a\n"), 1);
  EXPECT_EQ(DPRINTF(nullptr, kFatal, "b\n"), 1);
  EXPECT_EQ(DPRINTF(nullptr, 0, "c\n"), 1);
  EXPECT_EQ(log.Messages(), "a\nb\nc\n");
}

TEST(Log, DPRINTF_EachLevel_PassesAtOrAboveTheGlobalOne) {
  for (int global = kInfo; global <= kOff; ++global) {
    for (int level = kInfo; level <= kOff; ++level) {
      const LogCapture log(global);
      const int result = DPRINTF(nullptr, level, "x\n");
      EXPECT_EQ(result, level >= global ? 1 : 0) << level << " at " << global;
      EXPECT_EQ(log.Messages(), level >= global ? "x\n" : "") << level << " at " << global;
    }
  }
}

TEST(Log, DPRINTF_Dropped_DoesNotEvaluateItsArguments) {
  const LogCapture log(103);
  int evaluated = 0;
  EXPECT_EQ(DPRINTF(nullptr, kStatus, "%d\n", ++evaluated), 0);
  EXPECT_EQ(evaluated, 0);
}

TEST(Log, DPRINTF_Stream_TakesTheMessageAtOnce) {
  const LogCapture log(103);
  const FdCapture out(STDOUT_FILENO);
  const int result = DPRINTF(stdout, kWarning, "@to stdout\n");
  const bool buffered = lseek(STDOUT_FILENO, 0, SEEK_CUR) != 10;
  const std::string text = out.Text();
  EXPECT_EQ(result, 1);
  EXPECT_EQ(text, "to stdout\n");
  EXPECT_FALSE(buffered);
  EXPECT_EQ(log.Raw(), "");
}

TEST(Log, DPRINTF_Stream_HasHeaderLikeStandardError) {
  char *text = nullptr;
  std::size_t size = 0;
  std::FILE *stream = open_memstream(&text, &size);
  const LogCapture log(103);
  DPRINTF(stream, kWarning, "line\n");
  std::fclose(stream);
  EXPECT_EQ(std::string(text).substr(0, 64), kSeparator);
  EXPECT_EQ(StripHeaders(text), "line\n");
  std::free(text);
}

TEST(Log, DPRINTF_EveryMessage_KeepsErrno) {
  const LogCapture log(103);
  const Sink sink([](const char *, int) {
    errno = ENOSPC;
    return 1;
  });
  errno = EPIPE;
  DPRINTF(nullptr, kWarning, "x\n");
  EXPECT_EQ(errno, EPIPE);
  DPRINTF(nullptr, kInfo, "dropped\n");
  EXPECT_EQ(errno, EPIPE);
}

TEST(Log, DPRINTF_FullDisk_IsGivenUp) {
  const int saved = dup(STDERR_FILENO);
  const FdGuard full(open("/dev/full", O_WRONLY));
  dup2(full.Get(), STDERR_FILENO);
  const int result = DPRINTF(nullptr, kFatal, "lost\n");
  dup2(saved, STDERR_FILENO);
  close(saved);
  EXPECT_EQ(result, 1);
}

TEST(Log, DPRINTF_TextOfTheWholeBuffer_IsNotCut) {
  const LogCapture log(103);
  const std::size_t header = HeaderAt(std::time(nullptr)).size();
  const std::string text = std::string(40960 - header, 'x');
  EXPECT_EQ(DPRINTF(nullptr, kWarning, "%s", text.c_str()), 1);
  EXPECT_EQ(log.Raw().size(), 40960U);
  EXPECT_EQ(log.Messages(), text);
}

TEST(Log, DPRINTF_LongerThanTheBuffer_IsCutAndKeepsItsLineEnd) {
  const LogCapture log(103);
  EXPECT_EQ(DPRINTF(nullptr, kWarning, "%s\n", std::string(100000, 'x').c_str()), 1);
  EXPECT_EQ(log.Raw().size(), 40960U);
  EXPECT_EQ(log.Raw().substr(40958), "x\n");
}

TEST(Log, DPRINTF_ContinuationLongerThanTheBuffer_IsCutToo) {
  const LogCapture log(103);
  DPRINTF(nullptr, kWarning, "@%s", std::string(40961, 'y').c_str());
  EXPECT_EQ(log.Raw(), std::string(40959, 'y') + "\n");
}

TEST(Log, DPRINTF_MessageAfterALongOne_StandsAlone) {
  LogCapture log(103);
  DPRINTF(nullptr, kWarning, "%s\n", std::string(50000, 'x').c_str());
  log.Clear();
  DPRINTF(nullptr, kWarning, "@short\n");
  EXPECT_EQ(log.Raw(), "short\n");
}

// The daemon's locale has no such letter, and the C library refuses it.
TEST(Log, DPRINTF_TextThatCannotBeMade_LeavesItsHeaderAndTheNextMessageAlone) {
  const LogCapture log(103);
  EXPECT_EQ(DPRINTF(nullptr, kWarning, "%lc\n", wint_t{0x20ac}), 1);
  EXPECT_NE(log.Raw(), "");
  EXPECT_EQ(log.Messages(), "");
  DPRINTF(nullptr, kWarning, "next\n");
  EXPECT_EQ(log.Messages(), "next\n");
}

TEST(Log, DPRINTF_Collector_GetsTheTextWithItsTerminator) {
  const LogCapture log(103);
  const Sink sink;
  EXPECT_EQ(DPRINTF(nullptr, kWarning, "[Test: Log] %d\n", 7), 1);
  EXPECT_EQ(StripHeaders(sent), "[Test: Log] 7\n");
  EXPECT_EQ(sent.substr(0, 64), kSeparator);
  EXPECT_EQ(sent_length, static_cast<int>(sent.size()) + 1);
  EXPECT_EQ(log.Raw(), "");
}

TEST(Log, DPRINTF_StreamWithCollector_IsNotSent) {
  const Sink sink;
  const Output output = Capture(103, [] { DPRINTF(stdout, kWarning, "x\n"); });
  EXPECT_EQ(sent, "");
  EXPECT_EQ(output.out, "x\n");
}

TEST(Log, DPRINTF_WhileWriting_HoldsTheEndingSignalsBack) {
  const LogCapture log(103);
  const Sink sink(NoteHeld);
  DPRINTF(nullptr, kWarning, "x\n");
  EXPECT_EQ(held_in_sink, "INT TERM USR1 ");
  EXPECT_EQ(HeldBack(), "");
}

TEST(Log, DPRINTF_SignalInTheMiddle_ComesBehindTheLine) {
  const LogCapture log(103);
  std::signal(SIGUSR1, NoteSignal);
  delivered = 0;
  static int early;
  const Sink sink([](const char *, int) {
    raise(SIGUSR1);
    early = delivered;
    return 1;
  });
  DPRINTF(nullptr, kWarning, "x\n");
  std::signal(SIGUSR1, SIG_DFL);
  EXPECT_EQ(early, 0);
  EXPECT_EQ(delivered, 1);
}

// A reader of the log that stopped reading must not keep a process from ending.
TEST(Log, DPRINTF_BlockedStandardError_CanStillBeEnded) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
  const FdGuard reading(ends[0]), writing(ends[1]);
  while (write(ends[1], "x", 1) == 1) continue;
  ASSERT_EQ(fcntl(ends[1], F_SETFL, 0), 0);
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // a failed test leaves nothing behind
    dup2(ends[1], STDERR_FILENO);
    DPRINTF(nullptr, kFatal, "%s\n", std::string(30000, 'x').c_str());
    _exit(0);
  }
  Await([child] { return StateOf(child) == 'S'; });
  kill(child, SIGTERM);
  int status = 0;
  Await([&] { return waitpid(child, &status, WNOHANG) == child; });
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

// The signal comes while part of the message is in the pipe.
TEST(Log, DPRINTF_InterruptedInTheMiddle_WritesTheRest) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
  const FdGuard reading(ends[0]);
  Fd writing(ends[1]);
  char bytes[8192];
  while (write(ends[1], "x", 1) == 1) continue;
  ASSERT_EQ(read(ends[0], bytes, sizeof bytes), 8192);  // room for the first part
  ASSERT_EQ(fcntl(ends[1], F_SETFL, 0), 0);
  std::string text;
  for (int i = 0; i < 3000; ++i) text += std::to_string(1000000 + i) + "\n";
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    struct sigaction action = {};
    action.sa_handler = NoteSignal;
    sigaction(SIGALRM, &action, nullptr);
    dup2(ends[1], STDERR_FILENO);
    DPRINTF(nullptr, kFatal, "@%s", text.c_str());
    _exit(0);
  }
  writing.Close();
  Await([child] { return StateOf(child) == 'S'; });
  kill(child, SIGALRM);
  Await([child] { return SignalsOf(child) == 0 && StateOf(child) == 'S'; });
  std::string received;
  Await([&] {
    const ssize_t got = read(ends[0], bytes, sizeof bytes);
    if (got > 0) received.append(bytes, static_cast<std::size_t>(got));
    return got == 0;
  });
  waitpid(child, nullptr, 0);
  EXPECT_EQ(received.substr(received.find('1')), text);
}

TEST(Log, DPRINTF_InAForkedProcess_ShowsItsOwnId) {
  const LogCapture log(103);
  const pid_t child = fork();
  if (child == 0) {
    DPRINTF(nullptr, kWarning, "x\n");
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(log.Raw().find(kSeparator + "PID: " + std::to_string(child) + ", TIME: "), 0U);
}

TEST(Log, SetLevel_103_DropsInfoAndStatus) {
  LogCapture log(0);
  EXPECT_EQ(SetLevel(103), 1);
  EXPECT_EQ(log.Messages(), "[DEBUG: SetLevel] Global Debug Level Set to 103\n");
  log.Clear();
  DPRINTF(nullptr, 101, "a\n");
  DPRINTF(nullptr, 102, "b\n");
  DPRINTF(nullptr, 103, "c\n");
  DPRINTF(nullptr, 104, "d\n");
  EXPECT_EQ(log.Messages(), "c\nd\n");
}

TEST(Log, SetLevel_105_ShowsOnlyItsOwnConfirmation) {
  const LogCapture log(101);
  EXPECT_EQ(SetLevel(105), 1);
  for (int level = 101; level <= 104; ++level) DPRINTF(nullptr, level, "x\n");
  EXPECT_EQ(log.Messages(), "[DEBUG: SetLevel] Global Debug Level Set to 105\n");
}

TEST(Log, SetLevel_EveryValidLevel_IsSetAndConfirmed) {
  for (int level = 101; level <= 105; ++level) {
    const LogCapture log(105);
    EXPECT_EQ(SetLevel(level), 1);
    EXPECT_EQ(Debug_Level, level);
    EXPECT_EQ(log.Messages(),
              "[DEBUG: SetLevel] Global Debug Level Set to " + std::to_string(level) + "\n");
  }
}

TEST(Log, SetLevel_OutOfRange_ChangesAndPrintsNothing) {
  for (const int level : {100, 106, 0, -1, INT32_MAX, INT32_MIN}) {
    const LogCapture log(102);
    EXPECT_EQ(SetLevel(level), 0) << level;
    EXPECT_EQ(Debug_Level, 102) << level;
    EXPECT_EQ(log.Raw(), "") << level;
  }
}

TEST(Log, SetLevel_InAChild_DoesNotReachTheParent) {
  const LogCapture log(103);
  const pid_t child = fork();
  if (child == 0) _exit(SetLevel(101) == 1 && Debug_Level == 101 ? 0 : 1);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Debug_Level, 103);
}

TEST(Log, TimeText_IsThatOfCtime) {
  char text[kTimeTextSize];
  for (const std::time_t seconds :
       {std::time_t{0}, std::time_t{1000000000}, std::time_t{INT32_MAX}})
    EXPECT_EQ(std::string(Debug_TimeText(seconds, text)), std::ctime(&seconds));
  EXPECT_EQ(std::string(text).size(), 25U);
}

// The year of the last second does not fit 32 bits.
TEST(Log, TimeText_BeyondTheCalendar_IsALineEnd) {
  char text[kTimeTextSize];
  EXPECT_STREQ(Debug_TimeText(std::numeric_limits<std::time_t>::max(), text), "\n");
}

TEST(SignalHold, Signal_WaitsForTheEndOfTheObject) {
  std::signal(SIGTERM, NoteSignal);
  delivered = 0;
  {
    const SignalHold hold;
    raise(SIGTERM);
    EXPECT_EQ(delivered, 0);
  }
  EXPECT_EQ(delivered, 1);
  std::signal(SIGTERM, SIG_DFL);
}

TEST(SignalHold, Nested_ReleasesOnlyAtTheOuterEnd) {
  const SignalHold outer;
  { const SignalHold inner; }
  EXPECT_EQ(HeldBack(), "INT TERM USR1 ");
}

TEST(FdGuard, EndOfScope_ClosesTheDescriptor) {
  const int fd = dup(STDERR_FILENO);
  {
    const FdGuard guard(fd);
    EXPECT_EQ(guard.Get(), fd);
  }
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(FdGuard, NegativeDescriptor_ClosesNothing) {
  errno = 0;
  { const FdGuard guard(-1); }
  EXPECT_EQ(errno, 0);
}
