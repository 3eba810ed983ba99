// Transfers over UDP.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "net/sock.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

// A receiver on a known port, and a sender on another one below 32768.
class SockUDP : public testing::Test {
 protected:
  std::string Receive() { return ReadBytes(receiver_, 64); }

  const int port_ = FreePort(), own_port_ = FreePort();
  const Fd receiver_{BindUDP(port_)}, sender_{BindUDP(own_port_)};
  SockAddr dest_ = Loopback(port_);
  SockAddr from_ = {};
  char buf_[64] = {};
  int len_ = sizeof buf_;
  int rc_ = 99;
};

}  // namespace

TEST_F(SockUDP, SendUDP_Datagram_ArrivesWhole) {
  const Output output = Capture(101, [&] { rc_ = Sock_SendUDP(sender_, "hello", 5, &dest_, 0); });
  EXPECT_EQ(rc_, 1);
  EXPECT_EQ(output.log + output.out, "");
  EXPECT_EQ(Receive(), "hello");
}

TEST_F(SockUDP, SendUDP_MakesOneCallWithItsFlagsAndSixteenBytesOfAddress) {
  const Seams seams;
  EXPECT_EQ(Sock_SendUDP(sender_, "hello", 5, &dest_, MSG_NOSIGNAL), 1);
  EXPECT_EQ(seams.Trace(), "inet_addr(127.0.0.1)\nsendto(5, 16384, 16)\n");
}

TEST_F(SockUDP, SendUDP_ChangedText_IsConvertedEveryTime) {
  EXPECT_EQ(Sock_SendUDP(sender_, "first", 5, &dest_, 0), 1);
  const int other_port = FreePort();
  const Fd other(BindUDP(other_port));
  dest_.Port = static_cast<std::int16_t>(other_port);
  EXPECT_EQ(Sock_SendUDP(sender_, "second", 6, &dest_, 0), 1);
  EXPECT_EQ(ReadBytes(other, 64), "second");
  std::strcpy(dest_.IP, "0.0.0.0");
  Capture(103, [&] { rc_ = Sock_SendUDP(sender_, "third", 5, &dest_, 0); });
  EXPECT_EQ(rc_, -2);
}

TEST_F(SockUDP, SendUDP_NetworkFormAlone_IsUsedAndGetsItsText) {
  ASSERT_EQ(Sock_ConvertIP(&dest_), 1);
  SockAddr dest = {};
  dest.Addr = dest_.Addr;
  ASSERT_EQ(Sock_SendUDP(sender_, "hello", 5, &dest, 0), 1);
  EXPECT_EQ(Receive(), "hello");
  EXPECT_STREQ(dest.IP, "127.0.0.1");
  EXPECT_EQ(dest.Port, port_);
}

TEST_F(SockUDP, SendUDP_PortFrom32768_IsRefusedSilently) {
  const Seams seams;
  for (const int port : {32768, 65535, 0}) {
    dest_.Port = static_cast<std::int16_t>(port);
    const Output output = Capture(101, [&] { rc_ = Sock_SendUDP(sender_, "x", 1, &dest_, 0); });
    EXPECT_EQ(rc_, -2) << port;
    EXPECT_EQ(output.log + output.out, "") << port;
  }
  EXPECT_EQ(seams.Count(Call::kSendto), 0);
}

TEST_F(SockUDP, SendUDP_BadArgument_IsRefusedWithoutAMessage) {
  int rc[4] = {};
  const Output output = Capture(101, [&] {
    rc[0] = Sock_SendUDP(-1, "x", 1, &dest_, 0);
    rc[1] = Sock_SendUDP(sender_, nullptr, 1, &dest_, 0);
    rc[2] = Sock_SendUDP(sender_, "x", 0, &dest_, 0);
    rc[3] = Sock_SendUDP(sender_, "x", 1, nullptr, 0);
  });
  for (const int code : rc) EXPECT_EQ(code, -3);
  EXPECT_EQ(output.log + output.out, "");
}

TEST_F(SockUDP, SendUDP_DatagramTooLarge_LogsAndReturnsTheNegatedCode) {
  const std::vector<char> data(65536, 'x');
  const Output output =
      Capture(103, [&] { rc_ = Sock_SendUDP(sender_, data.data(), 65536, &dest_, 0); });
  EXPECT_EQ(rc_, -EMSGSIZE);
  EXPECT_EQ(output.log,
            "[SOCK: SendUDP] Error 90 (0x5a) from sendto().  Unable to send on socket " +
                std::to_string(sender_) + " to 127.0.0.1:" + std::to_string(port_) + ".\n");
  EXPECT_EQ(output.out, "errno = 90\n");
}

TEST_F(SockUDP, SendUDP_Fails_IsLoggedAt103) {
  Seams seams;
  seams.Fail(Call::kSendto, ENETUNREACH);
  EXPECT_EQ(Capture(104, [&] { rc_ = Sock_SendUDP(sender_, "x", 1, &dest_, 0); }).log, "");
  EXPECT_EQ(rc_, -ENETUNREACH);
}

TEST_F(SockUDP, SendUDP_Interrupted_IsNotRepeated) {
  Seams seams;
  seams.Fail(Call::kSendto, EINTR);
  Capture(103, [&] { rc_ = Sock_SendUDP(sender_, "x", 1, &dest_, 0); });
  EXPECT_EQ(rc_, -EINTR);
  EXPECT_EQ(seams.Count(Call::kSendto), 1);
}

TEST_F(SockUDP, RecvUDP_Datagram_FillsTheSendersTextAndPort) {
  ASSERT_EQ(Sock_SendUDP(sender_, "hello", 5, &dest_, 0), 1);
  from_ = AddrOf("192.168.100.200", 1);
  const Output output =
      Capture(101, [&] { rc_ = Sock_RecvUDP(receiver_, buf_, &len_, &from_, 0); });
  EXPECT_EQ(rc_, 1);
  EXPECT_EQ(std::string(buf_, static_cast<std::size_t>(len_)), "hello");
  EXPECT_STREQ(from_.IP, "127.0.0.1");
  EXPECT_EQ(from_.Port, own_port_);
  EXPECT_EQ(output.log + output.out, "");
}

TEST_F(SockUDP, RecvUDP_SenderPortFrom32768_ReadsNegativeAndCannotBeAnswered) {
  const Fd client(BindUDP(0));
  ASSERT_EQ(Sock_SendUDP(client, "ping", 4, &dest_, 0), 1);
  EXPECT_EQ(Sock_RecvUDP(receiver_, buf_, &len_, &from_, 0), 1);
  EXPECT_EQ(from_.Port, PortOf(client) - 65536);
  EXPECT_EQ(Sock_SendUDP(receiver_, "pong", 4, &from_, 0), -2);
}

TEST_F(SockUDP, RecvUDP_SenderBelow32768_CanBeAnswered) {
  ASSERT_EQ(Sock_SendUDP(sender_, "ping", 4, &dest_, 0), 1);
  EXPECT_EQ(Sock_RecvUDP(receiver_, buf_, &len_, &from_, 0), 1);
  EXPECT_EQ(Sock_SendUDP(receiver_, "pong", 4, &from_, 0), 1);
  EXPECT_EQ(ReadBytes(sender_, 64), "pong");
}

TEST_F(SockUDP, RecvUDP_PassesCapacityFlagsAndALengthOfSixteen) {
  ASSERT_EQ(Sock_SendUDP(sender_, "hello", 5, &dest_, 0), 1);
  const Seams seams;
  EXPECT_EQ(Sock_RecvUDP(receiver_, buf_, &len_, &from_, MSG_PEEK), 1);
  EXPECT_EQ(seams.Trace(), "recvfrom(64, 2, 16)\ninet_ntoa()\n");
}

TEST_F(SockUDP, RecvUDP_DatagramLongerThanTheBuffer_IsCut) {
  ASSERT_EQ(Sock_SendUDP(sender_, "hello", 5, &dest_, 0), 1);
  std::memset(buf_, 'x', sizeof buf_);
  len_ = 3;
  EXPECT_EQ(Sock_RecvUDP(receiver_, buf_, &len_, &from_, 0), 1);
  EXPECT_EQ(len_, 3);
  EXPECT_EQ(std::string(buf_, 5), "helxx");
}

TEST_F(SockUDP, RecvUDP_EmptyDatagram_IsSuccessOfLength0) {
  sockaddr_in to = {};
  ASSERT_EQ(Sock_ConvertIP(&dest_), 1);
  to = dest_.Addr;
  ASSERT_EQ(sendto(sender_, "", 0, 0, reinterpret_cast<sockaddr *>(&to), sizeof to), 0);
  EXPECT_EQ(Sock_RecvUDP(receiver_, buf_, &len_, &from_, 0), 1);
  EXPECT_EQ(len_, 0);
  EXPECT_EQ(from_.Port, own_port_);
}

TEST_F(SockUDP, RecvUDP_NoCapacity_TakesTheDatagramAndNoneOfIt) {
  ASSERT_EQ(Sock_SendUDP(sender_, "ping", 4, &dest_, 0), 1);
  len_ = 0;
  EXPECT_EQ(Sock_RecvUDP(receiver_, buf_, &len_, &from_, 0), 1);
  EXPECT_EQ(len_, 0);
  EXPECT_EQ(from_.Port, own_port_);
}

TEST_F(SockUDP, RecvUDP_NothingThere_LogsAndReturnsTheNegatedCode) {
  EXPECT_EQ(
      MessagesAt(103, [&] { rc_ = Sock_RecvUDP(receiver_, buf_, &len_, &from_, MSG_DONTWAIT); }),
      "[SOCK: RecvUDP] Error 11 (0xb) from recvfrom().  Unable to receive on socket " +
          std::to_string(receiver_) + ".\n");
  EXPECT_EQ(rc_, -EAGAIN);
}

TEST_F(SockUDP, RecvUDP_RecvfromFails_PrintsErrnoAndHasClearedFourBytesOfTheSendersText) {
  Seams seams;
  seams.Fail(Call::kRecvfrom, EINTR);
  from_ = AddrOf("10.1.2.3", 5);
  const Output output =
      Capture(103, [&] { rc_ = Sock_RecvUDP(receiver_, buf_, &len_, &from_, 0); });
  EXPECT_EQ(rc_, -EINTR);
  EXPECT_EQ(len_, 64);
  EXPECT_EQ(output.out, "errno = 4\n");
  EXPECT_EQ(std::string(from_.IP, 9), std::string("\0\0\0\0.2.3\0", 9));
  EXPECT_EQ(seams.Count(Call::kRecvfrom), 1);
}

// A local socket has no IPv4 address, so the record stays at 0.
TEST_F(SockUDP, RecvUDP_SenderWithoutAddress_FailsWithItsLengthSet) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
  const Fd near(ends[0]), far(ends[1]);
  ASSERT_EQ(send(far, "hello", 5, 0), 5);
  const Output output = Capture(103, [&] { rc_ = Sock_RecvUDP(near, buf_, &len_, &from_, 0); });
  EXPECT_EQ(rc_, -2);
  EXPECT_EQ(len_, 5);
  EXPECT_EQ(output.log,
            "[SOCK: ConvertIP] Error converting from network address.  Network Address is 0.\n");
}

TEST_F(SockUDP, RecvUDP_BadArgument_IsRefusedWithoutAMessage) {
  int rc[5] = {}, negative = -1;
  const Output output = Capture(101, [&] {
    rc[0] = Sock_RecvUDP(-1, buf_, &len_, &from_, 0);
    rc[1] = Sock_RecvUDP(receiver_, nullptr, &len_, &from_, 0);
    rc[2] = Sock_RecvUDP(receiver_, buf_, nullptr, &from_, 0);
    rc[3] = Sock_RecvUDP(receiver_, buf_, &negative, &from_, 0);
    rc[4] = Sock_RecvUDP(receiver_, buf_, &len_, nullptr, 0);
  });
  for (const int code : rc) EXPECT_EQ(code, -3);
  EXPECT_EQ(output.log + output.out, "");
}
