#include "tests/soak/events.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>

namespace {

constexpr int kTick = 20;  // milliseconds after which done is asked again

// A descriptor that was closed and given out anew does not get the events of its forerunner.
std::uint64_t Tag(int fd, std::uint32_t generation) {
  return std::uint64_t{generation} << 32 | static_cast<std::uint32_t>(fd);
}

}  // namespace

Events::Events() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {}
Events::~Events() { close(epoll_); }

void Events::Watch(int fd, std::uint32_t events, Action action) {
  const bool known = watched_.count(fd) != 0;
  watched_[fd] = {++generation_, std::make_shared<Action>(std::move(action))};
  epoll_event event = {};
  event.events = events;
  event.data.u64 = Tag(fd, generation_);
  epoll_ctl(epoll_, known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, fd, &event);
}

void Events::Forget(int fd) {
  if (watched_.erase(fd) != 0) epoll_ctl(epoll_, EPOLL_CTL_DEL, fd, nullptr);
}

void Events::After(int milliseconds, Action action) {
  timers_.emplace(Clock::now() + std::chrono::milliseconds(milliseconds), std::move(action));
}

int Events::Patience() const {
  if (timers_.empty()) return kTick;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(timers_.begin()->first - Clock::now());
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, kTick));
}

void Events::RunTimers() {
  const auto now = Clock::now();
  while (!timers_.empty() && timers_.begin()->first <= now) {
    const Action action = std::move(timers_.begin()->second);
    timers_.erase(timers_.begin());
    action();
  }
}

void Events::Run(const std::function<bool()> &done) {
  while (!done()) {
    epoll_event ready[64];
    const int count = epoll_wait(epoll_, ready, 64, Patience());
    for (int i = 0; i < count; ++i) {
      const auto found = watched_.find(static_cast<int>(ready[i].data.u64 & 0xffffffff));
      if (found == watched_.end() || found->second.generation != ready[i].data.u64 >> 32) continue;
      const std::shared_ptr<Action> action = found->second.action;
      (*action)();
    }
    RunTimers();
  }
}
