#include "web/exchange.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr std::size_t kAhead = 262144;  // bytes that a browser may be behind the daemon
constexpr std::size_t kReadSize = 65536;

bool IsForLater(int err) { return err == EAGAIN || err == EINTR; }

// False: the connection is broken.
bool Send(Exchange *exchange) {
  while (!exchange->line.empty()) {
    const ssize_t sent =
        send(exchange->fd, exchange->line.data(), exchange->line.size(), MSG_NOSIGNAL);
    if (sent < 0) return IsForLater(errno);
    exchange->line.erase(0, static_cast<std::size_t>(sent));
  }
  return true;
}

// A page has begun when there is something of it; what is told before that needs no page.
void Begin(Exchange *exchange) {
  if (exchange->stage == Stage::kAsking && !exchange->out.empty()) exchange->stage = Stage::kGiving;
}

// Once a step: a daemon that always has more would never give the thread back.
void Receive(Exchange *exchange) {
  static char buffer[kReadSize];  // of the one thread
  const ssize_t got = recv(exchange->fd, buffer, sizeof buffer, 0);
  if (got < 0 && IsForLater(errno)) return;
  if (got < 0) return Exchange_End(exchange, exchange->heard ? Trouble::kBroken : Trouble::kGone);
  if (got == 0) return Exchange_End(exchange, Trouble::kNone);
  exchange->heard = true;
  Filter_Feed(&exchange->filter, {buffer, static_cast<std::size_t>(got)}, &exchange->out);
  Begin(exchange);
}

}  // namespace

bool Exchange_Open(Exchange *exchange, const sockaddr_in &daemon) {
  exchange->stage = Stage::kAsking;
  exchange->fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (exchange->fd >= 0 &&
      (connect(exchange->fd, reinterpret_cast<const sockaddr *>(&daemon), sizeof daemon) == 0 ||
       errno == EINPROGRESS))
    return true;
  Exchange_End(exchange, Trouble::kGone);
  return false;
}

short Exchange_Events(const Exchange &exchange) {
  if (!exchange.line.empty()) return POLLOUT;
  return exchange.out.size() < kAhead ? POLLIN : 0;
}

void Exchange_Step(Exchange *exchange) {
  if (!exchange->line.empty() && !Send(exchange)) return Exchange_End(exchange, Trouble::kGone);
  if (exchange->line.empty()) Receive(exchange);
}

void Exchange_End(Exchange *exchange, Trouble trouble) {
  Exchange_Close(exchange);
  if (exchange->stage != Stage::kGiving && trouble == Trouble::kNone) {
    Filter_Finish(&exchange->filter, &exchange->out);
    const PageFacts &facts = exchange->filter.facts;
    // An error line alone, or nothing: the daemon cannot open a macro.
    if (exchange->out.empty() && !facts.known)
      trouble = facts.troubles.empty() ? Trouble::kFailed : facts.troubles.front();
    Begin(exchange);
  }
  if (exchange->stage != Stage::kGiving && trouble != Trouble::kNone)
    exchange->trouble = trouble;
  else
    Filter_End(&exchange->filter, trouble, &exchange->out);
  exchange->stage = Stage::kOver;
}

void Exchange_Close(Exchange *exchange) {
  if (exchange->fd >= 0) close(exchange->fd);
  exchange->fd = -1;
}
