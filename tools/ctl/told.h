// tools/ctl/told.h: what korvoctl has announced to the programs of this machine.
//
// None of them can be asked whom it knows.  A folder has a file for each, with a line for each
// announcement: the number of the socket at its admin port, another one after each start, and the
// id and type of whom it was told of.  Where the folder is missing, or this user may not write to
// it, nothing is kept.
#ifndef TOOLS_CTL_TOLD_H
#define TOOLS_CTL_TOLD_H

#include <chrono>
#include <string>
#include <vector>

#include "tools/ctl/conf.h"

// Waits until no other korvoctl announces to the programs of this machine, but no longer than that.
// The descriptor holds the others back until it is closed; -1: there is no such folder.
int Told_Lock(const std::string &folder, std::chrono::nanoseconds time);

// Behind Told_Lock.
void Told_Keep(const std::string &folder, const ConfLine &parent, const ConfLine &child);

// "ID:TYPE" of those that the program has been told of since it started, in that order.
std::vector<std::string> Told_List(const std::string &folder, const ConfLine &parent);

#endif
