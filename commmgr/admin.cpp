#include "core/admin.h"

#include <cstdlib>
#include <string_view>

#include "commmgr/commmgr.h"
#include "config/announce.h"
#include "debug/log.h"
#include "debug/signal_hold.h"
#include "macro/exec.h"

namespace {

INIT_CHILDINFO *NewChild() {
  const SignalHold hold;
  return static_cast<INIT_CHILDINFO *>(std::calloc(1, sizeof(INIT_CHILDINFO)));
}

void FreeChild(INIT_CHILDINFO *child) {
  const SignalHold hold;
  std::free(child);
}

void RecordChild(const char *rest) {
  INIT_CHILDINFO *child = NewChild();
  if (child == nullptr) {
    DPRINTF(nullptr, kFatal, "[Comm: Admin] Unable to alloc mem for INIT_CHILDINFO (size = %d).\n",
            static_cast<int>(sizeof(INIT_CHILDINFO)));
    return;
  }
  const bool parsed = Init_RecvAnnounce(rest, child) == 1;
  if (parsed && child->Type == 'D') return Init_InsertDocMgr(child);
  if (parsed && child->Type == 'S') return Init_InsertSearchMgr(child);
  FreeChild(child);  // refused, or of a type that no list holds
}

}  // namespace

void CommMgr_Admin(int sock, SockAddr *sender, const char *buf, int len) {
  CmdHdr hdr;
  const char *rest = nullptr;
  if (Admin_Read(sender, buf, len, &hdr, &rest) != 1) return;
  if (std::string_view(hdr.Command) == "STARTUPANNOUNCEMENT") return RecordChild(rest);
  if (Admin_Common(sock, sender, &hdr, rest) != 1) Admin_Unknown(&hdr);
}

int CommMgr_Startup(const ConfigInfo *config, const DBInfo *) {
  DocMgrList = nullptr;
  SearchMgrList = nullptr;
  Macro_SetFetch(CommMgr_GetDoc);
  Init_DisplayCfg(config);
  DPRINTF(nullptr, kWarning, "[CommMgr: Startup] Communication Manager Initialization Complete.\n");
  return 1;
}
