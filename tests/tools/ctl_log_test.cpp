#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "tests/tools/ctl.h"

namespace {

const std::string kLine = std::string(63, '-') + "\n";

std::string Entry(int pid, const std::string &body) {
  return kLine + "PID: " + std::to_string(pid) + ", TIME: Sun Nov 22 01:02:03 2026\n" + body;
}

const std::string kFull = Entry(11, "[CommMgr: ClientCmd] Unable to open Macro /x\n");
const std::string kRead =
    Entry(12, "[Init: ReadConf] Error reading 'a: b': Incomplete line [7].\n");
const std::string kSent =
    Entry(11, "[Init: Announce] Sending 100% to a, b\n[Init: Announce] more\n");
const std::string kOdd = Entry(13, "no brackets 12 and 345\n");

constexpr const char *kMessages =
    "# a comment\n"
    "CommMgr: ClientCmd\t103\tUnable to open %s %s\tNot this one.\tNo.\tNo.\n"
    "CommMgr: ClientCmd\t103\tUnable to open Macro %s\tThe macro is gone.\tNo answer.\tPut it "
    "back.\n"
    "Init: ReadConf\t103\tError reading '%s': Incomplete line [%02d].\tLow.\tLow.\tLow.\n"
    "Init: ReadConf\t104\tError reading '%s': Incomplete line [%02d].\tA word is missing.\tIt ends."
    "\tAdd it.\n"
    "Init: Announce\t101\tSending %d%% to %s, %s\tA start.\tNone.\tNone.\n"
    "too\tshort\n"
    "-\t102\tno brackets\\n%d\tTwo lines.\tNone.\tNone.\n";

class CtlLog : public testing::Test {
 protected:
  const Folder folder;
  const std::string messages = folder.Write("messages", kMessages);
  const std::string path = folder.Write("log", "before\n" + kFull + kRead + kSent + kOdd);

  Outcome Log(const Arguments &words) const {
    Arguments argv = {KORVOCTL, "log", "--messages", messages};
    argv.insert(argv.end(), words.begin(), words.end());
    return RunTool(argv, kOdd);
  }
};

TEST_F(CtlLog, IsShownAsItIs) {
  const Outcome all = Log({path});
  EXPECT_EQ("before\n" + kFull + kRead + kSent + kOdd, all.output);
  EXPECT_EQ("", all.errors);
  EXPECT_EQ(0, all.status);
  EXPECT_EQ(kOdd, Log({}).output);
  EXPECT_EQ("cut", Log({folder.Write("cut", "cut")}).output);
}

TEST_F(CtlLog, Filters_KeepWholeMessages) {
  EXPECT_EQ(kFull + kSent, Log({path, "--pid", "11"}).output);
  EXPECT_EQ(kRead + kSent, Log({path, "--module", "Init"}).output);
  EXPECT_EQ(kSent, Log({path, "--module", "Init: Announce"}).output);
  EXPECT_EQ("", Log({path, "--module", "Ini"}).output);
  EXPECT_EQ(kFull + kSent,
            Log({path, "--pid", "11", "--level", "101", "--module", "CommMgr"}).output + kSent);
  // What is not known may matter.
  EXPECT_EQ("before\n" + kRead + kOdd, Log({path, "--level", "104"}).output);
  // As the level command has them.
  const std::pair<const char *, const char *> names[] = {
      {"INFO", "101"}, {"STATUS", "102"}, {"WARNING", "103"}, {"FATAL", "104"}};
  for (const auto &[name, number] : names)
    EXPECT_EQ(Log({path, "--level", number}).output, Log({path, "--level", name}).output) << name;
  EXPECT_NE(Log({path, "--level", "INFO"}).output, Log({path, "--level", "FATAL"}).output);
}

TEST_F(CtlLog, Explain_SaysCauseEffectAndRemedy) {
  EXPECT_EQ("before\n  this text is not known\n" + kFull +
                "  cause: The macro is gone.\n  effect: No answer.\n  remedy: Put it back.\n" +
                kRead + "  when it comes at level 104\n" +
                "  cause: A word is missing.\n  effect: It ends.\n  remedy: Add it.\n" +
                "  when it comes at level 103\n  cause: Low.\n  effect: Low.\n  remedy: Low.\n" +
                kSent + "  cause: A start.\n  effect: None.\n  remedy: None.\n" + kOdd +
                "  this text is not known\n",
            Log({path, "--explain"}).output);
  const std::string two = Entry(1, "no brackets\n17\n");
  EXPECT_EQ(two + "  cause: Two lines.\n  effect: None.\n  remedy: None.\n",
            Log({folder.Write("two", two), "--explain"}).output);
}

TEST_F(CtlLog, Count_IsByKind) {
  const std::string other = Entry(14, "no brackets 7 and 8\n");
  const std::string many = folder.Write("many", kOdd + kFull + other + kOdd);
  EXPECT_EQ(
      "      3  no brackets N and N\n"
      "      1  [CommMgr: ClientCmd] Unable to open Macro %s\n",
      Log({many, "--count"}).output);
  EXPECT_EQ(
      "      1  [CommMgr: ClientCmd] Unable to open Macro %s\n"
      "  cause: The macro is gone.\n  effect: No answer.\n  remedy: Put it back.\n",
      Log({many, "--count", "--explain", "--pid", "11"}).output);
}

TEST_F(CtlLog, Count_IsJson) {
  const std::string many = folder.Write("many", kOdd + kFull + kOdd);
  EXPECT_EQ(
      R"([{"count": 2, "level": null, "module": "-", "text": "no brackets N and N"},
 {"count": 1, "level": 103, "module": "CommMgr: ClientCmd", "text": "Unable to open Macro %s", "cause": "The macro is gone.", "effect": "No answer.", "remedy": "Put it back."}]
)",
      Log({many, "--count", "--json"}).output);
  EXPECT_EQ("[]\n", Log({folder.Write("nothing", ""), "--count", "--json"}).output);
}

// That of korvo-web has a line a request.
TEST_F(CtlLog, LinesWithoutAHeader_AreMessages) {
  const std::string lines = folder.Write("lines", "{\"status\": 200}\n{\"status\": 404}\nother\n");
  EXPECT_EQ("      2  {\"status\": N}\n      1  other\n", Log({lines, "--count"}).output);
  Tool tool({KORVOCTL, "log", lines, "--follow"});
  EXPECT_TRUE(Eventually([&] {
    return tool.Output() == "{\"status\": 200}\n{\"status\": 404}\nother\n";
  })) << tool.Output();
  tool.Signal(SIGTERM);
  tool.Wait();
  ExpectRefused({KORVOCTL, "log", lines, "--count", "--follow"}, 64,
                "--count needs the end of a log, and --follow never comes to one");
}

TEST_F(CtlLog, Follow_GoesOnWithWhatComes) {
  const std::string live = folder.Write("live", kFull);
  Tool tool({KORVOCTL, "log", live, "--follow", "--messages", messages});
  const auto shows = [&](const std::string &text) {
    return Eventually([&] { return tool.Output() == text; });
  };
  EXPECT_TRUE(shows(kFull)) << tool.Output();
  std::ofstream(live, std::ios::app) << kRead << std::flush;
  EXPECT_TRUE(shows(kFull + kRead)) << tool.Output();
  // Moved away and made anew.
  EXPECT_EQ(0, rename(live.c_str(), (live + ".1").c_str()));
  folder.Write("live", kSent);
  EXPECT_TRUE(shows(kFull + kRead + kSent)) << tool.Output();
  folder.Write("live", kOdd);  // emptied, and written again
  EXPECT_TRUE(shows(kFull + kRead + kSent + kOdd)) << tool.Output();
  tool.Signal(SIGTERM);
  tool.Wait();
}

TEST_F(CtlLog, WhatCannotBeRead_IsRefused) {
  ExpectRefused({KORVOCTL, "log", "/none"}, 66, "cannot read /none: No such file or directory");
  ExpectRefused({KORVOCTL, "log", "/"}, 66, "cannot read /: Is a directory");
  ExpectRefused({KORVOCTL, "log"}, 66, "cannot read standard input: Bad file descriptor",
                [] { close(0); });
  ExpectRefused({KORVOCTL, "log", path, "--explain", "--messages", "/none"}, 66,
                "cannot read /none: No such file or directory; --messages names another");
  if (!std::ifstream("/usr/local/korvo/share/korvo/messages"))
    ExpectRefused({KORVOCTL, "log", path, "--explain"}, 66,
                  "cannot read /usr/local/korvo/share/korvo/messages: No such file or directory; "
                  "--messages names another");
  ExpectRefused({KORVOCTL, "log", path, path}, 64, "log takes nothing more; leave out " + path);
  ExpectRefused({KORVOCTL, "log", "--level", "7"}, 64,
                "--level takes INFO, STATUS, WARNING, FATAL or 101 to 105, not '7'");
  ExpectRefused({KORVOCTL, "log", "--level", "warning"}, 64,
                "--level takes INFO, STATUS, WARNING, FATAL or 101 to 105, not 'warning'");
  ExpectRefused({KORVOCTL, "log", path, "--json"}, 64,
                "--json is for --count alone: a log is text");
  ExpectRefused({KORVOCTL, "log", "--pid", "x"}, 64,
                "--pid takes a number from 1 to 2147483647, not 'x'");
}

// Where its standard error is a file, that is the log.
TEST(CtlLogOf, Id_IsTheFileOfTheProgram) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  site.Line("two", 'S', "web1");
  const int documents = site.Line("two", 'D', "web1");
  site.Start(web);
  EXPECT_EQ(site.Program(web).RawLog(), site.Run({"log", "web1"}).output);
  EXPECT_NE("", site.Run({"log", "web1"}).output);
  Tool follow(site.Ctl({"log", "web1:C", "--follow"}));
  EXPECT_TRUE(Eventually([&] { return follow.Output() == site.Program(web).RawLog(); }));
  const std::string before = site.Program(web).RawLog();
  EXPECT_EQ(0, site.Run({"level", "web1", "INFO"}).status);
  EXPECT_EQ(0, site.Run({"ping", "web1"}).status);
  EXPECT_TRUE(Eventually([&] {
    return follow.Output() != before && follow.Output() == site.Program(web).RawLog();
  })) << follow.Output();
  follow.Signal(SIGTERM);
  follow.Wait();
  ExpectRefused(site.Ctl({"log", "two"}), 64, "two names 2 programs; take one, such as two:S");
  ExpectRefused(
      site.Ctl({"log", "two:D"}), 66,
      "cannot find the log of " + site.Place(documents) +
          ": this user sees no file at its standard error, and no unit of systemd runs it "
          "here");
  // A file comes first.
  ExpectRefused(site.Ctl({"log", "none"}), 66, "cannot read none: No such file or directory");
}

// Every text that the programs write is found by what they write.
TEST(CtlMessages, RealLog_IsExplained) {
  const std::string file = KORVO_SOURCES "/share/korvo/messages";
  if (!std::ifstream(file)) GTEST_SKIP() << "there is no " << file;
  Site site;
  const int web = site.Line("web1", 'C', "-");
  site.Start(web);
  const Folder folder;
  const std::string log = folder.Write("log", site.Program(web).RawLog());
  const Outcome outcome = RunTool({KORVOCTL, "log", log, "--explain", "--messages", file});
  EXPECT_EQ(std::string::npos, outcome.output.find("this text is not known")) << outcome.output;
}

}  // namespace
