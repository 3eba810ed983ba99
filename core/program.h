// core/program.h: what a program says of itself.
//
// Four programs share core/ and everything below it.  Each links one file that answers these;
// nothing else tells them apart.
#ifndef CORE_PROGRAM_H
#define CORE_PROGRAM_H

#include "config/conf_file.h"
#include "core/loop.h"

// 'C' Communications Manager, 'S' Search Manager, 'D' Document Manager, 'E' Search Engine.
char ProgramType();

// Runs once, when both sockets are open and before the announcements.  1, or the result that
// start-up returns.
int Program_Startup(const ConfigInfo *config, const DBInfo *dbinfo);

// MainCore_Loop: a process a connection.  MainCore_WorkerLoop: processes forked beforehand.
MainCore_LoopFn Program_Loop();

MainCore_ClientFn Program_ClientHandler();
MainCore_AdminFn Program_AdminHandler();

#endif
