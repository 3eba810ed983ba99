// manager/manager.h: what a Search Manager and a Document Manager have in common.
//
// Both serve with workers.  The main process keeps the list of engines that announced themselves; a
// worker has it as it stood at its fork, and is renewed when it changes.
#ifndef MANAGER_MANAGER_H
#define MANAGER_MANAGER_H

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "config/conf_file.h"
#include "config/peers.h"
#include "net/sock.h"
#include "protocol/cmd_hdr.h"
#include "store/shard.h"

// The own line of korvo.db; written by Manager_Startup alone.  A location that is not given, or as
// "-", is empty.
extern DBInfo Manager_Database;

// The engines, in the order in which they were first heard of.
extern std::vector<INIT_CHILDINFO> Manager_Engines;

// Sets the number of workers, reads the own line of korvo.db, if there is one, and logs the
// configuration.  1, or 0, logged.
int Manager_Startup(const ConfigInfo *config);

// Opens a database and closes it again, so that a location that is wrong stands in the log from the
// start on.  Start-up goes on all the same: it may be built later.
void Manager_TryDatabase(const char *location);

// Carries out one administrative datagram.
void Manager_Admin(int sock, SockAddr *sender, const char *buf, int len);

// The shard of a database on this machine, and of an engine.
Shard Manager_LocalShard(const char *location);
Shard Manager_EngineShard(const INIT_CHILDINFO &engine);

// Behind its deadline, before a worker gives a command up.
inline constexpr std::chrono::milliseconds kManagerGrace(300);

// The records that answer one command; text is the whole line.  May throw.
using Manager_AnswerFn = std::string (*)(const CmdHdr &hdr, const char *text,
                                         const char *predicate);

// Answers one command line if its word is the one that this manager knows; what cannot be answered
// gets an ERROR record.  sock stays open.
void Manager_ClientCmd(int sock, const char *text, const char *word, Manager_AnswerFn answer);

#endif
