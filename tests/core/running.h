// tests/core/running.h: programs and children that a case runs to their end.
#ifndef TESTS_CORE_RUNNING_H
#define TESTS_CORE_RUNNING_H

#include <functional>
#include <string>
#include <vector>

#include "tests/system/harness.h"

// The line that every start-up begins its log with.
inline constexpr const char *kLevelLine = "[DEBUG: SetLevel] Global Debug Level Set to 103\n";

// A variable of the environment, for as long as it lives, of the programs that are started.
class Setting {
 public:
  Setting(const char *name, const std::string &value);
  ~Setting();
  Setting(const Setting &) = delete;
  Setting &operator=(const Setting &) = delete;

 private:
  const char *name_;
};

struct Ended {
  int status;  // as waitpid gives it
  std::string output;
  std::string log;
};
Ended RunToEnd(const std::vector<std::string> &argv, const Folder &folder);

// Runs action in a child of its own at that level of the log.  A child whose action returns ends
// with status 99.
inline constexpr int kReturned = 99;
Ended RunInChild(int level, const std::function<void()> &action);

std::size_t Occurrences(const std::string &text, const std::string &part);
bool EndsWith(const std::string &text, const std::string &end);

#endif
