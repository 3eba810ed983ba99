#include "tests/core/core_seams.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>

Seam calloc_seam, epoll_create_seam, epoll_ctl_seam, open_seam, select_seam, setpgid_seam,
    signal_seam, wait_seam;
Seam getppid_seam;

bool select_reads_alone = false;

bool Seam::Fails() {
  if (!ask) return false;
  const int before = errno;
  errno = ask(++count);
  if (errno != 0) return true;
  errno = before;
  return false;
}

// The linker sends every call of the program through __wrap_NAME; __real_NAME is the call itself.
extern "C" {

void *__real_calloc(std::size_t, std::size_t);
void *__wrap_calloc(std::size_t count, std::size_t size) {
  return calloc_seam.Fails() ? nullptr : __real_calloc(count, size);
}

int __real_epoll_create1(int);
int __wrap_epoll_create1(int flags) {
  return epoll_create_seam.Fails() ? -1 : __real_epoll_create1(flags);
}

int __real_epoll_ctl(int, int, int, epoll_event *);
int __wrap_epoll_ctl(int watch, int change, int fd, epoll_event *event) {
  return epoll_ctl_seam.Fails() ? -1 : __real_epoll_ctl(watch, change, fd, event);
}

pid_t __real_getppid();
pid_t __wrap_getppid() { return getppid_seam.Fails() ? 1 : __real_getppid(); }

int __real_open(const char *, int, ...);
int __wrap_open(const char *path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
  va_end(args);
  return open_seam.Fails() ? -1 : __real_open(path, flags, mode);
}

int __real_select(int, fd_set *, fd_set *, fd_set *, timeval *);
int __wrap_select(int count, fd_set *in, fd_set *out, fd_set *special, timeval *timeout) {
  select_reads_alone = out == nullptr && special == nullptr && timeout == nullptr;
  return select_seam.Fails() ? -1 : __real_select(count, in, out, special, timeout);
}

int __real_setpgid(pid_t, pid_t);
int __wrap_setpgid(pid_t pid, pid_t group) {
  return setpgid_seam.Fails() ? -1 : __real_setpgid(pid, group);
}

sighandler_t __real_sysv_signal(int, sighandler_t);
sighandler_t __wrap_sysv_signal(int number, sighandler_t action) {
  return signal_seam.Fails() ? SIG_ERR : __real_sysv_signal(number, action);
}

pid_t __real_wait4(pid_t, int *, int, rusage *);
pid_t __wrap_wait4(pid_t pid, int *status, int options, rusage *usage) {
  return wait_seam.Fails() ? -1 : __real_wait4(pid, status, options, usage);
}

}  // extern "C"
