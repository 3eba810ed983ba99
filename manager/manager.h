// manager/manager.h: what a Search Manager and a Document Manager have in common.
#ifndef MANAGER_MANAGER_H
#define MANAGER_MANAGER_H

#include <xapian.h>

#include <string>

#include "config/conf_file.h"
#include "net/sock.h"
#include "protocol/cmd_hdr.h"

// The own line of korvo.db; written by Manager_Startup alone.
extern DBInfo Manager_Database;

// Reads the own line of korvo.db and logs the configuration.  1, or 0, logged.
int Manager_Startup(const ConfigInfo *config);

// Opens a database and closes it again, so that a location that is wrong stands in the log from the
// start on. Start-up goes on all the same: the database may be built, or its shards started, later.
void Manager_TryDatabase(const char *location);

// Carries out one administrative datagram.
void Manager_Admin(int sock, SockAddr *sender, const char *buf, int len);

// The records that answer one command.  Allocates, and throws what Xapian throws.
using Manager_AnswerFn = std::string (*)(const Xapian::Database &database, const CmdHdr &hdr,
                                         const char *predicate);

// The one command of a manager, and the database that it works on.
struct ManagerCommand {
  const char *word;
  const char *location;
  Manager_AnswerFn answer;
};

// Answers one command line; what cannot be answered gets an ERROR record.  sock stays open.
void Manager_ClientCmd(int sock, const char *text, const ManagerCommand &command);

#endif
