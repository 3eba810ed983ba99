#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "tests/tools/run.h"

namespace {

// Holds the real daemon against cases in a file.
Outcome Check(const Folder &folder, const std::string &cases, Arguments options = {}) {
  Arguments argv = {KORVO_WIRE, "check", "--cases", folder.Write("c.transcript", cases)};
  argv.insert(argv.end(), options.begin(), options.end());
  argv.insert(argv.end(), {"--patience", "2000", "daemon", Quoted(KORVO_COMMMGR)});
  return RunTool(argv);
}

constexpr const char *kPing = "case ping\nadmin > \"\\t@COMMAND=PING\\n\"\n";
constexpr const char *kPong = "admin < \"\\t@COMMAND=PONG\\t@SEQNUM=0\\n\"\n";
constexpr const char *kQuery =
    "file p.mo \"\\x00\"\n"
    "client > \"\\t@COMMAND=QUERY\\t@SEARCHGROUP=packages\\t@MACROFILE=\" dir \"/p\\tx\\n\"\n";

TEST(WireCheck, ACaseThatFits_Passes) {
  const Folder folder;
  const Outcome outcome = Check(folder, std::string(kPing) + kPong);
  EXPECT_EQ("1 cases: 1 passed, 0 failed, 0 left out\n", outcome.output);
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ("", outcome.errors);
}

// The tool runs in a folder of its own, beside that of the program.
TEST(WireCheck, APathOfTheProgramMayBeRelativeAndQuoted) {
  const Folder folder, programs;
  std::filesystem::create_directory(programs.Path() + "/a b");
  std::filesystem::create_symlink(KORVO_COMMMGR, programs.Path() + "/a b/daemon");
  const std::string path =
      ".." + programs.Path().substr(programs.Path().rfind('/')) + "/a b/daemon";
  for (const std::string quote : {"'", "\""})
    EXPECT_EQ("1 cases: 1 passed, 0 failed, 0 left out\n",
              RunTool({KORVO_WIRE, "check", "--cases",
                       folder.Write("c.transcript", std::string(kPing) + kPong), "--patience",
                       "2000", "daemon", quote + path + quote})
                  .output);
}

// So does whatever else stands in the command.
TEST(WireCheck, ACommandRunsWhereTheUserIs) {
  const Folder folder, programs;
  programs.Write("client", "echo \"$*\"\n");
  const std::string path = ".." + programs.Path().substr(programs.Path().rfind('/')) + "/client";
  Tool tool({KORVO_WIRE, "check", "--cases",
             folder.Write("c.transcript", "case a\nstart \"x\"\noutput \"x\\n\"\n"), "client",
             "sh " + path},
            [&] { setenv("TMPDIR", folder.Path().c_str(), 1); });
  EXPECT_EQ(0, tool.Status());
  EXPECT_EQ("1 cases: 1 passed, 0 failed, 0 left out\n", tool.Output());
}

// Neither a program nor a folder is left behind.
TEST(WireCheck, ASignal_EndsTheProgramsToo) {
  for (const int number : {SIGINT, SIGTERM}) {
    const Folder folder, temporary;
    const std::string started = folder.Path() + "/pid";
    Tool tool({KORVO_WIRE, "check", "--cases",
               folder.Write("c.transcript", "case a\nstart \"echo $$ >" + started +
                                                "; exec sleep 1000\"\nstatus 0\n"),
               "client", "sh -c"},
              [&] { setenv("TMPDIR", temporary.Path().c_str(), 1); });
    EXPECT_TRUE(Eventually([&] { return ReadFile(started).ends_with("\n"); }));
    const std::string program = std::to_string(std::stoi(ReadFile(started)));
    tool.Signal(number);
    tool.Wait();
    EXPECT_TRUE(Eventually([&] { return ReadFile("/proc/" + program + "/cmdline").empty(); }));
    EXPECT_TRUE(Eventually([&] { return std::filesystem::is_empty(temporary.Path()); }));
  }
}

TEST(WireCheck, AManagerThatIsAboutToStart_IsWaitedFor) {
  const Folder folder;
  const int port = ReservePort();
  Tool tool(
      {KORVO_WIRE, "check", "--cases",
       folder.Write("c.transcript",
                    "case a\ndaemon > \"\\t@COMMAND=GETDOC\\n\"\ndaemon < \"x\"\ndaemon < end\n"),
       "docmgr", std::to_string(port)});
  EXPECT_FALSE(Eventually([&] { return !tool.Output().empty(); }, 100));
  const Folder played;
  Tool manager(
      {KORVO_WIRE, "play", "--port", std::to_string(port),
       played.Write("p.transcript", "docmgr < record GETDOC\ndocmgr > \"x\"\ndocmgr closes\n")});
  EXPECT_EQ(0, tool.Status());
  EXPECT_EQ("1 cases: 1 passed, 0 failed, 0 left out\n", tool.Output());
  manager.Signal(SIGTERM);
  manager.Wait();
  ReleasePort(port);
}

// Whatever bytes a sentence or a command has, a parser takes the report.
TEST(WireCheck, Junit_IsXmlWhateverIsQuoted) {
  const Folder folder;
  const std::string file = folder.Write(
      "c.transcript", "case a\nsays protocol.md: \x01\xff \xc3\xa4.\nstart \"x\"\nstatus 3\n");
  const Outcome outcome =
      RunTool({KORVO_WIRE, "check", "--format", "junit", "--cases", file, "client", "true"});
  EXPECT_NE(std::string::npos, outcome.output.find(">protocol.md: \\x01\\xff \\xc3\\xa4.<"))
      << outcome.output;
}

TEST(WireCheck, ManagersOfACase_AreAnnounced) {
  const Folder folder;
  const Outcome outcome = Check(folder, std::string("case a\n") + kQuery +
                                            "searchmgr < record QUERY\n"
                                            "searchmgr > \"\\t@COMMAND=RAW\\tx\\n\"\n"
                                            "searchmgr closes\n"
                                            "docmgr-b is not called\n"
                                            "client < \"\\tx\\n\"\n"
                                            "client < end\n"
                                            "log has \"p.hdr\"\n");
  EXPECT_EQ("1 cases: 1 passed, 0 failed, 0 left out\n", outcome.output);
}

TEST(WireCheck, Reports_SayWhatWasExpectedAndWhatCame) {
  const Folder folder;
  const std::string cases = std::string(kPing) + "says protocol.md: A \"sentence\".\n" +
                            "admin < \"<&>\"\ncase two\nwait 0 ms\n";
  const std::string at = folder.Path() + "/c.transcript";
  const std::string why = at + ":4: expected \"<&>\"; came \"\\t@COMMAND=PONG\\t@SEQNUM=0\\n\"";
  EXPECT_EQ("failed: ping\n  " + why +
                "\n  protocol.md: A \"sentence\".\n2 cases: 1 passed, 1 failed, 0 left out\n",
            Check(folder, cases).output);
  EXPECT_EQ("TAP version 13\n1..2\nnot ok 1 - ping\n# " + why +
                "\n# protocol.md: A \"sentence\".\nok 2 - two\n",
            Check(folder, cases, {"--format", "tap"}).output);
  EXPECT_EQ(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<testsuite name=\"korvo-wire\" tests=\"2\" failures=\"1\" skipped=\"0\">\n"
      "<testcase classname=\"" +
          at + "\" name=\"ping\"><failure message=\"" + at +
          ":4: expected &quot;&lt;&amp;&gt;&quot;; came &quot;\\t@COMMAND=PONG\\t@SEQNUM=0\\n&quot;\">"
          "protocol.md: A &quot;sentence&quot;.</failure></testcase>\n"
          "<testcase classname=\"" +
          at + "\" name=\"two\"></testcase>\n</testsuite>\n",
      Check(folder, cases, {"--format", "junit"}).output);
  EXPECT_EQ("1 cases: 1 passed, 0 failed, 0 left out\n",
            Check(folder, cases, {"--case", "two", "--jobs", "1"}).output);
}

struct Failure {
  std::string steps;
  std::string why;
};

// Every case on its own, all at once; what failed of each, with 0 for a number of the clock.
void ExpectFailures(const std::vector<Failure> &failures, const std::string &role,
                    const std::string &program) {
  const Folder folder;
  std::string cases, expected;
  for (std::size_t i = 0; i < failures.size(); ++i)
    cases += "case c" + std::to_string(i) + "\n" + failures[i].steps;
  const std::string file = folder.Write("c.transcript", cases);
  const Outcome outcome = RunTool(
      {KORVO_WIRE, "check", "--cases", file, "--patience", "4000", "--jobs", "64", role, program});
  EXPECT_EQ(1, outcome.status);
  std::size_t at = 0;
  for (const Failure &failure : failures) {
    at = outcome.output.find(file + ":", at);
    ASSERT_NE(std::string::npos, at) << outcome.output;
    at = outcome.output.find(": ", at + file.size() + 1) + 2;
    std::string line = outcome.output.substr(at, outcome.output.find('\n', at) - at);
    const std::size_t took = line.find("it took ");
    if (took != std::string::npos) line.replace(took + 8, line.find(" ms", took) - took - 8, "0");
    const std::size_t log = line.find("log is ");
    if (log != std::string::npos) line.resize(log + 7);
    const std::size_t dir = line.find("/tmp/korvo-");
    if (dir != std::string::npos) line.replace(dir, 17, "DIR");
    EXPECT_EQ(failure.why, line) << failure.steps;
  }
}

TEST(WireCheck, Failures_SayWhy) {
  const std::string query = kQuery, ping = std::string(kPing).substr(10);
  ExpectFailures(
      {{"client > \" \"\nclient < \"x\"\n", "expected \"x\"; nothing came"},
       {"client > \"\\n\"\nclient < \"x\"\n", "expected \"x\"; nothing came and then the end"},
       {"client > \"\\n\"\nclient < nothing for 1500 ms\n",
        "expected nothing; nothing came and then the end"},
       {"client < end\n", "expected the end; nothing came"},
       {"client < reset\n", "expected the end or a reset; nothing came"},
       {query + "searchmgr < record QUERY\nsearchmgr < end\n", "expected the end; nothing came"},
       {"searchmgr < \"x\"\n", "expected \"x\"; nobody connected"},
       {"searchmgr > \"x\"\n", "nobody connected"},
       {query + "searchmgr < record QUERY\nsearchmgr is not called\n",
        "expected that nobody calls searchmgr; somebody did"},
       {"log has \"no such\"\n", "expected in the log \"no such\"; the log is "},
       {"log lacks \"Startup\"\n", "expected no line of the log with \"Startup\"; the log is "},
       {ping + "admin < \"\\t@COMMAND=PONG\\t@SEQNUM=0\\n\" not before 1500 ms\n",
        "expected it not before 1500 ms; it took 0 ms"},
       {"client > \"\\n\" times 9000 \"x\"\nclient < end\n",
        "expected the end; nothing came and then a reset"},
       {"file a/b \"x\"\nfile a \"x\"\n", "cannot write DIR/a"}},
      "daemon", Quoted(KORVO_COMMMGR));
}

TEST(WireCheck, FailuresOfAClient_SayWhy) {
  ExpectFailures(
      {{"start \"echo x\"\noutput \"y\"\n", "expected the output \"y\"; came \"x\\n\""},
       {"start \"echo x\"\noutput\n", "expected the output \"\"; came \"x\\n\""},
       {"start \"exit 3\"\nstatus 0\n", "expected the status 0; it was 3"},
       {"start \"kill $$\"\nstatus not 143\n", "expected another status than 143; it was 143"},
       {"start \"sleep 60\"\nstatus 0\n", "expected the end of the program; it goes on"},
       {"start \"echo $KORVO_HOST,$KORVO_GROUP,$KORVO_MACRO\"\noutput \"x\"\n",
        "expected the output \"x\"; came \"127.0.0.1,packages,package\\n\""}},
      "client", "sh -c");
}

TEST(WireCheck, ADaemonThatDoesNotAnswer_IsNamed) {
  ExpectFailures({{"wait 0 ms\n", "the program does not answer a PING; its log is "}}, "daemon",
                 "true");
}

TEST(WireCheck, AManagerThatIsGone_AndWhatNeedsMore) {
  const Folder folder;
  const std::string file =
      folder.Write("c.transcript", "case a\nadmin > \"x\"\ncase c\ndaemon > \"x\"\n");
  const Outcome text = RunTool({KORVO_WIRE, "check", "--cases", file, "--patience", "100", "docmgr",
                                std::to_string(ReservePort())});
  EXPECT_EQ("left out: a\n  " + file + ":1: it needs --admin PORT\n" + "failed: c\n  " + file +
                ":4: cannot connect: Connection refused\n" +
                "2 cases: 0 passed, 1 failed, 1 left out\n",
            text.output);
  EXPECT_EQ("TAP version 13\n1..1\nok 1 - a # SKIP it needs --admin PORT\n",
            RunTool({KORVO_WIRE, "check", "--format", "tap", "--case", "a", "--cases", file,
                     "--patience", "100", "docmgr", "1"})
                .output);
  EXPECT_EQ(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<testsuite name=\"korvo-wire\" tests=\"1\" failures=\"0\" skipped=\"1\">\n"
      "<testcase classname=\"" +
          file +
          "\" name=\"a\"><skipped message=\"it needs --admin PORT\"/></testcase>\n</testsuite>\n",
      RunTool({KORVO_WIRE, "check", "--format", "junit", "--case", "a", "--cases", file,
               "--patience", "100", "docmgr", "1"})
          .output);
}

// Nothing was held against the program, so nothing is said for it.
TEST(WireCheck, NoCaseThatWasHeld_IsNoSuccess) {
  const Folder folder;
  const std::string file = folder.Write("c.transcript", "case a\nadmin > \"x\"\n");
  const Outcome outcome = RunTool({KORVO_WIRE, "check", "--cases", file, "--patience", "100",
                                   "docmgr", std::to_string(ReservePort())});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("left out: a\n  " + file + ":1: it needs --admin PORT\n" +
                "1 cases: 0 passed, 0 failed, 1 left out\n",
            outcome.output);
}

// Whatever asks for a program that the kit has not started would never come true.
TEST(WireCheck, StepsOfAProgramThatIsNotStarted_AreRefused) {
  const Folder folder;
  for (const std::string step :
       {"status 0", "status not 0", "output \"x\"", "log has \"x\"", "log lacks \"x\""}) {
    const std::string file =
        folder.Write("c.transcript", "case a\nwait 0 ms\n" + step + "\nstart \"x\"\n");
    for (const char *role : {"client", "searchmgr", "docmgr"})
      ExpectRefused({KORVO_WIRE, "check", "--cases", file, role, "9"}, 65,
                    file + ":3: no program has been started");
  }
  const std::string file = folder.Write("c.transcript", "case a\nstart \"x\"\n");
  for (const char *role : {"searchmgr", "docmgr"})
    ExpectRefused({KORVO_WIRE, "check", "--cases", file, role, "9"}, 65,
                  file + ":2: a manager runs already, and nothing is started");
}

TEST(WireCheck, APlayedClient_IsStartedWithItsSettings) {
  const Folder folder;
  const std::string client = folder.Write(
      "client", "#!/bin/sh\necho \"$KORVO_HOST $KORVO_GROUP $KORVO_MACRO $*\"\nexit 3\n");
  const std::string cases =
      "case a\nstart \"x y\" \"z\"\noutput \"127.0.0.1 packages package x y z\\n\"\nstatus 3\nstatus not 0\n";
  const Outcome outcome = RunTool({KORVO_WIRE, "check", "--cases",
                                   folder.Write("c.transcript", cases), "client", "sh " + client});
  EXPECT_EQ("1 cases: 1 passed, 0 failed, 0 left out\n", outcome.output);
}

TEST(WireCheck, WrongUse_IsRefused) {
  const Folder folder;
  const std::string bad = folder.Write("bad.transcript", "client sings\n");
  const std::string good = folder.Write("good.transcript", "case a\nwait 0 ms\n");
  ExpectRefused({KORVO_WIRE, "check", "daemon"}, 64,
                "check takes daemon or client and a command, or searchmgr or docmgr and HOST:PORT");
  ExpectRefused({KORVO_WIRE, "check", "printer", "x"}, 64,
                "check takes daemon, searchmgr, docmgr or client, not 'printer'");
  ExpectRefused({KORVO_WIRE, "check", "--format", "pdf", "client", "x"}, 64,
                "--format takes text, tap or junit, not 'pdf'");
  ExpectRefused(
      {KORVO_WIRE, "check", "--cases", bad, "client", "x"}, 65,
      bad +
          ":1: behind an actor stands >, <, connects, closes, resets, half-closes, leaves or is not called, not 'sings'");
  ExpectRefused({KORVO_WIRE, "check", "--cases", good, "--case", "b", "client", "x"}, 66,
                "there is no case b in " + good);
  ExpectRefused({KORVO_WIRE, "check", "--cases", good, "--case", "a", "--case", "b", "client", "x"},
                66, "there is no case b in " + good);
  ExpectRefused({KORVO_WIRE, "check", "--cases", "/no/such", "client", "x"}, 66,
                "cannot read /no/such: No such file or directory");
  ExpectRefused({KORVO_WIRE, "check", "searchmgr", "127.0.0.1:99999"}, 64,
                "searchmgr takes a number from 1 to 32767, not '99999'");
  ExpectRefused({KORVO_WIRE, "check", "--admin", "x", "client", "x"}, 64,
                "--admin takes a number from 1 to 32767, not 'x'");
  ExpectRefused({KORVO_WIRE}, 64, "the first argument is a command; --help shows all");
}

}  // namespace
