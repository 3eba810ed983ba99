// tests/soak/events.h: one thread that plays many clients and managers.
#ifndef TESTS_SOAK_EVENTS_H
#define TESTS_SOAK_EVENTS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>

class Events {
 public:
  using Action = std::function<void()>;

  Events();
  ~Events();
  Events(const Events &) = delete;
  Events &operator=(const Events &) = delete;

  // Calls the action whenever the descriptor has one of the EPOLL events.  Watched again: replaced.
  void Watch(int fd, std::uint32_t events, Action action);
  void Forget(int fd);  // before it is closed
  void After(int milliseconds, Action action);

  void Run(const std::function<bool()> &done);

 private:
  using Clock = std::chrono::steady_clock;
  struct Watched {
    std::uint32_t generation;
    std::shared_ptr<Action> action;
  };

  int Patience() const;
  void RunTimers();

  int epoll_;
  std::uint32_t generation_ = 0;
  std::unordered_map<int, Watched> watched_;
  std::multimap<Clock::time_point, Action> timers_;
};

#endif
