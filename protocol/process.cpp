#include "protocol/process.h"

#include <stdio_ext.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "debug/signal_hold.h"

namespace {

constexpr unsigned kRetrySeconds = 5;

void FlushStdout() {
  if (__fpending(stdout) == 0) return;
  const SignalHold hold;
  std::fflush(stdout);
}

}  // namespace

int Util_Fork(int attempts) {
  FlushStdout();
  for (; attempts > 0; --attempts) {
    const pid_t pid = fork();
    if (pid >= 0) return pid;
    if (errno != EAGAIN) return -errno;
    sleep(kRetrySeconds);
  }
  errno = EAGAIN;
  return -EAGAIN;
}

ssize_t Util_ReadRetry(int fd, void *buf, std::size_t count) {
  ssize_t got = 0;
  do {
    got = read(fd, buf, count);
  } while (got < 0 && errno == EINTR);
  return got;
}
