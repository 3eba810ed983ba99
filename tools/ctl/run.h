// tools/ctl/run.h: other programs.
#ifndef TOOLS_CTL_RUN_H
#define TOOLS_CTL_RUN_H

#include <sys/types.h>

#include <string>
#include <vector>

// Starts the program of that name, as the shell finds it, waits for its end and takes what it
// writes to standard output; its errors go nowhere.  False: there is no such program, or it failed.
bool Run_Output(const std::vector<std::string> &argv, std::string *output);

// One that runs, and the end of a pipe that its standard output comes out of.
struct Running {
  pid_t pid;   // -1: there is no such program
  int output;  // -1 then
};

Running Run_Begin(const std::vector<std::string> &argv);

// Waits for its end; its exit status, or -1.
int Run_End(const Running &running);

// The same, with its output left where it goes; its exit status, or -1.
int Run_Status(const std::vector<std::string> &argv);

#endif
