// Makes the Search Engine out of the shared core: a database that managers search over Xapian's
// remote protocol.  A connection has a process, Xapian's own server, for as long as a manager keeps
// it; a process beside the main one watches whether the database is still the one they serve.
#include "core/program.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <string>

#include "core/admin.h"
#include "core/state.h"
#include "debug/log.h"
#include "engine/fields.h"
#include "protocol/process.h"
#include "store/location.h"

namespace {

constexpr const char *kServer = "xapian-progsrv";
constexpr const char *kIdle = "86400000";  // milliseconds: a manager keeps what it has opened

// Whether the database can be read, and if fields is given, the names of its fields; else logged.
bool Open(const char *location, std::string *fields) {
  std::string reason;
  try {
    const Xapian::Database database(location);
    if (fields != nullptr) *fields = Engine_Fields(database, kEngineFieldsSize);
    return true;
  } catch (const Xapian::Error &error) {
    reason = error.get_description();
  } catch (const std::exception &error) {
    reason = error.what();
  }
  DPRINTF(nullptr, kWarning, "[Engine: Open] Unable to read database '%s': %s\n", location,
          reason.c_str());
  return false;
}

int main_process = 0;

// A child of the main process leaves with it, also when nobody can tell it.
void EndWithMain() {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != main_process) raise(SIGTERM);
}

void SetOption(int sock, int level, int option) {
  const int on = 1;
  setsockopt(sock, level, option, &on, sizeof on);
}

// The process of the connection becomes Xapian's own server.  Its messages are answers to each
// other, so none waits to be joined with the next; and a manager's machine that is gone is noticed.
void Serve(int, int sock, MainCore_ClientFn) {
  const char *location = MainCore_State.Database.SearchLocation;
  if (!Open(location, nullptr)) return;
  SetOption(sock, IPPROTO_TCP, TCP_NODELAY);
  SetOption(sock, SOL_SOCKET, SO_KEEPALIVE);
  EndWithMain();
  dup2(sock, STDIN_FILENO);
  dup2(sock, STDOUT_FILENO);
  Sock_Close(sock);
  execlp(kServer, kServer, "--timeout", kIdle, location, nullptr);
  DPRINTF(nullptr, kFatal, "[Engine: Serve] Unable to run %s: errno = %d\n", kServer, errno);
  _exit(0);
}

// Ends the servers of a database that another was moved into the place of: their managers come back
// to the new one.  SIGHUP is nothing to the processes of this program, and the end of Xapian's.
[[noreturn]] void Watch(const char *location) {
  EndWithMain();
  Sock_Close(MainCore_State.Listener);
  Sock_Close(MainCore_State.AdminSock);
  LocationState served = Location_State(location);
  for (;;) {
    sleep(1);
    const LocationState now = Location_State(location);
    if (now.inode == 0 || served == now) continue;
    if (served.inode != 0) {
      DPRINTF(nullptr, kWarning, "[Engine: Watch] Database '%s' was replaced\n", location);
      kill(0, SIGHUP);
    }
    served = now;
  }
}

// Ends this process when the one at the other end of the pipe is gone.
bool EndWithout(int pipe_end) {
  return fcntl(pipe_end, F_SETOWN, getpid()) == 0 && fcntl(pipe_end, F_SETSIG, SIGTERM) == 0 &&
         fcntl(pipe_end, F_SETFL, O_ASYNC | O_NONBLOCK) == 0;
}

void StartWatch(const char *location) {
  struct sigaction nothing = {};
  nothing.sa_handler = [](int) {};
  nothing.sa_flags = SA_RESTART;
  sigaction(SIGHUP, &nothing, nullptr);
  // Held by the process that watches alone, it says when that one has ended, however it was: who
  // would go on without it would serve a database that is gone.
  main_process = getpid();
  int ends[2] = {-1, -1};
  const bool is_tied = pipe2(ends, O_CLOEXEC) == 0 && EndWithout(ends[0]);
  const int pid = is_tied ? Util_Fork(1) : -errno;
  if (pid == 0) Watch(location);
  if (pid < 0) DPRINTF(nullptr, kFatal, "[Engine: Watch] Unable to fork: errno = %d\n", -pid);
  close(ends[1]);
}

void Admin(int sock, SockAddr *sender, const char *buf, int len) {
  CmdHdr hdr;
  const char *rest = nullptr;
  if (Admin_Read(sender, buf, len, &hdr, &rest) != 1) return;
  if (Admin_Common(sock, sender, &hdr, rest) != 1) Admin_Unknown(&hdr);
}

}  // namespace

char ProgramType() { return 'E'; }

int Program_Startup(const ConfigInfo *config, const DBInfo *dbinfo) {
  static std::string fields;  // announced behind this
  if (Open(dbinfo->SearchLocation, &fields)) MainCore_State.Database.FieldList = fields.c_str();
  MainCore_SetReader(Serve);
  StartWatch(dbinfo->SearchLocation);
  Init_DisplayCfg(config);
  Init_DisplayDB(&MainCore_State.Database);
  DPRINTF(nullptr, kWarning, "[Engine: Startup] Search Engine Initialization Complete.\n");
  return 1;
}

MainCore_LoopFn Program_Loop() { return MainCore_Loop; }
MainCore_ClientFn Program_ClientHandler() { return nullptr; }  // its reader needs none
MainCore_AdminFn Program_AdminHandler() { return Admin; }
