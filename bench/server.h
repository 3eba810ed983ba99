// bench/server.h: what a running server costs, as the kernel accounts for it.
#ifndef BENCH_SERVER_H
#define BENCH_SERVER_H

#include <string>

// The processor time that the processes of a control group have used, in microseconds, those that
// have ended included; below 0: not known.  Children of both servers are reaped by the kernel, so
// no parent is told of their time and only a group keeps it.
double Server_Cpu(const std::string &group);

struct Memory {
  long resident = -1;  // kilobytes; below 0: not known
  long private_dirty = -1;
  long peak = -1;  // of resident
};
Memory Server_Memory(int pid);

// A child of the process; 0: there is none after two seconds.
int Server_AwaitChild(int pid);

// The process id in a file; 0: none.
int Server_ReadPid(const std::string &file);

#endif
