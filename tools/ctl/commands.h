// tools/ctl/commands.h: what each command does.  The results are exit statuses.
#ifndef TOOLS_CTL_COMMANDS_H
#define TOOLS_CTL_COMMANDS_H

#include "tools/ctl/request.h"

// send.cpp
int Command_Ping(Request *request);
int Command_Level(Request *request);
int Command_Shutdown(Request *request);
int Command_Wait(Request *request);

// check.cpp
int Command_Check(Request *request);
// What it finds of the program that the id names.
std::vector<std::string> Command_Findings(const std::string &dir, const std::string &name);

// tree.cpp
int Command_List(Request *request);
int Command_Units(Request *request);

// announce.cpp
int Command_Announce(Request *request);

// status.cpp
int Command_Status(Request *request);

// ending.cpp
int Command_Drain(Request *request);
int Command_Stop(Request *request);
int Command_Restart(Request *request);
int Command_Reap(Request *request);

// log.cpp
int Command_Log(Request *request);

#endif
