// web/visit.h: what the server holds: browsers, their requests, and all that they share.
//
// One thread does everything.  libmicrohttpd reads requests and writes answers when its descriptor
// is ready; the loop of web/server.cpp waits for that, for the daemon and for the deadlines at
// once.  What takes time is at the daemon and at the browsers, so a thread a request would add
// locks around the queue, the measures and the log, and a stack for each of a thousand idle
// browsers, and make nothing faster.  A request that waits is suspended in the library meanwhile.
#ifndef WEB_VISIT_H
#define WEB_VISIT_H

#include <microhttpd.h>

#include <list>
#include <string>

#include "web/conf.h"
#include "web/door.h"
#include "web/journal.h"
#include "web/page.h"
#include "web/texts.h"

struct Server;

// A connection of a browser.
struct Browser {
  int fd;
  std::string address;
  WebTime since;  // it was opened, or its last answer was given
  bool visiting;  // a request of it is served; else one is awaited
  std::list<Browser>::iterator self;
};

// A request.
struct Visit {
  Server *server = nullptr;
  MHD_Connection *connection = nullptr;
  Browser *browser = nullptr;
  std::string target;
  Asked asked = {};
  Exchange exchange = {};
  bool head = false;      // HEAD
  bool complete = false;  // its header has been read
  bool begun = false;     // it has been routed
  bool queued = false;    // its exchange is, or was, at the door
  bool suspended = false;
  bool left = false;       // the browser has gone
  bool answering = false;  // a response has been given to the library
  int health = -1;         // a PING is on its way
  int file = -1;           // below /static/
  WebTime arrived;
  bool fallback = false;  // the front page could not be read
  double first_ms = -1;
  std::uint64_t bytes = 0;
  int status = 0;
  Trouble trouble = Trouble::kNone;
  std::list<Visit>::iterator self;
};

struct Server {
  WebConf conf;
  Texts texts;
  Door door;
  Rates rates;
  Journal journal;
  Measures measures;
  MHD_Daemon *http = nullptr;
  std::list<Browser> browsers;  // those that were heard of longest ago in front
  std::list<Visit> visits;
  bool stopping = false;
  bool freed = false;  // a browser has gone, and the library can accept another in its next run
};

// Serves a request, or goes on with it: an answer is given to the library, or the request is
// suspended.  False: the connection is to be closed.
bool Visit_Serve(Visit *visit);

// Answers a method that nothing here has.
bool Visit_Refuse(Visit *visit);

// Whether a suspended request can go on.
bool Visit_IsReady(const Visit &visit);

// Files, sockets and its place in the queue are given back, and the log gets its line.
void Visit_Finish(Visit *visit);

// The library may go on with it.
void Visit_Resume(Visit *visit);

#endif
