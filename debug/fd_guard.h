// debug/fd_guard.h: closes a descriptor at the end of its scope.
//
// For functions that may leave half way and whose moment of closing nobody can see.
#ifndef DEBUG_FD_GUARD_H
#define DEBUG_FD_GUARD_H

#include <unistd.h>

#include <utility>

class FdGuard {
 public:
  explicit FdGuard(int fd) : fd_(fd) {}
  ~FdGuard() {
    if (fd_ >= 0) close(fd_);
  }
  FdGuard(const FdGuard &) = delete;
  FdGuard &operator=(const FdGuard &) = delete;

  int Get() const { return fd_; }
  int Release() { return std::exchange(fd_, -1); }  // whoever calls it closes it

 private:
  int fd_;
};

#endif
