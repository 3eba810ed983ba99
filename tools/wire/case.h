// tools/wire/case.h: a case, from an empty folder to the end of all that was started.
#ifndef TOOLS_WIRE_CASE_H
#define TOOLS_WIRE_CASE_H

#include <string>

#include "tools/wire/stage.h"
#include "tools/wire/transcript.h"

// What a case is held against.
struct Subject {
  Role role = Role::kDaemon;
  std::string command;           // that starts it; empty for one that runs already
  sockaddr_in client_port = {};  // of one that runs already
  sockaddr_in admin_port = {};   // port 0: not known, and cases with datagrams are left out
  int patience = 0;              // milliseconds for everything that has to come
};

enum class Result { kPassed, kFailed, kSkipped };

struct Outcome {
  Result result = Result::kPassed;
  int line = 0;     // of the step that failed
  std::string why;  // what was expected and what came, or why the case is left out
};

Outcome Case_Run(const Case &which, const Subject &subject);

// What the actor of a manager sends to the admin port of a daemon.  Its id is what stands behind
// the dash of its name, or packages.
std::string Case_Announcement(const std::string &actor, int port);

#endif
