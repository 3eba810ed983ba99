// tools/macro/engine_log.h: what the engine logs while a macro is tried.
#ifndef TOOLS_MACRO_ENGINE_LOG_H
#define TOOLS_MACRO_ENGINE_LOG_H

#include <functional>
#include <string>

// Gives every message to take, without its separator and time, for as long as it lives; those below
// the level are dropped.
void EngineLog_Start(int level, std::function<void(const std::string &)> take);

#endif
