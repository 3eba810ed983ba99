// tools/ctl/process.h: programs of this machine, seen through /proc.
#ifndef TOOLS_CTL_PROCESS_H
#define TOOLS_CTL_PROCESS_H

#include <sys/types.h>

#include <string>
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

std::string Process_Name(pid_t pid);

// That of this system which its file was built as; empty: it is another program's, or it cannot be
// read.
std::string Process_Version(pid_t pid);

// Whether its file was deleted, or another put in its place.
bool Process_IsReplaced(pid_t pid);

// The file at its standard error, or nothing.
std::string Process_LogFile(pid_t pid);

// The unit of systemd that it belongs to, or nothing.
std::string Process_Unit(pid_t pid);

struct ProcessInfo {
  pid_t pid;
  pid_t group;
  double age;          // seconds
  long long resident;  // bytes
};

// All of its group, the main process first.  A stranger need not lead one.
std::vector<ProcessInfo> Process_Group(pid_t main);

#endif
