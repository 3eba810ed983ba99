#include "tests/core/running.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "debug/log.h"
#include "tests/support/log_capture.h"

// What a case does not look at shows nothing.
[[maybe_unused]] static const int quiet = Debug_Level = kOff;

Setting::Setting(const char *name, const std::string &value) : name_(name) {
  setenv(name, value.c_str(), 1);
}

Setting::~Setting() { unsetenv(name_); }

Ended RunToEnd(const std::vector<std::string> &argv, const Folder &folder) {
  Process process(argv, folder.Path());
  const int status = process.Wait();
  return {status, process.Output(), process.Log()};
}

Ended RunInChild(int level, const std::function<void()> &action) {
  int status = -1;
  const Output output = Capture(level, [&] {
    const pid_t pid = fork();
    if (pid == 0) {
      action();
      _exit(kReturned);
    }
    waitpid(pid, &status, 0);
  });
  return {status, output.out, output.log};
}

std::size_t Occurrences(const std::string &text, const std::string &part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

bool EndsWith(const std::string &text, const std::string &end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}
