// core/loop.h: the event loop and the readers.
#ifndef CORE_LOOP_H
#define CORE_LOOP_H

#include "net/sock.h"

// Bytes of a command or a datagram; storage is one byte larger.
inline constexpr int kCommandSize = 4096;

// Serves one command: text is a line with its newline, or empty when the client closed early.
// listener is -1 in a child.  The socket stays the caller's.
using MainCore_ClientFn = void (*)(int listener, int sock, const char *text);

// Carries out one datagram; replies go out on sock.  buf is terminated behind len.
using MainCore_AdminFn = void (*)(int sock, SockAddr *sender, const char *buf, int len);

// Takes one command off sock and hands it to handler; the arguments are those of MainCore_TCPRead.
using MainCore_ReadFn = void (*)(int listener, int sock, MainCore_ClientFn handler);

// Sets the reader of connections, MainCore_TCPRead without it; and calls it.
void MainCore_SetReader(MainCore_ReadFn reader);
void MainCore_Read(int listener, int sock, MainCore_ClientFn handler);

// Serves both sockets until a signal ends the process.  The result, of a failure, is the exit
// status.
using MainCore_LoopFn = int (*)(int listener, int admin_sock, MainCore_ClientFn client,
                                MainCore_AdminFn admin);

// False: select(2) cannot watch that descriptor, logged.
bool MainCore_CanWatch(int fd);

// Waits on both sockets and serves them, the admin socket first.  Returns only when a descriptor is
// beyond what select(2) can watch, logged; the result is the exit status then.
int MainCore_Loop(int listener, int admin_sock, MainCore_ClientFn client, MainCore_AdminFn admin);

// Accepts one connection and hands it to the reader, in a child process if fork_flag is 1.
void MainCore_Listen(int listener, int fork_flag, MainCore_ClientFn handler);

// Reads one command off sock and hands it to handler.
void MainCore_TCPRead(int listener, int sock, MainCore_ClientFn handler);

// Reads one datagram and hands it to handler.
void MainCore_UDPRead(int admin_sock, MainCore_AdminFn handler);

#endif
