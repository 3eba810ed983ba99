#include "protocol/record.h"

#include <cerrno>

#include "debug/log.h"
#include "net/sock.h"

int Util_ReadInt(int sock, char *buf, int *len, CmdHdr *hdr, char **rest) {
  const int rc = Sock_RecvDelim(sock, buf, len, "\n");
  if (rc == -ECONNRESET) {
    DPRINTF(nullptr, kInfo, "[Util:ReadInt] Received Connection Reset Message from Sock %d\n",
            sock);
    return kRecordOver;
  }
  if (rc == -ENOTCONN) {
    DPRINTF(nullptr, kInfo, "[Util:ReadInt] Received Not Connected Message from Sock %d\n", sock);
    return kRecordOver;
  }
  if (*len <= 0) {
    DPRINTF(nullptr, kInfo,
            "[Util:ReadInt] Length of data is 0 (Connection Closed by other side) for sock %d\n",
            sock);
    return kRecordOver;
  }
  if (rc != kSockOk) {
    DPRINTF(nullptr, kWarning, "[Util: ReadInt] Unable to recv on socket %d: rc = %d\n", sock, rc);
    return kRecordFailed;
  }
  buf[*len] = '\0';
  *hdr = {};
  const char *predicate = Util_IntCmdHdr(hdr, buf);
  *rest = const_cast<char *>(predicate);  // it lies in buf
  Util_Display(hdr, predicate);
  return kRecordRead;
}
