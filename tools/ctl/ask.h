// tools/ctl/ask.h: the administrative datagrams.
//
// A program can answer to ports up to 32767 only, and the system hands out higher ones: all leave
// from a port below 32768.
#ifndef TOOLS_CTL_ASK_H
#define TOOLS_CTL_ASK_H

#include <netinet/in.h>
#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tools/ctl/conf.h"

// An admin port, and how a user knows it.
struct Target {
  std::string name;
  sockaddr_in address;
};

Target Ask_Target(const ConfLine &line);

enum class Reply { kNone, kPong, kRefused };

inline constexpr int kAskNowhere = -1;  // an address or a port that nobody can have

struct Asked {
  Reply reply;
  int err;              // of a refusal; errno, or kAskNowhere
  double milliseconds;  // of a pong
};

// What it answered, for a user.
std::string Ask_Text(const Asked &asked);

// Pings all at the same time and waits until each has answered or refused, or the time is over.
// Says on a terminal what it waits for when that takes long.
std::vector<Asked> Ask_Ping(const std::vector<Target> &targets, std::chrono::nanoseconds time);

// Pings that have left and are waited for, as often as is wanted: an answer counts to the last.
// Those who say nothing are asked again at a third and at two thirds of the time, since a datagram
// may be lost.
class Asking {
 public:
  Asking(const std::vector<Target> &targets, std::chrono::nanoseconds time);
  ~Asking();
  Asking(const Asking &) = delete;
  Asking &operator=(const Asking &) = delete;

  // Until each has answered or refused, that much of the time is over, or all of it.
  const std::vector<Asked> &Await(std::chrono::nanoseconds time);

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

// Pings the same ones again and again until all have answered; false: the time is over, or the
// process of that number, unless it is 0, is gone.  Says on a terminal what it waits for.
bool Ask_Await(const std::vector<Target> &targets, std::chrono::nanoseconds time, pid_t pid);

// One datagram.  0, or the error of a refusal that is known already, as Asked has it; from another
// machine it may come too late.
int Ask_Send(const Target &target, const std::string &datagram);

// Says that there was no answer, or what was refused, and returns the exit status for it.
int Ask_Complain(const Target &target, const Asked &asked);

// The same, for each of those who do not answer now.
int Ask_ComplainOfSilent(const std::vector<Target> &targets);

// A line on standard error that the next one takes the place of, if that is a terminal; null ends
// it.
void Ask_Progress(const char *text);

#endif
