// korvo-macro run: the page of documents, as the service would send it.
#include <sys/stat.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "debug/fd_guard.h"
#include "debug/log.h"
#include "macro/table.h"
#include "protocol/cmd_hdr.h"
#include "tools/common/tool.h"
#include "tools/macro/check.h"
#include "tools/macro/command.h"
#include "tools/macro/engine_log.h"
#include "tools/macro/files.h"
#include "tools/macro/input.h"
#include "tools/macro/page.h"
#include "tools/macro/trace.h"

namespace {

constexpr std::size_t kInputMost = 64 << 20;

std::string page;  // so far

void TakeFile(const std::string &path, std::vector<std::string> *documents) {
  const std::size_t before = documents->size();
  const std::string wrong = Input_Read(Files_Read(path, kInputMost), documents);
  const char *name = Files_IsStandard(path) ? "standard input" : path.c_str();
  if (!wrong.empty()) Tool_Fail(EX_DATAERR, "%s:%s", name, wrong.c_str());
  if (documents->size() == before) Tool_Fail(EX_DATAERR, "%s holds no document", name);
}

std::vector<std::string> ReadDocuments(const Command &command) {
  std::vector<std::string> documents;
  for (std::size_t i = 1; i < command.files.size(); ++i) {
    const std::string &word = command.files[i];
    if (!word.starts_with("\\t")) {
      TakeFile(word, &documents);
      continue;
    }
    documents.emplace_back();
    if (!Check_Unshow(word, &documents.back()))
      Tool_Fail(EX_DATAERR, "%s is no document: its escapes are \\t \\n \\\\ \\xHH \\{COUNT}",
                word.c_str());
  }
  for (const std::string &document : documents)
    if (document.size() > kMessageSize)
      Tool_Fail(EX_DATAERR, "a document has %zu bytes, and the service takes 40960",
                document.size());
  return documents;
}

void CheckFolder(const std::string &folder) {
  struct stat status = {};
  if (folder.empty()) return;
  if (stat(folder.c_str(), &status) == 0 && !S_ISDIR(status.st_mode)) errno = ENOTDIR;
  if (!S_ISDIR(status.st_mode))
    Tool_Fail(EX_NOINPUT, "cannot open %s: %s", folder.c_str(), std::strerror(errno));
}

// Loads the code through a file of its own, since the table takes files alone.
int OpenMacro(const std::string &code) {
  const char *folder = std::getenv("TMPDIR");
  std::string name = std::string(folder != nullptr ? folder : "/tmp") + "/korvo-macro.XXXXXX.mo";
  const FdGuard file(mkstemps(name.data(), 3));
  if (file.Get() < 0)
    Tool_Fail(EX_CANTCREAT, "cannot write %s: %s", name.c_str(), std::strerror(errno));
  const int err = Tool_Write(file.Get(), code);
  const int handle = err == 0 ? Macro_Open(name.substr(0, name.size() - 3).c_str()) : -1;
  unlink(name.c_str());
  if (handle < 0) Tool_Fail(EX_CANTCREAT, "cannot write %s: %s", name.c_str(), std::strerror(err));
  return handle;
}

// An op-code that does not exist is logged for ever; the first time is enough.
void TakeMessage(const std::string &message) {
  (void)Tool_Write(STDERR_FILENO, message);
  if (!message.starts_with("\n[undefined op-code")) return;
  Tool_Print(page);
  Tool_Fail(EX_DATAERR, "the service would repeat this line until a signal ends the process");
}

// The hits of the page; false: one ended it.
bool Format(int handle, const std::vector<std::string> &documents) {
  for (const std::string &document : documents) {
    const PageText text = Page_Run(handle, document);
    if (text.result != 1) {
      page += "\t@COMMAND=ERROR\tUnable to retreive document.";
      Tool_Warn("the macro fails at a document, which ends the page");
      return false;
    }
    page += text.output;
    if (!text.output.empty()) continue;
    Tool_Warn("nothing is written for a document, which ends the page");
    return false;
  }
  return true;
}

void Show(const std::string &text) {
  const char *folder = std::getenv("TMPDIR");
  std::string name = std::string(folder != nullptr ? folder : "/tmp") + "/korvo-macro.XXXXXX.html";
  const FdGuard file(mkstemps(name.data(), 5));
  if (file.Get() < 0 || Tool_Write(file.Get(), text) != 0)
    Tool_Fail(EX_CANTCREAT, "cannot write %s: %s", name.c_str(), std::strerror(errno));
  const pid_t child = fork();
  if (child == 0) {
    execlp("xdg-open", "xdg-open", name.c_str(), nullptr);
    _exit(EX_UNAVAILABLE);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || status != 0)
    Tool_Fail(EX_UNAVAILABLE, "no browser could be started; the page is %s", name.c_str());
  Tool_Warn("the page is %s", name.c_str());
}

}  // namespace

int Command_Run(const Command &command) {
  AsmProgram program;
  const std::string &macro = command.files.front();
  const std::string code = Files_Code(macro, &program);
  const std::vector<std::string> documents = ReadDocuments(command);
  CheckFolder(command.fetch);
  Page_FetchFrom(command.fetch);
  EngineLog_Start(command.level != 0 ? command.level : kWarning, TakeMessage);
  const int handle = OpenMacro(code);
  page = Files_Frame(macro, ".hdr");
  bool is_right = true;
  if (command.trace) {
    for (const std::string &document : documents) {
      Trace_Show(handle, code, document);
      is_right = is_right && Format(handle, {document});
    }
  } else {
    is_right = Format(handle, documents);
  }
  page += Files_Frame(macro, ".tail");
  if (command.html)
    Show(page);
  else
    Tool_Print(page);
  return is_right ? EX_OK : EX_DATAERR;
}
