// web/exchange.h: one request at the daemon, from its place in the queue to the last byte of the
// page.
//
// An exchange waits, asks, and gives bytes as they come; its deadline holds for all of it.  What
// goes wrong before the first byte of the page is its trouble, for the status; behind it a notice.
#ifndef WEB_EXCHANGE_H
#define WEB_EXCHANGE_H

#include <netinet/in.h>

#include <string>

#include "web/clock.h"
#include "web/filter.h"
#include "web/trouble.h"

enum class Stage { kWaiting, kAsking, kGiving, kOver };

struct Exchange {
  Stage stage = Stage::kWaiting;
  Filter filter;
  WebTime deadline;
  Trouble trouble = Trouble::kNone;  // nothing has been given then, and nothing will be
  std::string line;                  // what is still to be sent
  int fd = -1;                       // to the daemon, while one is open
  std::string out;                   // for the browser
  bool heard = false;                // the daemon has sent something
};

// Opens the connection.  False: the exchange is over, with its trouble.
bool Exchange_Open(Exchange *exchange, const sockaddr_in &daemon);

// What to wait for on its connection; 0 while the browser has enough to read.
short Exchange_Events(const Exchange &exchange);

// Sends and receives what can be without waiting.
void Exchange_Step(Exchange *exchange);

// Ends it: with its trouble while nothing has been given, else with a notice.
void Exchange_End(Exchange *exchange, Trouble trouble);

// The browser has left.
void Exchange_Close(Exchange *exchange);

#endif
