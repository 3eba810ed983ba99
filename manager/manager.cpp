#include "manager/manager.h"

#include <unistd.h>

#include <cstring>
#include <exception>
#include <string_view>

#include "core/admin.h"
#include "core/state.h"
#include "core/workers.h"
#include "debug/log.h"
#include "protocol/process.h"

DBInfo Manager_Database;

namespace {

constexpr int kAttempts = 3;

void Send(int sock, std::string_view records) {
  const int rc = Sock_SendTCP(sock, records.data(), static_cast<int>(records.size()), 0);
  if (rc != kSockOk)
    DPRINTF(nullptr, kWarning, "[Manager: ClientCmd] Unable to send to client sock %d rc = %d\n",
            sock, rc);
}

// Opens the database and lets the command answer from it: in the connection's own process, for the
// connections to remote shards must not be shared across a fork.  False: Xapian or the memory
// failed, logged.
bool Answer(const ManagerCommand &command, const CmdHdr &hdr, const char *predicate,
            std::string *records) {
  for (int attempt = 1; attempt <= kAttempts; ++attempt) {
    try {
      *records = command.answer(Xapian::Database(command.location), hdr, predicate);
      return true;
    } catch (
        const Xapian::DatabaseModifiedError &error) {  // an indexer was faster: read its new state
      DPRINTF(nullptr, kWarning, "[Manager: Answer] Database '%s' changed, attempt %d: %s\n",
              command.location, attempt, error.get_msg().c_str());
    } catch (const Xapian::Error &error) {
      DPRINTF(nullptr, kWarning, "[Manager: Answer] Unable to read database '%s': %s\n",
              command.location, error.get_description().c_str());
      return false;
    } catch (const std::exception &error) {
      DPRINTF(nullptr, kWarning, "[Manager: Answer] Unable to answer from database '%s': %s\n",
              command.location, error.what());
      return false;
    }
  }
  return false;
}

}  // namespace

int Manager_Startup(const ConfigInfo *config) {
  if (MainCore_SetWorkers() != 1) return 0;
  if (Init_ReadDB(MainCore_State.DBPath, config->ID, &Manager_Database) != 1) return 0;
  Init_DisplayCfg(config);
  Init_DisplayDB(&Manager_Database);
  return 1;
}

void Manager_TryDatabase(const char *location) {
  // In a process of its own: a shard that hangs must keep neither the clients nor a signal waiting.
  if (Util_Fork(1) != 0) return;
  Sock_Close(MainCore_State.Listener);
  Sock_Close(MainCore_State.AdminSock);
  const ManagerCommand nothing = {
      "", location,
      [](const Xapian::Database &, const CmdHdr &, const char *) { return std::string(); }};
  std::string records;
  (void)Answer(nothing, {}, nullptr, &records);
  _exit(0);
}

void Manager_Admin(int sock, SockAddr *sender, const char *buf, int len) {
  CmdHdr hdr;
  const char *rest = nullptr;
  if (Admin_Read(sender, buf, len, &hdr, &rest) != 1) return;
  if (Admin_Common(sock, sender, &hdr, rest) != 1) Admin_Unknown(&hdr);
}

void Manager_ClientCmd(int sock, const char *text, const ManagerCommand &command) {
  if (*text == '\0') return;  // the client has left without a command
  CmdHdr hdr = {};
  const char *predicate = Util_IntCmdHdr(&hdr, text);
  Util_Display(&hdr, predicate);
  if (std::strcmp(hdr.Command, command.word) != 0) {
    DPRINTF(nullptr, kWarning, "[Manager: ClientCmd] Unable to figure out this command: %s\n",
            text);
    return Send(sock, "\t@COMMAND=ERROR\tUnable to figure out this command\n");
  }
  static std::string
      records;  // freed with the process, and not where a signal could come in between
  if (Answer(command, hdr, predicate, &records)) return Send(sock, records);
  Send(sock, "\t@COMMAND=ERROR\tUnable to read the database\n");
}
