#include "manager/manager.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "config/announce.h"
#include "core/admin.h"
#include "core/signals.h"
#include "core/state.h"
#include "core/workers.h"
#include "debug/log.h"
#include "protocol/process.h"
#include "store/record.h"

DBInfo Manager_Database;
std::vector<INIT_CHILDINFO> Manager_Engines;

namespace {

constexpr auto kTrial = std::chrono::seconds(5);

// 0, or the error: that of the connection, or EAGAIN for a reader that takes nothing for too long.
int SendAll(int sock, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent =
        send(sock, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT | MSG_MORE);
    if (sent >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(sent));
      continue;
    }
    pollfd ready = {sock, POLLOUT, 0};
    if (errno != EAGAIN) return errno;
    if (poll(&ready, 1, kWorkerPatience * 1000) == 0) return EAGAIN;
  }
  return 0;
}

// The end of the answer travels with its last bytes: a segment less, and the reader cannot close
// first, which would keep its port in use.  What nobody has read cannot reset the connection then.
void Send(int sock, std::string_view records) {
  const int err = SendAll(sock, records);
  shutdown(sock, SHUT_WR);
  if (err != 0)
    DPRINTF(nullptr, kWarning, "[Manager: ClientCmd] Unable to send to client sock %d rc = %d\n",
            sock, -err);
}

void ClearUnset(char *location) {
  if (std::strcmp(location, "-") == 0) *location = '\0';
}

// The edge of what throws.
std::string Answer(Manager_AnswerFn answer, const CmdHdr &hdr, const char *text,
                   const char *predicate) {
  try {
    return answer(hdr, text, predicate);
  } catch (const Xapian::Error &error) {
    DPRINTF(nullptr, kWarning, "[Manager: Answer] Unable to answer: %s\n",
            error.get_description().c_str());
  } catch (const std::exception &error) {
    DPRINTF(nullptr, kWarning, "[Manager: Answer] Unable to answer: %s\n", error.what());
  }
  return Record_Error("Unable to read the database");
}

// An engine of the same id takes the place of the one before.  The workers begin anew in any case:
// it was started again, and their connections to it are gone.
void RecordEngine(const char *rest) {
  INIT_CHILDINFO child = {};
  if (Init_RecvAnnounce(rest, &child) != 1 || child.Type != 'E') return;
  if (child.ID[0] == '\0') {  // a document without a record type would be looked for there
    DPRINTF(nullptr, kWarning, "[Manager: Admin] An engine announced itself without an ID\n");
    return;
  }
  MainCore_RenewWorkers();
  for (INIT_CHILDINFO &engine : Manager_Engines)
    if (std::strcmp(engine.ID, child.ID) == 0) {
      engine = child;
      return;
    }
  Manager_Engines.push_back(child);
}

}  // namespace

int Manager_Startup(const ConfigInfo *config) {
  if (MainCore_SetWorkers() != 1) return 0;
  // Without its line a manager has what its engines have.
  const bool found = Init_ReadDB(MainCore_State.DBPath, config->ID, &Manager_Database) == 1;
  if (!found) Manager_Database = {};
  ClearUnset(Manager_Database.SearchLocation);
  ClearUnset(Manager_Database.DocLocation);
  Init_DisplayCfg(config);
  if (found) Init_DisplayDB(&Manager_Database);
  return 1;
}

void Manager_TryDatabase(const char *location) {
  if (*location == '\0') return;
  // In a process of its own: a shard that hangs must keep neither the clients nor a signal waiting,
  // and what a library opens must not be shared across a fork.
  if (Util_Fork(1) != 0) return;
  MainCore_LeaveAtOnce();
  Sock_Close(MainCore_State.Listener);
  Sock_Close(MainCore_State.AdminSock);
  Shard shard = Manager_LocalShard(location);
  Shard *const shards[] = {&shard};
  const auto now = ShardClock::now();
  Shard_Ready(shards, {now, now + kTrial});
  _exit(0);
}

void Manager_Admin(int sock, SockAddr *sender, const char *buf, int len) {
  CmdHdr hdr;
  const char *rest = nullptr;
  if (Admin_Read(sender, buf, len, &hdr, &rest) != 1) return;
  if (std::string_view(hdr.Command) == "STARTUPANNOUNCEMENT") return RecordEngine(rest);
  if (Admin_Common(sock, sender, &hdr, rest) != 1) Admin_Unknown(&hdr);
}

Shard Manager_LocalShard(const char *location) {
  Shard shard;
  shard.name = location;
  shard.location = location;
  return shard;
}

Shard Manager_EngineShard(const INIT_CHILDINFO &engine) {
  Shard shard;
  shard.name = engine.ID;
  shard.host = engine.ClientAddr.IP;
  shard.port = static_cast<unsigned>(engine.ClientAddr.Port);
  return shard;
}

void Manager_ClientCmd(int sock, const char *text, const char *word, Manager_AnswerFn answer) {
  if (*text == '\0') return;  // the client has left without a command
  CmdHdr hdr = {};
  const char *predicate = Util_IntCmdHdr(&hdr, text);
  Util_Display(&hdr, predicate);
  if (std::strcmp(hdr.Command, word) == 0) {
    const std::string records = Answer(answer, hdr, text, predicate);
    MainCore_EndAfter(0, nullptr);  // the reader is waited for by other rules
    return Send(sock, records);
  }
  DPRINTF(nullptr, kWarning, "[Manager: ClientCmd] Unable to figure out this command: %s\n", text);
  Send(sock, Record_Error("Unable to figure out this command"));
}
