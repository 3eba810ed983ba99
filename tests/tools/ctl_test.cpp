#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/net.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <cstdlib>

#include "tests/tools/run.h"

namespace {

Arguments Ctl(int port, const Arguments &more) {
  Arguments argv = {KORVOCTL};
  argv.insert(argv.end(), more.begin(), more.end());
  argv.insert(argv.end(), {"--port", std::to_string(port)});
  return argv;
}

sockaddr_in Loopback(int port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

// An admin port that the test plays.
class Admin {
 public:
  Admin() : port_(ReservePort()), sock_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in address = Loopback(port_);
    EXPECT_EQ(0, bind(sock_.Fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address));
  }
  int Port() const { return port_; }
  int Fd() const { return sock_.Fd(); }

  std::string Receive() {
    char buffer[5000];
    socklen_t size = sizeof sender_;
    if (!sock_.Readable(kPatienceMs)) return "nothing came";
    const ssize_t got = recvfrom(sock_.Fd(), buffer, sizeof buffer, 0,
                                 reinterpret_cast<sockaddr *>(&sender_), &size);
    return std::string(buffer, got > 0 ? static_cast<std::size_t>(got) : 0);
  }
  int SenderPort() const { return ntohs(sender_.sin_port); }
  void Reply(const std::string &text) const {
    sendto(sock_.Fd(), text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&sender_),
           sizeof sender_);
  }

 private:
  int port_;
  Socket sock_;
  sockaddr_in sender_ = {};
};

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

std::string NumberIn(const std::string &ping) {
  return NumberBetween(ping, "\t@COMMAND=PING\t@SEQNUM=", "\n");
}

std::string Pong(const std::string &number) { return "\t@COMMAND=PONG\t@SEQNUM=" + number + "\n"; }

void ExpectRoundTripSaid(const std::string &output, int port) {
  const std::string place = "127.0.0.1/" + std::to_string(port);
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
  ExpectRoundTripSaid(tool.Output(), admin.Port());
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
  ExpectRefused(Ctl(port, {}), 64, "needs a command: ping, level LEVEL or shutdown");
  ExpectRefused(Ctl(port, {"restart"}), 64,
                "there is no command restart; ping, level LEVEL and shutdown are all");
  ExpectRefused(Ctl(port, {"level"}), 64,
                "level takes INFO, STATUS, WARNING, FATAL or OFF, not ''");
  ExpectRefused(Ctl(port, {"level", "info"}), 64,
                "level takes INFO, STATUS, WARNING, FATAL or OFF, not 'info'");
  ExpectRefused(Ctl(port, {"level", "INFO\n\t@COMMAND=SHUTDOWN"}), 64,
                "level takes INFO, STATUS, WARNING, FATAL or OFF, not 'INFO??@COMMAND=SHUTDOWN'");
  ExpectRefused(Ctl(port, {"ping", "now"}), 64, "ping takes nothing more; leave out now");
  ExpectRefused({KORVOCTL, "ping"}, 64,
                "--port is missing: the port of the service, from 1 to 32767");
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
    (void)bind(taken.back().Fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
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
                "--port is missing: the port of the service, from 1 to 32767", prepare);
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
      "usage: korvoctl ping [OPTION]...         ask whether the program lives\n"
      "       korvoctl level LEVEL [OPTION]...  set the level of its log: INFO, STATUS, WARNING,\n"
      "                                         FATAL or OFF\n"
      "       korvoctl shutdown [OPTION]...     end it\n"
      "\n"
      "  --host HOST        of the program, a name or an IPv4 address; 127.0.0.1\n"
      "  --port PORT        its admin port; needed\n"
      "  --timeout SECONDS  wait so long for the answer to a ping; 5\n"
      "  --help             this text\n"
      "  --version          name and version\n"
      "\n"
      "Status: 0; 64 wrong use; 68 the host is unknown; 69 nobody listens there; 75 no answer in\n"
      "time.\n");
  ExpectVersion(KORVOCTL);
}

TEST(Ctl, RealService_Obeys) {
  Daemon daemon;
  const Outcome ping = RunTool(Ctl(daemon.AdminPort(), {"ping"}));
  EXPECT_EQ(0, ping.status) << ping.errors;
  ExpectRoundTripSaid(ping.output, daemon.AdminPort());
  EXPECT_EQ(0, RunTool(Ctl(daemon.AdminPort(), {"level", "STATUS"})).status);
  EXPECT_EQ(0, RunTool(Ctl(daemon.AdminPort(), {"ping"})).status);
  EXPECT_TRUE(daemon.Program().WaitForLog("CmdHdr->Command       = PING"));
  EXPECT_EQ(0, RunTool(Ctl(daemon.AdminPort(), {"shutdown"})).status);
  EXPECT_EQ(0, ExitStatus(daemon.Program().Wait()));
}

}  // namespace
