// web/door.h: the queue before the daemon's own.
//
// So many exchanges are with the daemon at once and no more, since its listen queue is short and
// whoever finds it full waits a second.  The others wait here, in the order in which they came.
#ifndef WEB_DOOR_H
#define WEB_DOOR_H

#include <netinet/in.h>

#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "web/clock.h"
#include "web/exchange.h"

struct Door {
  sockaddr_in daemon;
  std::size_t connections, most_waiting;
  std::deque<Exchange *> waiting;
  std::vector<Exchange *> asking;
};

// Puts it behind those that wait.  False: too many do.
bool Door_Enter(Door *door, Exchange *exchange);

// Takes it out wherever it is, and ends its connection.
void Door_Leave(Door *door, Exchange *exchange);

// Ends those whose deadline has passed and lets the next ones in.
void Door_Turn(Door *door, WebTime now);

// How often one address may ask.
struct Rates {
  double rate, burst;  // a second, and at once; rate 0 is no limit
  struct Bucket {
    double left;
    WebTime at;
  };
  std::unordered_map<std::string, Bucket> buckets;
};

// A web server before this one asks from this machine for all its browsers: it limits them.
bool Rates_IsFree(const std::string &address);

bool Rates_Take(Rates *rates, const std::string &address, WebTime now);

#endif
