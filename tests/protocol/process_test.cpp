#include "protocol/process.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

int StatusOf(pid_t child) {
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Pipe {
  Pipe() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    *out.Place() = ends[0];
    *in.Place() = ends[1];
  }
  Fd out, in;
};

}  // namespace

TEST(Process, Fork_Success_IsZeroInTheChildAndItsIdInTheParent) {
  const int pid = Util_Fork(6);
  if (pid == 0) _exit(42);
  ASSERT_GT(pid, 0);
  EXPECT_EQ(StatusOf(pid), 42);
}

TEST(Process, Fork_Success_TakesOneAttempt) {
  const Seams seams;
  const int pid = Util_Fork(1);
  if (pid == 0) _exit(0);
  EXPECT_EQ(StatusOf(pid), 0);
  EXPECT_EQ(seams.Trace(), "fork()\n");
}

TEST(Process, Fork_NoAttempts_IsMinus11WithoutAFork) {
  const Seams seams;
  EXPECT_EQ(Util_Fork(0), -11);
  EXPECT_EQ(Util_Fork(-1), -11);
  EXPECT_EQ(seams.Trace(), "");
}

TEST(Process, Fork_OtherError_IsReturnedAtOnce) {
  Seams seams;
  seams.Fail(Call::kFork, ENOMEM);
  EXPECT_EQ(Util_Fork(6), -ENOMEM);
  EXPECT_EQ(seams.Trace(), "fork()\n");
}

TEST(Process, Fork_ShortageThatEnds_IsWaitedOutInFiveSeconds) {
  Seams seams;
  seams.Fail(Call::kFork, EAGAIN, 1, 2);
  const int pid = Util_Fork(6);
  if (pid == 0) _exit(0);
  ASSERT_GT(pid, 0);
  EXPECT_EQ(StatusOf(pid), 0);
  EXPECT_EQ(seams.Trace(), "fork()\nsleep(5)\nfork()\nsleep(5)\nfork()\n");
}

TEST(Process, Fork_ShortageThatStays_TakesSixAttemptsAndSleepsAfterTheLastToo) {
  Seams seams;
  seams.Fail(Call::kFork, EAGAIN, 1, kEveryTime);
  EXPECT_EQ(Util_Fork(6), -11);
  EXPECT_EQ(seams.Count(Call::kFork), 6);
  EXPECT_EQ(seams.Count(Call::kSleep), 6);
  EXPECT_EQ(seams.Trace().substr(seams.Trace().size() - 9), "sleep(5)\n");
}

TEST(Process, Fork_ShortageThatStays_LeavesItsErrno) {
  Seams seams;
  seams.Fail(Call::kFork, EAGAIN, 1, kEveryTime);
  seams.Before(Call::kSleep, 2, [] { errno = EINTR; });
  EXPECT_EQ(Util_Fork(2), -EAGAIN);
  EXPECT_EQ(errno, EAGAIN);
}

TEST(Process, Fork_OtherErrorAfterAShortage_IsReturned) {
  Seams seams;
  seams.Fail(Call::kFork, EAGAIN).Fail(Call::kFork, ENOMEM, 2);
  EXPECT_EQ(Util_Fork(6), -ENOMEM);
  EXPECT_EQ(seams.Trace(), "fork()\nsleep(5)\nfork()\n");
}

TEST(Process, Fork_UnwrittenStandardOutput_IsWrittenOnce) {
  for (const std::string waiting : {"banner", "b"}) {
    std::string text;
    int status = -1;
    {
      const FdCapture out(STDOUT_FILENO);
      std::printf("%s", waiting.c_str());  // no newline: still in the buffer
      const int pid = Util_Fork(1);
      if (pid == 0) {
        std::fflush(stdout);
        _exit(0);
      }
      status = StatusOf(pid);
      text = out.Text();
    }
    EXPECT_EQ(status, 0);
    EXPECT_EQ(text, waiting);
  }
}

TEST(Process, ReadRetry_Data_IsOneRead) {
  const Pipe pipe;
  ASSERT_EQ(write(pipe.in, "hello", 5), 5);
  char buf[16];
  const Seams seams;
  EXPECT_EQ(Util_ReadRetry(pipe.out, buf, sizeof buf), 5);
  EXPECT_EQ(std::string(buf, 5), "hello");
  EXPECT_EQ(seams.Trace(), "read(16)\n");
}

TEST(Process, ReadRetry_EndOfFile_IsZero) {
  Pipe pipe;
  pipe.in.Close();
  char buf[16];
  errno = EINTR;  // of an earlier call
  EXPECT_EQ(Util_ReadRetry(pipe.out, buf, sizeof buf), 0);
}

TEST(Process, ReadRetry_Interrupted_ReadsAgainWithTheSameArguments) {
  const Pipe pipe;
  ASSERT_EQ(write(pipe.in, "hello", 5), 5);
  char buf[16];
  Seams seams;
  seams.Fail(Call::kRead, EINTR, 1, 3);
  EXPECT_EQ(Util_ReadRetry(pipe.out, buf, sizeof buf), 5);
  EXPECT_EQ(seams.Trace(), "read(16)\nread(16)\nread(16)\nread(16)\n");
}

TEST(Process, ReadRetry_OtherError_IsReturned) {
  char buf[16];
  EXPECT_EQ(Util_ReadRetry(-1, buf, sizeof buf), -1);
  EXPECT_EQ(errno, EBADF);
}
