#include "core/admin.h"

#include <csignal>
#include <cstdio>
#include <string_view>

#include "debug/log.h"
#include "protocol/pair.h"

// Kept for the operators' scripts: the lines say CommMgr in every program.
namespace {

constexpr int kLevelPair = 256;  // bytes of the DEBUGLEVEL pair, its name and its value

struct LevelWord {
  std::string_view word;
  int level;
};
constexpr LevelWord kLevelWords[] = {
    {"OFF", kOff}, {"INFO", kInfo}, {"STATUS", kStatus}, {"WARNING", kWarning}, {"FATAL", kFatal}};

void SetDebugLevel(const char *rest) {
  char pair[kLevelPair + 1];
  int length = kLevelPair;
  if (Util_Search4Pair(rest, pair, &length, "DEBUGLEVEL", 1) != 1) {
    DPRINTF(nullptr, kWarning, "[CommMgr: Admin] Cmd SetDebug: can't find DEBUGLEVEL field\n");
    return;
  }
  char name[kLevelPair + 1];
  char value[kLevelPair + 1];
  // Fails only if a piece is too long, for the pair was found by its "=".
  if (Util_SplitPair(pair, name, value, '=') != 1) {
    DPRINTF(nullptr, kWarning, "[CommMgr: Admin] Cmd SetDebug: can't split DEBUGLEVEL field\n");
    return;
  }
  for (const LevelWord &known : kLevelWords) {
    if (known.word == value) {
      SetLevel(known.level);
      return;
    }
  }
  DPRINTF(nullptr, kWarning, "[CommMgr: Admin] Unknown Debug level '%s'\n", value);
}

void Ping(int sock, SockAddr *sender, const CmdHdr *hdr) {
  char reply[64];
  const int length =
      std::snprintf(reply, sizeof reply, "\t@COMMAND=PONG\t@SEQNUM=%d\n", hdr->SeqNum);
  if (Sock_SendUDP(sock, reply, length, sender, 0) != kSockOk)
    DPRINTF(nullptr, kFatal, "[CommMgr: Admin] Unable to send Pong to %s:%d\n", sender->IP,
            sender->Port);
}

}  // namespace

int Admin_Read(const SockAddr *sender, const char *buf, int len, CmdHdr *hdr, const char **rest) {
  if (sender == nullptr) {
    DPRINTF(nullptr, kWarning, "[CommMgr: Admin] Sender is NULL\n");
    return 0;
  }
  if (buf == nullptr || len <= 0) {
    DPRINTF(nullptr, kWarning, "[CommMgr: Admin] CmdBuf is NULL or CmdBufLen is <= 0.\n");
    return 0;
  }
  DPRINTF(nullptr, kInfo, "[CommMgr: Admin] Command from %s/%d\n", sender->IP, sender->Port);
  HEXDUMP(nullptr, kInfo, buf, len, "[CommMgr: Admin] CmdBuf:");
  *hdr = {};
  *rest = Util_IntCmdHdr(hdr, buf);
  Util_Display(hdr, *rest);
  return 1;
}

int Admin_Common(int sock, SockAddr *sender, const CmdHdr *hdr, const char *rest) {
  const std::string_view command = hdr->Command;
  if (command == "SETDEBUGLEVEL") {
    SetDebugLevel(rest);
  } else if (command == "PING") {
    Ping(sock, sender, hdr);
  } else if (command == "SHUTDOWN") {
    kill(0, SIGUSR1);
  } else if (command != "PONG" && command != "SHUTDOWNANNOUNCEMENT") {  // these two are ignored
    return 0;
  }
  return 1;
}

void Admin_Unknown(const CmdHdr *hdr) {
  DPRINTF(nullptr, kWarning, "[CommMgr: Admin] Unknown command %s\n", hdr->Command);
}
