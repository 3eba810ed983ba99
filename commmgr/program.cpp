// Makes the Communications Manager out of the shared core.
#include "core/program.h"

#include "commmgr/commmgr.h"

char ProgramType() { return 'C'; }

int Program_Startup(const ConfigInfo *config, const DBInfo *dbinfo) {
  return CommMgr_Startup(config, dbinfo);
}

MainCore_LoopFn Program_Loop() { return MainCore_Loop; }
MainCore_ClientFn Program_ClientHandler() { return CommMgr_ClientCmd; }
MainCore_AdminFn Program_AdminHandler() { return CommMgr_Admin; }
