#include "tests/soak/backend.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>

namespace {

constexpr std::size_t kPiece = 700;

std::size_t PieceSize(Deed::Way way) {
  if (way == Deed::Way::kDrip) return 1;
  return way == Deed::Way::kPieces ? kPiece : std::string::npos;
}

}  // namespace

struct BackEnd::Connection {
  Socket socket;
  std::string request;
  std::shared_ptr<Deed> deed;
};

BackEnd::BackEnd(Events &events, Find find)
    : events_(events), find_(std::move(find)), port_(ReservePort()) {
  Start();
}

BackEnd::~BackEnd() {
  Kill();
  ReleasePort(port_);
}

void BackEnd::Start() {
  listener_ = Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  setsockopt(listener_.Fd(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<std::uint16_t>(port_));
  EXPECT_EQ(0, bind(listener_.Fd(), reinterpret_cast<const sockaddr *>(&addr), sizeof addr));
  EXPECT_EQ(0, listen(listener_.Fd(), 1024));
  events_.Watch(listener_.Fd(), EPOLLIN, [this] { Accept(); });
}

void BackEnd::Kill() {
  if (listener_.Fd() >= 0) events_.Forget(listener_.Fd());
  listener_.Close();
  while (!connections_.empty()) {
    const Held connection = *connections_.begin();
    if (connection->deed != nullptr) connection->deed->cut = true;
    Drop(connection, false);
  }
}

void BackEnd::Accept() {
  for (;;) {
    const int fd = accept4(listener_.Fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) return;
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const Held connection = std::make_shared<Connection>();
    connection->socket = Socket(fd);
    connections_.insert(connection);
    events_.Watch(fd, EPOLLIN, [this, connection] { Read(connection); });
  }
}

void BackEnd::Read(const Held &connection) {
  char bytes[8192];
  const ssize_t got = recv(connection->socket.Fd(), bytes, sizeof bytes, MSG_PEEK);
  if (got <= 0) return Drop(connection, false);
  std::string request = connection->request;
  request.append(bytes, static_cast<std::size_t>(got));
  bool whole = false;
  const std::shared_ptr<Deed> deed = find_(request, &whole);
  if (deed != nullptr && deed->way == Deed::Way::kUnread) return Drop(connection, true);
  recv(connection->socket.Fd(), bytes, static_cast<std::size_t>(got), 0);
  connection->request = request;
  if (whole && deed == nullptr) return Drop(connection, false);  // its client has been done with
  if (deed == nullptr || request.size() < deed->request.size()) return;
  if (request != deed->request && complaint_.empty())
    complaint_ = "expected:\n" + deed->request + "\nbut got:\n" + request;
  deed->read = true;
  connection->deed = deed;
  Answer(connection);
}

void BackEnd::Answer(const Held &connection) {
  if (connections_.count(connection) == 0) return;  // the manager died meanwhile
  Deed &deed = *connection->deed;
  const int fd = connection->socket.Fd();
  while (deed.sent < deed.answer.size()) {
    const std::size_t size = std::min(PieceSize(deed.way), deed.answer.size() - deed.sent);
    const ssize_t sent = send(fd, deed.answer.data() + deed.sent, size, MSG_NOSIGNAL);
    if (sent < 0 && errno != EAGAIN) return Drop(connection, false);  // nobody wants the rest
    if (sent > 0) deed.sent += static_cast<std::size_t>(sent);
    if (sent < static_cast<ssize_t>(size))
      return events_.Watch(fd, EPOLLOUT, [this, connection] { Answer(connection); });
    if (deed.way != Deed::Way::kAtOnce) {
      events_.Forget(fd);
      return events_.After(1, [this, connection] { Answer(connection); });
    }
  }
  events_.Forget(fd);
  if (deed.end == Deed::End::kHalfClose) shutdown(fd, SHUT_WR);
  if (deed.hold_ms == 0) return End(connection);
  events_.After(deed.hold_ms, [this, connection] { End(connection); });
}

void BackEnd::End(const Held &connection) {
  Drop(connection, connection->deed->end == Deed::End::kReset);
}

void BackEnd::Drop(const Held &connection, bool reset) {
  if (connections_.erase(connection) == 0) return;
  events_.Forget(connection->socket.Fd());
  if (reset)
    connection->socket.Reset();
  else
    connection->socket.Close();
}
