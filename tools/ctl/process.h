// tools/ctl/process.h: programs of this machine, seen through /proc.
#ifndef TOOLS_CTL_PROCESS_H
#define TOOLS_CTL_PROCESS_H

#include <sys/types.h>

#include <vector>

#include "tools/ctl/conf.h"

// The number of the socket at the program's admin port, another one after each start; 0: nobody has
// it on this machine.
unsigned long Process_Socket(const ConfLine &line);

// Connections at the program's client port.
struct Connections {
  int in_hand;
  int waiting;  // not accepted yet
};
Connections Process_Connections(const ConfLine &line);

// The process that has the admin port; 0: there is none, or this user may not see it.
pid_t Process_Main(const ConfLine &line);

struct ProcessInfo {
  pid_t pid;
  pid_t group;
  double age;          // seconds
  long long resident;  // bytes
};

// All of that group, the main process first.
std::vector<ProcessInfo> Process_Group(pid_t main);

#endif
