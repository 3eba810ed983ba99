// A daemon and a client with one fault each: the case that names the fault fails, and passes when
// nothing is broken.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>

#include "tests/tools/run.h"

namespace {

struct Fault {
  const char *role;
  const char *program;
  const char *fault;
  const char *which;
};

void PrintTo(const Fault &fault, std::ostream *out) { *out << fault.fault; }

class Broken : public ::testing::TestWithParam<Fault> {};

TEST_P(Broken, ProgramIsCaughtByTheCaseOfItsFault) {
  const Fault &fault = GetParam();
  for (const bool broken : {false, true}) {
    const std::string command = "python3 " + Quoted(KORVO_SOURCES "/tests/conformance/broken.py") +
                                " " + (broken ? fault.fault : "none") + " " + Quoted(fault.program);
    const Outcome outcome =
        RunTool({KORVO_WIRE, "check", "--cases", KORVO_SOURCES "/conformance", "--case",
                 fault.which, "--patience", broken ? "4000" : "10000", fault.role, command});
    EXPECT_EQ(broken ? 1 : 0, outcome.status) << fault.fault << ": " << outcome.output;
    EXPECT_EQ(broken, outcome.output.find(std::string("failed: ") + fault.which) == 0)
        << outcome.output;
    EXPECT_EQ(std::string::npos, outcome.output.find("does not answer a PING")) << outcome.output;
  }
}

constexpr Fault kFaults[] = {
    {"daemon", KORVO_COMMMGR, "no-tail", "tail-in-every-case"},
    {"daemon", KORVO_COMMMGR, "error-on-a-line", "document-that-cannot-be-fetched"},
    {"daemon", KORVO_COMMMGR, "spelling-mended", "hit-of-a-manager-that-nobody-knows"},
    {"daemon", KORVO_COMMMGR, "raw-without-its-tab", "raw-text-as-it-is"},
    {"daemon", KORVO_COMMMGR, "maxhits-not-applied", "relay-leaves-beyond-maxhits"},
    {"daemon", KORVO_COMMMGR, "words-in-any-case", "command-words-compared-exactly"},
    {"daemon", KORVO_COMMMGR, "first-of-two-counts", "last-of-two-counts"},
    {"daemon", KORVO_COMMMGR, "line-is-trimmed", "query-goes-on-byte-for-byte"},
    {"daemon", KORVO_COMMMGR, "ten-fields", "request-has-eleven-fields"},
    {"daemon", KORVO_COMMMGR, "search-goes-on-behind-an-error", "error-is-the-end"},
    {"daemon", KORVO_COMMMGR, "announcement-does-not-replace", "known-id-replaces"},
    {"daemon", KORVO_COMMMGR, "pong-without-its-number", "ping-is-answered"},
    {"client", KORVO_QUERY, "no-newline", "line-ends-in-a-newline"},
    {"client", KORVO_QUERY, "two-lines", "nothing-behind-the-line"},
    {"client", KORVO_QUERY, "ends-at-a-nul", "answer-of-any-bytes"},
    {"client", KORVO_QUERY, "errors-are-success", "lost-hit-inside-the-page"},
};

std::string NameOf(const ::testing::TestParamInfo<Fault> &info) {
  std::string name = info.param.fault;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Faults, Broken, ::testing::ValuesIn(kFaults), NameOf);

}  // namespace
