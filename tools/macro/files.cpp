#include "tools/macro/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "debug/fd_guard.h"
#include "tools/common/tool.h"

namespace {

constexpr std::size_t kFrameMost = 10238;
constexpr std::size_t kFrameFile = 64 << 20;

// What happened: EX_OK, or the status of what failed, with errno.
int ReadWhole(const std::string &path, std::size_t limit, const char **verb, std::string *text) {
  const FdGuard file(Files_IsStandard(path) ? dup(STDIN_FILENO)
                                            : open(path.c_str(), O_RDONLY | O_CLOEXEC));
  *verb = "open";
  if (file.Get() < 0) return EX_NOINPUT;
  *verb = "read";
  char buffer[65536];
  while (text->size() <= limit) {
    const ssize_t got = read(file.Get(), buffer, sizeof buffer);
    if (got == 0) return EX_OK;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return EX_NOINPUT;
    text->append(buffer, static_cast<std::size_t>(got));
  }
  return EX_DATAERR;
}

[[noreturn]] void FailWrite(const std::string &path, int err) {
  Tool_Fail(EX_CANTCREAT, "cannot write %s: %s", path.c_str(), std::strerror(err));
}

void WriteInPlace(const std::string &path, const std::string &bytes) {
  const FdGuard file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (file.Get() < 0) FailWrite(path, errno);
  const int err = Tool_Write(file.Get(), bytes);
  if (err != 0) FailWrite(path, err);
}

// The errno of what failed, or 0.
int FillAndRename(int file, const std::string &bytes, mode_t mode, const char *from,
                  const char *to) {
  const int err = Tool_Write(file, bytes);
  if (err != 0) return err;
  return fchmod(file, mode) == 0 && rename(from, to) == 0 ? 0 : errno;
}

// The service may load the macro at any moment, and must find the old one whole or the new one
// whole.
void Replace(const std::string &path, const std::string &bytes, mode_t mode) {
  std::string scratch = path + ".XXXXXX";
  const FdGuard file(mkostemp(scratch.data(), O_CLOEXEC));
  if (file.Get() < 0) FailWrite(path, errno);
  const int err = FillAndRename(file.Get(), bytes, mode, scratch.c_str(), path.c_str());
  if (err == 0) return;
  unlink(scratch.c_str());
  FailWrite(path, err);
}

mode_t ModeOfNewFile() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Where a link leads in the end.
std::string TargetOf(const std::string &path) {
  char *resolved = realpath(path.c_str(), nullptr);
  if (resolved == nullptr) Tool_Fail(EX_CANTCREAT, "%s: %s", path.c_str(), std::strerror(errno));
  std::string target = resolved;
  std::free(resolved);
  return target;
}

// What takes one column a character, and does not end a text.
std::string Plain(std::string text) {
  for (char &c : text) {
    if (c == '\t' || c == '\r') c = ' ';
    if (c == '\0') c = '?';
  }
  return text;
}

void NameFault(const AsmError &error) {
  const char *name = Files_IsStandard(error.file) ? "standard input" : error.file.c_str();
  Tool_Line("%s:%d:%d: %s", name, error.line, error.column, Plain(error.text).c_str());
  std::size_t blanks = 0;  // a character may have several bytes
  for (const char c : error.source.substr(0, error.mark)) blanks += (c & 0xc0) != 0x80 ? 1 : 0;
  Tool_Line("  %s", Plain(error.source).c_str());
  Tool_Line("  %s^", std::string(blanks, ' ').c_str());
}

[[noreturn]] void FailAssembly(const std::string &input, const AsmErrors &errors) {
  const char *name = Files_IsStandard(input) ? "standard input" : input.c_str();
  for (const AsmError &error : errors.first) NameFault(error);
  if (errors.more == 1) Tool_Line("%s: 1 more fault", name);
  if (errors.more > 1) Tool_Line("%s: %zu more faults", name, errors.more);
  std::exit(EX_DATAERR);
}

}  // namespace

bool Files_IsStandard(const std::string &path) { return path == "-"; }

bool Files_TryRead(const std::string &path, std::size_t limit, std::string *text) {
  const char *verb = "";
  return ReadWhole(path, limit, &verb, text) == EX_OK;
}

std::string Files_Read(const std::string &path, std::size_t limit) {
  std::string text;
  const char *verb = "";
  const int status = ReadWhole(path, limit, &verb, &text);
  if (status == EX_NOINPUT && std::strcmp(verb, "open") == 0)
    Tool_Fail(status, "cannot open %s: %s", path.c_str(), std::strerror(errno));
  if (status == EX_NOINPUT)
    Tool_Fail(status, "cannot read %s: %s", path.c_str(), std::strerror(errno));
  if (status != EX_OK)
    Tool_Fail(status, "%s is larger than %zu bytes, the most that is read", path.c_str(), limit);
  return text;
}

void Files_Write(const std::string &path, const std::string &bytes) {
  struct stat status;
  if (Files_IsStandard(path)) return Tool_Print(bytes);
  if (lstat(path.c_str(), &status) != 0) return Replace(path, bytes, ModeOfNewFile());
  if (S_ISREG(status.st_mode)) return Replace(path, bytes, status.st_mode & 07777);
  if (S_ISLNK(status.st_mode) && stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode))
    return Replace(TargetOf(path), bytes, status.st_mode & 07777);  // the link stays
  WriteInPlace(path, bytes);  // a device, or a link to what is not there yet
}

void Files_Assemble(const std::string &path, bool allow_undefined, AsmProgram *program) {
  program->sources.push_back({path, Files_Read(path, kSourceLimit)});
  const auto load = [](const std::string &name, std::string *text) {
    return Files_TryRead(name, kSourceLimit, text);
  };
  if (!Asm_Assemble(load, allow_undefined, program)) FailAssembly(path, program->errors);
}

std::string Files_Code(const std::string &path, AsmProgram *program) {
  if (path.ends_with(".ms")) {
    Files_Assemble(path, true, program);
    return program->code;
  }
  std::string code = Files_Read(path, kMacroLimit);
  AsmSource source = {path.substr(0, path.rfind('.')) + ".ms", ""};
  if (!path.ends_with(".mo") || !Files_TryRead(source.name, kSourceLimit, &source.text))
    return code;
  program->sources.push_back(std::move(source));
  const auto load = [](const std::string &name, std::string *text) {
    return Files_TryRead(name, kSourceLimit, text);
  };
  if (!Asm_Assemble(load, true, program) || program->code != code) *program = {};
  return code;
}

std::string Files_Frame(const std::string &path, const char *suffix) {
  std::string text;
  if (!Files_TryRead(path.substr(0, path.rfind('.')) + suffix, kFrameFile, &text)) return "";
  text.resize(std::min(text.size(), kFrameMost));
  return text.substr(0, text.find('\0'));
}
