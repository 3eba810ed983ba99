// What main() does before the command line is looked at.
#include <gtest/gtest.h>
#include <sysexits.h>
#include <unistd.h>

#include "tests/core/running.h"

namespace {

struct Step {
  const char *failure;
  const char *line;
};
constexpr Step kSteps[] = {
    {"setpgid:1:13", "[MainCore: main] Can't setsid \n"},
    {"sysv_signal:1:22", "[MainCore: main] Can't redirect SIGINT\n"},
    {"sysv_signal:2:22", "[MainCore: main] Can't redirect SIGTERM\n"},
    {"sysv_signal:3:22", "[MainCore: main] Can't set to ignore SIGPIPE\n"},
    {"sysv_signal:4:22", "[MainCore: main] Can't redirect SIGUSR1\n"},
    {"sysv_signal:5:22", "[MainCore: main] Can't ignore SIGCHLD\n"},
};

Ended Start(const std::string &failures, const std::string &level) {
  const Folder folder;
  const Setting fail("KORVO_FAIL", failures), shown("KORVO_LEVEL", level);
  return RunToEnd({KORVO_COMMMGR}, folder);
}

TEST(ProcessSetUp, FailedStep_EndsWithItsLineAndStatus0BeforeTheBanner) {
  for (const Step &step : kSteps) {
    const Ended ended = Start(step.failure, "104");
    EXPECT_EQ(0, ended.status) << step.failure;
    EXPECT_EQ(step.line, ended.log);
    EXPECT_EQ("", ended.output);
  }
}

TEST(ProcessSetUp, FailedStep_IsNotLoggedAbove104) {
  for (const Step &step : kSteps) {
    const Ended ended = Start(step.failure, "105");
    EXPECT_EQ(0, ended.status) << step.failure;
    EXPECT_EQ("", ended.log);
    EXPECT_EQ("", ended.output);
  }
}

TEST(ProcessSetUp, EverythingFailing_TheGroupIsTheFirst) {
  const Ended ended = Start("setpgid:1:13 sysv_signal:1:22:99", "104");
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ("[MainCore: main] Can't setsid \n", ended.log);
}

TEST(ProcessSetUp, RefusedGroupOfAProcessThatLeadsNone_IsAFailure) {
  const Ended ended = Start("setpgid:1:1", "104");
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ("[MainCore: main] Can't setsid \n", ended.log);
}

// A log line would travel down the first connection.
TEST(ProcessSetUp, ClosedDescriptorWithoutANullDevice_EndsWithStatus72) {
  const Setting fail("KORVO_FAIL", "open:1:2");
  for (const int closed : {0, 1, 2}) {
    const Folder folder;
    Process process({KORVO_COMMMGR}, folder.Path(), [=] { close(closed); });
    EXPECT_EQ(EX_OSFILE, ExitStatus(process.Wait())) << closed;
    EXPECT_EQ("", process.Output() + process.Log());
  }
}

TEST(ProcessSetUp, TakesFiveDispositionsAndOneGroup) {
  const Setting fail("KORVO_FAIL", "setpgid:2:13 sysv_signal:6:22");
  Daemon daemon;
  daemon.Ping();
}

}  // namespace
