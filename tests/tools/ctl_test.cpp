#include "tests/tools/ctl.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/net.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <cstdlib>

namespace {

Arguments Ctl(int port, const Arguments &more) {
  Arguments argv = {KORVOCTL};
  argv.insert(argv.end(), more.begin(), more.end());
  argv.insert(argv.end(), {"--port", std::to_string(port)});
  return argv;
}

// What stands between two texts, which have to be there; digits and points.
std::string NumberBetween(const std::string &text, const std::string &before,
                          const std::string &behind) {
  EXPECT_TRUE(text.starts_with(before) && text.ends_with(behind)) << text;
  if (text.size() <= before.size() + behind.size()) return "";
  const std::string number =
      text.substr(before.size(), text.size() - before.size() - behind.size());
  EXPECT_EQ(std::string::npos, number.find_first_not_of("0123456789.")) << text;
  return number;
}

void ExpectRoundTripSaid(const std::string &output, const std::string &place) {
  const std::string number = NumberBetween(output, "PONG from " + place + " in ", " ms\n");
  EXPECT_EQ(number.size() - 4, number.find('.')) << output;
  EXPECT_EQ("PONG from " + place + " in " + number + " ms\n", output);
}

TEST(Ctl, Ping_WaitsForItsOwnPong) {
  Admin admin;
  Tool tool(Ctl(admin.Port(), {"ping"}));
  const std::string number = NumberIn(admin.Receive());
  ASSERT_NE("", number);
  EXPECT_GT(admin.SenderPort(), 0);
  EXPECT_LT(admin.SenderPort(), 32768);
  admin.Reply(Pong(number + "1"));
  admin.Reply(Pong("1"));
  admin.Reply("");
  admin.Reply("\t@COMMAND=PONG\t@SEQNUM=-1\n");
  admin.Reply("\t@COMMAND=PING\t@SEQNUM=" + number + "\n");
  admin.Reply(std::string(4990, 'x'));
  admin.Reply(Pong(number));
  EXPECT_EQ(0, tool.Status());
  ExpectRoundTripSaid(tool.Output(), "127.0.0.1/" + std::to_string(admin.Port()));
  EXPECT_EQ("", tool.Errors());
}

TEST(Ctl, Ping_TakesNoAnswerFromSomebodyElse) {
  Admin admin;
  const Admin stranger;
  Tool tool(Ctl(admin.Port(), {"ping", "--timeout", "1"}));
  const std::string pong = Pong(NumberIn(admin.Receive()));
  const sockaddr_in address = Loopback(admin.SenderPort());
  sendto(stranger.Fd(), pong.data(), pong.size(), 0, reinterpret_cast<const sockaddr *>(&address),
         sizeof address);
  EXPECT_EQ(75, tool.Status());
}

TEST(Ctl, Ping_WithoutAnAnswerRunsOutOfTime) {
  const Admin admin;
  ExpectRefused(Ctl(admin.Port(), {"ping", "--timeout", "1"}), 75,
                "127.0.0.1/" + std::to_string(admin.Port()) +
                    " did not answer in time; --timeout gives it more");
}

TEST(Ctl, Refusal_IsUnavailable) {
  const Admin admin;
  const sockaddr_in elsewhere =
      Loopback(ReservePort());  // it takes datagrams from there alone, so ours are refused
  ASSERT_EQ(0,
            connect(admin.Fd(), reinterpret_cast<const sockaddr *>(&elsewhere), sizeof elsewhere));
  for (const Arguments &words :
       {Arguments{"ping"}, Arguments{"level", "INFO"}, Arguments{"shutdown"}})
    ExpectRefused(
        Ctl(admin.Port(), words), 69,
        "cannot reach 127.0.0.1/" + std::to_string(admin.Port()) + ": Connection refused");
}

TEST(Ctl, LevelAndShutdown_AreOneDatagram) {
  Admin admin;
  for (const std::string level : {"INFO", "STATUS", "WARNING", "FATAL", "OFF"}) {
    const Outcome outcome = RunTool(Ctl(admin.Port(), {"level", level}));
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.output + outcome.errors);
    EXPECT_EQ("\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=" + level + "\n", admin.Receive());
    EXPECT_LT(admin.SenderPort(), 32768);
  }
  EXPECT_EQ(0, RunTool(Ctl(admin.Port(), {"shutdown"})).status);
  EXPECT_EQ("\t@COMMAND=SHUTDOWN\n", admin.Receive());
  EXPECT_LT(admin.SenderPort(), 32768);
}

TEST(Ctl, WrongUse_IsOneLineAndNothingIsSent) {
  const Admin admin;
  const int port = admin.Port();
  ExpectRefused(Ctl(port, {}), 64, "needs a command; --help shows all");
  ExpectRefused(Ctl(port, {"ring"}), 64, "there is no command ring; --help shows all");
  ExpectRefused(Ctl(port, {"level"}), 64,
                "level takes INFO, STATUS, WARNING, FATAL or OFF, not ''");
  ExpectRefused({KORVOCTL, "level", "INFO"}, 64,
                "level needs the id of a program in korvo.conf, or --port, besides INFO");
  ExpectRefused(Ctl(port, {"level", "info"}), 64,
                "level takes INFO, STATUS, WARNING, FATAL or OFF, not 'info'");
  ExpectRefused(Ctl(port, {"level", "INFO\n\t@COMMAND=SHUTDOWN"}), 64,
                "level takes INFO, STATUS, WARNING, FATAL or OFF, not 'INFO??@COMMAND=SHUTDOWN'");
  ExpectRefused(Ctl(port, {"ping", "now"}), 64, "ping takes nothing more; leave out now");
  ExpectRefused({KORVOCTL, "ping"}, 64, "ping needs the id of a program in korvo.conf, or --port");
  ExpectRefused({KORVOCTL, "ping", "--host", "127.0.0.1"}, 64,
                "--port is missing: the port of the service, from 1 to 32767");
  ExpectRefused({KORVOCTL, "level", "INFO", "--host", "127.0.0.1"}, 64,
                "--port is missing: the port of the service, from 1 to 32767");
  ExpectRefused(Ctl(port, {"ping", "--for", "5m"}), 64,
                "ping does not take --for; --help shows what it is for");
  ExpectRefused({KORVOCTL, "ping", "--port", "0"}, 64,
                "--port takes a number from 1 to 32767, not '0'");
  pollfd ready = {admin.Fd(), POLLIN, 0};
  EXPECT_EQ(0, poll(&ready, 1, 0));
}

TEST(Ctl, SourcePortsInUse_ArePassedOver) {
  // All but a few of the ports that it sends from; those are for the tests that run at the same
  // time, too.
  std::vector<Socket> taken;
  for (int port = 32000; port <= 32767; ++port) {
    if (port % 64 == 0) continue;
    const sockaddr_in address = Loopback(port);
    taken.emplace_back(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto is_bound = [&] {
      return bind(taken.back().Fd(), reinterpret_cast<const sockaddr *>(&address),
                  sizeof address) == 0;
    };
    // Another test may send from it at this moment; who has it for longer keeps it.
    (void)Eventually(is_bound, 2000);
  }
  Admin admin;
  EXPECT_EQ(0, RunTool(Ctl(admin.Port(), {"shutdown"})).status);
  EXPECT_EQ("\t@COMMAND=SHUTDOWN\n", admin.Receive());
  EXPECT_EQ(0, admin.SenderPort() % 64);
}

TEST(Ctl, HostName_IsLookedUp) {
  Admin admin;
  EXPECT_EQ(0, RunTool(Ctl(admin.Port(), {"shutdown", "--host", "localhost"})).status);
  EXPECT_EQ("\t@COMMAND=SHUTDOWN\n", admin.Receive());
  Tool tool(Ctl(admin.Port(), {"ping", "--host", "localhost"}));
  admin.Reply(Pong(NumberIn(admin.Receive())));
  EXPECT_EQ(0, tool.Status());
  EXPECT_TRUE(tool.Output().starts_with("PONG from localhost/")) << tool.Output();
  ExpectRefused(Ctl(admin.Port(), {"ping", "--host", "::1"}), 68,
                "cannot find the host '::1': Address family for hostname not supported");
}

// A datagram that stops a program does not go where a setting for another tool points.
TEST(Ctl, Environment_IsNotRead) {
  const Admin admin;
  const auto prepare = [&] {
    setenv("KORVO_HOST", "127.0.0.1", 1);
    setenv("KORVO_PORT", std::to_string(admin.Port()).c_str(), 1);
  };
  ExpectRefused({KORVOCTL, "shutdown"}, 64,
                "shutdown needs the id of a program in korvo.conf, or --port", prepare);
  pollfd ready = {admin.Fd(), POLLIN, 0};
  EXPECT_EQ(0, poll(&ready, 1, 0));
}

TEST(Ctl, CallsThatFail_EndIt) {
  const Arguments ping = Ctl(1, {"ping"});
  ExpectRefused(ping, 71, "cannot open a socket: Permission denied",
                [] { RefuseSocketCall(SYS_socket, SYS_SOCKET); });
  ExpectRefused(ping, 71, "cannot bind a source port from 32000 to 32767: Permission denied",
                [] { RefuseSocketCall(SYS_bind, SYS_BIND); });
}

TEST(Ctl, Help_GoesToStandardOutput) {
  ExpectHelp(
      KORVOCTL,
      "usage: korvoctl COMMAND [ID] [OPTION]...\n"
      "\n"
      "  check [ID]           look for what is wrong in korvo.conf and korvo.db\n"
      "  list                 show the tree of korvo.conf and who answers\n"
      "  units                name the units of systemd for this machine's programs\n"
      "  ping ID              ask whether the program lives, and how fast it answers\n"
      "  wait ID              wait until it answers\n"
      "  announce [ID]        announce to it, or to all, the programs below\n"
      "  level ID LEVEL       set the level of its log: INFO, STATUS, WARNING, FATAL or OFF\n"
      "  status ID            show how it is, and why it is not\n"
      "  drain ID             wait until it has no connection in hand\n"
      "  stop ID              wait so, but no longer than --timeout, and end it\n"
      "  restart ID           have its unit of systemd start it, and await it and those below it\n"
      "  reap ID              end its connections above an age\n"
      "  log [FILE | ID]      show a log, or standard input, or what is wanted of it\n"
      "  shutdown ID          end it at once\n"
      "\n"
      "ID is a program's in korvo.conf, or ID:TYPE for one line of several with that id.\n"
      "\n"
      "  --dir DIR            the folder of korvo.conf and korvo.db\n"
      "  --host HOST          in place of an id: a name or an IPv4 address; 127.0.0.1\n"
      "  --port PORT          in place of an id: the admin port\n"
      "  --timeout TIME       wait so long for answers; 5s\n"
      "  --for TIME           of level: set it back to WARNING after 30s, 5m, 2h\n"
      "  --json               of check, list, ping, status and log --count: as JSON\n"
      "  --macro MACRO        of announce: a page macro; asks with it which Search Managers are known\n"
      "  --macros DIR         of check: look at the page frames and macros there\n"
      "  --nagios             of status: a line and an exit status for Nagios\n"
      "  --older TIME         of reap: the age\n"
      "  --prometheus         of status: figures for Prometheus\n"
      "  --state DIR          of announce and status: where it is kept who was announced\n"
      "  --watch TIME         of announce: do so again after that time, for ever\n"
      "  --count              of log: how often each message came\n"
      "  --explain            of log: cause, effect and remedy of each message\n"
      "  --follow             of log: go on with what comes\n"
      "  --level LEVEL        of log: messages of INFO, STATUS, WARNING or FATAL, 101 to 105, and "
      "above\n"
      "  --messages FILE      of log and status: what is known of the messages\n"
      "  --module NAME        of log: messages of Init, or of Init: ReadConf\n"
      "  --pid NUMBER         of log: messages of that process; of wait: no longer than that one lives\n"
      "  --help               this text\n"
      "  --version            name and version\n"
      "\n"
      "Status: 0; 1 check found what programs survive; 64 wrong use; 66 korvo.conf cannot be read;\n"
      "68 the host is unknown; 69 nobody listens there; 75 no answer in time; 78 korvo.conf has no\n"
      "such program, or check found what keeps one from starting.\n");
  ExpectVersion(KORVOCTL);
}

TEST(Ctl, Id_NamesTheProgramsOfItsLines) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const int search = site.Line("notes", 'S', "web1");
  const int documents = site.Line("notes", 'D', "web1");
  site.Start(web);
  site.Start(search);
  const Outcome one = site.Run({"ping", "web1"});
  EXPECT_EQ(0, one.status) << one.errors;
  ExpectRoundTripSaid(one.output, site.Place(web));
  const Outcome both = site.Run({"ping", "notes"});
  EXPECT_EQ(69, both.status);
  ExpectRoundTripSaid(both.output, site.Place(search));
  EXPECT_EQ("korvoctl: cannot reach " + site.Place(documents) + ": Connection refused\n",
            both.errors);
  EXPECT_EQ(0, site.Run({"ping", "notes:S"}).status);
  EXPECT_EQ(69, site.Run({"ping", "notes:D"}).status);
  EXPECT_EQ(0, site.Run({"shutdown", "notes:S"}).status);
  EXPECT_EQ(0, ExitStatus(site.Program(search).Wait()));
  EXPECT_EQ(0, site.Run({"level", "web1", "STATUS"}).status);
  EXPECT_EQ(0, site.Run({"ping", "web1"}).status);
  EXPECT_TRUE(site.Program(web).WaitForLog("CmdHdr->Command       = PING"));
}

TEST(Ctl, IdThatIsNoProgram_IsRefused) {
  Site site;
  site.Line("web1", 'C', "-");
  const std::string conf = site.Path() + "/korvo.conf";
  for (const std::string id : {"web2", "web1:S", "web1:", ":C", "web1:CC", ""})
    ExpectRefused(site.Ctl({"ping", id}), 78,
                  conf + " has no program " + id + "; korvoctl list shows all");
  ExpectRefused({KORVOCTL, "ping", "web1", "--dir", site.Path() + "/none"}, 66,
                "cannot read " + site.Path() +
                    "/none/korvo.conf: No such file or directory; --dir names its folder");
  ExpectRefused({KORVOCTL, "ping", "web1", "--dir", "/proc/self/mem"}, 66,
                "cannot read /proc/self/mem/korvo.conf: Not a directory; --dir names its folder");
}

TEST(Ctl, Wait_EndsWithTheAnswer) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  Tool tool(site.Ctl({"wait", "web1", "--timeout", "60"}));
  site.Start(web);
  EXPECT_EQ(0, tool.Status());
  EXPECT_EQ("", tool.Output() + tool.Errors());
  site.End(web);
  ExpectRefused(site.Ctl({"wait", "web1", "--timeout", "1"}), 75,
                site.Place(web) + " did not answer in time; --timeout gives it more");
}

// On a terminal it says what it waits for; the line is gone at the end.
TEST(Ctl, Wait_ShowsItsProgressOnATerminal) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const Terminal terminal;
  Tool tool(site.Ctl({"wait", "web1", "--timeout", "60"}), [&] { terminal.TakeErrors(); });
  EXPECT_TRUE(Eventually([&] {
    return terminal.Shown().starts_with("\rwaiting for " + site.Place(web) + ": 0 s\x1b[K");
  }));
  site.Start(web);
  EXPECT_EQ(0, tool.Status());
  EXPECT_TRUE(Eventually([&] { return terminal.Shown().ends_with("\r\x1b[K"); }));
}

TEST(Ctl, LongWaits_ShowTheirProgressOnATerminal) {
  const Admin silent;
  Site site;
  site.Text("web1 C 127.0.0.1 1 " + std::to_string(silent.Port()) + " -");
  const std::string place = "web1:C at 127.0.0.1/" + std::to_string(silent.Port());
  const Terminal terminal;
  const auto shows = [&](const std::string &text) {
    return Eventually([&] { return terminal.Shown().find(text) != std::string::npos; }) ||
           (ADD_FAILURE() << terminal.Shown(), false);
  };
  Tool list(site.Ctl({"list", "--timeout", "2"}), [&] { terminal.TakeErrors(); });
  EXPECT_TRUE(shows("\rwaiting for " + place + ": 1 s\x1b[K\r\x1b[K"));
  EXPECT_EQ(0, list.Status());
  Tool level(site.Ctl({"level", "web1", "INFO", "--for", "5m"}), [&] { terminal.TakeErrors(); });
  EXPECT_TRUE(shows("\rlevel INFO: 300 s left\x1b[K"));
  EXPECT_TRUE(shows("\rlevel INFO: 299 s left\x1b[K"));
  level.Signal(SIGTERM);
  EXPECT_EQ(0, level.Status());
  EXPECT_TRUE(terminal.Shown().ends_with("\r\x1b[K"));
}

TEST(Ctl, Level_IsSetBackWhenItsTimeIsOver) {
  Admin admin;
  Site site;
  site.Text("web1 C 127.0.0.1 1 " + std::to_string(admin.Port()) + " -");
  const std::string info = "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=INFO\n";
  const std::string warning = "\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=WARNING\n";
  EXPECT_EQ(0, site.Run({"level", "web1", "INFO", "--for", "1s"}).status);
  EXPECT_EQ(info, admin.Receive());
  EXPECT_EQ(warning, admin.Receive());
  for (const int ending : {SIGINT, SIGTERM, SIGHUP}) {
    Tool tool(site.Ctl({"level", "web1", "INFO", "--for", "2h"}));
    EXPECT_EQ(info, admin.Receive());
    tool.Signal(ending);
    EXPECT_EQ(warning, admin.Receive());
    EXPECT_EQ(0, tool.Status());
  }
}

TEST(Ctl, Times_HaveAUnitOrAreSeconds) {
  for (const std::string time : {"", "0", "-1", "5x", "5 m", "m", "1000h", "99999999999", "5mm"})
    ExpectRefused(Ctl(1, {"level", "INFO", "--for", time}), 64,
                  "--for takes a time such as 30s, 5m or 2h, not '" + time + "'");
  for (const std::string time : {"0", "25h", "86401", "5x"})
    ExpectRefused(Ctl(1, {"ping", "--timeout", time}), 64,
                  "--timeout takes a time such as 30s, 5m or 2h, not '" + time + "'");
  Admin admin;
  Tool ping(Ctl(admin.Port(), {"ping", "--timeout", "5m"}));
  admin.Reply(Pong(NumberIn(admin.Receive())));
  EXPECT_EQ(0, ping.Status()) << ping.Errors();
}

TEST(Ctl, Forms_AreOne) {
  ExpectRefused({KORVOCTL, "status", "web1", "--json", "--nagios"}, 64,
                "--json and --nagios are two forms of one answer; take one");
  ExpectRefused({KORVOCTL, "status", "web1", "--prometheus", "--json"}, 64,
                "--prometheus and --json are two forms of one answer; take one");
}

TEST(Ctl, Ping_IsJson) {
  Site site;
  const int web = site.Line("web1", 'C', "-");
  const int search = site.Line("web1", 'S', "web1");
  site.Start(web);
  const Outcome both = site.Run({"ping", "web1", "--json"});
  const std::string behind = "},\n {\"program\": \"" + site.Place(search) +
                             "\", \"answer\": \"Connection refused\", \"ms\": null}]\n";
  EXPECT_NE("", NumberBetween(
                    both.output,
                    "[{\"program\": \"" + site.Place(web) + "\", \"answer\": \"PONG\", \"ms\": ",
                    behind));
  EXPECT_EQ("", both.errors);
  EXPECT_EQ(69, both.status);
  const Admin silent;
  const Outcome none = RunTool(Ctl(silent.Port(), {"ping", "--json", "--timeout", "1"}));
  EXPECT_EQ("[{\"program\": \"127.0.0.1/" + std::to_string(silent.Port()) +
                "\", \"answer\": \"no answer\", \"ms\": null}]\n",
            none.output);
  EXPECT_EQ(75, none.status);
}

TEST(Ctl, RealService_Obeys) {
  Daemon daemon;
  const Outcome ping = RunTool(Ctl(daemon.AdminPort(), {"ping"}));
  EXPECT_EQ(0, ping.status) << ping.errors;
  ExpectRoundTripSaid(ping.output, "127.0.0.1/" + std::to_string(daemon.AdminPort()));
  EXPECT_EQ(0, RunTool(Ctl(daemon.AdminPort(), {"level", "STATUS"})).status);
  EXPECT_EQ(0, RunTool(Ctl(daemon.AdminPort(), {"ping"})).status);
  EXPECT_TRUE(daemon.Program().WaitForLog("CmdHdr->Command       = PING"));
  EXPECT_EQ(0, RunTool(Ctl(daemon.AdminPort(), {"shutdown"})).status);
  EXPECT_EQ(0, ExitStatus(daemon.Program().Wait()));
}

}  // namespace
