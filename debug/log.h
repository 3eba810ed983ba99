// debug/log.h: the levelled debug log.
//
// A message is written when its level is at or above the process-wide level; it goes to standard
// error, or to the collector once Debug_Init (debug/collector.h) has opened one.  A message begins
// with the module and operation in square brackets and ends in a line end.  A format that begins
// with "@" continues the message before it: the "@" is dropped and neither separator nor time
// header is written.
//
// errno is left as it was.  SIGINT, SIGTERM and SIGUSR1 are held back while a message is made, not
// while standard error has no room for it.
#ifndef DEBUG_LOG_H
#define DEBUG_LOG_H

#include <cstdio>
#include <ctime>

enum DebugLevel : int {
  kInfo = 101,     // traces and dumps of traffic
  kStatus = 102,   // progress
  kWarning = 103,  // failures that the program survives; the level set at start-up
  kFatal = 104,    // failures that end an operation or the process; configuration display
  kOff = 105,      // no message uses it
};

// Bytes of one message with its separator and header; what is longer is cut.
inline constexpr int kLogTextSize = 40960;

// The process-wide level.  0 until SetLevel is first called, so everything is written.  Written by
// SetLevel alone; a child keeps the level that its parent had at the fork.
extern int Debug_Level;

inline bool Debug_Shows(int level) { return level >= Debug_Level; }
inline int Debug_Dropped() { return 0; }  // a value that the compiler lets a statement ignore

// Formats and writes a message that the filter has let through.  Callers use DPRINTF.
[[gnu::format(printf, 3, 4)]] int Debug_Print(std::FILE *stream, int level, const char *format,
                                              ...);

// DPRINTF(stream, level, format, ...): stream null is the default destination.  1: written or sent.
// 0: dropped by the filter, or the collector could not be reached and the fall-back ran.  A macro,
// so that the arguments of a dropped message are not evaluated.
#define DPRINTF(stream, level, ...) \
  (Debug_Shows(level) ? Debug_Print((stream), (level), __VA_ARGS__) : Debug_Dropped())

// Formats and writes to standard output what is no message.  It is cut as one is.
[[gnu::format(printf, 1, 2)]] void Debug_Output(const char *format, ...);

// Dumps length bytes as hexadecimal and characters.  title may be null: the address and length are
// shown.
void HEXDUMP(std::FILE *stream, int level, const void *address, int length, const char *title);

// 1 and the new level is set and confirmed; 0 and nothing happens for a level outside 101 to 105.
int SetLevel(int level);

// The calendar text of seconds since 1970 as ctime gives it, line end included, in the local time
// zone.
inline constexpr std::size_t kTimeTextSize = 32;
const char *Debug_TimeText(std::time_t seconds, char (&out)[kTimeTextSize]);

// Sends one text of len bytes, terminator included, to the collector; 1 on success, else a socket
// code.
using Debug_SendFn = int (*)(const char *text, int len);

// Set by Debug_Init.  Null: there is no collector, and messages go to standard error.
void Debug_SetSend(Debug_SendFn send);

#endif
