// core/signals.h: the signals that end the process.
#ifndef CORE_SIGNALS_H
#define CORE_SIGNALS_H

// The handler of SIGINT, SIGTERM and SIGUSR1: logs and exits with status 0.  SIGCHLD reaps.  Any
// other signal is logged.
void MainCore_SigHndlr(int signal_number);

// Installs the dispositions of a daemon: each is one-shot, does not block its signal and does not
// restart a system call.  1, or 0: logged at 104.
int MainCore_SetSignals();

// exit(3), safe against the handler that would exit in the middle of it.
[[noreturn]] void MainCore_Exit(int status);

// From now on the handler ends this process without what exit(3) does: it may have interrupted an
// allocation.
void MainCore_LeaveAtOnce();

// Takes every finished child off the process table.
void MainCore_Reap();

#endif
