#include "tools/macro/engine_log.h"

#include <string_view>

#include "debug/log.h"

namespace {

std::function<void(const std::string &)> taker;

int Send(const char *text, int) {
  std::string_view message = text;
  if (message.starts_with("----")) {  // a separator and a line with process and time
    message.remove_prefix(message.find('\n') + 1);
    message.remove_prefix(message.find('\n') + 1);
  }
  taker(std::string(message));
  return 1;
}

}  // namespace

void EngineLog_Start(int level, std::function<void(const std::string &)> take) {
  taker = std::move(take);
  Debug_Level = level;
  Debug_SetSend(Send);
}
