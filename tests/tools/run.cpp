#include "tests/tools/run.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <iterator>

namespace {

std::function<void()> WithInput(const std::string &path, const std::function<void()> &prepare) {
  return [path, prepare] {
    dup2(open(path.c_str(), O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    for (const char *name : {"KORVO_HOST", "KORVO_PORT", "KORVO_GROUP", "KORVO_MACRO"})
      unsetenv(name);
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

void ExpectRefused(const Arguments &argv, int status, const std::string &line,
                   const std::function<void()> &prepare) {
  Tool tool(argv, prepare);
  EXPECT_EQ(status, tool.Status());
  EXPECT_EQ("", tool.Output());
  EXPECT_EQ(std::filesystem::path(argv[0]).filename().string() + ": " + line + "\n", tool.Errors());
}

void ExpectHelp(const std::string &tool, const std::string &text) {
  const Outcome outcome = RunTool({tool, "--help"});
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ(text, outcome.output);
  EXPECT_EQ("", outcome.errors);
}

void ExpectVersion(const std::string &tool) {
  const Outcome outcome = RunTool({tool, "--version"});
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ(std::filesystem::path(tool).filename().string() + " " + KORVO_VERSION + "\n",
            outcome.output);
  EXPECT_EQ("", outcome.errors);
}

void RefuseSocketCall(int number, int multiplexed) {
#ifdef SYS_socketcall
  constexpr unsigned kSocketCall = SYS_socketcall;
#else
  constexpr unsigned kSocketCall = ~0u;
#endif
  sock_filter code[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(number), 3, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kSocketCall, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)),  // the low half
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(multiplexed), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {std::size(code), code};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
    _exit(126);
}
