// tools/wire/recorder.h: recordings of exchanges, written by a thread that may wait for the disk.
#ifndef TOOLS_WIRE_RECORDER_H
#define TOOLS_WIRE_RECORDER_H

#include <string>

#include "tools/wire/exchange.h"

// Starts the thread, which writes to that folder.  lose is told which file is left out, and why; it
// is called by either thread.
void Recorder_Start(const std::string &folder,
                    void (*lose)(const std::string &path, const char *why));

// Records the exchange and says its line behind that: who reads the line finds the recording.
void Recorder_Add(Exchange &&exchange);

// The highest number that a recording of the folder has; 0: there is none.
int Recorder_HighestNumber(const std::string &folder);

#endif
