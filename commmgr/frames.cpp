#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "commmgr/commmgr.h"
#include "debug/fd_guard.h"
#include "debug/log.h"
#include "debug/text.h"

namespace {

constexpr std::size_t kNameSize = 128;
constexpr std::size_t kFrameSize = 10238;  // Kept: the characters of a frame that are sent

char *const frame = CommMgr_Incoming.text;

// Fills the frame, terminated.  0, or the error that a directory, a missing file or a bad disk
// gives.
int ReadFrame(const char *name) {
  const FdGuard file(open(name, O_RDONLY));
  if (file.Get() < 0) return errno;
  // To the end or to the first character that is not sent: a FIFO gives what its writer has written
  // so far.
  std::size_t used = 0;
  while (used <= kFrameSize) {
    const ssize_t got = read(file.Get(), frame + used, kFrameSize + 1 - used);
    if (got < 0) return errno;
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
  }
  frame[std::min(used, kFrameSize)] = '\0';
  return 0;
}

int SendFrame(int client) { return Sock_SendTCP(client, frame, Text_Length(frame), 0); }

}  // namespace

void CommMgr_SendHdr(const char *base, int client_sock) {
  char name[kNameSize + 1];
  const bool fits = Text_FormatTo(name, sizeof name, "%s.hdr", base);
  DPRINTF(nullptr, kInfo, "[CommMgr: SendHdr] Looking for %s\n", name);
  const int err = fits ? ReadFrame(name) : ENAMETOOLONG;
  if (err != 0) {
    DPRINTF(nullptr, kWarning, "[CommMgr: MacroHdr] Unable to open macro file %s: errno = %d.\n",
            name, err);
    return;
  }
  const int rc = SendFrame(client_sock);
  if (rc != kSockOk)
    DPRINTF(nullptr, kWarning, "[CommMgr: MacroHdr] Unable to send to client sock %d rc = %d\n",
            client_sock, rc);
}

void CommMgr_SendTail(const char *base, int client_sock) {
  char name[kNameSize + 1];
  const bool fits = Text_FormatTo(name, sizeof name, "%s.tail", base);
  DPRINTF(nullptr, kInfo, "[CommMgr: SendTail] Looking for %s\n", name);
  const int err = fits ? ReadFrame(name) : ENAMETOOLONG;
  if (err != 0) {
    DPRINTF(nullptr, kWarning, "[CommMgr: MacroTail] Unable to open macro file %s: errno = %d.\n",
            name, err);
    return;
  }
  const int rc = SendFrame(client_sock);
  if (rc != kSockOk)
    DPRINTF(nullptr, kWarning, "[CommMgr: MacroTail] Unable to send to client sock %d rc = %d\n",
            client_sock, rc);
}
