#include "config/announce.h"

#include <cstdio>
#include <cstring>

#include "debug/log.h"
#include "debug/text.h"
#include "protocol/pair.h"

namespace {

constexpr std::size_t kAnnounceSize = 1024;
constexpr int kPairSize = 320;

// Writes the announcement into out; a field list that has no room is cut.  Returns the length.
int FormatAnnounce(char (&out)[kAnnounceSize + 1], const ConfigInfo *config, const DBInfo *dbinfo) {
  int length = std::snprintf(
      out, sizeof out,
      "\t@COMMAND=STARTUPANNOUNCEMENT\tID=%s\tTYPE=%c\tIP=%s\tCLIENTPORT=%d\tADMINPORT=%d",
      config->ID, config->Type, config->IP, config->ClientPort, config->AdminPort);
  const std::size_t used = static_cast<std::size_t>(length);
  const bool listed =
      dbinfo != nullptr && dbinfo->FieldList != nullptr && *dbinfo->FieldList != '\0';
  if (!listed) return length + std::snprintf(out + used, sizeof out - used, "\n");

  char list[kAnnounceSize];
  const std::size_t room = kAnnounceSize - used - std::strlen("\tFIELDLIST=\n");
  if (!Text_CopyTo(list, room + 1, dbinfo->FieldList))
    DPRINTF(nullptr, kWarning, "[Init: Announce] Field list cut to %d characters\n",
            static_cast<int>(room));
  return length + std::snprintf(out + used, sizeof out - used, "\tFIELDLIST=%s\n", list);
}

using Value = char[257];

// The value of one field of an announcement.  False: missing or malformed, and logged.
bool TakeValue(const char *text, const char *field, Value &value) {
  char pair[kPairSize + 1];
  int length = kPairSize;
  if (Util_Search4Pair(text, pair, &length, field, 1) != 1) return false;
  char name[65];
  return Util_SplitPair(pair, name, value, '=') == 1;
}

template <std::size_t N>
void Store(char (&field)[N], const Value &value, const char *name) {
  if (!Text_Copy(field, value))
    DPRINTF(nullptr, kWarning, "[Init: RecvAnnounce] %s cut to '%s'\n", name, field);
}

}  // namespace

int Init_TCPIPSetup(const ConfigInfo *config, SockAddr *client, SockAddr *admin) {
  if (config == nullptr) {
    DPRINTF(nullptr, kFatal, "[Init: TCPIPSetup] ConfigInfo is NULL.\n");
    return 0;
  }
  if (config->IP[0] == '\0') {
    DPRINTF(nullptr, kFatal, "[Init: TCPIPSetup] IP is blank.\n");
    return 0;
  }
  if (config->ClientPort <= 0) {
    DPRINTF(nullptr, kFatal, "[Init: TCPIPSetup] Invalid client port = %d.\n", config->ClientPort);
    return 0;
  }
  if (config->AdminPort <= 0) {
    DPRINTF(nullptr, kFatal, "[Init: TCPIPSetup] Invalid admin port = %d.\n", config->AdminPort);
    return 0;
  }
  if (client == nullptr || admin == nullptr) {
    DPRINTF(nullptr, kFatal,
            "[Init: TCPIPSetup] Either Client, Admin or Parent pointer is NULL.\n");
    return 0;
  }
  static_assert(sizeof client->IP == sizeof config->IP);
  (void)Text_Copy(client->IP, config->IP);
  (void)Text_Copy(admin->IP, config->IP);
  client->Port = config->ClientPort;
  admin->Port = config->AdminPort;
  return 1;
}

int Init_Announce(SockAddr *parent, const ConfigInfo *config, const DBInfo *dbinfo) {
  char message[kAnnounceSize + 1];
  const int length = FormatAnnounce(message, config, dbinfo);
  DPRINTF(nullptr, kInfo, "[Init: Announce] Sending Announcement to %s/%d: '%s'\n", parent->IP,
          parent->Port, message);
  int sock = -1;
  if (Sock_OpenUDP(nullptr, 0, &sock) != kSockOk) {
    DPRINTF(nullptr, kFatal,
            "[Init: Announce] Unable to open socket to send Startup Announcement.\n");
    return 0;
  }
  if (Sock_SendUDP(sock, message, length, parent, 0) != kSockOk) {
    DPRINTF(nullptr, kFatal,
            "[Init: Announce] Unable to send Startup Announcement to parent '%s' at %s:%0d\n",
            config->ParentID, parent->IP, parent->Port);
    return 0;  // Kept: the socket stays open; start-up ends here
  }
  Sock_Close(sock);
  return 1;
}

int Init_RecvAnnounce(const char *text, INIT_CHILDINFO *child) {
  if (text == nullptr || *text == '\0') {
    DPRINTF(nullptr, kWarning, "[Init: RecvAnnounce] Command is NULL.\n");
    return 0;
  }
  if (child == nullptr) {
    DPRINTF(nullptr, kWarning, "[Init: RecvAnnounce] Child struct is NULL.\n");
    return 0;
  }
  Value value;
  if (!TakeValue(text, "ID", value)) return 0;
  Store(child->ID, value, "ID");
  if (!TakeValue(text, "TYPE", value)) return 0;
  child->Type = value[0];
  if (!TakeValue(text, "IP", value)) return 0;
  Store(child->ClientAddr.IP, value, "IP");
  (void)Text_Copy(child->AdminAddr.IP, child->ClientAddr.IP);
  if (!TakeValue(text, "CLIENTPORT", value)) return 0;
  child->ClientAddr.Port = Text_ToPort(value);
  if (!TakeValue(text, "ADMINPORT", value)) return 0;
  child->AdminAddr.Port = Text_ToPort(value);

  DPRINTF(nullptr, kInfo, "[Init: RecvAnn] Child ID       = %s\n", child->ID);
  DPRINTF(nullptr, kInfo, "@[Init: RecvAnn] Child Type     = %c\n", child->Type);
  DPRINTF(nullptr, kInfo, "@[Init: RecvAnn] Child ClientIP = %s/%d\n", child->ClientAddr.IP,
          child->ClientAddr.Port);
  DPRINTF(nullptr, kInfo, "@[Init: RecvAnn] Child AdminIP  = %s/%d\n", child->AdminAddr.IP,
          child->AdminAddr.Port);
  return 1;
}
