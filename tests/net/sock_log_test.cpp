// Where the socket layer's messages go: to the collector once there is one, none past it.  Those of
// the operations that make a socket are in sock_open_test.cpp.
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>

#include "debug/log.h"
#include "net/sock.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

int collected = 0;

int Collect(const char *, int) {
  ++collected;
  return 1;
}

// The action logs so many messages, each of which goes to the collector.
void ExpectCollected(int messages, const char *name, const std::function<void()> &action) {
  collected = 0;
  Debug_SetSend(Collect);
  const Output output = Capture(103, action);
  Debug_SetSend(nullptr);
  EXPECT_EQ(collected, messages) << name;
  EXPECT_EQ(output.log, "") << name;
}

constexpr int kNoSocket = 9999;
constexpr int kGetError = 4;  // messages of a descriptor that cannot be asked

}  // namespace

TEST(SockLog, Transfers_LogToTheCollector) {
  SockAddr addr = Loopback(FreePort());
  char buf[8];
  int len = sizeof buf;
  ExpectCollected(kGetError, "GetError", [] { Sock_GetError(-1); });
  ExpectCollected(1, "SendTCP no socket", [] { Sock_SendTCP(-1, "x", 1, 0); });
  ExpectCollected(1, "SendTCP no data", [] { Sock_SendTCP(0, nullptr, 1, 0); });
  ExpectCollected(1, "SendTCP no length", [] { Sock_SendTCP(0, "x", 0, 0); });
  ExpectCollected(kGetError + 1, "SendTCP", [] { Sock_SendTCP(kNoSocket, "x", 1, 0); });
  ExpectCollected(kGetError + 1, "RecvTCP", [&] { Sock_RecvTCP(kNoSocket, buf, &len, 0); });
  ExpectCollected(kGetError + 1, "SendUDP", [&] { Sock_SendUDP(kNoSocket, "x", 1, &addr, 0); });
  ExpectCollected(kGetError + 1, "RecvUDP", [&] { Sock_RecvUDP(kNoSocket, buf, &len, &addr, 0); });
  ExpectCollected(kGetError + 1, "Close", [] { Sock_Close(kNoSocket); });
}

TEST(SockLog, Exchanges_LogToTheCollector) {
  const int port = FreePort();
  const Fd listener(ListenOn(port));
  SockAddr addr = Loopback(port), bad = Loopback(0);
  char buf[8];
  int len = sizeof buf, place = -1;
  const Seams seams;
  ExpectCollected(1, "TransactTCP connect", [&] { Sock_TransactTCP(&bad, "x", 1, buf, &len, 0); });
  const Fd unconnected(seams.LastSocket());
  ExpectCollected(2, "TransactTCP send", [&] { Sock_TransactTCP(&addr, "x", 0, buf, &len, 0); });
  const Fd unsent(seams.LastSocket());
  ExpectCollected(1, "TransactTCP recv",
                  [&] { Sock_TransactTCP(&addr, "x", 1, nullptr, &len, 0); });
  const Fd unread(seams.LastSocket());
  ExpectCollected(1, "ConnectAndSend connect",
                  [&] { Sock_ConnectAndSend(&bad, &place, "x", 1, 0); });
  const Fd unconnected_too(seams.LastSocket());
  ExpectCollected(2, "ConnectAndSend send", [&] { Sock_ConnectAndSend(&addr, &place, "x", 0, 0); });
}

TEST(SockLog, Addresses_LogToTheCollector) {
  const Fd listener(ListenOn(FreePort()));
  const Fd client(ConnectFrom(0, PortOf(listener)));
  SockAddr zero = AddrOf("0.0.0.0", 80), empty = {}, peer = {};
  int place = -1;
  ExpectCollected(1, "ConvertIP text", [&] { Sock_ConvertIP(&zero); });
  ExpectCollected(1, "ConvertIP address", [&] { Sock_ConvertIP(&empty); });
  ExpectCollected(kGetError + 1, "Accept", [&] { Sock_Accept(kNoSocket, &peer, &place); });
  Seams seams;
  seams.Fail(Call::kInetNtoa, 0);
  ExpectCollected(2, "Accept without a text", [&] { Sock_Accept(listener, &peer, &place); });
  EXPECT_FALSE(IsOpen(seams.LastSocket()));
}
