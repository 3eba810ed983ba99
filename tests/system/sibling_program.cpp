// The least program of another type: it starts, announces itself and answers its admin port.
#include "core/admin.h"
#include "core/program.h"
#include "core/state.h"
#include "debug/log.h"

namespace {

void ClientCmd(int, int sock, const char *text) { Sock_SendTCP(sock, text, 1, 0); }

void Admin(int sock, SockAddr *sender, const char *buf, int len) {
  CmdHdr hdr;
  const char *rest = nullptr;
  if (Admin_Read(sender, buf, len, &hdr, &rest) != 1) return;
  if (Admin_Common(sock, sender, &hdr, rest) != 1) Admin_Unknown(&hdr);
}

}  // namespace

char ProgramType() { return SIBLING_TYPE; }

int Program_Startup(const ConfigInfo *config, const DBInfo *dbinfo) {
  Init_DisplayCfg(config);
  Init_DisplayDB(dbinfo);
  DPRINTF(nullptr, kFatal, "[Sibling: Startup] %d parents\n", MainCore_State.ParentCount);
  return 1;
}

MainCore_LoopFn Program_Loop() { return MainCore_Loop; }
MainCore_ClientFn Program_ClientHandler() { return ClientCmd; }
MainCore_AdminFn Program_AdminHandler() { return Admin; }
