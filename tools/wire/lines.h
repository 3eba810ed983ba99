// tools/wire/lines.h: lines to standard output, written by a thread that may wait for their reader.
#ifndef TOOLS_WIRE_LINES_H
#define TOOLS_WIRE_LINES_H

#include <string>

// Starts the thread.  lose is told why lines are left out: that one could not be written, or that
// more than a mebibyte waits; it is called by either thread.
void Lines_Start(void (*lose)(const char *why));

void Lines_Add(const std::string &line);

#endif
