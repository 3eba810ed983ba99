// tools/wire/commands.h: the verbs of korvo-wire, each with the arguments behind its name and the
// exit status for its result.
#ifndef TOOLS_WIRE_COMMANDS_H
#define TOOLS_WIRE_COMMANDS_H

#include <netinet/in.h>

#include <string>

#include "tools/wire/transcript.h"

inline constexpr int kWireDiffers = 1;  // exit status: what came is not what was expected

// HOST:PORT, or PORT on 127.0.0.1, as an address, or the end of the process with EX_USAGE or
// EX_NOHOST.  what is how the user knows it.
sockaddr_in Wire_Address(const char *text, const char *what);

// The cases of a file, or the end of the process with EX_NOINPUT or EX_DATAERR.
Transcript Wire_Transcript(const std::string &path);

int Wire_Check(int argc, char **argv);
int Wire_Play(int argc, char **argv);
int Wire_Tap(int argc, char **argv);
int Wire_Replay(int argc, char **argv);

// Prints the summary for the letter h, and the version for V; nothing for any other.
void Wire_TakeInfo(int letter);

#endif
