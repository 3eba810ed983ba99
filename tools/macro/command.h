// tools/macro/command.h: what a user asks korvo-macro for.
#ifndef TOOLS_MACRO_COMMAND_H
#define TOOLS_MACRO_COMMAND_H

#include <string>
#include <vector>

struct Command {
  std::string word;
  std::vector<std::string> files;
  std::string given;   // the letters of the options
  std::string output;  // empty: named after the input
  std::string fields;  // empty: not told
  std::string fetch;   // a folder; empty: every fetch fails
  bool allow_undefined = false;
  bool listing = false;
  bool trace = false;
  bool html = false;
  int level = 0;  // of the log; 0: the service's own
};

// The exit status.
int Command_Check(const Command &command);
int Command_Run(const Command &command);

#endif
