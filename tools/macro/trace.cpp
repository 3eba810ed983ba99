#include "tools/macro/trace.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "debug/log.h"
#include "macro/cursor.h"
#include "macro/ops.h"
#include "macro/table.h"
#include "protocol/cmd_hdr.h"
#include "tools/common/tool.h"
#include "tools/macro/asm.h"
#include "tools/macro/check.h"
#include "tools/macro/decode.h"
#include "tools/macro/engine_log.h"
#include "tools/macro/page.h"

namespace {

// How far a run has come.
struct Stage {
  int result = 1;
  int cursor = 0;
  std::string output;
  std::vector<std::string> log;
};

// What a process of its own tells: a number and as many bytes, again and again.

void Tell(int fd, const std::string &text) {
  const std::string size = Tool_Format("%010zu", text.size());
  if (Tool_Write(fd, size + text) != 0) _exit(EX_IOERR);
}

bool Hear(int fd, std::size_t size, std::string *text) {
  char buffer[4096];
  while (text->size() < size) {
    const std::size_t want = std::min(sizeof buffer, size - text->size());
    const ssize_t got = read(fd, buffer, want);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    text->append(buffer, static_cast<std::size_t>(got));
  }
  return true;
}

bool HearText(int fd, std::string *text) {
  std::string size;
  text->clear();
  return Hear(fd, 10, &size) && Hear(fd, std::stoul(size), text);
}

// The run up to an offset, where the code gets an end; as_find has the last instruction, a fetch,
// look its field up alone.
[[noreturn]] void RunUpTo(int fd, int handle, std::size_t from, std::size_t end, bool as_find,
                          const std::string &document) {
  int size = 0;
  // The table's buffer is this process's own copy.
  auto *code = const_cast<unsigned char *>(Macro_Code(handle, &size));
  if (end < static_cast<std::size_t>(size)) code[end] = kOpEnd;
  if (as_find) code[from] = kOpFind;
  EngineLog_Start(kWarning, [fd](const std::string &message) {
    Tell(fd, "log");
    Tell(fd, message);
  });
  const PageText text = Page_Run(handle, document);
  Tell(fd, std::to_string(text.result));
  Tell(fd, std::to_string(Macro_Cursor()));
  Tell(fd, text.output);
  _exit(EX_OK);
}

Stage StageAt(int handle, std::size_t from, std::size_t end, bool as_find,
              const std::string &document) {
  int ends[2];
  if (pipe(ends) != 0) Tool_Fail(EX_OSERR, "cannot make a pipe: %s", std::strerror(errno));
  const pid_t child = fork();
  if (child < 0) Tool_Fail(EX_OSERR, "cannot fork: %s", std::strerror(errno));
  if (child == 0) {
    close(ends[0]);
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);  // the run itself complains
    RunUpTo(ends[1], handle, from, end, as_find, document);
  }
  close(ends[1]);
  Stage stage;
  std::string word;
  while (HearText(ends[0], &word) && word == "log") {
    stage.log.emplace_back();
    HearText(ends[0], &stage.log.back());
  }
  stage.result = word == "1" ? 1 : -1;
  if (HearText(ends[0], &word)) stage.cursor = std::stoi(word);
  HearText(ends[0], &stage.output);
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return stage;
}

std::string Written(std::string_view code, const Instruction &at) {
  const std::string line = Asm_Disassemble(code.substr(at.offset, at.size));
  return line.substr(0, line.find_last_not_of(' ', line.find(" ; 0")) + 1);
}

void Print(std::string_view code, const Instruction &at, const Stage &before, const Stage &stage,
           const std::vector<int> &stack) {
  const std::string added =
      stage.output.size() > before.output.size() ? stage.output.substr(before.output.size()) : "";
  std::string stacked;
  for (const int cursor : stack) stacked += ' ' + std::to_string(cursor);
  const std::string shown = added.empty() ? "" : Tool_Format(": '%s'", Check_Show(added).c_str());
  Tool_Line("%6zu  %-32s cursor %d, stack%s, output %zu%s", at.offset, Written(code, at).c_str(),
            stage.cursor, stacked.empty() ? " empty" : stacked.c_str(), stage.output.size(),
            shown.c_str());
  for (std::size_t i = before.log.size(); i < stage.log.size(); ++i)
    Tool_Line("        log: %s", Check_Show(stage.log[i]).c_str());
}

bool IsMissing(const Stage &before, const Stage &stage) {
  for (std::size_t i = before.log.size(); i < stage.log.size(); ++i)
    if (stage.log[i].find("Unable to find field") != std::string::npos) return true;
  return false;
}

void Stack(const Instruction &at, const Stage &before, std::vector<int> *stack) {
  if (at.op == kOpPush) stack->push_back(before.cursor);
  if (at.op == kOpPop && !stack->empty()) stack->pop_back();
}

}  // namespace

void Trace_Show(int handle, std::string_view code, const std::string &document) {
  Stage before;
  std::vector<int> stack;
  Instruction at;
  for (std::size_t i = 0; i < code.size(); i += at.size) {
    const Decoding decoding = Decode_At(code, i, &at);
    if (decoding == Decoding::kUndefined)
      return Tool_Line("%6zu  op-code %d does not exist, and is repeated for ever", i, at.op);
    if (decoding == Decoding::kInstruction && at.op == kOpEnd) return Tool_Line("%6zu  end", i);
    const std::size_t name_end = i + 2 + at.text.size();
    if (at.op == kOpFetch && decoding == Decoding::kInstruction &&
        IsMissing(before, StageAt(handle, i, name_end, true, document)))
      at.size = name_end - i;  // what follows is run as code
    const Stage stage =
        StageAt(handle, i, i + at.size, at.op == kOpFetch && at.size == name_end - i, document);
    Stack(at, before, &stack);
    Print(code, at, before, stage, stack);
    if (stage.result != 1) return;
    before = stage;
  }
}
