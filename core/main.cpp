// The entry of every program that is built on core/.
#include <fcntl.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>

#include "core/loop.h"
#include "core/program.h"
#include "core/signals.h"
#include "core/startup.h"
#include "core/state.h"
#include "debug/log.h"

namespace {

// Descriptors 0 to 2 lead somewhere before the first socket is opened, so that no log line can
// travel down a client's connection.
void OpenStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
    if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) != fd) _exit(EX_OSFILE);
}

// Under a service manager or in a container the process already leads a session, and with it a
// group.
bool LeadGroup() { return setpgid(0, 0) == 0 || (errno == EPERM && getpgrp() == getpid()); }

}  // namespace

int main(int argc, char **argv) {
  OpenStandardDescriptors();
  if (!LeadGroup()) {
    DPRINTF(nullptr, kFatal, "[MainCore: main] Can't setsid \n");
    MainCore_Exit(0);
  }
  if (MainCore_SetSignals() != 1) MainCore_Exit(0);
  MainCore_Banner();
  const int rc = MainCore_Startup(argc, argv);
  if (rc != 1) MainCore_Exit(rc);
  MainCore_Exit(Program_Loop()(MainCore_State.Listener, MainCore_State.AdminSock,
                               Program_ClientHandler(), Program_AdminHandler()));
}
