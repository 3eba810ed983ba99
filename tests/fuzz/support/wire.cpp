#include "tests/fuzz/support/wire.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

extern "C" {
ssize_t __real_recv(int fd, void *buffer, std::size_t size, int flags);
ssize_t __wrap_recv(int fd, void *buffer, std::size_t size, int flags);
ssize_t __real_send(int fd, const void *data, std::size_t size, int flags);
ssize_t __wrap_send(int fd, const void *data, std::size_t size, int flags);
int __real_connect(int fd, const sockaddr *address, socklen_t size);
int __wrap_connect(int fd, const sockaddr *address, socklen_t size);
int __real_close(int fd);
int __wrap_close(int fd);
}

const Part *(*Wire_OnConnect)(const sockaddr_in &address) = nullptr;

namespace {

// Small enough for the send buffer, large enough to fill every buffer of the program at once.
constexpr std::size_t kLargestSegment = 65536;

std::vector<Wire *> wires;
std::vector<std::unique_ptr<Wire>> connections;  // those that the program opened
std::vector<int> refused;  // sockets that found nobody: left to the end of the program's process

Wire *Find(int fd) {
  const auto found =
      std::find_if(wires.begin(), wires.end(), [fd](const Wire *w) { return w->Socket() == fd; });
  return found != wires.end() ? *found : nullptr;
}

int Waiting(int fd) {
  int count = 0;
  FUZZ_CHECK(ioctl(fd, FIONREAD, &count) == 0);
  return count;
}

std::vector<std::string> Cut(const std::vector<std::string> &segments) {
  std::vector<std::string> cut;
  for (const std::string &segment : segments)
    for (std::size_t at = 0; at < segment.size(); at += kLargestSegment)
      cut.push_back(segment.substr(at, kLargestSegment));
  return cut;
}

bool EndsInReset(const std::vector<std::string> &segments) {
  return segments.size() > 2 && segments.back().empty() && segments[segments.size() - 2].empty();
}

}  // namespace

Wire::Wire(const Part &incoming, std::size_t patience)
    : segments_(Cut(incoming.segments)),
      patience_(patience),
      reset_(EndsInReset(incoming.segments)) {
  int ends[2];
  FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  socket_ = ends[0];
  other_ = ends[1];
  wires.push_back(this);
}

Wire::~Wire() {
  std::erase(wires, this);
  if (socket_ >= 0) __real_close(socket_);
  HangUp();
}

void Wire::HangUp() {
  if (other_ >= 0) __real_close(other_);
  other_ = -1;
}

void Wire::BecomeSocket(int fd) {
  FUZZ_CHECK(dup2(socket_, fd) == fd);
  __real_close(socket_);
  socket_ = fd;
}

void Wire::Pour() {
  if (other_ < 0 || Waiting(socket_) > 0) return;
  if (next_ < segments_.size()) {
    const std::string &segment = segments_[next_++];
    FUZZ_CHECK(__real_send(other_, segment.data(), segment.size(), MSG_DONTWAIT) ==
               static_cast<ssize_t>(segment.size()));
  } else if (reset_) {
    __real_send(socket_, "", 1, 0);  // a byte that is never read makes a reset of the close
    HangUp();
  } else {
    shutdown(other_, SHUT_WR);
  }
}

void Wire::Drain() {
  char buffer[4096];
  ssize_t got = 0;
  while (other_ >= 0 && (got = __real_recv(other_, buffer, sizeof buffer, MSG_DONTWAIT)) > 0)
    sent_.append(buffer, static_cast<std::size_t>(got));
  if (sent_.size() > patience_) HangUp();
}

void Wire::Closed() {
  Drain();
  socket_ = -1;
}

std::string Wire::NotTaken() {
  std::string left;
  char buffer[4096];
  ssize_t got = 0;
  while ((got = __real_recv(socket_, buffer, sizeof buffer, MSG_DONTWAIT)) > 0)
    left.append(buffer, static_cast<std::size_t>(got));
  for (; next_ < segments_.size(); ++next_) left += segments_[next_];
  return left;
}

std::vector<std::string> Wire_TakeRequests() {
  std::vector<std::string> requests;
  for (const auto &connection : connections) {
    FUZZ_CHECK(connection->Socket() < 0);
    requests.push_back(connection->Sent());
  }
  connections.clear();
  for (const int fd : refused) __real_close(fd);
  refused.clear();
  return requests;
}

ssize_t __wrap_recv(int fd, void *buffer, std::size_t size, int flags) {
  if (Wire *wire = Find(fd)) wire->Pour();
  return __real_recv(fd, buffer, size, flags);
}

ssize_t __wrap_send(int fd, const void *data, std::size_t size, int flags) {
  const ssize_t sent = __real_send(fd, data, size, flags);
  const int err = errno;
  if (Wire *wire = Find(fd)) wire->Drain();
  errno = err;
  return sent;
}

int __wrap_connect(int fd, const sockaddr *address, socklen_t) {
  const Part *answer = nullptr;
  if (Wire_OnConnect != nullptr)
    answer = Wire_OnConnect(*reinterpret_cast<const sockaddr_in *>(address));
  if (answer == nullptr) {
    refused.push_back(fd);
    errno = ECONNREFUSED;
    return -1;
  }
  connections.push_back(std::make_unique<Wire>(*answer));
  connections.back()->BecomeSocket(fd);
  return 0;
}

int __wrap_close(int fd) {
  std::erase(refused, fd);
  if (Wire *wire = Find(fd)) wire->Closed();
  return __real_close(fd);
}
