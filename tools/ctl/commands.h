// tools/ctl/commands.h: what each command does.  The results are exit statuses.
#ifndef TOOLS_CTL_COMMANDS_H
#define TOOLS_CTL_COMMANDS_H

#include "tools/ctl/request.h"

// send.cpp
int Command_Ping(Request *request);
int Command_Level(Request *request);
int Command_Shutdown(Request *request);
int Command_Wait(Request *request);

#endif
