#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "core/loop.h"
#include "core/state.h"
#include "debug/log.h"
#include "tests/core/running.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

// The command that the handler was given, with all that its buffer holds.
struct {
  int calls, listener, sock;
  std::string buffer;
} served;

void Serve(int listener, int sock, const char *text) {
  served = {served.calls + 1, listener, sock, std::string(text, kCommandSize)};
}

std::string ZeroFilled(std::string text) {
  text.resize(kCommandSize, '\0');
  return text;
}

// So that a buffer on the stack that nobody clears holds something.
[[gnu::noinline]] void DirtyStack() {
  volatile char dirt[65536];
  for (volatile char &byte : dirt) byte = 'z';
}

std::string Reading(int sock) {
  return "[MainCore: TCPRead] TCP Read started.  Reading Socket " + std::to_string(sock) + "\n";
}

class TCPRead : public ::testing::Test {
 protected:
  void SetUp() override { served = {}; }

  void Read(const std::string &bytes) {
    SendAll(pair_.far, bytes);
    DirtyStack();
    MainCore_TCPRead(7, pair_.near, Serve);
  }

  TcpPair pair_;
};

TEST_F(TCPRead, Command_IsZeroFilledTo4096Bytes) {
  Read("one\n");
  EXPECT_EQ(1, served.calls);
  EXPECT_EQ(7, served.listener);
  EXPECT_EQ(pair_.near, served.sock);
  EXPECT_EQ(ZeroFilled("one\n"), served.buffer);
}

TEST_F(TCPRead, WhatWaitsBehindTheCommand_IsNotInItsBuffer) {
  Read("one\n" + std::string(4000, 'x'));
  EXPECT_EQ(ZeroFilled("one\n"), served.buffer);
}

TEST_F(TCPRead, WhatWaitsBehindTheCommand_StaysUnread) {
  Read("one\ntwo\nthree\n");
  EXPECT_EQ(1, served.calls);
  pair_.far.Close();
  EXPECT_EQ("two\nthree\n", ReadBytes(pair_.near, 256));  // to the end
}

TEST_F(TCPRead, CommandBehindAnOverlongOne_IsZeroFilled) {
  Capture(kOff, [&] { Read(std::string(5000, 'x') + "\nnext\n"); });
  EXPECT_EQ(1, served.calls);
  EXPECT_EQ(ZeroFilled("next\n"), served.buffer);
}

TEST_F(TCPRead, CommandBehindALongerOneOfTheSameProcess_IsZeroFilled) {
  Read("a longer one\n");
  Read("next\n");
  EXPECT_EQ(ZeroFilled("next\n"), served.buffer);
}

TEST_F(TCPRead, EarlyClose_IsAnEmptyCommandOfZeros) {
  pair_.far.Close();
  DirtyStack();
  MainCore_TCPRead(7, pair_.near, Serve);
  EXPECT_EQ(1, served.calls);
  EXPECT_EQ(ZeroFilled(""), served.buffer);
}

TEST_F(TCPRead, CloseInTheMiddleOfALine_IsAnEmptyCommandOfZeros) {
  SendAll(pair_.far, "half a line");
  pair_.far.Close();
  MainCore_TCPRead(7, pair_.near, Serve);
  EXPECT_EQ(1, served.calls);
  EXPECT_EQ(ZeroFilled(""), served.buffer);
}

TEST_F(TCPRead, Start_IsLoggedAt102) {
  EXPECT_EQ(Reading(pair_.near), MessagesAt(kStatus, [&] { Read("x\n"); }));
}

TEST_F(TCPRead, Command_IsDumpedWithoutATitleAt101) {
  const std::string log = Capture(kInfo, [&] { Read("hello\n"); }).log;
  const std::string before = Reading(pair_.near) + "[MainCore: TCPRead] Socket " +
                             std::to_string(pair_.near) + "...Data Dump:\nHEXDUMP @ ";
  EXPECT_EQ(0u, log.find(before)) << log;
  EXPECT_EQ(before.size() + 8,
            log.find(" for 6 bytes\n" + std::string(47, ' ') + "\n", before.size()));
  EXPECT_TRUE(EndsWith(log, ": 68656c6c 6f0a" + std::string(24, ' ') + " h e l l o \n\n")) << log;
}

TEST_F(TCPRead, Command_IsDumpedBeforeItIsServed) {
  const std::string log = Capture(kInfo, [&] {
                            SendAll(pair_.far, "hello\n");
                            MainCore_TCPRead(7, pair_.near, [](int, int, const char *text) {
                              DPRINTF(nullptr, kInfo, "serving %s", text);
                            });
                          }).log;
  EXPECT_TRUE(EndsWith(log, " h e l l o \n\nserving hello\n")) << log;
}

// What was sent of a line that never ended is not shown either.
TEST_F(TCPRead, EmptyCommand_IsDumpedAsNoBytes) {
  for (const char *sent : {"", "half a line"}) {
    const TcpPair pair;
    SendAll(pair.far, sent);
    shutdown(pair.far, SHUT_WR);
    const std::string log = Capture(kInfo, [&] { MainCore_TCPRead(7, pair.near, Serve); }).log;
    const std::string before = Reading(pair.near) + "[MainCore: TCPRead] Socket " +
                               std::to_string(pair.near) + "...Data Dump:\nHEXDUMP @ ";
    const std::string after = " for 0 bytes\n";
    EXPECT_EQ(0u, log.find(before)) << log;
    EXPECT_EQ(before.size() + 8 + after.size(), log.size()) << log;
    EXPECT_TRUE(EndsWith(log, after)) << log;
  }
}

constexpr const char *kOverflow =
    "[MainCore: TCPRead] Incoming command has overflowed the receiving buffer.\n"
    "HEXDUMP of This is the filled buffer\n\n";
constexpr const char *kRowOfX =
    ": 78787878 78787878 78787878 78787878   x x x x x x x x x x x x x x x x\n";

// The two titles, a blank line and 256 rows.
bool IsOneDump(const std::string &log) {
  return log.find(kOverflow + std::string(47, ' ') + "\n") == 0 &&
         Occurrences(log, kRowOfX) == 256 && Occurrences(log, "\n") == 3 + 1 + 256;
}

TEST_F(TCPRead, Overflow_IsLoggedAndDumpedAt104) {
  const std::string log = MessagesAt(kFatal, [&] { Read(std::string(4096, 'x') + "\nnext\n"); });
  EXPECT_TRUE(IsOneDump(log)) << log;
}

TEST_F(TCPRead, OverflowAndNoNewline_IsOneDumpAndAnEmptyCommand) {
  const std::string log = Capture(kFatal, [&] {
                            SendAll(pair_.far, std::string(4096 + 2, 'x'));
                            pair_.far.Close();
                            MainCore_TCPRead(7, pair_.near, Serve);
                          }).log;
  EXPECT_TRUE(IsOneDump(log)) << log;
  EXPECT_EQ(1, served.calls);
  EXPECT_EQ(ZeroFilled(""), served.buffer);
}

TEST_F(TCPRead, FullBufferAndNoMore_IsOneDumpAndAnEmptyCommand) {
  const std::string log = Capture(kFatal, [&] {
                            SendAll(pair_.far, std::string(4096, 'x'));
                            pair_.far.Close();
                            MainCore_TCPRead(7, pair_.near, Serve);
                          }).log;
  EXPECT_TRUE(IsOneDump(log)) << log;
  EXPECT_EQ(1, served.calls);
  EXPECT_EQ(ZeroFilled(""), served.buffer);
}

TEST_F(TCPRead, OverlongCommandBehindAnother_IsDroppedToo) {
  const std::string line = std::string(5000, 'x') + "\n";
  const std::string log = Capture(kFatal, [&] { Read(line + line + "next\n"); }).log;
  EXPECT_EQ(2u, Occurrences(log, kOverflow)) << log;
  EXPECT_EQ(1, served.calls);
  EXPECT_EQ(ZeroFilled("next\n"), served.buffer);
}

TEST_F(TCPRead, FailureInAnOverlongCommand_IsLoggedAndServesNothing) {
  Seams seams;
  seams.Fail(Call::kRecv, ECONNRESET, 3);  // the buffer was looked at and taken
  const int sock = pair_.near;
  bool open = true;
  const std::string log = Capture(kFatal, [&] {
                            Read(std::string(5000, 'x') + "\nnext\n");
                            open = IsOpen(sock);
                          }).log;
  EXPECT_EQ(0u, log.find(kOverflow)) << log;
  EXPECT_TRUE(EndsWith(log, "[MainCore: TCPRead] Error -104 from Sock_RecvTCP: socket " +
                                std::to_string(sock) +
                                "\n[MainCore: TCPRead] Terminating this Read thread and socket.\n"))
      << log;
  EXPECT_FALSE(open);
  EXPECT_EQ(0, served.calls);
}

TEST_F(TCPRead, Failure_IsTwoLinesAt104AndClosesTheSocket) {
  Seams seams;
  seams.Fail(Call::kRecv, EIO, 1, 2);
  const TcpPair other;
  const int socks[] = {pair_.near, other.near};
  std::string log[2];
  bool closed[2];
  for (int i = 0; i < 2; ++i) {
    log[i] = Capture(kFatal + i, [&] { MainCore_TCPRead(7, socks[i], Serve); }).log;
    closed[i] = !IsOpen(socks[i]);
  }
  EXPECT_EQ("[MainCore: TCPRead] Error -5 from Sock_RecvTCP: socket " + std::to_string(socks[0]) +
                "\n[MainCore: TCPRead] Terminating this Read thread and socket.\n",
            log[0]);
  EXPECT_EQ("", log[1]);
  EXPECT_TRUE(closed[0] && closed[1]);
  EXPECT_EQ(0, served.calls);
}

// The calls of a kind, in order.
std::string Only(const std::string &trace, const std::vector<std::string> &calls) {
  std::string only;
  for (std::size_t at = 0; at < trace.size();) {
    const std::size_t end = trace.find('\n', at) + 1;
    const std::string line = trace.substr(at, end - at);
    for (const std::string &call : calls)
      if (line.rfind(call, 0) == 0) only += line;
    at = end;
  }
  return only;
}

class Listen : public ::testing::Test {
 protected:
  void SetUp() override { served = {}; }
  int Connect() { return ConnectFrom(0, PortOf(listener_)); }

  Fd listener_{ListenOn(0)};
};

TEST_F(Listen, WithoutAFork_TheListenerIsPassedOn) {
  const Fd client(Connect());
  SendAll(client, "x\n");
  MainCore_Listen(listener_, 0, Serve);
  EXPECT_EQ(1, served.calls);
  EXPECT_EQ(listener_, served.listener);
  EXPECT_EQ("x\n", std::string(served.buffer.c_str()));
  EXPECT_FALSE(IsOpen(served.sock));
  EXPECT_TRUE(IsOpen(listener_));
  EXPECT_EQ("", ReadBytes(client, 1));
}

TEST_F(Listen, Connection_IsLoggedAt102) {
  const int port = ReservePort();
  std::string log[2];
  for (int i = 0; i < 2; ++i) {
    const Fd client(ConnectFrom(i == 0 ? port : 0, PortOf(listener_)));
    SendAll(client, "x\n");
    log[i] = Capture(kStatus + i, [&] { MainCore_Listen(listener_, 0, Serve); }).log;
  }
  EXPECT_EQ("[MainCore: Listen] ListSock=" + std::to_string(listener_) +
                ", newsock=" + std::to_string(served.sock) + ". New connection from 127.0.0.1/" +
                std::to_string(port) + "\n" + Reading(served.sock),
            log[0]);
  EXPECT_EQ("", log[1]);
}

int listener_of_child = -1;

void Tell(int listener, int sock, const char *text) {
  std::printf("left behind");
  SendAll(sock, std::to_string(getpid()) + " " + std::to_string(listener) +
                    (IsOpen(listener_of_child) ? " open" : " closed") +
                    (IsOpen(MainCore_State.AdminSock) ? " open " : " closed ") + text);
}

TEST_F(Listen, WithAFork_TheChildServesWithoutTheListenersAndLeavesAtOnce) {
  const Fd admin(BindUDP(0));
  MainCore_State.AdminSock = admin;
  listener_of_child = listener_;
  const Fd client(Connect());
  SendAll(client, "x\n");
  const int before = OpenDescriptors();
  int status = -1;
  std::string told;
  const Output output = Capture(kWarning, [&] {
    MainCore_Listen(listener_, 1, Tell);
    told = ReadBytes(client, 256);  // to the end
    waitpid(std::atoi(told.c_str()), &status, 0);
  });
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_TRUE(EndsWith(told, " -1 closed closed x\n")) << told;
  EXPECT_EQ(0, status);
  EXPECT_EQ("", output.out);  // nothing is flushed
  EXPECT_EQ("", output.log);
  EXPECT_TRUE(IsOpen(listener_) && IsOpen(admin));
  MainCore_State.AdminSock = -1;
}

TEST_F(Listen, FailedAccept_IsLoggedAt104AndNothingIsServed) {
  Seams seams;
  seams.Fail(Call::kAccept, ECONNABORTED, 1, 2);
  EXPECT_EQ("[MainCore: Listen] Error 0 from Sock_Accept().\n",
            MessagesAt(kFatal, [&] { MainCore_Listen(listener_, 1, Serve); }));
  EXPECT_EQ(0, seams.Count(Call::kFork));
  EXPECT_EQ("[MainCore: Listen] Error -3 from Sock_Accept().\n",
            MessagesAt(kFatal, [] { MainCore_Listen(-1, 1, Serve); }));
  EXPECT_EQ(0, served.calls);
}

TEST_F(Listen, PeerWithoutAnAddress_IsLoggedWithItsCode) {
  const Fd client(Connect());
  Seams seams;
  seams.Fail(Call::kInetNtoa, 0);
  EXPECT_EQ("[MainCore: Listen] Error -2 from Sock_Accept().\n",
            Capture(kFatal, [&] { MainCore_Listen(listener_, 0, Serve); }).log);
  EXPECT_EQ(0, served.calls);
}

TEST_F(Listen, FailedFork_IsLoggedAt104AndTheConnectionClosedUnserved) {
  const Fd first(Connect()), second(Connect());
  Seams seams;
  seams.Fail(Call::kFork, ENOMEM, 1, 2);
  EXPECT_EQ("[MainCore: Listen] Unable to fork for TCPRead: errno = 12\n",
            MessagesAt(kFatal, [&] { MainCore_Listen(listener_, 1, Serve); }));
  EXPECT_EQ("fork()\nfork()\n", Only(seams.Trace(), {"fork", "sleep"}));  // one a connection
  EXPECT_EQ("", ReadBytes(first, 1));
  EXPECT_EQ("", ReadBytes(second, 1));
  EXPECT_EQ(0, served.calls);
}

TEST_F(Listen, ShortageOfProcesses_IsTriedSixTimesFiveSecondsApart) {
  const Fd client(Connect());
  Seams seams;
  seams.Fail(Call::kFork, EAGAIN, 1, kEveryTime);
  EXPECT_EQ("[MainCore: Listen] Unable to fork for TCPRead: errno = 11\n",
            Capture(kFatal, [&] { MainCore_Listen(listener_, 1, Serve); }).log);
  std::string tries = "fork()\n";
  for (int i = 1; i < 6; ++i) tries += "sleep(5)\nfork()\n";
  EXPECT_EQ(0u, Only(seams.Trace(), {"fork", "sleep"}).find(tries)) << seams.Trace();
  EXPECT_EQ(6, seams.Count(Call::kFork));
  EXPECT_EQ("", ReadBytes(client, 1));
  EXPECT_EQ(0, served.calls);
}

TEST(Reader, AnotherOneReadsWhatItIsGiven) {
  static int read_from[2];
  MainCore_SetReader([](int listener, int sock, MainCore_ClientFn handler) {
    read_from[0] = listener;
    read_from[1] = sock;
    handler(listener, sock, "said by the reader");
  });
  static std::string said;
  MainCore_Read(7, 8, [](int, int, const char *text) { said = text; });
  MainCore_SetReader(MainCore_TCPRead);
  EXPECT_EQ(read_from[0], 7);
  EXPECT_EQ(read_from[1], 8);
  EXPECT_EQ(said, "said by the reader");
}

// The datagram that the handler was given.
struct {
  int calls, sock, len;
  std::string sender, buffer;
} received;

void Receive(int sock, SockAddr *sender, const char *buf, int len) {
  received = {received.calls + 1, sock, len,
              std::string(sender->IP) + "/" + std::to_string(sender->Port),
              std::string(buf, kCommandSize + 1)};  // with its end
}

class UDPRead : public ::testing::Test {
 protected:
  void SetUp() override { received = {}; }

  void Read(const std::string &datagram) {
    SockAddr to = Loopback(PortOf(admin_));
    Sock_SendUDP(from_, datagram.empty() ? "x" : datagram.data(), static_cast<int>(datagram.size()),
                 &to, 0);
    DirtyStack();
    MainCore_UDPRead(admin_, Receive);
  }

  int port_ = ReservePort();
  Fd admin_{BindUDP(ReservePort())}, from_{BindUDP(port_)};
};

TEST_F(UDPRead, Datagram_IsHandedOnZeroFilledTo4096Bytes) {
  for (const std::size_t size : {4096u, 100u, 1u}) {
    Read(std::string(size, 'x'));
    EXPECT_EQ(admin_, received.sock);
    EXPECT_EQ("127.0.0.1/" + std::to_string(port_), received.sender);
    EXPECT_EQ(static_cast<int>(size), received.len);
    EXPECT_EQ(ZeroFilled(std::string(size, 'x')) + '\0', received.buffer);
  }
  EXPECT_EQ(3, received.calls);
}

TEST_F(UDPRead, Datagram_IsAskedForWithoutFlags) {
  const Seams seams;
  Read("x");
  EXPECT_NE(std::string::npos, seams.Trace().find("recvfrom(4096, 0")) << seams.Trace();
}

TEST_F(UDPRead, LongerDatagram_IsCutTo4096Bytes) {
  Read(std::string(4096, 'x') + "y");
  EXPECT_EQ(4096, received.len);
  EXPECT_EQ(std::string(4096, 'x') + '\0', received.buffer);
}

TEST_F(UDPRead, EmptyDatagram_IsHandedOnAsZeros) {
  SockAddr to = Loopback(PortOf(admin_));
  ASSERT_EQ(kSockOk, Sock_ConvertIP(&to));
  ASSERT_EQ(0,
            sendto(from_, "", 0, 0, reinterpret_cast<const sockaddr *>(&to.Addr), sizeof to.Addr));
  DirtyStack();
  MainCore_UDPRead(admin_, Receive);
  EXPECT_EQ(1, received.calls);
  EXPECT_EQ(0, received.len);
  EXPECT_EQ(ZeroFilled("") + '\0', received.buffer);
}

TEST_F(UDPRead, Datagram_IsDumpedWithItsTitleAt101) {
  const std::string log = MessagesAt(kInfo, [&] { Read("ab"); });
  EXPECT_EQ(0u,
            log.find("HEXDUMP of MainCore_UDPReadThread Dump:\n\n" + std::string(47, ' ') + "\n"))
      << log;
  EXPECT_TRUE(EndsWith(log, ": 6162" + std::string(33, ' ') + " a b\n")) << log;
}

TEST_F(UDPRead, Failure_IsLoggedAt104AndNothingHandedOn) {
  Seams seams;
  seams.Fail(Call::kRecvfrom, EIO, 1, 2);
  EXPECT_EQ("[MainCore: UDPRead] Error -5 from Sock_RecvUDP.  Calling Dr. Vostrelan.\n",
            MessagesAt(kFatal, [&] { MainCore_UDPRead(admin_, Receive); }));
  EXPECT_EQ(0, received.calls);
}

}  // namespace
