#include "core/startup.h"

#include <cstring>

#include "config/announce.h"
#include "core/program.h"
#include "core/state.h"
#include "debug/log.h"
#include "debug/text.h"

constinit MainCoreState MainCore_State = {};

namespace {

MainCoreState &state = MainCore_State;

// False: the directory is too long for a path, logged.
bool FormatPaths(const char *dir) {
  if (Text_FormatTo(state.ConfigPath, sizeof state.ConfigPath, "%s/korvo.conf", dir) &&
      Text_FormatTo(state.DBPath, sizeof state.DBPath, "%s/korvo.db", dir))
    return true;
  DPRINTF(nullptr, kFatal, "[MainCore: main] Config dir is longer than %d characters: '%s'\n",
          static_cast<int>(sizeof state.ConfigPath - sizeof "/korvo.conf"), dir);
  return false;
}

int ReadParent(int index, char type) {
  return Init_ReadConf(state.ConfigPath, state.Config.ParentID, type, &state.Parents[index]);
}

// What this type of program needs besides its own line.  False: start-up ends.
bool ReadParents(const char *id, char type) {
  if (type == 'E') {
    if (Init_ReadDB(state.DBPath, id, &state.Database) <= 0) return false;
    state.ParentCount = 2;
    if (ReadParent(0, 'S') <= 0) return false;
    if (ReadParent(1, 'D') <= 0) state.ParentCount = 1;
    return true;
  }
  if (type == 'S' || type == 'D') {
    state.ParentCount = 1;
    return ReadParent(0, 'C') != 0;
  }
  return true;
}

bool SetUpAddresses() {
  if (Init_TCPIPSetup(&state.Config, &state.ClientAddr, &state.AdminAddr) <= 0) return false;
  for (int i = 0; i < state.ParentCount; ++i)
    if (Init_TCPIPSetup(&state.Parents[i], &state.ParentClientAddr[i], &state.ParentAdminAddr[i]) <=
        0)
      return false;
  return true;
}

int OpenSockets() {
  int rc = Sock_Listen(&state.ClientAddr, 0, &state.Listener);
  if (rc != kSockOk) return rc;
  rc = Sock_OpenUDP(&state.AdminAddr, 0, &state.AdminSock);
  if (rc != kSockOk) return rc;
  DPRINTF(nullptr, kStatus, "[MainCore: main] TCP = %s/%d, UDP = %s/%d\n", state.ClientAddr.IP,
          state.ClientAddr.Port, state.AdminAddr.IP, state.AdminAddr.Port);
  return 1;
}

bool Announce() {
  for (int i = 0; i < state.ParentCount; ++i)
    if (Init_Announce(&state.ParentAdminAddr[i], &state.Config, &state.Database) <= 0) return false;
  return true;
}

}  // namespace

int MainCore_Startup(int argc, char **argv) {
  if (argc < 2 || std::strcmp(argv[1], "-?") == 0) {
    MainCore_Usage(argc > 0 ? argv[0] : "");
    return 0;
  }
  const char *id = argv[1];
  // Kept for start scripts that pass more: only exactly three arguments name a directory.
  const char *dir = argc == 3 ? argv[2] : kMainCoreConfigDir;
  SetLevel(kWarning);
  if (!FormatPaths(dir)) return 0;
  state.Config = {};
  state.Database = {};
  const char type = ProgramType();
  if (Init_ReadConf(state.ConfigPath, id, type, &state.Config) <= 0) return 0;
  if (!ReadParents(id, type)) return 0;
  if (!SetUpAddresses()) return 0;
  int rc = OpenSockets();
  if (rc != 1) return rc;
  rc = Program_Startup(&state.Config, &state.Database);
  if (rc != 1) return rc;
  return Announce() ? 1 : 0;
}
