#include "bench/client.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr std::int64_t kDrain = 10'000'000'000;  // so long may a request take that nothing holds up

std::int64_t Now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

struct Connection {
  int fd = -1;
  std::int64_t begun = 0;
  bool sent = false;
  std::size_t got = 0;
};

class Load {
 public:
  Load(int port, const Exchange &exchange, int clients)
      : exchange_(exchange),
        connections_(static_cast<std::size_t>(clients)),
        events_(epoll_create1(0)) {
    addr_.sin_family = AF_INET;
    addr_.sin_port = htons(static_cast<std::uint16_t>(port));
    addr_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  }
  ~Load() {
    for (const Connection &connection : connections_)
      if (connection.fd >= 0) close(connection.fd);
    close(events_);
  }
  Load(const Load &) = delete;
  Load &operator=(const Load &) = delete;

  // A client whose request has ended begins another while the time lasts, if it may.
  Outcome Run(std::int64_t nanoseconds, bool again) {
    const std::int64_t end = Now() + nanoseconds;
    for (Connection &connection : connections_) Begin(&connection);
    while (open_ > 0 && Now() < end) Wait(end, again ? end : 0);
    GiveUpQueued();
    const std::int64_t last = Now() + kDrain;
    while (open_ > 0 && Now() < last) Wait(last, 0);
    if (open_ > 0) {
      errno = ETIMEDOUT;
      Complain("end of the answer", open_);
    }
    std::sort(outcome_.latencies.begin(), outcome_.latencies.end());
    return std::move(outcome_);
  }

 private:
  void Begin(Connection *connection) {
    *connection = {};
    connection->begun = Now();
    connection->fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    if (connection->fd < 0) return Complain("socket");
    if (connect(connection->fd, reinterpret_cast<const sockaddr *>(&addr_), sizeof addr_) != 0 &&
        errno != EINPROGRESS) {
      Complain("connect");
      close(connection->fd);
      connection->fd = -1;
      return;
    }
    epoll_event event = {};
    event.events = EPOLLIN | EPOLLOUT | EPOLLET;
    event.data.ptr = connection;
    epoll_ctl(events_, EPOLL_CTL_ADD, connection->fd, &event);
    ++open_;
    Send(connection);  // on loopback the connection usually stands already
  }

  void Wait(std::int64_t until, std::int64_t begin_until) {
    const std::int64_t left = std::max<std::int64_t>(until - Now(), 0);
    epoll_event ready[64];
    const int count = epoll_wait(events_, ready, 64, static_cast<int>(left / 1'000'000) + 1);
    for (int i = 0; i < count; ++i) {
      auto *connection = static_cast<Connection *>(ready[i].data.ptr);
      if (!connection->sent) Send(connection);
      if (connection->sent && connection->fd >= 0) Receive(connection);
      if (connection->fd < 0 && Now() < begin_until) Begin(connection);
    }
  }

  void Send(Connection *connection) {
    const std::string &request = exchange_.request;
    const ssize_t count = send(connection->fd, request.data(), request.size(), MSG_NOSIGNAL);
    if (count == static_cast<ssize_t>(request.size()))
      connection->sent = true;
    else if (count >= 0 || errno != EAGAIN)
      Fail(connection, "send");
  }

  void Receive(Connection *connection) {
    const std::string &answer = exchange_.answer;
    for (;;) {
      const ssize_t count = recv(connection->fd, buffer_, sizeof buffer_, 0);
      if (count < 0) {
        if (errno != EAGAIN) Fail(connection, "recv");
        return;
      }
      if (count == 0) return End(connection);
      const auto size = static_cast<std::size_t>(count);
      if (size > answer.size() - connection->got ||
          std::memcmp(buffer_, answer.data() + connection->got, size) != 0)
        return Fail(connection, nullptr);
      connection->got += size;
    }
  }

  void End(Connection *connection) {
    if (connection->got != exchange_.answer.size()) return Fail(connection, nullptr);
    outcome_.latencies.push_back(Now() - connection->begun);
    if (Client_MetFullQueue(connection->fd)) ++outcome_.queued;
    Close(connection);
  }

  // call null: the bytes are not those expected.
  void Fail(Connection *connection, const char *call) {
    if (call != nullptr) {
      Complain(call);
    } else {
      errno = 0;
      Complain(connection->got < exchange_.answer.size() ? "answer differs or is short"
                                                         : "answer is too long");
    }
    Close(connection);
  }

  void Complain(const char *what, long count = 1) {
    if (outcome_.complaint.empty())
      outcome_.complaint =
          std::string(what) + (errno != 0 ? ": " : "") + (errno != 0 ? std::strerror(errno) : "");
    outcome_.wrong += count;
  }

  void Close(Connection *connection) {
    close(connection->fd);
    connection->fd = -1;
    --open_;
  }

  // They are reset, so that the server is not busy with them in the next measurement.
  void GiveUpQueued() {
    for (Connection &connection : connections_) {
      if (connection.fd < 0 || !Client_MetFullQueue(connection.fd)) continue;
      ++outcome_.unanswered;
      const linger reset = {1, 0};
      setsockopt(connection.fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
      Close(&connection);
    }
  }

  const Exchange &exchange_;
  std::vector<Connection> connections_;
  sockaddr_in addr_ = {};
  int events_;
  int open_ = 0;
  Outcome outcome_;
  char buffer_[65536];
};

}  // namespace

Outcome Client_Closed(int port, const Exchange &exchange, int clients, std::int64_t nanoseconds) {
  return Load(port, exchange, clients).Run(nanoseconds, true);
}

Outcome Client_Burst(int port, const Exchange &exchange, int clients, std::int64_t nanoseconds) {
  return Load(port, exchange, clients).Run(nanoseconds, false);
}

bool Client_MetFullQueue(int sock) {
  tcp_info info = {};
  socklen_t size = sizeof info;
  getsockopt(sock, IPPROTO_TCP, TCP_INFO, &info, &size);
  return info.tcpi_state == TCP_SYN_SENT || info.tcpi_total_retrans > 0;
}

std::int64_t Client_Percentile(const std::vector<std::int64_t> &sorted, double percent) {
  if (sorted.empty()) return 0;
  const double rank = std::ceil(percent / 100 * static_cast<double>(sorted.size()));
  return sorted[static_cast<std::size_t>(std::max(rank, 1.0)) - 1];
}
