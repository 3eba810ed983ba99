#include "core/loop.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "debug/log.h"
#include "tests/core/core_seams.h"
#include "tests/core/running.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"

namespace {

constexpr const char *kUnknown = "[CommMgr: ClientCmd] Unable to figure out this command: ";

std::string Served(const std::string &command) { return kUnknown + command + "\n"; }

TEST(Loop, DatagramAndConnectionReadyTogether_TheDatagramIsFirst) {
  Daemon daemon;
  daemon.SetLevel("INFO");
  const pid_t pid = daemon.Program().Pid();
  daemon.Program().Signal(SIGSTOP);
  ASSERT_TRUE(Eventually([&] {
    return ReadFile("/proc/" + std::to_string(pid) + "/stat").find(") T ") != std::string::npos;
  }));
  const std::size_t before = daemon.Log().size();
  const Socket client = daemon.Client();
  client.Send("x\n");
  daemon.Send("\t@COMMAND=PONG\n");
  daemon.Program().Signal(SIGCONT);
  EXPECT_EQ("", client.ReadAll());
  const std::string log = daemon.Log().substr(before);
  const std::size_t datagram = log.find("HEXDUMP of MainCore_UDPReadThread Dump:\n");
  const std::size_t connection = log.find("[MainCore: Listen] ListSock=");
  ASSERT_NE(std::string::npos, datagram);
  ASSERT_NE(std::string::npos, connection);
  EXPECT_LT(datagram, connection);
  EXPECT_LT(log.find("[Util: Display] CmdHdr->Command"), connection);  // carried out, too
}

TEST(Loop, FailedAccept_IsLoggedAndTheNextServed) {
  const Setting fail("KORVO_FAIL", "accept:1:103");
  Daemon daemon;
  EXPECT_EQ("", daemon.Exchange("x\n"));
  const std::string log = daemon.Log();
  EXPECT_EQ(1u, Occurrences(log, "[MainCore: Listen] Error 0 from Sock_Accept().\n")) << log;
  EXPECT_TRUE(EndsWith(log, Served("x\n")));
}

struct Shortage {
  const char *failure;
  const char *line;
};

TEST(Loop, FailedFork_LeavesOneClientUnserved) {
  const Shortage kShortages[] = {
      {"fork:1:12", "[MainCore: Listen] Unable to fork for TCPRead: errno = 12\n"},
      {"fork:1:11:6", "[MainCore: Listen] Unable to fork for TCPRead: errno = 11\n"},
  };
  for (const Shortage &shortage : kShortages) {
    const Setting fail("KORVO_FAIL", shortage.failure);
    Daemon daemon;
    const std::size_t before = daemon.Log().size();
    EXPECT_EQ("", daemon.Exchange("one\n"));
    EXPECT_EQ("", daemon.Exchange("two\n"));
    EXPECT_EQ(shortage.line + Served("two\n"), daemon.Log().substr(before));
    daemon.Ping();
  }
}

TEST(Loop, ForkThatSucceedsAtTheSixthTime_ServesTheClient) {
  const Setting fail("KORVO_FAIL", "fork:1:11:5");
  Daemon daemon;
  const std::size_t before = daemon.Log().size();
  EXPECT_EQ("", daemon.Exchange("one\n"));
  EXPECT_EQ(Served("one\n"), daemon.Log().substr(before));
}

TEST(Loop, FailedReceive_IsLoggedAndTheNextServed) {
  const Setting fail("KORVO_FAIL", "recvfrom:1:5");
  const Daemon daemon;  // it has answered a PING
  EXPECT_EQ(
      1u, Occurrences(daemon.Log(),
                      "[MainCore: UDPRead] Error -5 from Sock_RecvUDP.  Calling Dr. Vostrelan.\n"));
}

TEST(Loop, FailedSelect_IsNotReported) {
  const Setting fail("KORVO_FAIL", "select:1:12:3");
  Daemon daemon;
  EXPECT_EQ("", daemon.Exchange("x\n"));
  EXPECT_TRUE(EndsWith(daemon.Log(), "Initialization Complete.\n" + Served("x\n"))) << daemon.Log();
}

TEST(Loop, FailedSelect_IsFollowedByReaping) {
  const Ended ended = RunInChild(kInfo, [] {
    signal(SIGCHLD, SIG_DFL);
    const pid_t zombie = fork();
    if (zombie == 0) _exit(0);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(zombie), &info, WEXITED | WNOWAIT);
    select_seam.ask = [=](int nth) {
      if (nth == 1) return EINTR;
      _exit(waitpid(zombie, nullptr, WNOHANG) < 0 && errno == ECHILD ? 0 : 1);
    };
    MainCore_Loop(ListenOn(0), BindUDP(0), nullptr, nullptr);
  });
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ("", ended.log);
}

void Drop(int, SockAddr *, const char *, int) {}

TEST(Loop, ServedDatagram_IsFollowedByReaping) {
  const Fd admin(BindUDP(ReservePort())), from(BindUDP(ReservePort()));
  SockAddr to = Loopback(PortOf(admin));
  ASSERT_EQ(kSockOk, Sock_SendUDP(from, "x", 1, &to, 0));
  const Ended ended = RunInChild(kStatus, [&] {
    signal(SIGCHLD, SIG_DFL);
    for (int i = 0; i < 2; ++i) {
      const pid_t zombie = fork();
      if (zombie == 0) _exit(0);
      siginfo_t info;
      waitid(P_PID, static_cast<id_t>(zombie), &info, WEXITED | WNOWAIT);
    }
    select_seam.ask = [](int nth) {
      if (nth == 1) return 0;  // the datagram is served
      _exit(waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD ? 0 : 1);
    };
    MainCore_Loop(ListenOn(0), admin, nullptr, Drop);
  });
  EXPECT_EQ(0, ended.status);
  EXPECT_EQ("", ended.log);
}

TEST(Loop, Wait_IsForBytesAloneAndWithoutLimit) {
  const Ended ended = RunInChild(kInfo, [] {
    select_seam.ask = [](int) -> int { _exit(select_reads_alone ? 0 : 1); };
    MainCore_Loop(ListenOn(0), BindUDP(0), nullptr, nullptr);
  });
  EXPECT_EQ(0, ended.status);
}

void Greet(int, int sock, const char *) { SendAll(sock, "served"); }
void Leave(int, SockAddr *, const char *, int) { _exit(0); }

TEST(Loop, DescriptorBeyondTheReadSet_EndsItWithALineAt104) {
  int rc = 0;
  EXPECT_EQ(MessagesAt(104, [&] { rc = MainCore_Loop(3, FD_SETSIZE, nullptr, nullptr); }),
            "[MainCore: main] Descriptor 1024 is beyond the 1024 that can be watched.\n");
  EXPECT_EQ(rc, -EMFILE);
  Capture(104, [&] { rc = MainCore_Loop(FD_SETSIZE, 3, nullptr, nullptr); });
  EXPECT_EQ(rc, -EMFILE);
}

void Name(int, SockAddr *, const char *buf, int) {
  DPRINTF(nullptr, kStatus, "datagram %s\n", buf);
}

TEST(Loop, EachPass_ServesOneDatagramAndOneConnection) {
  const Fd listener(ListenOn(0)), admin(BindUDP(ReservePort())), from(BindUDP(ReservePort()));
  SockAddr to = Loopback(PortOf(admin));
  const int ports[] = {ReservePort(), ReservePort()};
  const Socket first(ConnectFrom(ports[0], PortOf(listener)));
  const Socket second(ConnectFrom(ports[1], PortOf(listener)));
  for (const char *text : {"1", "2"}) Sock_SendUDP(from, text, 1, &to, 0);
  for (const Socket *client : {&first, &second}) client->Send("x\n");
  const Ended ended = RunInChild(kStatus, [&] {
    select_seam.ask = [](int nth) {
      if (nth == 3) _exit(0);
      return 0;
    };
    MainCore_Loop(listener, admin, Greet, Name);
  });
  EXPECT_EQ(0, ended.status);
  const auto at = [&](const std::string &text) { return ended.log.find(text); };
  const std::string connection = ". New connection from 127.0.0.1/";
  EXPECT_EQ(0u, at("datagram 1\n")) << ended.log;
  EXPECT_LT(at("datagram 1\n"), at(connection + std::to_string(ports[0])));
  EXPECT_LT(at(connection + std::to_string(ports[0])), at("datagram 2\n"));
  EXPECT_LT(at("datagram 2\n"), at(connection + std::to_string(ports[1])));
  EXPECT_NE(std::string::npos, at(connection + std::to_string(ports[1])));
  EXPECT_EQ("served", first.ReadAll());
  EXPECT_EQ("served", second.ReadAll());
}

// Whichever of the two was opened first.
TEST(Loop, EitherDescriptor_MayBeTheGreater) {
  for (const bool listener_greater : {true, false}) {
    const Fd listener(ListenOn(0)), admin(BindUDP(ReservePort())), from(BindUDP(ReservePort()));
    const Socket client(ConnectFrom(0, PortOf(listener)));
    client.Send("x\n");
    const pid_t pid = fork();
    if (pid == 0)
      MainCore_Loop(dup2(listener, listener_greater ? 90 : 80),
                    dup2(admin, listener_greater ? 80 : 90), Greet, Leave);
    EXPECT_EQ("served", client.ReadAll());
    SockAddr to = Loopback(PortOf(admin));
    EXPECT_EQ(kSockOk, Sock_SendUDP(from, "x", 1, &to, 0));
    int status = -1;
    const bool left = Eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; });
    EXPECT_TRUE(left);
    if (!left) kill(pid, SIGKILL);
    EXPECT_EQ(0, status);
  }
}

TEST(Loop, Child_SeesThePeersAsTheyStoodAtItsFork) {
  Daemon daemon;
  daemon.Files().Write("p.mo", EndOp());
  const Manager manager;
  const std::string query =
      "\t@COMMAND=QUERY\t@SEARCHGROUP=one\t@MACROFILE=" + daemon.Files().Path() + "/p\n";
  const Socket early = daemon.Client();
  daemon.Ping();
  daemon.Ping();  // the second comes behind the connection: its child is there
  daemon.Announce('S', "one", manager);
  early.Send(query);
  EXPECT_EQ("\t@COMMAND=ERROR\tUnable to locate SearchMgr\n", early.ReadAll());
  EXPECT_FALSE(manager.Called());
  const Socket late = daemon.Client();
  late.Send(query);
  EXPECT_EQ(query, manager.Accept().ReadLine());
  late.ReadAll();
}

}  // namespace
