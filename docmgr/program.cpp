// Makes the Document Manager out of the shared core.
#include "core/program.h"

#include "core/workers.h"
#include "debug/log.h"
#include "docmgr/fetch.h"
#include "manager/manager.h"

namespace {

void ClientCmd(int, int sock, const char *text) {
  Manager_ClientCmd(sock, text, "GETDOC", Fetch_Answer);
}

}  // namespace

char ProgramType() { return 'D'; }

int Program_Startup(const ConfigInfo *config, const DBInfo *) {
  if (Manager_Startup(config) != 1) return 0;  // the status of every fault of the configuration
  Manager_TryDatabase(Manager_Database.DocLocation);
  DPRINTF(nullptr, kWarning, "[DocMgr: Startup] Document Manager Initialization Complete.\n");
  return 1;
}

MainCore_LoopFn Program_Loop() { return MainCore_WorkerLoop; }
MainCore_ClientFn Program_ClientHandler() { return ClientCmd; }
MainCore_AdminFn Program_AdminHandler() { return Manager_Admin; }
