// Operations that make a socket, and what lies below them.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "debug/log.h"
#include "net/sock.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

const std::string kTCPOptions =
    "setsockopt(1, 2, 1, 4)\nsetsockopt(1, 8, 32768, 4)\nsetsockopt(1, 7, 32768, 4)\n";

std::string GetErrorLines(int sock, int err) {
  return "[SOCK: GetError] Uhmm, Houston...We have a problem.\n"
         "[SOCK: GetError] We can't seem to get our socket errors here for sock " +
         std::to_string(sock) +
         ".\n"
         "[SOCK: GetError] The system reports this as errno = " +
         std::to_string(err) +
         ".\n"
         "[SOCK: GetError] What are your recommendations ?\n";
}

int Option(int fd, int option) {
  int value = -1;
  socklen_t size = sizeof value;
  EXPECT_EQ(getsockopt(fd, SOL_SOCKET, option, &value, &size), 0);
  return value;
}

bool IsBlocking(int fd) { return (fcntl(fd, F_GETFL) & O_NONBLOCK) == 0; }

// "<sock>" and "<port>" in an expected text stand for numbers that only the run knows.
std::string Filled(std::string text, int sock, int port) {
  for (const auto &[mark, number] : {std::pair<std::string, int>{"<sock>", sock}, {"<port>", port}})
    for (std::size_t at; (at = text.find(mark)) != std::string::npos;)
      text.replace(at, mark.size(), std::to_string(number));
  return text;
}

int Connect(SockAddr *addr, int *place) { return Sock_Connect(addr, kSockNonBlock, place); }
int Listen(SockAddr *addr, int *place) { return Sock_Listen(addr, kSockNonBlock, place); }
int OpenUDP(SockAddr *addr, int *place) { return Sock_OpenUDP(addr, kSockNonBlock, place); }

struct OpenFailure {
  const char *name;
  int (*open)(SockAddr *, int *);
  Call call;
  int nth;
  int error;
  const char *log;
};

void PrintTo(const OpenFailure &row, std::ostream *out) { *out << row.name; }

const OpenFailure kOpenFailures[] = {
    {"ConnectIoctl", Connect, Call::kIoctl, 1, EINVAL,
     "[SOCK: Connect] Error 22 (0x16) from ioctl().  Unable to set socket <sock> to non-blocking.\n"},
    {"ConnectReuseAddr", Connect, Call::kSetsockopt, 1, ENOMEM,
     "[SOCK: Connect] Error 12 (0xc) from setsockopt().  Unable to set reuseaddr to 1.\n"},
    {"ConnectRcvBuf", Connect, Call::kSetsockopt, 2, ENOBUFS,
     "[SOCK: Connect] Error 105 (0x69) from setsockopt().  Unable to set rcvbuflen to 32768.\n"},
    {"ConnectSndBuf", Connect, Call::kSetsockopt, 3, EPERM,
     "[SOCK: Connect] Error 1 (0x1) from setsockopt().  Unable to set sndbuflen to 32768.\n"},
    {"ConnectConnect", Connect, Call::kConnect, 1, ETIMEDOUT,
     "[SOCK: Connect] Error 110 (0x6e) from connect().  Unable to connect socket <sock> to 127.0.0.1:<port>.\n"},
    {"ListenIoctl", Listen, Call::kIoctl, 1, EINVAL,
     "[SOCK: Listen] Error 22 (0x16) from ioctl().  Unable to set socket <sock> to non-blocking.\n"},
    {"ListenReuseAddr", Listen, Call::kSetsockopt, 1, ENOMEM,
     "[SOCK: Connect] Error 12 (0xc) from setsockopt().  Unable to set reuseaddr to 1.\n"},
    {"ListenRcvBuf", Listen, Call::kSetsockopt, 2, ENOBUFS,
     "[SOCK: Connect] Error 105 (0x69) from setsockopt().  Unable to set rcvbuflen to 32768.\n"},
    {"ListenSndBuf", Listen, Call::kSetsockopt, 3, EPERM,
     "[SOCK: Connect] Error 1 (0x1) from setsockopt().  Unable to set sndbuflen to 32768.\n"},
    {"ListenBind", Listen, Call::kBind, 1, EACCES,
     "[SOCK: Listen] Error 13 (0xd) from bind().  Unable to bind socket <sock> to address 127.0.0.1:<port>.\n"},
    {"ListenListen", Listen, Call::kListen, 1, EADDRINUSE,
     "[SOCK: Listen] Error 98 (0x62) from listen().  Unable to listen on socket <sock>.\n"},
    {"OpenUDPIoctl", OpenUDP, Call::kIoctl, 1, EINVAL,
     "[SOCK: OpenUDP] Error 22 (0x16) from ioctl().  Unable to set socket <sock> to non-blocking.\n"},
    {"OpenUDPBind", OpenUDP, Call::kBind, 1, EACCES,
     "[SOCK: OpenUDP] Error 13 (0xd) from bind().  Unable to bind socket <sock> to address 127.0.0.1:<port>.\n"},
};

class OpenFails : public testing::TestWithParam<OpenFailure> {
 protected:
  // One failing run: result, place, what was written, the socket left behind.
  struct Result {
    int rc = 0, place = 99, sock = -1;
    bool open = false;
    Output output;
  };
  Result Run(int level) {
    const OpenFailure &row = GetParam();
    Seams seams;
    seams.Fail(row.call, row.error, row.nth);
    SockAddr addr = Loopback(port_);
    Result result;
    result.output = Capture(level, [&] { result.rc = row.open(&addr, &result.place); });
    result.sock = seams.LastSocket();
    const Fd left(result.sock);
    result.open = IsOpen(left);
    return result;
  }

  const int port_ = FreePort();
};

INSTANTIATE_TEST_SUITE_P(Sock, OpenFails, testing::ValuesIn(kOpenFailures),
                         [](const auto &row) { return std::string(row.param.name); });

// A call on the descriptor -1, as after a failed socket().
struct SocketFailure {
  const char *name;
  int (*open)(SockAddr *, int *);
  const char *log;
};

void PrintTo(const SocketFailure &row, std::ostream *out) { *out << row.name; }

const SocketFailure kSocketFailures[] = {
    {"Connect", Connect,
     "[SOCK: Connect] Error 0 (0x0) from socket().  Unable to get a new socket.\n"},
    {"Listen", Listen,
     "[SOCK: Listen] Error 0 (0x0) from socket().  Unable to get a new socket.\n"},
    {"OpenUDP", OpenUDP,
     "[SOCK: OpenUDP] Error 0 (0x0) from socket().  Unable to get a new socket.\n"},
};

class SocketFails : public testing::TestWithParam<SocketFailure> {};

INSTANTIATE_TEST_SUITE_P(Sock, SocketFails, testing::ValuesIn(kSocketFailures),
                         [](const auto &row) { return std::string(row.param.name); });

}  // namespace

TEST_P(OpenFails, LogsReturnsTheNegatedCodeAndLeavesTheSocketOpen) {
  const Result result = Run(103);
  EXPECT_EQ(result.rc, -GetParam().error);
  EXPECT_EQ(result.place, -1);
  EXPECT_EQ(result.output.log, Filled(GetParam().log, result.sock, port_));
  EXPECT_EQ(result.output.out, "errno = " + std::to_string(GetParam().error) + "\n");
  EXPECT_TRUE(result.open);
}

TEST_P(OpenFails, IsLoggedAt103) { EXPECT_EQ(Run(104).output.log, ""); }

TEST_P(OpenFails, IsLoggedToTheCollector) {
  Debug_SetSend([](const char *, int) { return 1; });
  EXPECT_EQ(Run(103).output.log, "");
  Debug_SetSend(nullptr);
}

TEST_P(SocketFails, GivesTheFourGetErrorLinesTheCode0AndTheResult0) {
  SockAddr addr = Loopback(FreePort());
  Seams seams;
  seams.Fail(Call::kSocket, EMFILE);
  int rc = 99, place = 99;
  const Output output = Capture(103, [&] { rc = GetParam().open(&addr, &place); });
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(place, -1);
  EXPECT_EQ(output.log, GetErrorLines(-1, EBADF) + GetParam().log);
  EXPECT_EQ(output.out, "errno = 24\n");
}

TEST_P(SocketFails, IsLoggedToTheCollector) {
  SockAddr addr = Loopback(FreePort());
  Seams seams;
  seams.Fail(Call::kSocket, ENFILE);
  int place = 99;
  Debug_SetSend([](const char *, int) { return 1; });
  EXPECT_EQ(Capture(103, [&] { GetParam().open(&addr, &place); }).log, "");
  Debug_SetSend(nullptr);
}

TEST_P(SocketFails, IsLoggedAt103) {
  SockAddr addr = Loopback(FreePort());
  Seams seams;
  seams.Fail(Call::kSocket, ENFILE);
  int place = 99;
  EXPECT_EQ(Capture(104, [&] { GetParam().open(&addr, &place); }).log, "");
}

TEST(Sock, GetError_UnreadableSocket_LogsFourLinesWithOneHeader) {
  const FdCapture out(STDOUT_FILENO);
  const LogCapture log(103);
  errno = ENOENT;
  const int rc = Sock_GetError(-1);
  const std::string text = out.Text();
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(text, "errno = 2\n");
  EXPECT_EQ(log.Messages(), GetErrorLines(-1, EBADF));
  EXPECT_EQ(log.Raw().find("PID: "), log.Raw().rfind("PID: "));
}

TEST(Sock, GetError_UnreadableSocket_IsLoggedAt103AndPrintsErrnoAtEveryLevel) {
  const Output output = Capture(105, [] {
    errno = ENOENT;
    Sock_GetError(-1);
  });
  EXPECT_EQ(output.out, "errno = 2\n");
  EXPECT_EQ(Capture(104, [] { Sock_GetError(-1); }).log, "");
}

TEST(Sock, GetError_NoPendingError_IsErrno) {
  const TcpPair pair;
  int rc = 0;
  const Output output = Capture(101, [&] {
    errno = ENOSPC;
    rc = Sock_GetError(pair.near);
  });
  EXPECT_EQ(rc, ENOSPC);
  EXPECT_EQ(output.out, "errno = 28\n");
  EXPECT_EQ(output.log, "");
}

TEST(Sock, GetError_StandardOutputIsFull_IsStillTheErrorBefore) {
  const TcpPair pair;
  const Fd before(dup(STDOUT_FILENO)), full(open("/dev/full", O_WRONLY));
  dup2(full, STDOUT_FILENO);
  errno = EPIPE;
  const int rc = Sock_GetError(pair.near);
  dup2(before, STDOUT_FILENO);
  EXPECT_EQ(rc, EPIPE);
}

TEST(Sock, GetError_PendingError_ComesBeforeErrnoAndIsClearedByReading) {
  const Fd sock(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
  SockAddr addr = Loopback(FreePort());
  ASSERT_EQ(Sock_ConvertIP(&addr), 1);
  (void)connect(sock, reinterpret_cast<sockaddr *>(&addr.Addr), sizeof addr.Addr);
  pollfd ended = {sock, POLLOUT, 0};
  ASSERT_EQ(poll(&ended, 1, 10000), 1);
  int first = 0, second = 0;
  const Output output = Capture(101, [&] {
    errno = ENOSPC;
    first = Sock_GetError(sock);
    errno = ENOSPC;
    second = Sock_GetError(sock);
  });
  EXPECT_EQ(first, ECONNREFUSED);
  EXPECT_EQ(second, ENOSPC);
  EXPECT_EQ(output.out, "errno = 28\nerrno = 28\n");
}

TEST(Sock, GetError_AsksForFourBytesOfSoError) {
  const TcpPair pair;
  const Seams seams;
  Capture(101, [&] { Sock_GetError(pair.near); });
  EXPECT_EQ(seams.Trace(), "getsockopt(1, 4, 4)\n");
}

TEST(Sock, Init_SaysSoOnStandardOutput) {
  int rc = 0;
  const Output output = Capture(103, [&] { rc = Sock_Init(); });
  EXPECT_EQ(rc, 1);
  EXPECT_EQ(output.out, "[SOCK: Init] Socket subsystem initialized successfully.\n");
  EXPECT_EQ(output.log, "");
  EXPECT_EQ(Capture(104, [] { Sock_Init(); }).out, "");
  Debug_SetSend([](const char *, int) { return 1; });
  EXPECT_EQ(Capture(103, [] { Sock_Init(); }).out,
            "[SOCK: Init] Socket subsystem initialized successfully.\n")
      << "it went to the collector";
  Debug_SetSend(nullptr);
}

TEST(Sock, Term_DoesNothing) {
  const Seams seams;
  int rc = 0;
  const Output output = Capture(101, [&] { rc = Sock_Term(); });
  EXPECT_EQ(rc, 1);
  EXPECT_EQ(output.log + output.out + seams.Trace(), "");
}

TEST(Sock, Connect_ListeningPeer_StoresTheSocket) {
  const int port = FreePort();
  const Fd listener(ListenOn(port));
  SockAddr addr = Loopback(port);
  Fd sock;
  int rc = 0;
  const Output output = Capture(101, [&] { rc = Sock_Connect(&addr, 0, sock.Place()); });
  EXPECT_EQ(rc, 1);
  EXPECT_EQ(output.log + output.out, "");
  const Fd far(accept(listener, nullptr, nullptr));
  SendAll(sock, "hello");
  EXPECT_EQ(ReadBytes(far, 5), "hello");
}

TEST(Sock, Connect_MakesItsCallsInOrder) {
  const int port = FreePort();
  const Fd listener(ListenOn(port));
  SockAddr addr = Loopback(port);
  const Seams seams;
  Fd sock;
  EXPECT_EQ(Sock_Connect(&addr, 0, sock.Place()), 1);
  EXPECT_EQ(seams.Trace(),
            "socket(2, 1, 6)\n" + kTCPOptions + "inet_addr(127.0.0.1)\nconnect(16)\n");
}

TEST(Sock, Connect_Bit0OfTheOptions_RequestsModeWithTheValue0AndStaysBlocking) {
  const int port = FreePort();
  const Fd listener(ListenOn(port));
  SockAddr addr = Loopback(port);
  const Seams seams;
  Fd sock;
  EXPECT_EQ(Sock_Connect(&addr, 1, sock.Place()), 1);
  EXPECT_EQ(seams.Trace(), "socket(2, 1, 6)\nioctl(FIONBIO, 0)\n" + kTCPOptions +
                               "inet_addr(127.0.0.1)\nconnect(16)\n");
  EXPECT_TRUE(IsBlocking(sock));
}

TEST(Sock, Connect_OptionsWithoutBit0_MakeNoRequest) {
  const int port = FreePort();
  const Fd listener(ListenOn(port));
  SockAddr addr = Loopback(port);
  const Seams seams;
  Fd sock;
  EXPECT_EQ(Sock_Connect(&addr, 0x4002, sock.Place()), 1);
  EXPECT_EQ(seams.Count(Call::kIoctl), 0);
}

TEST(Sock, Connect_SetsTheThreeOptions) {
  const int port = FreePort();
  const Fd listener(ListenOn(port));
  SockAddr addr = Loopback(port);
  Fd sock;
  ASSERT_EQ(Sock_Connect(&addr, 0, sock.Place()), 1);
  EXPECT_EQ(Option(sock, SO_REUSEADDR), 1);
  EXPECT_EQ(Option(sock, SO_RCVBUF), 2 * 32768);  // the kernel doubles what it is told
  EXPECT_EQ(Option(sock, SO_SNDBUF), 2 * 32768);
  EXPECT_EQ(Option(sock, SO_PROTOCOL), IPPROTO_TCP);
}

TEST(Sock, Connect_NobodyListens_IsRefusedAndTheSocketStaysOpen) {
  const int port = FreePort();
  SockAddr addr = Loopback(port);
  const Seams seams;
  int rc = 0, place = 99;
  const Output output = Capture(103, [&] { rc = Sock_Connect(&addr, 0, &place); });
  const Fd left(seams.LastSocket());
  EXPECT_EQ(rc, -ECONNREFUSED);
  EXPECT_EQ(place, -1);
  EXPECT_EQ(
      output.log,
      Filled(
          "[SOCK: Connect] Error 111 (0x6f) from connect().  Unable to connect socket <sock> to 127.0.0.1:<port>.\n",
          left, port));
  EXPECT_EQ(output.out, "errno = 111\n");
  EXPECT_TRUE(IsOpen(left));
}

TEST(Sock, Connect_NullArgument_IsBadArgumentWithoutAMessage) {
  SockAddr addr = Loopback(80);
  int place = 99, no_addr = 0, no_place = 0;
  const Seams seams;
  const Output output = Capture(101, [&] {
    no_addr = Sock_Connect(nullptr, 0, &place);
    no_place = Sock_Connect(&addr, 0, nullptr);
  });
  EXPECT_EQ(no_addr, -3);
  EXPECT_EQ(no_place, -3);
  EXPECT_EQ(output.log + output.out, "");
  EXPECT_EQ(seams.Trace(), "");
}

TEST(Sock, Connect_AddressAlreadySet_IsUsedWhateverItsTextSays) {
  const int port = FreePort();
  const Fd listener(ListenOn(port));
  SockAddr addr = Loopback(port);
  ASSERT_EQ(Sock_ConvertIP(&addr), 1);
  std::strcpy(addr.IP, "0.0.0.0");
  addr.Port = -1;
  Fd sock;
  EXPECT_EQ(Sock_Connect(&addr, 0, sock.Place()), 1);
}

TEST(Sock, Connect_RecordOnceConverted_IsNotConvertedAgain) {
  const int port = FreePort();
  const Fd listener(ListenOn(port));
  SockAddr addr = Loopback(port);
  const Seams seams;
  Fd first, second;
  EXPECT_EQ(Sock_Connect(&addr, 0, first.Place()), 1);
  EXPECT_EQ(Sock_Connect(&addr, 0, second.Place()), 1);
  EXPECT_EQ(seams.Count(Call::kInetAddr), 1);
}

TEST(Sock, ConnectListenOpenUDP_PortFrom32768_IsRefusedSilentlyAndTheSocketStaysOpen) {
  for (const auto open : {Connect, Listen, OpenUDP}) {
    for (const int port : {32768, 65535, 0}) {
      SockAddr addr = Loopback(port);
      const Seams seams;
      int rc = 0, place = 99;
      const Output output = Capture(101, [&] { rc = open(&addr, &place); });
      const Fd left(seams.LastSocket());
      EXPECT_EQ(rc, -2);
      EXPECT_EQ(place, -1);
      EXPECT_EQ(output.log + output.out, "");
      EXPECT_TRUE(IsOpen(left));
    }
  }
}

TEST(Sock, ConnectListenOpenUDP_Text0000_IsRefusedWithTheConversionsMessage) {
  for (const auto open : {Connect, Listen, OpenUDP}) {
    SockAddr addr = AddrOf("0.0.0.0", FreePort());
    const Seams seams;
    int rc = 0, place = 99;
    const Output output = Capture(103, [&] { rc = open(&addr, &place); });
    const Fd left(seams.LastSocket());
    EXPECT_EQ(rc, -2);
    EXPECT_EQ(place, -1);
    EXPECT_EQ(
        output.log,
        "[SOCK: ConvertIP] Error converting to network address.  Network Address result is 0.\n");
  }
}

TEST(Sock, Listen_FreePort_TakesConnections) {
  const int port = FreePort();
  SockAddr addr = Loopback(port);
  Fd listener;
  int rc = 0;
  const Output output = Capture(101, [&] { rc = Sock_Listen(&addr, 0, listener.Place()); });
  EXPECT_EQ(rc, 1);
  EXPECT_EQ(output.log + output.out, "");
  const Fd client(ConnectFrom(0, port));
  const Fd served(accept(listener, nullptr, nullptr));
  EXPECT_GE(served, 0);
}

TEST(Sock, Listen_MakesItsCallsInOrder) {
  SockAddr addr = Loopback(FreePort());
  const Seams seams;
  Fd listener;
  EXPECT_EQ(Sock_Listen(&addr, 0, listener.Place()), 1);
  EXPECT_EQ(seams.Trace(),
            "socket(2, 1, 6)\n" + kTCPOptions + "inet_addr(127.0.0.1)\nbind(16)\nlisten(5)\n");
}

TEST(Sock, Listen_AddressAlreadySet_IsUsedWhateverItsTextSays) {
  const int port = FreePort();
  SockAddr addr = Loopback(port);
  ASSERT_EQ(Sock_ConvertIP(&addr), 1);
  std::strcpy(addr.IP, "0.0.0.0");
  addr.Port = -1;
  Fd listener;
  EXPECT_EQ(Sock_Listen(&addr, 0, listener.Place()), 1);
  EXPECT_EQ(PortOf(listener), port);
}

TEST(Sock, Listen_AnyOption_RequestsModeAndStaysBlocking) {
  for (const int option : {1, 2, -1}) {
    SockAddr addr = Loopback(FreePort());
    const Seams seams;
    Fd listener;
    EXPECT_EQ(Sock_Listen(&addr, option, listener.Place()), 1);
    EXPECT_EQ(seams.Trace(), "socket(2, 1, 6)\nioctl(FIONBIO, 0)\n" + kTCPOptions +
                                 "inet_addr(127.0.0.1)\nbind(16)\nlisten(5)\n");
    EXPECT_TRUE(IsBlocking(listener));
  }
}

TEST(Sock, Listen_PortInUse_IsRefused) {
  const int port = FreePort();
  const Fd other(ListenOn(port));
  SockAddr addr = Loopback(port);
  const Seams seams;
  int rc = 0, place = 99;
  const Output output = Capture(103, [&] { rc = Sock_Listen(&addr, 0, &place); });
  const Fd left(seams.LastSocket());
  EXPECT_EQ(rc, -98);
  EXPECT_EQ(place, -1);
  EXPECT_EQ(
      output.log,
      Filled(
          "[SOCK: Listen] Error 98 (0x62) from bind().  Unable to bind socket <sock> to address 127.0.0.1:<port>.\n",
          left, port));
}

TEST(Sock, Listen_NullArgument_IsBadArgumentWithoutAMessage) {
  SockAddr addr = Loopback(80);
  int place = 99, no_addr = 0, no_place = 0;
  const Output output = Capture(101, [&] {
    no_addr = Sock_Listen(nullptr, 0, &place);
    no_place = Sock_Listen(&addr, 0, nullptr);
  });
  EXPECT_EQ(no_addr, -3);
  EXPECT_EQ(no_place, -3);
  EXPECT_EQ(output.log + output.out, "");
}

TEST(Sock, OpenUDP_NoAddress_IsUnboundAndWithoutOptions) {
  const Seams seams;
  Fd sock;
  EXPECT_EQ(Sock_OpenUDP(nullptr, 0, sock.Place()), 1);
  EXPECT_EQ(seams.Trace(), "socket(2, 2, 17)\n");
  EXPECT_EQ(PortOf(sock), 0);
}

TEST(Sock, OpenUDP_Address_IsConvertedAndBound) {
  const int port = FreePort();
  SockAddr addr = Loopback(port);
  const Seams seams;
  Fd sock;
  EXPECT_EQ(Sock_OpenUDP(&addr, 0, sock.Place()), 1);
  EXPECT_EQ(seams.Trace(), "socket(2, 2, 17)\ninet_addr(127.0.0.1)\nbind(16)\n");
  EXPECT_EQ(PortOf(sock), port);
}

TEST(Sock, OpenUDP_AddressAlreadySet_IsNotConvertedAgain) {
  const int port = FreePort();
  SockAddr addr = Loopback(port);
  ASSERT_EQ(Sock_ConvertIP(&addr), 1);
  std::strcpy(addr.IP, "0.0.0.0");
  Fd sock;
  EXPECT_EQ(Sock_OpenUDP(&addr, 0, sock.Place()), 1);
  EXPECT_EQ(PortOf(sock), port);
}

TEST(Sock, OpenUDP_AnyOption_RequestsModeAndStaysBlocking) {
  for (const int option : {1, 2, -1}) {
    const Seams seams;
    Fd sock;
    EXPECT_EQ(Sock_OpenUDP(nullptr, option, sock.Place()), 1);
    EXPECT_EQ(seams.Trace(), "socket(2, 2, 17)\nioctl(FIONBIO, 0)\n");
    EXPECT_TRUE(IsBlocking(sock));
  }
}

TEST(Sock, OpenUDP_PortInUse_IsRefused) {
  const int port = FreePort();
  const Fd other(BindUDP(port));
  SockAddr addr = Loopback(port);
  const Seams seams;
  int rc = 0, place = 99;
  const Output output = Capture(103, [&] { rc = Sock_OpenUDP(&addr, 0, &place); });
  const Fd left(seams.LastSocket());
  EXPECT_EQ(rc, -98);
  EXPECT_EQ(place, -1);
  EXPECT_EQ(
      output.log,
      Filled(
          "[SOCK: OpenUDP] Error 98 (0x62) from bind().  Unable to bind socket <sock> to address 127.0.0.1:<port>.\n",
          left, port));
}

TEST(Sock, OpenUDP_NullPlace_IsBadArgumentWithoutAMessage) {
  int rc = 0;
  const Output output = Capture(101, [&] { rc = Sock_OpenUDP(nullptr, 0, nullptr); });
  EXPECT_EQ(rc, -3);
  EXPECT_EQ(output.log + output.out, "");
}

TEST(Sock, Accept_Connection_FillsThePeersTextAndPort) {
  const int port = FreePort(), own = FreePort();
  const Fd listener(ListenOn(port));
  const Fd client(ConnectFrom(own, port));
  SockAddr peer = AddrOf("192.168.100.200", 1);
  Fd sock;
  int rc = 0;
  const Output output = Capture(101, [&] { rc = Sock_Accept(listener, &peer, sock.Place()); });
  EXPECT_EQ(rc, 1);
  EXPECT_STREQ(peer.IP, "127.0.0.1");
  EXPECT_EQ(peer.Port, own);
  EXPECT_EQ(output.log + output.out, "");
  SendAll(client, "hello");
  EXPECT_EQ(ReadBytes(sock, 5), "hello");
}

TEST(Sock, Accept_PeerPortFrom32768_ReadsAsANegativeNumber) {
  const Fd listener(ListenOn(FreePort()));
  const Fd client(ConnectFrom(0, PortOf(listener)));
  SockAddr peer = {};
  Fd sock;
  EXPECT_EQ(Sock_Accept(listener, &peer, sock.Place()), 1);
  EXPECT_EQ(peer.Port, PortOf(client) - 65536);
}

TEST(Sock, Accept_PassesALengthOfSixteen) {
  const Fd listener(ListenOn(FreePort()));
  const Fd client(ConnectFrom(0, PortOf(listener)));
  const Seams seams;
  SockAddr peer = {};
  Fd sock;
  EXPECT_EQ(Sock_Accept(listener, &peer, sock.Place()), 1);
  EXPECT_EQ(seams.Trace(), "accept(16)\ninet_ntoa()\n");
}

TEST(Sock, Accept_AcceptFails_GivesTheResult0AndNamesTheSocketMinus1) {
  const Fd listener(ListenOn(FreePort()));
  SockAddr peer = AddrOf("10.1.2.3", 5);
  Seams seams;
  seams.Fail(Call::kAccept, EMFILE);
  int rc = 99, place = 99;
  const Output output = Capture(103, [&] { rc = Sock_Accept(listener, &peer, &place); });
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(place, -1);
  EXPECT_EQ(std::string(peer.IP, 9), std::string("\0\0\0\0.2.3\0", 9));
  EXPECT_EQ(peer.Port, 5);
  EXPECT_EQ(
      output.log,
      GetErrorLines(-1, EBADF) +
          "[SOCK: Accept] Error 0 (0x0) from accept().  Unable to accept new connection on socket -1.\n");
  EXPECT_EQ(output.out, "errno = 24\n");
}

TEST(Sock, Accept_AcceptFails_IsLoggedAt103) {
  Seams seams;
  seams.Fail(Call::kAccept, EMFILE);
  SockAddr peer = {};
  int place = 99;
  EXPECT_EQ(Capture(104, [&] { Sock_Accept(0, &peer, &place); }).log, "");
}

// A local socket has no IPv4 address, so the record stays at 0.
TEST(Sock, Accept_PeerWithoutAddress_IsClosedAgain) {
  const TempDir dir;
  sockaddr_un name = {AF_UNIX, "socket"};
  const Fd listener(socket(AF_UNIX, SOCK_STREAM, 0)), client(socket(AF_UNIX, SOCK_STREAM, 0)),
      second(socket(AF_UNIX, SOCK_STREAM, 0));
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&name), sizeof name), 0);
  ASSERT_EQ(listen(listener, 2), 0);
  ASSERT_EQ(connect(client, reinterpret_cast<sockaddr *>(&name), sizeof name), 0);
  ASSERT_EQ(connect(second, reinterpret_cast<sockaddr *>(&name), sizeof name), 0);
  const Seams seams;
  SockAddr peer = AddrOf("10.1.2.3", 5);
  int rc = 99, place = 99;
  const Output output = Capture(103, [&] { rc = Sock_Accept(listener, &peer, &place); });
  EXPECT_EQ(rc, -2);
  EXPECT_EQ(place, -1);
  EXPECT_EQ(
      output.log,
      "[SOCK: ConvertIP] Error converting from network address.  Network Address is 0.\n" +
          Filled(
              "[SOCK: Accept] Closing new connection on socket <sock> because could not convert IP.\n",
              seams.LastSocket(), 0));
  EXPECT_FALSE(IsOpen(seams.LastSocket()));
  EXPECT_EQ(Capture(104, [&] { rc = Sock_Accept(listener, &peer, &place); }).log, "");
  EXPECT_EQ(rc, -2);
}

TEST(Sock, Accept_BadArgument_IsRefusedWithoutAMessage) {
  SockAddr peer = {};
  int place = 99, rc[3] = {};
  const Output output = Capture(101, [&] {
    rc[0] = Sock_Accept(-1, &peer, &place);
    rc[1] = Sock_Accept(0, nullptr, &place);
    rc[2] = Sock_Accept(0, &peer, nullptr);
  });
  for (const int code : rc) EXPECT_EQ(code, -3);
  EXPECT_EQ(output.log + output.out, "");
}

TEST(Sock, Close_OpenSocket_IsClosed) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  int rc = 0;
  const Output output = Capture(101, [&] { rc = Sock_Close(fd); });
  EXPECT_EQ(rc, 1);
  EXPECT_FALSE(IsOpen(fd));
  EXPECT_EQ(output.log + output.out, "");
}

TEST(Sock, Close_Descriptor0_IsClosedAsAnyOther) {
  const Fd saved(dup(STDIN_FILENO)), file(open("/dev/null", O_RDONLY));
  ASSERT_EQ(dup2(file, STDIN_FILENO), STDIN_FILENO);
  const int rc = Sock_Close(STDIN_FILENO);
  const bool is_open = IsOpen(STDIN_FILENO);
  if (saved >= 0) dup2(saved, STDIN_FILENO);
  EXPECT_EQ(rc, 1);
  EXPECT_FALSE(is_open);
}

TEST(Sock, Close_NegativeSocket_IsBadArgument) {
  int rc = 0;
  EXPECT_EQ(Capture(101, [&] { rc = Sock_Close(-1); }).log, "");
  EXPECT_EQ(rc, -3);
}

TEST(Sock, Close_Fails_LogsAndReturnsTheNegatedCode) {
  const TcpPair pair;
  const FdCapture out(STDOUT_FILENO);
  const LogCapture log(103);
  Seams seams;
  seams.Fail(Call::kClose, EIO);
  const int rc = Sock_Close(pair.near);
  const std::string text = out.Text();
  EXPECT_EQ(rc, -EIO);
  EXPECT_EQ(log.Messages(),
            Filled("[SOCK: Close] Error 5 (0x5) from close().  Unable to close socket <sock>.\n",
                   pair.near, 0));
  EXPECT_EQ(text, "errno = 5\n");
}

// A second call would succeed.
TEST(Sock, ConnectAcceptClose_Interrupted_AreNotRepeated) {
  const int port = FreePort();
  const Fd listener(ListenOn(port)), client(ConnectFrom(0, port)), sock(dup(client));
  SockAddr addr = Loopback(port), peer = {};
  int connected = 99, accepted = 99, closed = 99, place = 99;
  Seams seams;
  Capture(103, [&] {
    seams.Fail(Call::kConnect, EINTR).Fail(Call::kAccept, EINTR).Fail(Call::kClose, EINTR);
    connected = Sock_Connect(&addr, 0, &place);
    accepted = Sock_Accept(listener, &peer, &place);
    closed = Sock_Close(sock);
  });
  const Fd left(seams.LastSocket());
  EXPECT_EQ(connected, -EINTR);
  EXPECT_EQ(accepted, 0);
  EXPECT_EQ(closed, -EINTR);
}

TEST(Sock, Close_UnknownDescriptor_GivesTheResult0) {
  int rc = 99;
  const Output output = Capture(103, [&] { rc = Sock_Close(9999); });
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(output.log,
            GetErrorLines(9999, EBADF) +
                "[SOCK: Close] Error 0 (0x0) from close().  Unable to close socket 9999.\n");
  EXPECT_EQ(Capture(104, [] { Sock_Close(9999); }).log, "");
}

TEST(Sock, Shutdown_EveryValue_IsRefusedWithoutACall) {
  const TcpPair pair;
  const Seams seams;
  for (const int how : {0, 1, 2, -1, 3}) {
    int rc = 0;
    const Output output = Capture(101, [&] { rc = Sock_Shutdown(pair.near, how); });
    EXPECT_EQ(rc, -3) << how;
    EXPECT_EQ(output.log + output.out, "") << how;
  }
  EXPECT_EQ(Sock_Shutdown(-1, SHUT_RDWR), -3);
  EXPECT_EQ(seams.Count(Call::kShutdown), 0);
}
