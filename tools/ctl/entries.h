// tools/ctl/entries.h: a log, message by message.
#ifndef TOOLS_CTL_ENTRIES_H
#define TOOLS_CTL_ENTRIES_H

#include <string>
#include <string_view>
#include <vector>

// What stands before each message.
inline constexpr std::string_view kEntrySeparator =
    "---------------------------------------------------------------\n";

// A message with its header, as it came.
struct Entry {
  std::string header;  // separator and time; empty for what stands before the first
  std::string body;
  int pid;
};

Entry Entries_Of(std::string_view text);

// All of a log that begins anywhere.
std::vector<Entry> Entries_All(std::string_view log);

// The end of the log that a process writes: the file at its standard error, or what the journal has
// of the unit; nothing when neither can be read.
std::string Entries_Tail(pid_t pid, const std::string &unit);

#endif
