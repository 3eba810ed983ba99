#include "tools/wire/program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace {

constexpr int kLookEveryMs = 2;
constexpr int kLeaveMs = 2000;  // for a program that is asked to end

// What a signal that ends this process takes along.
volatile sig_atomic_t taken_group = 0;  // 0: none
char taken_folder[PATH_MAX];

constexpr int kEnding[] = {SIGINT, SIGTERM, SIGHUP};

// Becomes the program that removes the folder, which no second signal may end.
void TakeAlong(int) {
  for (const int number : kEnding) signal(number, SIG_IGN);
  if (taken_group > 0) kill(-taken_group, SIGKILL);
  execl("/bin/rm", "rm", "-rf", taken_folder, nullptr);
  _exit(1);
}

std::string OutputFile(const Program &program) { return program.folder + "/stdout"; }
std::string ErrorsFile(const Program &program) { return program.folder + "/stderr"; }

void TakeStatus(Program *program, int status) {
  program->ended = true;
  program->status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void OpenAs(int fd, const char *path, int flags) {
  const int file = open(path, flags, 0600);
  dup2(file, fd);
  if (file != fd) close(file);
}

[[noreturn]] void Become(const Program &program, const std::string &command,
                         const std::vector<std::string> &arguments,
                         const std::vector<std::string> &settings) {
  setpgid(0, 0);
  for (const int number : kEnding) signal(number, SIG_DFL);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  OpenAs(STDIN_FILENO, "/dev/null", O_RDONLY);
  OpenAs(STDOUT_FILENO, OutputFile(program).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND);
  OpenAs(STDERR_FILENO, ErrorsFile(program).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND);
  for (const std::string &setting : settings) putenv(const_cast<char *>(setting.c_str()));
  const std::string line = "exec " + command + " \"$@\"";
  std::vector<const char *> argv = {"sh", "-c", line.c_str(), "sh"};
  for (const std::string &argument : arguments) argv.push_back(argument.c_str());
  argv.push_back(nullptr);
  execv("/bin/sh", const_cast<char *const *>(argv.data()));
  _exit(127);
}

}  // namespace

std::string Program_MakeFolder() {
  const char *tmp = std::getenv("TMPDIR");
  std::string path = std::string(tmp != nullptr && tmp[0] == '/' ? tmp : "/tmp") + "/korvo-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) return {};
  std::snprintf(taken_folder, sizeof taken_folder, "%s", path.c_str());
  for (const int number : kEnding) signal(number, TakeAlong);
  return path;
}

void Program_RemoveFolder(const std::string &folder) {
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
}

bool Program_WriteFile(const std::string &path, const std::string &bytes) {
  std::FILE *file = std::fopen(path.c_str(), "we");
  if (file == nullptr) return false;
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  return std::fclose(file) == 0 && written;
}

std::string Program_ReadFile(const std::string &path) {
  std::FILE *file = std::fopen(path.c_str(), "re");
  std::string text;
  char buffer[65536];
  if (file == nullptr) return text;
  for (std::size_t got; (got = std::fread(buffer, 1, sizeof buffer, file)) > 0;)
    text.append(buffer, got);
  std::fclose(file);
  return text;
}

bool Program_Start(Program *program, const std::string &command,
                   const std::vector<std::string> &arguments,
                   const std::vector<std::string> &settings) {
  sigset_t ending, before;
  sigemptyset(&ending);
  for (const int number : kEnding) sigaddset(&ending, number);
  sigprocmask(SIG_BLOCK, &ending, &before);
  program->pid = fork();
  if (program->pid == 0) {
    sigprocmask(SIG_SETMASK, &before, nullptr);
    Become(*program, command, arguments, settings);
  }
  if (program->pid > 0) {
    setpgid(program->pid, program->pid);
    taken_group = program->pid;
  }
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return program->pid > 0;
}

std::string Program_Output(const Program &program) { return Program_ReadFile(OutputFile(program)); }
std::string Program_Errors(const Program &program) { return Program_ReadFile(ErrorsFile(program)); }

bool Program_Wait(Program *program, int wait_ms) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(wait_ms);
  while (!program->ended) {
    int status = 0;
    if (waitpid(program->pid, &status, WNOHANG) == program->pid) TakeStatus(program, status);
    if (program->ended || std::chrono::steady_clock::now() > end) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(kLookEveryMs));
  }
  return program->ended;
}

void Program_Stop(Program *program) {
  if (program->pid <= 0) return;
  kill(-program->pid, SIGTERM);
  Program_Wait(program, kLeaveMs);
  kill(-program->pid, SIGKILL);  // what does not end by itself, and what it has left
  Program_Wait(program, kLeaveMs);
  taken_group = 0;
}
