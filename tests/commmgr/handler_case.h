// tests/commmgr/handler_case.h: what stands around a handler that a case calls directly.
//
// Every case runs in a child, for the peer lists and the macro table belong to the process.
#ifndef TESTS_COMMMGR_HANDLER_CASE_H
#define TESTS_COMMMGR_HANDLER_CASE_H

#include <functional>
#include <latch>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "config/peers.h"
#include "protocol/cmd_hdr.h"
#include "tests/macro/macro_case.h"
#include "tests/support/loopback.h"

#define HANDLER_CASE MACRO_CASE

inline std::string Num(int number) { return std::to_string(number); }

// One message of the log, or several of one level.  "<sock>" in it is the number of the first
// descriptor that the action opens.
struct Line {
  int level;
  std::string text;
};

// Runs the action at each level from 101 to 105 and expects the lines from that level on, and
// nothing else.
void ExpectLog(const std::vector<Line> &lines, const std::function<void()> &action);

// What is logged of the header of a message when it is parsed.
Line Displayed(const std::string &message);

// A client's connection: the handler has near.
class Client : public TcpPair {
 public:
  // Every send to the client fails from now on, with EPIPE.
  void Refuse();
  // What was sent to the client.  It can be sent nothing more.
  std::string Received();
};

// What the socket layer logs of a send to a client that refuses.
Line SendRefused(const Client &client);

// A back-end manager at the head of its list.  It gives the same answer to one line of each of its
// connections, then ends its side and keeps the connection.
class Manager {
 public:
  Manager(char type, const std::string &id, std::string answer);
  ~Manager();
  Manager(const Manager &) = delete;
  Manager &operator=(const Manager &) = delete;

  INIT_CHILDINFO *Record() { return &record_; }
  std::vector<std::string> Requests();
  bool SeesEnd();  // the handler has closed the last connection

 private:
  void Serve();

  const std::string answer_;
  const int port_ = FreePort();
  const Fd listener_{ListenOn(port_)};
  INIT_CHILDINFO record_ = {};
  std::mutex lock_;  // of what follows
  std::vector<std::string> requests_;
  std::vector<int> connections_;
  std::latch ready_{1};
  std::thread thread_;
};

// A record at the head of its list whose port nobody listens on.
class GoneManager {
 public:
  GoneManager(char type, const std::string &id);
  std::string Where() const;  // address and port

 private:
  INIT_CHILDINFO record_ = {};
};

void WriteFile(const std::string &name, const std::string &bytes);

#endif
