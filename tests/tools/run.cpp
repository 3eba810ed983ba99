#include "tests/tools/run.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

namespace {

std::function<void()> WithInput(const std::string &path, const std::function<void()> &prepare) {
  return [path, prepare] {
    dup2(open(path.c_str(), O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    if (prepare) prepare();
  };
}

}  // namespace

Tool::Tool(const Arguments &argv, const std::function<void()> &prepare, const std::string &input)
    : process_(argv, folder_.Path(), WithInput(folder_.Write("stdin", input), prepare)) {}

Outcome RunTool(const Arguments &argv, const std::string &input) {
  Tool tool(argv, {}, input);
  const int status = tool.Status();
  return {status, tool.Output(), tool.Errors()};
}

void ExpectRefused(const Arguments &argv, int status, const std::string &line) {
  const Outcome outcome = RunTool(argv);
  EXPECT_EQ(status, outcome.status);
  EXPECT_EQ("", outcome.output);
  EXPECT_EQ(std::filesystem::path(argv[0]).filename().string() + ": " + line + "\n",
            outcome.errors);
}
