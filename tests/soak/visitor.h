// tests/soak/visitor.h: a client that may do anything but send more than it is told to.
#ifndef TESTS_SOAK_VISITOR_H
#define TESTS_SOAK_VISITOR_H

#include <functional>
#include <memory>
#include <string>

#include "tests/soak/events.h"
#include "tests/system/harness.h"

// What a client does with its connection.
struct Visit {
  enum class End { kRead, kEndAndRead, kLeave, kReset };

  std::string request;
  std::size_t piece = 0;   // bytes sent at a time; 0: all
  End end = End::kRead;    // reads to the end; ends its own side first; leaves; resets
  int hold_ms = 0;         // before that, without reading
  std::size_t enough = 0;  // bytes after which kLeave and kReset leave, if they read at all
  int window = 0;          // of its receive buffer
};

// What it saw.
struct Seen {
  std::string answer;
  int error = 0;  // that ended the answer; 0: an orderly end
};

class Visitor : public std::enable_shared_from_this<Visitor> {
 public:
  using Done = std::function<void(const Seen &seen)>;

  // Connects; done is called once, when the visitor has left.
  static void Send(Events &events, int port, const Visit &visit, Done done);

  Visitor(Events &events, int port, const Visit &visit, Done done);

 private:
  void Connect();
  void Connected();
  void Watch(std::uint32_t what, void (Visitor::*action)());
  void After(int milliseconds, void (Visitor::*action)());
  void Write();
  void Proceed();
  void Read();
  void Leave(int error);
  bool Leaves() const;

  Events &events_;
  const int port_;
  Visit visit_;
  Done done_;
  Socket socket_;
  int attempt_ = 0;
  bool connected_ = false;
  std::size_t sent_ = 0;
  Seen seen_;
};

#endif
