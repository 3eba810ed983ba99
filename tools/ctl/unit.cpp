#include "tools/ctl/unit.h"

#include <sysexits.h>

#include <algorithm>

#include "tools/common/tool.h"
#include "tools/ctl/ask.h"
#include "tools/ctl/run.h"

namespace {

const char *TemplateOf(char type) {
  switch (type) {
    case 'C': return "korvo-commmgr@";
    case 'S': return "korvo-searchmgr@";
    case 'D': return "korvo-docmgr@";
    default: return "korvo-engine@";
  }
}

}  // namespace

std::string Unit_Name(const ConfLine &line) {
  return TemplateOf(line.config.Type) + line.words[0] + ".service";
}

std::string Unit_State(const std::string &unit) {
  std::string text;
  const std::string loaded = "LoadState=loaded";
  Run_Output(
      {"systemctl", "show", "--property=LoadState,ActiveState,SubState,Result,NRestarts", unit},
      &text);
  std::replace(text.begin(), text.end(), '\n', ' ');
  const std::size_t at = text.find(loaded);
  if (at == std::string::npos) return "";
  text.erase(at, loaded.size() + 1);
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

void Unit_Reset(const std::string &unit) {
  std::string nothing;
  (void)Run_Output({"systemctl", "reset-failed", unit}, &nothing);
}

void Unit_Do(const char *verb, const std::string &unit, const ConfLine &line) {
  Ask_Progress(Tool_Format("waiting for %s", unit.c_str()).c_str());
  const int status = Run_Status({"systemctl", verb, unit});
  Ask_Progress(nullptr);
  if (status != 0)
    Tool_Fail(EX_UNAVAILABLE, "systemctl %s %s failed; korvoctl status %s shows why", verb,
              unit.c_str(), Conf_Name(line).c_str());
}
