// debug/collector.h: sends the debug log to a collector over UDP.
//
// A library of its own above net/, so that the printing core needs no socket.  A program that wants
// its log collected calls Debug_Init once; the daemon does not.
#ifndef DEBUG_COLLECTOR_H
#define DEBUG_COLLECTOR_H

// Sets the default destination and the level 103 and opens the log socket.  1: open, and every
// later message without a stream is sent; 0: logged on standard output, and messages go on to
// standard error.
int Debug_Init();

// Where the lines go: dotted IPv4 text and a port from 1 to 32767.  1, or 0 when that is no
// address.
int Debug_SetDest(const char *host, int port);

#endif
