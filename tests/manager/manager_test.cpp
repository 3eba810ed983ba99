// A manager's command line, with answers that fail as a search may.
#include "manager/manager.h"

#include <gtest/gtest.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <csignal>
#include <new>

#include "debug/log.h"
#include "tests/service/running.h"
#include "tests/support/log_capture.h"

namespace {

constexpr const char *kCommand = "\t@COMMAND=ASK\tword\n";

std::string Answer(const CmdHdr &, const char *, const char *) { return "answer\n"; }

std::string FindModified(const CmdHdr &, const char *, const char *) {
  throw Xapian::DatabaseModifiedError("the revision is gone");
}

std::string FindNoMemory(const CmdHdr &, const char *, const char *) { throw std::bad_alloc(); }

// A connection of a client.
struct Connection {
  Connection() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    near = Socket(ends[0]);
    far = Socket(ends[1]);
  }
  std::string Run(const char *text, Manager_AnswerFn answer) {
    return Capture(kWarning, [&] { Manager_ClientCmd(near.Fd(), text, "ASK", answer); }).log;
  }
  std::string Received() {
    near.Close();
    return far.ReadAll();
  }

  Socket near, far;
};

Connection OverTcp() {
  const Socket listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto *generic = reinterpret_cast<sockaddr *>(&address);
  EXPECT_EQ(bind(listener.Fd(), generic, size), 0);
  EXPECT_EQ(listen(listener.Fd(), 1), 0);
  EXPECT_EQ(getsockname(listener.Fd(), generic, &size), 0);
  Connection client;
  client.far = Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  EXPECT_EQ(connect(client.far.Fd(), generic, size), 0);
  client.near = Socket(accept(listener.Fd(), nullptr, nullptr));
  return client;
}

// The answer and the log of a datagram.
std::string Administer(const std::string &datagram) {
  SockAddr sender = {};
  return Capture(kWarning,
                 [&] {
                   Manager_Admin(-1, &sender, datagram.c_str(), static_cast<int>(datagram.size()));
                 })
      .log;
}

std::string EngineAt(const std::string &id, const std::string &port, char type = 'E') {
  return "\t@COMMAND=STARTUPANNOUNCEMENT\tID=" + id + "\tTYPE=" + type +
         "\tIP=127.0.0.1\tCLIENTPORT=" + port + "\tADMINPORT=9\n";
}

std::string Engines() {
  std::string text;
  for (const INIT_CHILDINFO &engine : Manager_Engines)
    text += std::string(engine.ID) + ":" + std::to_string(engine.ClientAddr.Port) + " ";
  return text;
}

}  // namespace

TEST(Manager, AnAnswerGoesToTheClientWhole) {
  Connection client;
  EXPECT_EQ(client.Run(kCommand, Answer), "");
  EXPECT_EQ(client.Received(), "answer\n");
}

TEST(Manager, AnAnswerEndsWithItsLastBytes) {
  Connection client = OverTcp();
  EXPECT_EQ(client.Run(kCommand, Answer), "");
  ASSERT_TRUE(client.far.Readable(kPatienceMs));
  EXPECT_EQ(client.far.ReadAll(), "answer\n") << "though the manager has not closed";
  tcp_info info = {};
  socklen_t size = sizeof info;
  ASSERT_EQ(getsockopt(client.far.Fd(), IPPROTO_TCP, TCP_INFO, &info, &size), 0);
  EXPECT_EQ(info.tcpi_segs_in, 2u) << "that of the connection, and the answer";
}

TEST(Manager, WhatIsThrown_IsAnErrorOfOneLine) {
  for (const auto &[answer, reason] :
       {std::pair<Manager_AnswerFn, const char *>{FindModified,
                                                  "DatabaseModifiedError: the revision is gone"},
        {FindNoMemory, "std::bad_alloc"}}) {
    Connection client;
    EXPECT_EQ(client.Run(kCommand, answer),
              std::string("[Manager: Answer] Unable to answer: ") + reason + "\n");
    EXPECT_EQ(client.Received(), "\t@COMMAND=ERROR\tUnable to read the database\n");
  }
}

TEST(Manager, AnotherCommand_IsLoggedWholeAndRefused) {
  Connection client;
  EXPECT_EQ(client.Run("\t@COMMAND=TELL\tword\n", Answer),
            "[Manager: ClientCmd] Unable to figure out this command: \t@COMMAND=TELL\tword\n\n");
  EXPECT_EQ(client.Received(), "\t@COMMAND=ERROR\tUnable to figure out this command\n");
}

TEST(Manager, AClientThatHasLeft_IsLogged) {
  signal(SIGPIPE, SIG_IGN);
  Connection client;
  const std::string sock = std::to_string(client.near.Fd());
  client.far.Close();
  EXPECT_EQ(client.Run(kCommand, Answer),
            "[Manager: ClientCmd] Unable to send to client sock " + sock + " rc = -32\n");
}

TEST(Manager, AReaderThatTakesNothing_IsLeftBehind) {
  Connection client;
  const std::string log = client.Run(kCommand, [](const CmdHdr &, const char *, const char *) {
    return std::string(10 << 20, 'x');
  });
  EXPECT_EQ(log, "[Manager: ClientCmd] Unable to send to client sock " +
                     std::to_string(client.near.Fd()) + " rc = -11\n");
}

TEST(Manager, EnginesAreKeptInTheOrderInWhichTheyWereHeardOf) {
  Manager_Engines.clear();
  EXPECT_EQ(Administer(EngineAt("e1", "1")), "");
  Administer(EngineAt("e2", "2"));
  Administer(EngineAt("e3", "3"));
  Administer(EngineAt("e2", "4"));  // it came back elsewhere
  EXPECT_EQ(Engines(), "e1:1 e2:4 e3:3 ");
}

TEST(Manager, OtherAnnouncementsAreNone) {
  Manager_Engines.clear();
  for (const char type : {'S', 'D', 'C', 'e'}) Administer(EngineAt("x", "1", type));
  Administer("\t@COMMAND=STARTUPANNOUNCEMENT\tID=x\tTYPE=E\n");
  EXPECT_EQ(Administer("\t@COMMAND=STARTUPANNOUNCEMENT\n"),
            "[Init: RecvAnnounce] Command is NULL.\n");
  EXPECT_EQ(Engines(), "");
}

TEST(Manager, AShardIsNamedByItsPathOrItsEngine) {
  Manager_Engines.clear();
  Administer(EngineAt("e1", "4711"));
  const Shard engine = Manager_EngineShard(Manager_Engines.front());
  EXPECT_EQ(engine.name, "e1");
  EXPECT_EQ(engine.location, "");
  EXPECT_EQ(engine.host, "127.0.0.1");
  EXPECT_EQ(engine.port, 4711u);
  EXPECT_EQ(Manager_LocalShard("/srv/db").location, "/srv/db");
}
