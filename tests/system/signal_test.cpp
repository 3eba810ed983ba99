#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "tests/support/log_capture.h"
#include "tests/system/harness.h"

namespace {

std::string Farewell(const std::string &name) {
  return "[MainCore: SigHndlr] Recieved " + name +
         ".\n[MainCore: Shutdown] Tovak has left the building.\n";
}

std::size_t Count(const std::string &text, const std::string &part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

TEST(Signals, EachEndsTheProcessWithItsTwoLines) {
  const struct {
    int number;
    const char *name;
  } kSignals[] = {{SIGINT, "SIGINT"}, {SIGTERM, "SIGTERM"}, {SIGUSR1, "SIGUSR1"}};
  for (const auto &signal : kSignals) {
    Daemon daemon;
    const std::size_t before = daemon.Log().size();
    daemon.Program().Signal(signal.number);
    EXPECT_EQ(0, ExitStatus(daemon.Program().Wait()));
    EXPECT_EQ(Farewell(signal.name), daemon.Log().substr(before));
  }
}

TEST(Signals, Shutdown_EndsTheWholeGroup) {
  Daemon daemon;
  const Socket first = daemon.Client(), second = daemon.Client();
  daemon.SetLevel("STATUS");
  daemon.SetLevel("WARNING");  // both connections are accepted by now
  daemon.Send("\t@COMMAND=SHUTDOWN\n");
  EXPECT_EQ(0, ExitStatus(daemon.Program().Wait()));
  EXPECT_EQ("", first.ReadAll());
  EXPECT_EQ("", second.ReadAll());
  for (const int status : daemon.Program().WaitForGroup()) EXPECT_EQ(0, status);
  EXPECT_EQ(3u, Count(daemon.Log(), "Tovak has left the building.\n"));
  EXPECT_EQ(3u, Count(daemon.Log(), "[MainCore: SigHndlr] Recieved SIGUSR1.\n"));
}

TEST(Signals, MainProcessAlone_LeavesTheChildrenServing) {
  Daemon daemon;
  const Socket client = daemon.Client();
  daemon.Ping();
  daemon.Ping();
  daemon.Program().Signal(SIGUSR1);
  EXPECT_EQ(0, ExitStatus(daemon.Program().Wait()));
  client.Send("still there\n");
  EXPECT_EQ("", client.ReadAll());
  EXPECT_TRUE(daemon.Program().WaitForLog("Unable to figure out this command: still there\n"));
}

TEST(Signals, SigpipeAndSigchld_AreIgnored) {
  Daemon daemon;
  daemon.Program().Signal(SIGPIPE);
  daemon.Program().Signal(SIGCHLD);
  daemon.Ping();
}

TEST(Signals, OneThatWaitsWhenTheProgramStarts_EndsItWithItsTwoLines) {
  const Folder folder;
  Process process({KORVO_COMMMGR, "web1", folder.Path()}, folder.Path(), [] {
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    sigprocmask(SIG_BLOCK, &term, nullptr);
    raise(SIGTERM);
  });
  EXPECT_EQ(0, ExitStatus(process.Wait()));
  EXPECT_EQ(Farewell("SIGTERM"), process.Log());
}

TEST(Signals, ThoseThatTheParentHeldBack_StaySoExceptTheThreeThatEnd) {
  Daemon daemon(KORVO_COMMMGR, [] {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
  });
  daemon.Program().Signal(SIGHUP);
  daemon.Ping();
  const std::size_t before = daemon.Log().size();
  daemon.Program().Signal(SIGTERM);
  EXPECT_EQ(0, ExitStatus(daemon.Program().Wait()));
  EXPECT_EQ(Farewell("SIGTERM"), daemon.Log().substr(before));
}

// A pipe whose writers wait for room, as a program finds it, while the test does not.
class Pipe {
 public:
  Pipe() {
    EXPECT_EQ(0, pipe2(ends_, O_CLOEXEC));
    EXPECT_EQ(0, fcntl(ends_[0], F_SETFL, O_NONBLOCK));
    const std::string same = "/proc/self/fd/" + std::to_string(ends_[1]);
    filler_ = open(same.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK);
  }
  ~Pipe() {
    for (const int fd : {ends_[0], ends_[1], filler_}) close(fd);
  }
  Pipe(const Pipe &) = delete;
  Pipe &operator=(const Pipe &) = delete;

  int Writing() const { return ends_[1]; }
  std::string Take(std::size_t most) const {
    std::string bytes(most, '\0');
    const ssize_t got = read(ends_[0], bytes.data(), most);
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return bytes;
  }
  std::string TakeAll() const {
    std::string all, some;
    while (!(some = Take(65536)).empty()) all += some;
    return all;
  }
  // Leaves room for that many bytes of short lines, a page at most.
  void FillBut(std::size_t room) const {
    TakeAll();
    const std::string page(kPage, 'x');
    while (write(filler_, page.data(), kPage) > 0) continue;
    EXPECT_EQ(page, Take(kPage));
    if (room == kPage) return;
    const std::string rest(kPage - room, 'x');
    EXPECT_EQ(ssize_t(rest.size()), write(filler_, rest.data(), rest.size()));
  }
  // What came behind what it was filled with.
  std::string Behind() const {
    const std::string all = TakeAll();
    return all.substr(std::min(all.find_first_not_of('x'), all.size()));
  }

  static constexpr std::size_t kPage = 4096;

 private:
  int ends_[2] = {-1, -1};
  int filler_ = -1;
};

// A process waits for what it writes there.
bool Writes(pid_t pid, int fd) {
  const std::string call = ReadFile("/proc/" + std::to_string(pid) + "/syscall");
  const std::string number = call.substr(0, call.find(' '));  // of write(), in either word size
  return (number == "1" || number == "4") &&
         call.find(" 0x" + std::to_string(fd) + " ") == number.size();
}

// Descriptors that take nothing: a full pipe, a full socket, and a terminal that was stopped.
struct Stuck {
  explicit Stuck(const std::string &kind) {
    if (kind == "pipe") {
      pipe.FillBut(0);
      writing = dup(pipe.Writing());
    } else if (kind == "socket") {
      int ends[2];
      EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
      other = ends[0];
      writing = ends[1];
      const std::string some(1024, 'x');
      while (send(writing, some.data(), some.size(), MSG_DONTWAIT) > 0) continue;
      while (send(writing, "x", 1, MSG_DONTWAIT) > 0) continue;
    } else {
      other = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
      grantpt(other);
      unlockpt(other);
      writing = open(ptsname(other), O_RDWR | O_NOCTTY | O_CLOEXEC);
      EXPECT_EQ(0, tcflow(writing, TCOOFF));
    }
  }
  ~Stuck() {
    close(writing);
    if (other >= 0) close(other);
  }
  Stuck(const Stuck &) = delete;
  Stuck &operator=(const Stuck &) = delete;

  Pipe pipe;
  int writing = -1;
  int other = -1;
};

// The start-up writes its banner to standard output, and its first line to standard error.
TEST(Signals, OutputThatNobodyReads_KeepsNoneAway) {
  for (const char *kind : {"pipe", "socket", "terminal"}) {
    for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
      SCOPED_TRACE(std::string(kind) + " " + std::to_string(fd));
      const Stuck stuck(kind);
      const Folder folder;
      Process process({KORVO_COMMMGR, "web1", folder.Path()}, folder.Path(),
                      [&] { dup2(stuck.writing, fd); });
      EXPECT_TRUE(Eventually([&] { return Writes(process.Pid(), fd); }));
      process.Signal(SIGTERM);
      EXPECT_EQ(0, ExitStatus(process.Wait()));
      EXPECT_EQ(fd == STDOUT_FILENO ? Farewell("SIGTERM") : "", process.Log());
    }
  }
}

// The banner has 703 bytes, and the first line of the usage 58.
TEST(Signals, UsageThatNobodyReads_KeepsNoneAway) {
  const Pipe output;
  output.FillBut(720);
  const Folder folder;
  Process process({KORVO_COMMMGR, "-?"}, folder.Path(), [&] { dup2(output.Writing(), 1); });
  EXPECT_TRUE(Eventually([&] { return Writes(process.Pid(), 1); }));
  process.Signal(SIGTERM);
  EXPECT_EQ(0, ExitStatus(process.Wait()));
  EXPECT_EQ(Farewell("SIGTERM"), process.Log());
  EXPECT_EQ(703u, output.Behind().size());
}

// How its processes end by that signal: the main one before the others, whose status it would take.
std::vector<int> Ends(Daemon *daemon, int number) {
  daemon->Program().Signal(number);
  std::vector<int> statuses = {ExitStatus(daemon->Program().Wait())};
  kill(-daemon->Program().Pid(), number);
  for (const int status : daemon->Program().WaitForGroup()) statuses.push_back(ExitStatus(status));
  return statuses;
}

TEST(Signals, LogThatNobodyReads_EndsEveryProcessOfTheGroup) {
  const struct {
    int number;
    const char *name;
  } kSignals[] = {{SIGINT, "SIGINT"}, {SIGTERM, "SIGTERM"}, {SIGUSR1, "SIGUSR1"}};
  for (const auto &signal : kSignals) {
    const Pipe log;
    Daemon daemon(KORVO_COMMMGR, [&] {
      dup2(log.Writing(), 2);
      sigset_t alarm;
      sigemptyset(&alarm);
      sigaddset(&alarm, SIGALRM);
      sigprocmask(SIG_BLOCK, &alarm, nullptr);
    });
    const Socket first = daemon.Client(), second = daemon.Client();
    for (int i = 0; i < 3; ++i) daemon.Ping();
    log.FillBut(0);
    EXPECT_EQ((std::vector<int>{0, 0, 0}), Ends(&daemon, signal.number)) << signal.name;
    EXPECT_EQ("", log.Behind());
  }
}

TEST(Signals, LogWithRoom_HasBothLinesOfEveryProcess) {
  const Pipe log;
  Daemon daemon(KORVO_COMMMGR, [&] { dup2(log.Writing(), 2); });
  const Socket first = daemon.Client(), second = daemon.Client();
  for (int i = 0; i < 3; ++i) daemon.Ping();
  log.FillBut(Pipe::kPage);
  daemon.Send("\t@COMMAND=SHUTDOWN\n");
  EXPECT_EQ(0, ExitStatus(daemon.Program().Wait()));
  for (const int status : daemon.Program().WaitForGroup()) EXPECT_EQ(0, status);
  const std::string lines = StripHeaders(log.Behind());
  EXPECT_EQ(3 * Farewell("SIGUSR1").size(), lines.size()) << lines;
  EXPECT_EQ(3u, Count(lines, "[MainCore: SigHndlr] Recieved SIGUSR1.\n"));
  EXPECT_EQ(3u, Count(lines, "[MainCore: Shutdown] Tovak has left the building.\n"));
}

// A line has about 150 bytes with its header.
TEST(Signals, LogWithRoomForOneLine_HasThatOneWhole) {
  const Pipe log;
  Daemon daemon(KORVO_COMMMGR, [&] { dup2(log.Writing(), 2); });
  log.FillBut(200);
  daemon.Program().Signal(SIGTERM);
  EXPECT_EQ(0, ExitStatus(daemon.Program().Wait()));
  EXPECT_EQ("[MainCore: SigHndlr] Recieved SIGTERM.\n", StripHeaders(log.Behind()));
}

// The connection's process has a line of more than a page, and one page takes its beginning.
TEST(Signals, InTheMiddleOfALongLine_EndsTheGroup) {
  const Pipe log;
  Daemon daemon(KORVO_COMMMGR, [&] { dup2(log.Writing(), 2); });
  log.FillBut(Pipe::kPage);
  const Socket client = daemon.Client();
  client.Send(std::string(4095, 'y') + "\n");
  EXPECT_TRUE(Eventually([&] {
    const std::string main = std::to_string(daemon.Program().Pid());
    const std::string children = ReadFile("/proc/" + main + "/task/" + main + "/children");
    return !children.empty() && Writes(std::stoi(children), 2);
  }));
  EXPECT_EQ((std::vector<int>{0, 0}), Ends(&daemon, SIGTERM));
  const std::string cut = log.Behind();
  EXPECT_EQ(Pipe::kPage, cut.size());
  EXPECT_EQ(0u,
            StripHeaders(cut).find("[CommMgr: ClientCmd] Unable to figure out this command: yyyy"));
}

// Signals at random instants while the log is busy: the process always ends by its handler.
TEST(Signals, UnderAStormOfLogLines_NoProcessHangs) {
  for (int round = 0; round < 20; ++round) {
    Daemon daemon;
    daemon.SetLevel("INFO");
    for (int i = 0; i < 5 + round; ++i) {
      daemon.Send("\t@COMMAND=PONG\t@SEQNUM=1\tX=" + std::string(1000, 'x') + "\n");
      if (i < 5)
        daemon.Client().Send("nonsense\n");  // more would wait for a place in the listen queue
    }
    kill(-daemon.Program().Pid(), round % 3 == 0 ? SIGINT : round % 3 == 1 ? SIGTERM : SIGUSR1);
    EXPECT_EQ(0, ExitStatus(daemon.Program().Wait()));
    EXPECT_LE(1u, Count(daemon.Log(), "Tovak has left the building.\n"));
    for (const int status : daemon.Program().WaitForGroup()) EXPECT_EQ(0, status);
  }
}

}  // namespace
