// tests/support/loopback.h: sockets on 127.0.0.1 for tests that run at the same time.
#ifndef TESTS_SUPPORT_LOOPBACK_H
#define TESTS_SUPPORT_LOOPBACK_H

#include <functional>
#include <string>

#include "net/sock.h"

// A port from 4000 to 9999 that is free for TCP and for UDP.  Every process tries a range of its
// own first.
int FreePort();

// The text form alone, as callers fill it for an outgoing use.
SockAddr AddrOf(const char *ip, int port);
inline SockAddr Loopback(int port) { return AddrOf("127.0.0.1", port); }

// Returns when the condition holds; the test fails after a minute.
void Await(const std::function<bool()> &condition);

bool IsOpen(int fd);
int OpenDescriptors();

// A descriptor that is closed at the end, however the test leaves.
class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() { Close(); }
  Fd(const Fd &) = delete;
  Fd &operator=(const Fd &) = delete;

  operator int() const { return fd_; }
  int *Place() { return &fd_; }
  void Close();

 private:
  int fd_;
};

int ListenOn(int port);                   // a TCP listener on 127.0.0.1
int ConnectFrom(int own_port, int port);  // own_port 0: chosen by the system, so 32768 or more
int BindUDP(int port);                    // port 0 as well
int PortOf(int fd);

// Two connected TCP sockets.
struct TcpPair {
  TcpPair();
  Fd near, far;
};

void SendAll(int fd, const std::string &bytes);
std::string ReadBytes(int fd, std::size_t count);
void Reset(Fd *fd);  // closes it so that the other side sees a reset

// The working directory is a fresh, empty one for as long as this lives.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;

  const std::string &Path() const { return path_; }

 private:
  std::string path_, before_;
};

std::string FileText(const std::string &path);  // empty when there is none

#endif
