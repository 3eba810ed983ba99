#include "tests/soak/visitor.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace {

// The daemon keeps few connections waiting.  One that finds no place is tried again sooner than the
// kernel would, which waits a second, then two, then four.
constexpr int kPatience = 30;

}  // namespace

void Visitor::Send(Events &events, int port, const Visit &visit, Done done) {
  std::make_shared<Visitor>(events, port, visit, std::move(done))->Connect();
}

Visitor::Visitor(Events &events, int port, const Visit &visit, Done done)
    : events_(events), port_(port), visit_(visit), done_(std::move(done)) {}

void Visitor::Connect() {
  socket_ = Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  setsockopt(socket_.Fd(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (visit_.window > 0)
    setsockopt(socket_.Fd(), SOL_SOCKET, SO_RCVBUF, &visit_.window, sizeof visit_.window);
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<std::uint16_t>(port_));
  const int rc = connect(socket_.Fd(), reinterpret_cast<const sockaddr *>(&addr), sizeof addr);
  if (rc != 0 && errno != EINPROGRESS) return Leave(errno);
  Watch(EPOLLOUT, &Visitor::Connected);
  events_.After(kPatience, [self = shared_from_this(), attempt = ++attempt_] {
    if (self->connected_ || attempt != self->attempt_) return;
    self->events_.Forget(self->socket_.Fd());
    self->Connect();
  });
}

void Visitor::Connected() {
  connected_ = true;
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(socket_.Fd(), SOL_SOCKET, SO_ERROR, &error, &size);
  if (error != 0) return Leave(error);
  Write();
}

void Visitor::Watch(std::uint32_t what, void (Visitor::*action)()) {
  events_.Watch(socket_.Fd(), what, [self = shared_from_this(), action] { ((*self).*action)(); });
}

void Visitor::After(int milliseconds, void (Visitor::*action)()) {
  events_.Forget(socket_.Fd());
  events_.After(milliseconds, [self = shared_from_this(), action] { ((*self).*action)(); });
}

void Visitor::Write() {
  while (sent_ < visit_.request.size()) {
    const std::size_t piece = visit_.piece == 0 ? std::string::npos : visit_.piece;
    const std::size_t size = std::min(piece, visit_.request.size() - sent_);
    const ssize_t count = send(socket_.Fd(), visit_.request.data() + sent_, size, MSG_NOSIGNAL);
    if (count < 0 && errno == EAGAIN) return Watch(EPOLLOUT, &Visitor::Write);
    if (count < 0) return Leave(errno);
    sent_ += static_cast<std::size_t>(count);
    if (visit_.piece != 0) return After(1, &Visitor::Write);
  }
  if (visit_.hold_ms > 0) return After(visit_.hold_ms, &Visitor::Proceed);
  Proceed();
}

bool Visitor::Leaves() const {
  return visit_.end == Visit::End::kLeave || visit_.end == Visit::End::kReset;
}

void Visitor::Proceed() {
  if (visit_.end == Visit::End::kEndAndRead) shutdown(socket_.Fd(), SHUT_WR);
  if (Leaves() && visit_.enough == 0) return Leave(0);
  Watch(EPOLLIN, &Visitor::Read);
}

void Visitor::Read() {
  char bytes[65536];
  const ssize_t count = recv(socket_.Fd(), bytes, sizeof bytes, 0);
  if (count < 0 && errno == EAGAIN) return;
  if (count <= 0) return Leave(count < 0 ? errno : 0);
  seen_.answer.append(bytes, static_cast<std::size_t>(count));
  if (Leaves() && seen_.answer.size() >= visit_.enough) Leave(0);
}

void Visitor::Leave(int error) {
  seen_.error = error;
  events_.Forget(socket_.Fd());
  if (visit_.end == Visit::End::kReset)
    socket_.Reset();
  else
    socket_.Close();
  done_(seen_);
}
