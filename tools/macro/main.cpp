// korvo-macro: assembles and disassembles page macros.
#include <fcntl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "debug/fd_guard.h"
#include "tools/common/tool.h"
#include "tools/macro/asm.h"

namespace {

constexpr const char *kHelp =
    "usage: korvo-macro asm [OPTION]... FILE.ms  assemble into FILE.mo\n"
    "       korvo-macro dis FILE.mo              disassemble to standard output\n"
    "\n"
    "  -o, --output OUTPUT  assemble into OUTPUT\n"
    "  --allow-undefined    take op-codes that do not exist; a run repeats one for ever\n"
    "  --help               this text\n"
    "  --version            name and version\n"
    "\n"
    "\"-\" stands for standard input or output.\n"
    "Status: 0; 64 wrong use; 65 the text has a fault; 66 the input cannot be read; 73 the\n"
    "output, or 74 standard output, cannot be written.\n";

constexpr option kOptions[] = {{"allow-undefined", no_argument, nullptr, 'u'},
                               {"help", no_argument, nullptr, 'h'},
                               {"output", required_argument, nullptr, 'o'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

struct Command {
  std::string word;
  std::string input;
  std::string output;  // empty: named after the input
  bool allow_undefined = false;
};

bool IsStandard(const std::string &path) { return path == "-"; }

std::string ReadInput(const std::string &path, std::size_t limit) {
  const FdGuard file(IsStandard(path) ? dup(STDIN_FILENO)
                                      : open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.Get() < 0)
    Tool_Fail(EX_NOINPUT, "cannot open %s: %s", path.c_str(), std::strerror(errno));
  std::string text;
  char buffer[65536];
  while (text.size() <= limit) {
    const ssize_t got = read(file.Get(), buffer, sizeof buffer);
    if (got == 0) return text;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) Tool_Fail(EX_NOINPUT, "cannot read %s: %s", path.c_str(), std::strerror(errno));
    text.append(buffer, static_cast<std::size_t>(got));
  }
  Tool_Fail(EX_DATAERR, "%s is larger than %zu bytes, the most that is read", path.c_str(), limit);
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

void WriteOutput(const std::string &path, const std::string &bytes) {
  struct stat status;
  if (IsStandard(path)) return Tool_Print(bytes);
  if (lstat(path.c_str(), &status) != 0) return Replace(path, bytes, ModeOfNewFile());
  if (S_ISREG(status.st_mode)) return Replace(path, bytes, status.st_mode & 07777);
  if (S_ISLNK(status.st_mode) && stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode))
    return Replace(TargetOf(path), bytes, status.st_mode & 07777);  // the link stays
  WriteInPlace(path, bytes);  // a device, or a link to what is not there yet
}

std::string OutputName(const Command &command) {
  const std::string &input = command.input;
  if (!command.output.empty() || IsStandard(input))
    return command.output.empty() ? "-" : command.output;
  if (!input.ends_with(".ms"))
    Tool_Fail(EX_USAGE, "%s does not end in .ms; name the output with -o", input.c_str());
  return input.substr(0, input.size() - 2) + "mo";
}

[[noreturn]] void FailAssembly(const std::string &input, const AsmErrors &errors) {
  const char *name = IsStandard(input) ? "standard input" : input.c_str();
  for (const AsmError &error : errors.first)
    Tool_Line("%s:%d: %s", name, error.line, error.text.c_str());
  if (errors.more == 1) Tool_Line("%s: 1 more fault", name);
  if (errors.more > 1) Tool_Line("%s: %zu more faults", name, errors.more);
  std::exit(EX_DATAERR);
}

void Assemble(const Command &command) {
  const std::string output = OutputName(command);
  std::string code;
  AsmErrors errors;
  const std::string source = ReadInput(command.input, kSourceLimit);
  if (!Asm_Assemble(source, command.allow_undefined, &code, &errors))
    FailAssembly(command.input, errors);
  WriteOutput(output, code);
}

void Disassemble(const Command &command) {
  if (!command.output.empty())
    Tool_Fail(EX_USAGE, "-o belongs to asm; dis writes to standard output");
  if (command.allow_undefined)
    Tool_Fail(EX_USAGE, "--allow-undefined belongs to asm; dis shows any op-code");
  Tool_Print(Asm_Disassemble(ReadInput(command.input, kMacroLimit)));
}

void TakeOption(Command *command, int letter) {
  Tool_TakeInfoOption(letter, kHelp);
  if (letter == 'u') {
    command->allow_undefined = true;
    return;
  }
  command->output = optarg;
  if (command->output.empty())
    Tool_Fail(EX_USAGE, "-o takes the name of a file, not an empty text");
}

Command ReadCommand(int argc, char **argv) {
  Command command;
  for (int letter; (letter = Tool_NextOption(argc, argv, ":o:", kOptions)) != -1;)
    TakeOption(&command, letter);
  if (argc - optind != 2)
    Tool_Fail(EX_USAGE, "takes a command and one file: asm FILE.ms, or dis FILE.mo");
  command.word = argv[optind];
  command.input = argv[optind + 1];
  return command;
}

}  // namespace

int main(int argc, char **argv) {
  Tool_Start();
  const Command command = ReadCommand(argc, argv);
  if (command.word == "asm")
    Assemble(command);
  else if (command.word == "dis")
    Disassemble(command);
  else
    Tool_Fail(EX_USAGE, "there is no command %s; asm and dis are all", command.word.c_str());
}
