// tools/wire/program.h: a program that is started, and the folder with all that it leaves.
#ifndef TOOLS_WIRE_PROGRAM_H
#define TOOLS_WIRE_PROGRAM_H

#include <sys/types.h>

#include <string>
#include <vector>

struct Program {
  pid_t pid = -1;
  std::string folder;  // its standard output and error are files there
  bool ended = false;
  int status = -1;  // with which it ended, behind a signal 128 and its number
};

// A folder of its own below TMPDIR or /tmp, or an empty text.  From then on a signal that ends this
// process removes the folder, and ends the program that was started last.
std::string Program_MakeFolder();
void Program_RemoveFolder(const std::string &folder);

bool Program_WriteFile(const std::string &path, const std::string &bytes);
std::string Program_ReadFile(const std::string &path);

// Starts a command of the shell with further arguments, in a process group of its own.  settings
// are NAME=VALUE for its environment.
bool Program_Start(Program *program, const std::string &command,
                   const std::vector<std::string> &arguments,
                   const std::vector<std::string> &settings);

std::string Program_Output(const Program &program);
std::string Program_Errors(const Program &program);

// Waits until it ends, at most that time.
bool Program_Wait(Program *program, int wait_ms);

// Ends its group.
void Program_Stop(Program *program);

#endif
