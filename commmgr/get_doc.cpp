#include <cstring>
#include <string_view>

#include "commmgr/commmgr.h"
#include "config/peers.h"
#include "debug/log.h"
#include "debug/text.h"
#include "macro/exec.h"
#include "protocol/record.h"

namespace {

// A document as its Document Manager sent it, inside the receive buffer.
struct RawDocument {
  char *text;
  int room;  // bytes free behind it
};

// A record that is a header alone holds an empty document, at its end.
RawDocument RawFrom(char *buf, int length, char *rest) {
  char *text = rest != nullptr ? rest : buf + length;
  const char *end = text + std::strlen(text);
  return {text, static_cast<int>(buf + kMessageSize - end)};
}

// 1, or 0 logged.
int Format(int macro, const RawDocument &raw, char *out, int *len) {
  int produced = *len;
  if (Macro_Exec(macro, raw.text, out, &produced, raw.room) != 1) {
    DPRINTF(nullptr, kWarning,
            "[CommMgr: Results] Macro Substitution failed.\n");  // Kept: says Results
    return 0;
  }
  out[produced] = '\0';
  *len = produced;
  DPRINTF(nullptr, kInfo, "[CommMgr: GetDoc] Formatted Doc (len = %d):\n%s\n", produced, out);
  return 1;
}

void CopyRaw(const RawDocument &raw, char *out, int *len) {
  if (!Text_CopyTo(out, static_cast<std::size_t>(*len) + 1, raw.text))
    DPRINTF(nullptr, kWarning, "[CommMgr: GetDoc] Document cut to %d characters\n", *len);
  *len = static_cast<int>(std::strlen(out));
}

// Reads the answer and delivers the document.
int Receive(int macro, int sock, char *buf, char *out, int *len, int format) {
  CmdHdr reply = {};
  char *rest = nullptr;
  int length = kMessageSize;
  const int result = Util_ReadInt(sock, buf, &length, &reply, &rest);
  if (result == kRecordOver) {
    *len = 0;
    DPRINTF(nullptr, kInfo, "[CommMgr: GetDoc] ReadAndInterpret returned an END OF DATA message\n");
    return 1;  // Kept: no answer is an empty document
  }
  if (result != kRecordRead) {
    DPRINTF(nullptr, kInfo, "[CommMgr: GetDoc] ReadAndInterpret returned an error\n");
    return 0;
  }
  if (std::string_view(reply.Command) != "HIT") {
    DPRINTF(nullptr, kInfo, "[CommMgr: GetDoc] Command not recognized: '%s'\n", reply.Command);
    return 0;
  }
  const RawDocument raw = RawFrom(buf, length, rest);
  DPRINTF(nullptr, kInfo, "[CommMgr: GetDoc] Raw Doc:\n%s\n", raw.text);
  if (format == 1) return Format(macro, raw, out, len);
  CopyRaw(raw, out, len);
  return 1;
}

}  // namespace

MessageBuffer CommMgr_Incoming;

int CommMgr_GetDoc(int macro, CmdHdr *hdr, char *out, int *len, int format) {
  out[0] = '\0';  // nothing behind it is looked at until it is written
  const INIT_CHILDINFO *manager = Init_FindPeer(DocMgrList, hdr->SearchGroup);
  if (manager == nullptr) {
    DPRINTF(nullptr, kWarning, "[CommMgr: GetDoc] Unable to find a docmgr for %s:%s\n",
            hdr->SearchGroup, hdr->RecType);
    return 0;
  }
  (void)Text_Copy(hdr->Command, "GETDOC");
  // The request, then the answer.  A macro that runs over the answer may fetch a further document,
  // and that one is raw.
  static MessageBuffer raw;
  char *buf = (format == 1 ? CommMgr_Incoming : raw).text;
  int length = Util_FormatCmdHdr(hdr, buf);
  buf[length++] = '\n';
  int sock = -1;
  SockAddr addr = manager->ClientAddr;  // converted in the copy, so that the list stays shared with
                                        // the main process
  const int rc = Sock_ConnectAndSend(&addr, &sock, buf, length, 0);
  if (rc != kSockOk) {
    DPRINTF(nullptr, kWarning,
            "[CommMgr: GetDoc] ConnectAndSend to DocMgr at %s:%d failed: rc = %d.\n",
            manager->ClientAddr.IP, manager->ClientAddr.Port, rc);
    return 0;
  }
  const int delivered = Receive(macro, sock, buf, out, len, format);
  Sock_Close(sock);
  return delivered;
}
