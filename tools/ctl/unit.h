// tools/ctl/unit.h: the units of systemd that run the programs.
#ifndef TOOLS_CTL_UNIT_H
#define TOOLS_CTL_UNIT_H

#include <string>

#include "tools/ctl/conf.h"

// The instance that runs a program where a unit does.
std::string Unit_Name(const ConfLine &line);

// What systemd says about a unit that it has, or nothing.
std::string Unit_State(const std::string &unit);

// Lets a unit start again that has come to the limit of its starts; one without such a fault stays
// as it is.
void Unit_Reset(const std::string &unit);

// Has systemd do that to it, and waits until it is done; or ends the process with EX_UNAVAILABLE.
void Unit_Do(const char *verb, const std::string &unit, const ConfLine &line);

#endif
