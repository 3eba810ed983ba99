// A program of the type that KORVO_TYPE names, else 'C', whose start-up hook gives KORVO_HOOK,
// else 1.
#include <cstdlib>

#include "core/program.h"
#include "debug/log.h"

// Asked once the level of start-up is set, so that KORVO_LEVEL shows what follows.
char ProgramType() {
  if (const char *level = std::getenv("KORVO_LEVEL")) Debug_Level = std::atoi(level);
  const char *type = std::getenv("KORVO_TYPE");
  return type != nullptr ? *type : 'C';
}

int Program_Startup(const ConfigInfo *, const DBInfo *) {
  const char *result = std::getenv("KORVO_HOOK");
  return result != nullptr ? std::atoi(result) : 1;
}

MainCore_LoopFn Program_Loop() { return MainCore_Loop; }
MainCore_ClientFn Program_ClientHandler() {
  return [](int, int, const char *) {};
}
MainCore_AdminFn Program_AdminHandler() {
  return [](int, SockAddr *, const char *, int) {};
}
