// tests/soak/backend.h: a manager of many connections, well-behaved or not, that dies and comes
// back.
#ifndef TESTS_SOAK_BACKEND_H
#define TESTS_SOAK_BACKEND_H

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "tests/soak/events.h"
#include "tests/system/harness.h"

// What a manager does with one request, and what became of it.
struct Deed {
  enum class Way { kAtOnce, kPieces, kDrip, kUnread };
  enum class End { kClose, kReset, kHalfClose };

  std::string request;  // the very bytes that must come
  std::string answer;
  Way way = Way::kAtOnce;  // kUnread: it resets before it reads
  End end = End::kClose;
  int hold_ms = 0;      // between its answer and the end
  bool mortal = false;  // its manager may die before it reads

  bool read = false;  // the request came whole
  bool cut = false;   // the manager died first
  std::size_t sent = 0;
};

class BackEnd {
 public:
  // find gives the deed for what has come of a request so far; null: not known yet, or any more.
  using Find = std::function<std::shared_ptr<Deed>(const std::string &request, bool *whole)>;

  BackEnd(Events &events, Find find);
  ~BackEnd();
  BackEnd(const BackEnd &) = delete;
  BackEnd &operator=(const BackEnd &) = delete;

  int Port() const { return port_; }
  void Kill();  // as the end of its process would: every descriptor closed
  void Start();
  bool Idle() const { return connections_.empty(); }
  const std::string &Complaint() const { return complaint_; }  // empty: every request was right

 private:
  struct Connection;
  using Held = std::shared_ptr<Connection>;

  void Accept();
  void Read(const Held &connection);
  void Answer(const Held &connection);
  void End(const Held &connection);
  void Drop(const Held &connection, bool reset);

  Events &events_;
  Find find_;
  int port_;
  Socket listener_;
  std::set<Held> connections_;
  std::string complaint_;
};

#endif
