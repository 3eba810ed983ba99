#include "tools/ctl/run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// -1: there is no such program.
pid_t Start(const std::vector<std::string> &argv, const posix_spawn_file_actions_t *actions) {
  std::vector<char *> words;
  words.reserve(argv.size() + 1);
  for (const std::string &word : argv) words.push_back(const_cast<char *>(word.c_str()));
  words.push_back(nullptr);
  pid_t pid = -1;
  return posix_spawnp(&pid, words[0], actions, nullptr, words.data(), environ) == 0 ? pid : -1;
}

int Await(pid_t pid) {
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

}  // namespace

Running Run_Begin(const std::vector<std::string> &argv) {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) return {-1, -1};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  const pid_t pid = Start(argv, &actions);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  return {pid, ends[0]};
}

int Run_End(const Running &running) {
  if (running.output >= 0) close(running.output);
  return Await(running.pid);
}

bool Run_Output(const std::vector<std::string> &argv, std::string *output) {
  const Running running = Run_Begin(argv);
  char buffer[65536];
  for (ssize_t got; running.pid > 0 && (got = read(running.output, buffer, sizeof buffer)) > 0;)
    output->append(buffer, static_cast<std::size_t>(got));
  return Run_End(running) == 0;
}

int Run_Status(const std::vector<std::string> &argv) { return Await(Start(argv, nullptr)); }
