// The daemon and the client of this tree, held against every case.
#include <gtest/gtest.h>

#include "tests/tools/run.h"

namespace {

void ExpectAllPass(const std::string &role, const std::string &program, int least) {
  const Outcome outcome = RunTool({KORVO_WIRE, "check", "--cases", KORVO_SOURCES "/conformance",
                                   "--jobs", "4", role, Quoted(program)});
  EXPECT_EQ(0, outcome.status) << outcome.output << outcome.errors;
  const int cases = std::atoi(outcome.output.c_str());
  EXPECT_GE(cases, least) << outcome.output;
  EXPECT_EQ(std::to_string(cases) + " cases: " + std::to_string(cases) +
                " passed, 0 failed, 0 left out\n",
            outcome.output);
}

TEST(Conformance, Daemon_PassesEveryCase) { ExpectAllPass("daemon", KORVO_COMMMGR, 150); }
TEST(Conformance, Client_PassesEveryCase) { ExpectAllPass("client", KORVO_QUERY, 30); }

}  // namespace
