// tests/tools/run.h: a tool as a user runs it.
#ifndef TESTS_TOOLS_RUN_H
#define TESTS_TOOLS_RUN_H

#include <functional>
#include <string>
#include <vector>

#include "tests/system/harness.h"

using Arguments = std::vector<std::string>;

// A tool that runs in a folder of its own, without the settings that the environment of the tests
// may hold for it.  input is its standard input.
class Tool {
 public:
  explicit Tool(const Arguments &argv, const std::function<void()> &prepare = {},
                const std::string &input = "");

  int Wait() { return process_.Wait(); }  // as waitpid
  void Signal(int number) const { process_.Signal(number); }
  int Status() { return ExitStatus(process_.Wait()); }
  std::string Output() const { return process_.Output(); }
  std::string Errors() const { return process_.RawLog(); }

 private:
  Folder folder_;
  Process process_;
};

// What it left behind when it ended.
struct Outcome {
  int status;
  std::string output;
  std::string errors;
};

Outcome RunTool(const Arguments &argv, const std::string &input = "");

// Fails the test unless the tool ends with the status and one line on standard error, the name of
// the tool in front, and nothing on standard output.
void ExpectRefused(const Arguments &argv, int status, const std::string &line,
                   const std::function<void()> &prepare = {});

// Fails the test unless --help prints that text, the status is 0 and nothing is on standard error.
void ExpectHelp(const std::string &tool, const std::string &text);

// Fails the test unless --version prints the name of the tool and the version of the project alone.
void ExpectVersion(const std::string &tool);

// Before a tool starts: the socket call of that number fails with EACCES in it, also when the C
// library makes it through socketcall(2), where it has a number of its own (linux/net.h).
void RefuseSocketCall(int number, int multiplexed);

// A word of a command line, whatever blanks are in it.
inline std::string Quoted(const std::string &word) { return "'" + word + "'"; }

#endif
