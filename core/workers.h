// core/workers.h: serves with processes that are forked beforehand.
//
// For a program whose connections are dear to start, since it holds a database open.  The main
// process keeps the admin socket; a fixed number of workers take connections off the listener, each
// serving one after the other in itself.  A worker that has served 10,000, or that is renewed, ends
// after the connection that it has in hand; one that dies is replaced at once, at most 10 a second.
#ifndef CORE_WORKERS_H
#define CORE_WORKERS_H

#include "core/loop.h"

// How long a worker waits for the line of a request, and for a reader that takes nothing.
inline constexpr int kWorkerPatience = 5;  // seconds

// Sets their number, in the start-up hook of a program that has workers: KORVO_WORKERS of the
// environment, 4 a processor without it.  1, or 0: it is no number from 1 to 1000, logged.
int MainCore_SetWorkers();

// Takes the place of MainCore_Loop, and returns as that does.  Raises the queue of the listener to
// 128.  A changed level of the log renews the workers.
int MainCore_WorkerLoop(int listener, int admin_sock, MainCore_ClientFn client,
                        MainCore_AdminFn admin);

// From now on the request in hand has to be answered within that time.  If it is not, last_word,
// which lives as long as the worker does, is sent to its connection and the worker ends, to be
// replaced: whatever it waits for holds nobody longer.
void MainCore_EndAfter(int milliseconds, const char *last_word);

// Renews the workers behind the datagram that is being carried out: its handler has changed what
// they work on.
void MainCore_RenewWorkers();

#endif
