// tools/ctl/run.h: other programs.
#ifndef TOOLS_CTL_RUN_H
#define TOOLS_CTL_RUN_H

#include <string>
#include <vector>

// Starts the program of that name, as the shell finds it, waits for its end and takes what it
// writes to standard output; its errors go nowhere.  False: there is no such program, or it failed.
bool Run_Output(const std::vector<std::string> &argv, std::string *output);

// The same, with its output left where it goes; its exit status, or -1.
int Run_Status(const std::vector<std::string> &argv);

#endif
