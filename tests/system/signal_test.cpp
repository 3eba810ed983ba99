#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

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

TEST(Signals, LogThatNobodyReads_KeepsNoSignalAway) {
  int ends[2];
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC | O_NONBLOCK));
  const std::string full(65536, 'x');
  while (write(ends[1], full.data(), full.size()) > 0) {
  }
  ASSERT_EQ(0, fcntl(ends[1], F_SETFL, 0));
  const Folder folder;
  Process process({KORVO_COMMMGR, "web1", folder.Path()}, folder.Path(), [&] { dup2(ends[1], 2); });
  const std::string where = "/proc/" + std::to_string(process.Pid()) + "/wchan";
  EXPECT_TRUE(Eventually([&] { return ReadFile(where).find("pipe_write") != std::string::npos; }));
  process.Signal(SIGTERM);  // its handler waits for the log too; the second one finds the default
  EXPECT_TRUE(Eventually([&] {
    process.Signal(SIGTERM);
    return process.Ended();
  }));
  close(ends[0]);
  close(ends[1]);
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
