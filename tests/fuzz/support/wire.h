// tests/fuzz/support/wire.h: connections whose other side is played by the input.
//
// The program holds one end of a socket pair.  Whenever it is about to receive and nothing waits,
// the next segment is sent, so that segments never run together and no other thread is needed; what
// it sends is taken at once, so that it never waits for room.
#ifndef TESTS_FUZZ_SUPPORT_WIRE_H
#define TESTS_FUZZ_SUPPORT_WIRE_H

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/fuzz/support/fuzz.h"

class Wire {
 public:
  // The segments of incoming are sent and then the connection is closed, or reset where the last
  // two segments are empty.  Closed as well once more than patience bytes came.
  explicit Wire(const Part &incoming, std::size_t patience = SIZE_MAX);
  ~Wire();
  Wire(const Wire &) = delete;
  Wire &operator=(const Wire &) = delete;

  int Socket() const { return socket_; }             // the program's end
  bool IsReset() const { return reset_; }            // how it ends
  const std::string &Sent() const { return sent_; }  // by the program
  std::string NotTaken();                            // what the program has left of the segments

  void BecomeSocket(int fd);  // the program's end takes the place of fd
  void Pour();                // before a receive
  void Drain();               // after a send
  void Closed();              // by the program

 private:
  void HangUp();

  int socket_ = -1;
  int other_ = -1;
  std::vector<std::string> segments_;
  std::size_t next_ = 0;
  std::size_t patience_;
  bool reset_ = false;
  std::string sent_;
};

// What answers a connection to that address; null: it is refused.  Set by a target.
extern const Part *(*Wire_OnConnect)(const sockaddr_in &address);

// What the program sent on each connection that it opened, in order.  All of them must be closed.
std::vector<std::string> Wire_TakeRequests();

#endif
