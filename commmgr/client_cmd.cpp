#include <string_view>

#include "commmgr/commmgr.h"
#include "config/peers.h"
#include "debug/log.h"
#include "debug/text.h"
#include "macro/table.h"

namespace {

constexpr std::size_t kBaseSize = 256;

// The handle of the page macro, or -1, logged.  Kept: the client gets no reply then.
int OpenMacro(const CmdHdr &hdr) {
  const int macro = Macro_Open(hdr.MacroFile);
  if (macro < 0)
    DPRINTF(nullptr, kWarning, "[CommMgr: ClientCmd] Unable to open Macro %s\n", hdr.MacroFile);
  return macro;
}

void ReplyError(int client, const char *text) {
  const int rc = Sock_SendTCP(client, text, Text_Length(text), 0);
  if (rc != kSockOk)
    DPRINTF(nullptr, kWarning, "[CommMgr: ClientCmd] Unable to send to client sock %d rc = %d\n",
            client, rc);
}

// Hands the client's own text to the Search Manager of its group.  The new socket, or -1, answered.
int Forward(int client, const CmdHdr &hdr, const char *text) {
  const INIT_CHILDINFO *manager = Init_FindPeer(SearchMgrList, hdr.SearchGroup);
  if (manager == nullptr) {
    // Kept: the group has never been in this line.
    DPRINTF(nullptr, kWarning,
            "[CommMgr: ClientCmd] Unable to locate SearchGroup '%s' amongst my flock\n", "");
    ReplyError(client, "\t@COMMAND=ERROR\tUnable to locate SearchMgr\n");
    return -1;
  }
  int search = -1;
  SockAddr addr = manager->ClientAddr;  // converted in the copy, so that the list stays shared with
                                        // the main process
  const int rc = Sock_ConnectAndSend(&addr, &search, text, Text_Length(text), 0);
  if (rc == kSockOk) return search;
  DPRINTF(nullptr, kWarning, "[CommMgr: ClientCmd] Unable to connect to SearchMgr: rc = %d\n", rc);
  char reply[128];
  (void)Text_FormatTo(reply, sizeof reply,
                      "\t@COMMAND=ERROR\tUnable to connect to SearchMgr: rc = %d\n", rc);
  ReplyError(client, reply);
  return -1;
}

void Query(int client, const CmdHdr &hdr, const char *text) {
  const int macro = OpenMacro(hdr);
  if (macro < 0) return;
  const int search = Forward(client, hdr, text);  // not closed here: it ends with this process
  if (search < 0) return;

  char base[kBaseSize];
  if (hdr.MacroFile[0] == '/')
    (void)Text_Copy(base, hdr.MacroFile);
  else
    (void)Text_FormatTo(base, sizeof base, "%s/%s", kLibraryDir, hdr.MacroFile);
  CommMgr_SendHdr(base, client);
  CommMgr_Results(macro, search, client, hdr.MaxHits);
  CommMgr_SendTail(base, client);  // also after a relay that stopped early
}

// Kept: the frames of a GETDOC are looked for without the macro library, and both failed sends say
// Results.
void GetDoc(int client, CmdHdr *hdr) {
  const int macro = OpenMacro(*hdr);
  if (macro < 0) return;
  static MessageBuffer document;
  int length = kMessageSize;
  if (CommMgr_GetDoc(macro, hdr, document.text, &length, 1) != 1) {
    constexpr const char *kReply = "\t@COMMAND=ERROR\tUnable to locate Document Server.";
    const int rc = Sock_SendTCP(client, kReply, Text_Length(kReply), 0);
    if (rc != kSockOk)
      DPRINTF(nullptr, kWarning, "[CommMgr: Results] Unable to send to client sock %d rc = %d\n",
              client, rc);
    return;
  }
  CommMgr_SendHdr(hdr->MacroFile, client);
  const int rc = Sock_SendTCP(client, document.text, Text_Length(document.text), 0);
  if (rc != kSockOk) {
    DPRINTF(nullptr, kWarning, "[CommMgr: Results] Unable to send to client sock %d rc = %d\n",
            client, rc);
    return;
  }
  CommMgr_SendTail(hdr->MacroFile, client);
}

}  // namespace

void CommMgr_ClientCmd(int, int sock, const char *text) {
  CmdHdr hdr = {};
  const char *predicate = Util_IntCmdHdr(&hdr, text);
  Util_Display(&hdr, predicate);
  DPRINTF(nullptr, kInfo, "[CommMgr: ClientCmd] MySocket = %d.\n", sock);
  const std::string_view command = hdr.Command;
  if (command == "QUERY") return Query(sock, hdr, text);
  if (command == "GETDOC") return GetDoc(sock, &hdr);
  DPRINTF(nullptr, kWarning, "[CommMgr: ClientCmd] Unable to figure out this command: %s\n", text);
}
