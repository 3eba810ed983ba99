#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>

#include "tests/tools/ctl.h"

namespace {

// Each number behind one of these texts is a mark: they differ from run to run.
std::string WithMarks(std::string text, const Arguments &texts) {
  for (const std::string &before : texts)
    for (std::size_t at = 0; (at = text.find(before, at)) != std::string::npos;) {
      at += before.size();
      const std::size_t end = text.find_first_not_of("0123456789.", at);
      if (end != std::string::npos && end > at) text.replace(at, end - at, "<n>");
    }
  return text;
}

// A daemon with a connection in hand.
struct Busy {
  Site site;
  int web = site.Line("web1", 'C', "-");
  Socket client;

  Busy() {
    site.Start(web);
    client = ConnectTo(site.ClientPort(web));
    EXPECT_TRUE(Eventually([&] {
      return site.Run({"status", "web1"}).output.find("connections: 1 in hand") !=
             std::string::npos;
    }));
  }
};

TEST(CtlProcess, Status_CountsWhatTheProgramHasInHand) {
  Busy busy;
  const Outcome plain = busy.site.Run({"status", "web1"});
  EXPECT_EQ(busy.site.Place(busy.web) + ": PONG in <n> ms\n" +
                "  connections: 1 in hand, 0 not accepted yet\n" + "  process " +
                std::to_string(busy.site.Program(busy.web).Pid()) +
                ", korvo-commmgr 1.0.0: up <n> s, 2 in its group, <n> KiB resident\n",
            WithMarks(plain.output, {"PONG in ", "up ", "group, "}));
  EXPECT_EQ(0, plain.status);
  EXPECT_EQ(
      "[{\"id\": \"web1\", \"type\": \"C\", \"answer\": \"PONG\", \"ms\": <n>, "
      "\"connections\": 1, \"waiting\": 0, \"pid\": <n>, \"uptime\": <n>, \"processes\": 2, "
      "\"memory\": <n>, \"program\": \"korvo-commmgr\", \"version\": \"1.0.0\", \"replaced\": "
      "false, \"told\": [], \"findings\": [], \"log\": []}]\n",
      WithMarks(busy.site.Run({"status", "web1", "--json"}).output,
                {"\"ms\": ", "\"pid\": ", "\"uptime\": ", "\"memory\": "}));
  busy.client.Close();
  EXPECT_TRUE(Eventually([&] {
    return busy.site.Run({"status", "web1"})
               .output.find("  connections: 0 in hand, 0 not accepted yet\n") != std::string::npos;
  }));
}

TEST(CtlProcess, Status_IsForMonitors) {
  Busy busy;
  const int search = busy.site.Line("web1", 'S', "web1");
  const Outcome critical = busy.site.Run({"status", "web1", "--nagios"});
  EXPECT_EQ(
      "KORVO CRITICAL - web1:C PONG in <n> ms, web1:S Connection refused | 'web1:C "
      "time'=<n>s 'web1:C connections'=1\n",
      WithMarks(critical.output, {"PONG in ", "time'="}));
  EXPECT_EQ(2, critical.status);
  const Outcome ok = busy.site.Run({"status", "web1:C", "--nagios"});
  EXPECT_EQ("KORVO OK - web1:C PONG in <n> ms | 'web1:C time'=<n>s 'web1:C connections'=1\n",
            WithMarks(ok.output, {"PONG in ", "time'="}));
  EXPECT_EQ(0, ok.status);
  const Outcome figures = busy.site.Run({"status", "web1", "--prometheus"});
  EXPECT_EQ(
      "# TYPE korvo_up gauge\n"
      "korvo_up{id=\"web1\",type=\"C\"} 1\n"
      "korvo_up{id=\"web1\",type=\"S\"} 0\n"
      "# TYPE korvo_ping_seconds gauge\n"
      "korvo_ping_seconds{id=\"web1\",type=\"C\"} <n>\n"
      "# TYPE korvo_connections gauge\n"
      "korvo_connections{id=\"web1\",type=\"C\"} 1\n"
      "# TYPE korvo_processes gauge\n"
      "korvo_processes{id=\"web1\",type=\"C\"} 2\n"
      "# TYPE korvo_memory_bytes gauge\n"
      "korvo_memory_bytes{id=\"web1\",type=\"C\"} <n>\n"
      "# TYPE korvo_uptime_seconds gauge\n"
      "korvo_uptime_seconds{id=\"web1\",type=\"C\"} <n>\n",
      WithMarks(figures.output, {"korvo_ping_seconds{id=\"web1\",type=\"C\"} ",
                                 "korvo_memory_bytes{id=\"web1\",type=\"C\"} ",
                                 "korvo_uptime_seconds{id=\"web1\",type=\"C\"} "}));
  EXPECT_EQ(0, figures.status);
  const Outcome refused = busy.site.Run({"status", "web1:S"});
  EXPECT_EQ(busy.site.Place(search) + ": Connection refused\n  check: " + busy.site.Path() +
                "/korvo.db:1: no line has the id of web1:S, which has no database then; add ID "
                "DBNAME SEARCHLOC DOCLOC\n",
            refused.output);
  EXPECT_EQ(69, refused.status);
}

// Programs of that name are found before the system's own.
struct Instead {
  Folder folder;

  void Add(const std::string &name, const std::string &script) const {
    folder.Write(name, "#!/bin/sh\n" + script);
    std::filesystem::permissions(folder.Path() + "/" + name, std::filesystem::perms(0755));
  }
  std::function<void()> Prepare() const {
    return [this] { setenv("PATH", (folder.Path() + ":/usr/bin:/bin").c_str(), 1); };
  }
};

constexpr const char *kMessages =
    "Init: DisplayCfg\t104\tID         = %s\tc\te\tNone.\n"
    "Init: DisplayDB\t104\tDatabase Info\tc\te\tNone.\n"
    "Init: ReadConf\t104\tUnable to open '%s': errno = %d\tc\te\tPut it there.\n"
    "MainCore: Loop\t102\tA client went\tc\te\tr\n";

std::string LogEntry(const std::string &body) {
  return std::string(63, '-') + "\nPID: 5, TIME: Sun Nov 22 01:02:03 2026\n" + body + "\n";
}

TEST(CtlProcess, Status_OfOneThatIsDownSaysWhatIsKnown) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const Instead instead;
  const std::string log = instead.folder.Write(
      "log", LogEntry("[Init: ReadConf] Unable to open 'a': errno = 1") +
                 LogEntry("[Init: ReadConf] Unable to open 'b': errno = 2") +
                 LogEntry("[Init: ReadConf] Unable to open 'c': errno = 3") +
                 LogEntry("[MainCore: Loop] A client went") +
                 LogEntry("[Init: DisplayCfg] ID         = web1") +
                 LogEntry("[Init: DisplayDB] Database Info") + LogEntry("[Other: Text] any") +
                 LogEntry("[Init: ReadConf] Unable to open 'd': errno = 4"));
  instead.Add(
      "systemctl",
      "[ \"$*\" = 'show "
      "--property=LoadState,ActiveState,SubState,Result,NRestarts "
      "korvo-commmgr@web1.service' ] && printf "
      "'Result=exit-code\\nNRestarts=5\\n'; echo LoadState=loaded; printf 'ActiveState=failed\\n'\n");
  instead.Add(
      "journalctl",
      "[ \"$*\" = '--quiet --output=cat --lines=2000 --unit=korvo-commmgr@web1.service' ] && "
      "cat " +
          log + "\n");
  const std::string messages = instead.folder.Write("messages", kMessages);
  Tool status(site.Ctl({"status", "web1", "--messages", messages}), instead.Prepare());
  EXPECT_EQ(69, status.Status());
  EXPECT_EQ(site.Place(web) +
                ": Connection refused\n"
                "  unit korvo-commmgr@web1.service: Result=exit-code NRestarts=5 "
                "ActiveState=failed\n"
                "  log, Sun Nov 22 01:02:03 2026: [Init: ReadConf] Unable to open 'b': errno = 2\n"
                "    remedy: Put it there.\n"
                "  log, Sun Nov 22 01:02:03 2026: [Init: ReadConf] Unable to open 'c': errno = 3\n"
                "    remedy: Put it there.\n"
                "  log, Sun Nov 22 01:02:03 2026: [Init: ReadConf] Unable to open 'd': errno = 4\n"
                "    remedy: Put it there.\n",
            status.Output());
  Tool json(site.Ctl({"status", "web1", "--json", "--messages", messages}), instead.Prepare());
  EXPECT_EQ(69, json.Status());
  EXPECT_EQ(
      "[{\"id\": \"web1\", \"type\": \"C\", \"answer\": \"Connection refused\", \"ms\": null, "
      "\"unit\": \"korvo-commmgr@web1.service\", \"unitstate\": \"Result=exit-code NRestarts=5 "
      "ActiveState=failed\", \"told\": [], \"findings\": [], \"log\": [{\"time\": \"Sun Nov 22 "
      "01:02:03 2026\", \"text\": \"[Init: ReadConf] Unable to open 'b': errno = 2\", \"remedy\": "
      "\"Put it there.\"}, {\"time\": \"Sun Nov 22 01:02:03 2026\", \"text\": \"[Init: ReadConf] "
      "Unable to open 'c': errno = 3\", \"remedy\": \"Put it there.\"}, {\"time\": \"Sun Nov 22 "
      "01:02:03 2026\", \"text\": \"[Init: ReadConf] Unable to open 'd': errno = 4\", "
      "\"remedy\": \"Put it there.\"}]}]\n",
      json.Output());
}

// One that comes again and again stands for itself once; what clients made of it moves no cursor.
TEST(CtlProcess, Status_ShowsEachMessageOnce) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const Instead instead;
  std::string log = LogEntry("[Init: ReadConf] Unable to open 'a': errno = 1");
  for (int i = 0; i < 5; ++i)
    log += LogEntry("[Init: ReadConf] Unable to open '\x1b[2J': errno = 2");
  instead.Add("systemctl", "echo LoadState=loaded; echo ActiveState=failed\n");
  instead.Add("journalctl", "cat " + instead.folder.Write("log", log) + "\n");
  Tool status(
      site.Ctl({"status", "web1", "--messages", instead.folder.Write("messages", kMessages)}),
      instead.Prepare());
  EXPECT_EQ(69, status.Status());
  EXPECT_EQ(
      site.Place(web) +
          ": Connection refused\n"
          "  unit korvo-commmgr@web1.service: ActiveState=failed\n"
          "  log, Sun Nov 22 01:02:03 2026: [Init: ReadConf] Unable to open 'a': errno = 1\n"
          "    remedy: Put it there.\n"
          "  log, Sun Nov 22 01:02:03 2026: [Init: ReadConf] Unable to open '?[2J': errno = 2\n"
          "    remedy: Put it there.\n",
      status.Output());
}

// What announce asks for is no trouble of the daemon; a remedy that begins with None may go on.
TEST(CtlProcess, Status_LeavesOutWhatItHasBroughtAbout) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const int one = site.Line("one", 'S', "web1");
  site.Start(web);
  site.Start(one);
  const Folder state;
  EXPECT_EQ(0, site.Run({"announce", "web1", "--state", state.Path()}).status);
  const Instead instead;
  const std::string group = "[CommMgr: ClientCmd] Unable to locate SearchGroup ";
  const std::string log =
      LogEntry(group + "'' amongst my flock") + LogEntry(group + "'one' amongst my flock") +
      LogEntry(group + "'two' amongst my flock") + LogEntry(group + "' amongst my flock") +
      LogEntry("[MainCore: Shutdown] It ends") + LogEntry("[Quiet: One] Hush");
  const std::string messages = instead.folder.Write(
      "messages",
      "CommMgr: ClientCmd\t103\tUnable to locate SearchGroup '%s' amongst my flock\tc\te\tStart "
      "it.\n"
      "CommMgr: ClientCmd\t103\tUnable to locate %s\tc\te\tFind it.\n"
      "MainCore: Shutdown\t104\tIt ends\tc\te\tNone when the end was wanted.\n"
      "Quiet: One\t104\tHush\tc\te\tNone.\n");
  const std::string file =
      std::filesystem::read_symlink("/proc/" + std::to_string(site.Program(web).Pid()) + "/fd/2");
  std::ofstream(file, std::ios::app) << log << std::flush;
  Tool status(site.Ctl({"status", "web1", "--messages", messages, "--state", state.Path()}));
  EXPECT_EQ(0, status.Status());
  const std::string output = status.Output();
  EXPECT_EQ(std::string::npos, output.find("SearchGroup ''")) << output;
  EXPECT_EQ(std::string::npos, output.find("SearchGroup 'one'")) << output;
  EXPECT_NE(
      std::string::npos,
      output.find("  log, Sun Nov 22 01:02:03 2026: [CommMgr: ClientCmd] Unable to locate "
                  "SearchGroup 'two' amongst my flock\n    remedy: Start it.\n"
                  "  log, Sun Nov 22 01:02:03 2026: [CommMgr: ClientCmd] Unable to locate "
                  "SearchGroup ' amongst my flock\n    remedy: Find it.\n"
                  "  log, Sun Nov 22 01:02:03 2026: [MainCore: Shutdown] It ends\n    remedy: "
                  "None when the end was wanted.\n"))
      << output;
  EXPECT_EQ(std::string::npos, output.find("Hush")) << output;
}

// The journal is read through a pipe.
TEST(CtlProcess, Log_OfAUnitIsThatOfTheJournal) {
  Site site;
  site.Line("web1", 'C', "-");
  const Instead instead;
  const std::string first = LogEntry("[Init: ReadConf] Unable to open 'a': errno = 1");
  const std::string second = LogEntry("[Other: Text] any");
  instead.Add("systemctl", "echo LoadState=loaded; echo ActiveState=failed\n");
  instead.Add(
      "journalctl",
      "case \"$*\" in\n"
      "'--quiet --output=cat --unit=korvo-commmgr@web1.service') cat " +
          instead.folder.Write("log", first + second) +
          " ;;\n'--quiet --output=cat --unit=korvo-commmgr@web1.service --follow --no-tail') "
          "exec tail -c +1 -f " +
          instead.folder.Write("live", first) + " ;;\n*) exit 3 ;;\nesac\n");
  const std::string messages = instead.folder.Write("messages", kMessages);
  Tool log(site.Ctl({"log", "web1", "--messages", messages, "--module", "Init"}),
           instead.Prepare());
  EXPECT_EQ(0, log.Status()) << log.Errors();
  EXPECT_EQ(first, log.Output());
  Tool count(site.Ctl({"log", "web1", "--messages", messages, "--count"}), instead.Prepare());
  EXPECT_EQ(0, count.Status()) << count.Errors();
  EXPECT_EQ(
      "      1  [Init: ReadConf] Unable to open '%s': errno = %d\n      1  [Other: Text] any\n",
      count.Output());
  Tool follow(site.Ctl({"log", "web1", "--follow"}), instead.Prepare());
  EXPECT_TRUE(Eventually([&] { return follow.Output() == first; })) << follow.Output();
  std::ofstream(instead.folder.Path() + "/live", std::ios::app) << second << std::flush;
  EXPECT_TRUE(Eventually([&] { return follow.Output() == first + second; })) << follow.Output();
  follow.Signal(SIGTERM);
  follow.Wait();
  instead.Add("journalctl", "exit 1\n");
  ExpectRefused(site.Ctl({"log", "web1"}), 66,
                "journalctl cannot show the log of korvo-commmgr@web1.service", instead.Prepare());
}

// The unit is none of systemd's, and the journal is not asked.
TEST(CtlProcess, Status_OfOneWithoutAUnitLeavesTheJournalAlone) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const Instead instead;
  instead.Add("systemctl", "echo LoadState=not-found\n");
  instead.Add(
      "journalctl",
      "cat " +
          instead.folder.Write("log", LogEntry("[Init: ReadConf] Unable to open 'a': errno = 1")) +
          "\n");
  Tool status(
      site.Ctl({"status", "web1", "--messages", instead.folder.Write("messages", kMessages)}),
      instead.Prepare());
  EXPECT_EQ(69, status.Status());
  EXPECT_EQ(site.Place(web) + ": Connection refused\n", status.Output());
}

// The log of one that runs is the file at its standard error.
TEST(CtlProcess, Status_ShowsTheLogAndAReplacedFile) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const Folder folder;
  const std::string program = folder.Path() + "/korvo-commmgr";
  std::filesystem::copy_file(KORVO_COMMMGR, program);
  Process process({program, "web1", site.Path()}, folder.Path());
  EXPECT_TRUE(Eventually([&] { return site.Run({"ping", "web1"}).status == 0; }));
  {
    const Socket client = ConnectTo(site.ClientPort(web));
    client.Send("\t@COMMAND=QUERY\t@SEARCHGROUP=a\t@MACROFILE=/none\t@MAXHITS=1\tx\n");
    EXPECT_EQ("", client.ReadAll());
  }
  EXPECT_TRUE(Eventually([&] {
    return site.Run({"status", "web1"}).output.find(", 1 in its group, ") != std::string::npos;
  }));
  std::filesystem::remove(program);
  const std::string messages = folder.Write(
      "messages", std::string(kMessages) +
                      "DEBUG: SetLevel\t104\tGlobal Debug Level Set to %d\tc\te\tr\n"
                      "CommMgr: ClientCmd\t103\tUnable to open Macro %s\tc\te\tName it.\n");
  EXPECT_EQ(site.Place(web) +
                ": PONG in <n> ms\n  connections: 0 in hand, 0 not accepted yet\n  process " +
                std::to_string(process.Pid()) +
                ", korvo-commmgr 1.0.0: up <n> s, 1 in its group, <n> KiB resident\n"
                "  its file was replaced since it started: a restart takes the new one\n"
                "  log, <time>: [CommMgr: ClientCmd] Unable to open Macro /none\n"
                "    remedy: Name it.\n",
            std::regex_replace(
                WithMarks(site.Run({"status", "web1", "--messages", messages}).output,
                          {"PONG in ", "up ", "group, "}),
                std::regex("log, [A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]{2} [0-9:]{8} [0-9]{4}"),
                "log, <time>"));
  EXPECT_NE(std::string::npos,
            site.Run({"status", "web1", "--json"}).output.find("\"replaced\": true"));
}

// Without a program the wait would last as long as its time.
TEST(CtlProcess, Wait_EndsWithTheProcess) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const Folder folder;
  Process ended({"/bin/true"}, folder.Path());
  ended.Wait();
  const std::string pid = std::to_string(ended.Pid());
  ExpectRefused(
      site.Ctl({"wait", "web1", "--timeout", "600", "--pid", pid}), 69,
      "process " + pid + " ended before " + site.Place(web) + " answered; its log says why");
  site.Start(web);
  EXPECT_EQ(0, site.Run({"wait", "web1", "--pid", pid}).status);
}

TEST(CtlProcess, Status_KnowsWhomItHasAnnounced) {
  Busy busy;
  const int one = busy.site.Line("one", 'S', "web1");
  const int two = busy.site.Line("two", 'D', "web1");
  busy.site.Start(one);
  busy.site.Start(two);
  const Folder state;
  const Arguments status = {"status", "web1", "--state", state.Path()};
  const std::string told = "  told by korvoctl of two:D, one:S\n";
  EXPECT_EQ(std::string::npos, busy.site.Run(status).output.find("told by"));
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(0, busy.site.Run({"announce", "web1", "--state", state.Path()}).status);
    EXPECT_NE(std::string::npos, busy.site.Run(status).output.find(told))
        << busy.site.Run(status).output;
  }
  Arguments json = status;
  json.emplace_back("--json");
  EXPECT_NE(std::string::npos, busy.site.Run(json).output.find("\"told\": [\"two:D\", \"one:S\"]"));
  busy.site.End(busy.web);
  busy.site.Start(busy.web);  // it has forgotten all
  EXPECT_EQ(std::string::npos, busy.site.Run(status).output.find("told by"));
  busy.site.End(two);
  EXPECT_EQ(0, busy.site.Run({"announce", "web1", "--state", state.Path()}).status);
  EXPECT_NE(std::string::npos, busy.site.Run(status).output.find("  told by korvoctl of one:S\n"));
}

// Whoever has the port shows under its own name.
TEST(CtlProcess, Status_NamesAStrangerAtThePort) {
  const Admin silent;
  Site site;
  site.Text("web1 C 127.0.0.1 1 " + std::to_string(silent.Port()) + " -");
  const std::string output = site.Run({"status", "web1", "--timeout", "1"}).output;
  EXPECT_NE(std::string::npos,
            output.find("  process " + std::to_string(getpid()) + ", tools_test: up "))
      << output;
}

TEST(CtlProcess, Status_OfTheSilentHasNoTime) {
  const Admin silent;  // a program of another kind that has the port
  Site site;
  site.Text("web1 C 127.0.0.1 1 " + std::to_string(silent.Port()) + " -");
  const Outcome outcome = site.Run({"status", "web1", "--timeout", "1"});
  EXPECT_TRUE(outcome.output.starts_with("web1:C at 127.0.0.1/" + std::to_string(silent.Port()) +
                                         ": no answer\n"))
      << outcome.output;
  EXPECT_EQ(75, outcome.status);
}

// Another user sees what the network shows, and no more.
TEST(CtlProcess, Status_SaysWhatAnotherUserCannotSee) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to be another user";
  Busy busy;
  std::filesystem::permissions(busy.site.Path(), std::filesystem::perms(0755));
  std::filesystem::permissions(busy.site.Path() + "/korvo.conf", std::filesystem::perms(0644));
  // A copy, for whoever built this may have kept the folders to himself.
  const std::string copy = busy.site.Path() + "/korvoctl";
  std::filesystem::copy_file(KORVOCTL, copy);
  std::filesystem::permissions(copy, std::filesystem::perms(0755));
  const auto other_user = [] { (void)!setuid(65534); };
  Arguments argv = busy.site.Ctl({"status", "web1"});
  argv[0] = copy;
  Tool status(argv, other_user);
  EXPECT_EQ(0, status.Status()) << status.Errors();
  EXPECT_EQ(busy.site.Place(busy.web) + ": PONG in <n> ms\n" +
                "  connections: 1 in hand, 0 not accepted yet\n" +
                "  its processes belong to another user: ask as that one, or as root\n",
            WithMarks(status.Output(), {"PONG in "}));
  ExpectRefused({copy, "reap", "web1", "--older", "1s", "--dir", busy.site.Path()}, 77,
                "the processes of web1:C belong to another user: do it as that one, or as root",
                other_user);
}

TEST(CtlProcess, Stop_WaitsForWhatIsInHand) {
  Busy busy;
  const Outcome drain = busy.site.Run({"drain", "web1", "--timeout", "1"});
  EXPECT_EQ(75, drain.status);
  EXPECT_EQ("korvoctl: " + busy.site.Place(busy.web) +
                " goes on accepting; have the balancer keep new connections away\n"
                "korvoctl: " +
                busy.site.Place(busy.web) + " has 1 connections still; --timeout gives them more\n",
            drain.errors);
  const Terminal terminal;
  Tool stop(busy.site.Ctl({"stop", "web1", "--timeout", "60"}), [&] { terminal.TakeErrors(); });
  EXPECT_TRUE(Eventually([&] {
    return terminal.Shown().starts_with("\rwaiting for 1 connections of " +
                                        busy.site.Place(busy.web) + "\x1b[K");
  }));
  EXPECT_EQ(0, busy.site.Run({"ping", "web1"}).status);
  busy.client.Close();
  EXPECT_EQ(0, stop.Status());
  EXPECT_EQ(0, ExitStatus(busy.site.Program(busy.web).Wait()));
}

// Managers never let go of an engine.
TEST(CtlProcess, Drain_IsNotForEngines) {
  Site site;
  const int half = site.Line("half", 'E', "notes");
  site.Start(half);
  ExpectRefused(site.Ctl({"drain", "half", "--timeout", "1"}), 69,
                "managers keep their connections to " + site.Place(half) +
                    " for as long as both live, and it is never without one; korvoctl stop ends it "
                    "at once");
}

TEST(CtlProcess, Stop_GivesUpWaitingWhenTheTimeIsOver) {
  Busy busy;
  EXPECT_EQ(0, busy.site.Run({"stop", "web1", "--timeout", "1"}).status);
  EXPECT_EQ(0, ExitStatus(busy.site.Program(busy.web).Wait()));
}

TEST(CtlProcess, Ending_IsForOneProgramOfThisMachine) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  site.Line("web1", 'S', "web1");
  const Arguments commands[] = {{"drain"}, {"stop"}, {"restart"}, {"reap", "--older", "1s"}};
  for (const Arguments &command : commands) {
    const auto of = [&command](const std::string &id) {
      Arguments words = command;
      words.push_back(id);
      return words;
    };
    ExpectRefused(site.Ctl(of("web1")), 64, "web1 names 2 programs; take one, such as web1:C");
    ExpectRefused(site.Ctl(of("web1:C")), 69, site.Place(web) + " does not run on this machine");
    ExpectRefused(site.Ctl(command), 64, command[0] + " needs the id of a program in korvo.conf");
  }
  // Whatever the id is.
  ExpectRefused({KORVOCTL, "reap", "none", "--dir", "/none"}, 64,
                "reap needs --older, the age of a connection that may end");
}

// A unit is known by the control group of its processes.
TEST(CtlProcess, Ending_IsSystemdsWhenAUnitRunsTheProgram) {
  namespace fs = std::filesystem;
  fs::path groups = "/sys/fs/cgroup";
  if (fs::exists(groups / "unified")) groups /= "unified";
  const fs::path group = groups / ("korvo-test" + std::to_string(getpid()) + ".service");
  std::error_code error;
  if (!fs::create_directory(group, error)) GTEST_SKIP() << "needs a control group";
  {
    Busy busy;
    std::ofstream(group / "cgroup.procs") << busy.site.Program(busy.web).Pid();
    const Instead instead;
    const std::string unit = group.filename();
    instead.Add("systemctl", "echo \"systemctl $*\"\n");
    Tool restart(busy.site.Ctl({"restart", "web1"}), instead.Prepare());
    EXPECT_EQ(0, restart.Status());
    EXPECT_EQ("systemctl restart " + unit + "\n", restart.Output());
    instead.Add("systemctl", "exit 1\n");
    ExpectRefused(busy.site.Ctl({"restart", "web1"}), 69,
                  "systemctl restart " + unit + " failed; korvoctl status web1:C shows why",
                  instead.Prepare());
    ExpectRefused(busy.site.Ctl({"stop", "web1", "--timeout", "1"}), 69,
                  "systemctl stop " + unit + " failed; korvoctl status web1:C shows why",
                  instead.Prepare());
    // It would start a program again that ends by itself.
    instead.Add("systemctl", "echo \"systemctl $*\"\n");
    Tool stop(busy.site.Ctl({"stop", "web1", "--timeout", "1"}), instead.Prepare());
    EXPECT_EQ(0, stop.Status());
    EXPECT_EQ("systemctl stop " + unit + "\n", stop.Output());
    EXPECT_EQ(0, busy.site.Run({"ping", "web1"}).status);
    std::ofstream(groups / "cgroup.procs") << busy.site.Program(busy.web).Pid();
  }
  EXPECT_TRUE(Eventually([&] { return fs::remove(group, error); }));
}

// That is when it is wanted most.
TEST(CtlProcess, Restart_StartsOneThatIsDown) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const Instead instead;
  instead.Add(
      "systemctl",
      "case $1 in show) echo LoadState=loaded; echo ActiveState=failed ;; *) echo \"systemctl $*\" ;; esac\n");
  const Terminal terminal;
  Tool restart(site.Ctl({"restart", "web1", "--timeout", "5m"}), [&] {
    instead.Prepare()();
    terminal.TakeErrors();
  });
  EXPECT_TRUE(Eventually([&] {
    return terminal.Shown().find("\rwaiting for " + site.Place(web) + ": 0 s\x1b[K") !=
           std::string::npos;
  })) << terminal.Shown();
  site.Start(web);
  EXPECT_EQ(0, restart.Status()) << terminal.Shown();
  EXPECT_EQ("systemctl restart korvo-commmgr@web1.service\n", restart.Output());
  site.End(web);
  instead.Add("systemctl", "echo LoadState=not-found\n");
  ExpectRefused(site.Ctl({"restart", "web1"}), 69,
                site.Place(web) + " does not run on this machine", instead.Prepare());
}

// Those below it may be at the limit of their starts, and then systemd brings none.
TEST(CtlProcess, Restart_BringsThoseBelowOnThisMachine) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const int notes = site.Line("notes", 'S', "web1");
  site.Line("other", 'C', "-");
  site.Line("apart", 'S', "other");
  site.Text("far S 192.0.2.77 8011 8012 web1");
  const int half = site.Line("half", 'E', "notes");
  const int documents = site.Line("notes", 'D', "web1");
  const Instead instead;
  const std::string calls = instead.folder.Path() + "/calls";
  instead.Add("systemctl",
              "echo \"$*\" >>" + calls + "\necho LoadState=loaded; echo ActiveState=failed\n");
  const auto called = [&] {
    std::ifstream file(calls);
    std::string text;
    for (std::string line; std::getline(file, line);)
      if (!line.starts_with("show ")) text += line + "\n";
    return text;
  };
  const std::string all =
      "reset-failed korvo-commmgr@web1.service\nreset-failed korvo-searchmgr@notes.service\n"
      "reset-failed korvo-engine@half.service\nreset-failed korvo-docmgr@notes.service\n"
      "restart korvo-commmgr@web1.service\n";
  Tool dead(site.Ctl({"restart", "web1", "--timeout", "1s"}), instead.Prepare());
  EXPECT_EQ(75, dead.Status());
  std::string silent;
  for (const int line : {web, notes, half, documents})
    silent +=
        "korvoctl: " + site.Place(line) + " did not answer in time; --timeout gives it more\n";
  EXPECT_EQ(silent, dead.Errors());
  EXPECT_EQ(all, called());
  std::filesystem::remove(calls);
  Tool whole(site.Ctl({"restart", "web1", "--timeout", "5m"}), instead.Prepare());
  EXPECT_TRUE(Eventually([&] { return called() == all; })) << called();
  for (const int line : {web, notes, half, documents}) site.Start(line);
  EXPECT_EQ(0, whole.Status()) << whole.Errors();
}

TEST(CtlProcess, Restart_IsForUnits) {
  Busy busy;
  ExpectRefused(busy.site.Ctl({"restart", "web1"}), 69,
                "no unit of systemd runs " + busy.site.Place(busy.web) +
                    ", and nobody else knows how it was started");
}

TEST(CtlProcess, Reap_EndsConnectionsAboveAnAge) {
  Busy busy;
  EXPECT_EQ("", busy.site.Run({"reap", "web1", "--older", "2h"}).output);
  EXPECT_EQ(0, busy.site.Run({"ping", "web1"}).status);
  std::string output;
  EXPECT_TRUE(Eventually([&] {
    output = busy.site.Run({"reap", "web1", "--older", "1s"}).output;
    return !output.empty();
  }));
  EXPECT_EQ("ended process <n>, <n> s old\n", WithMarks(output, {"process ", ", "}));
  EXPECT_EQ("", busy.client.ReadAll());
  EXPECT_EQ(0, busy.site.Run({"ping", "web1"}).status);
  ExpectRefused(busy.site.Ctl({"reap", "web1"}), 64,
                "reap needs --older, the age of a connection that may end");
}

TEST(CtlProcess, Reap_LeavesWorkersAlone) {
  Site site;
  site.Line("web1", 'C', "-");
  const int search = site.Line("notes", 'S', "web1");
  site.Start(search);
  ExpectRefused(
      site.Ctl({"reap", "notes", "--older", "1"}), 69,
      "notes:S serves many connections with a process, and how old one is cannot be told");
}

}  // namespace
