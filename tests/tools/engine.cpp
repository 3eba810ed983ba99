#include "tests/tools/engine.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "debug/log.h"
#include "macro/cursor.h"
#include "macro/exec.h"
#include "macro/table.h"
#include "protocol/cmd_hdr.h"

// The table of macros without files: one macro is open, and a fetch opens others in vain.

namespace {

std::string running;
int opened = 0;
PageRun *page = nullptr;
const std::string *answer = nullptr;

// A name that is logged may hold any text, so it is the beginning of the message that counts,
// behind a separator and a line with process and time.
bool IsUndefined(std::string_view text) {
  for (int line = 0; line < 2; ++line)
    text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
  return text.starts_with("\n[undefined op-code");
}

int Send(const char *text, int) {
  if (page == nullptr) return 1;
  page->log += text;
  if (IsUndefined(text)) {
    page->loops = true;
    std::fill(running.begin(), running.end(), '\0');  // which ends the run
  }
  return 1;
}

int Fetch(int, CmdHdr *, char *out, int *len, int) {
  out[0] = '\0';
  if (answer->empty()) return 0;
  const std::size_t size = std::min(answer->size(), static_cast<std::size_t>(*len));
  page->cut |= size < answer->size();
  std::memcpy(out, answer->data(), size);
  out[size] = '\0';
  *len = static_cast<int>(size);
  return 1;
}

}  // namespace

int Macro_Open(const char *) {
  if (opened < kMacroSlots) return opened++;
  DPRINTF(nullptr, kWarning, "there is no place for another macro\n");
  return -1;
}

const unsigned char *Macro_Code(int, int *size) {
  *size = static_cast<int>(running.size());
  return reinterpret_cast<const unsigned char *>(running.data());
}

int Macro_Close(int) { return 1; }
int Macro_CloseAll() { return 1; }

PageRun RunPage(const std::string &code, const std::vector<std::string> &documents,
                const std::string &fetched) {
  PageRun run;
  running = code;
  opened = 1;
  page = &run;
  answer = &fetched;
  Debug_Level = kWarning;
  Debug_SetSend(Send);
  Macro_SetFetch(Fetch);
  for (const std::string &document : documents) {
    std::vector<char> text(document.begin(), document.end());
    text.resize(kMessageSize + 1);
    const int room = kMessageSize - static_cast<int>(document.size());
    std::vector<char> output(kMessageSize);  // to the byte, for the sanitizers
    int length = kMessageSize;
    run.result = Macro_Exec(0, text.data(), output.data(), &length, room);
    run.cursor = Macro_Cursor();
    if (run.result != 1) break;
    run.outputs.emplace_back(output.data(), static_cast<std::size_t>(length));
  }
  page = nullptr;  // what else is logged is dropped
  return run;
}

void SetRegisters(int offset) {
  std::string code = "\x03";
  for (int i = 0; i < 4; ++i) code += static_cast<char>(offset >> (8 * i) & 0xff);
  for (char i = 0; i < 16; ++i) code += {'\x0a', i};
  RunPage(code, {std::string(static_cast<std::size_t>(offset) + 1, 'x')});
}
