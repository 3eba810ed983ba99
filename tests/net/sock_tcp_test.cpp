// Transfers over TCP.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "net/sock.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

std::string Num(int number) { return std::to_string(number); }

std::string GetErrorLines(int sock, int err) {
  return "[SOCK: GetError] Uhmm, Houston...We have a problem.\n"
         "[SOCK: GetError] We can't seem to get our socket errors here for sock " +
         Num(sock) +
         ".\n"
         "[SOCK: GetError] The system reports this as errno = " +
         Num(err) +
         ".\n"
         "[SOCK: GetError] What are your recommendations ?\n";
}

void AwaitInput(int fd) {
  pollfd readable = {fd, POLLIN, 0};
  ASSERT_EQ(poll(&readable, 1, 10000), 1);
}

// Sends bytes and waits until all of them can be looked at.
void Deliver(int from, int to, const std::string &bytes) {
  SendAll(from, bytes);
  Await([&] {
    std::string seen(bytes.size(), '\0');
    return recv(to, seen.data(), seen.size(), MSG_PEEK | MSG_DONTWAIT) ==
           static_cast<ssize_t>(bytes.size());
  });
}

// One Sock_RecvDelim: what it returned, and the buffer of that capacity behind it.
struct Line {
  int rc;
  int len;
  std::string buf;
};

Line RecvDelim(int sock, int capacity, const char *delims = "\n") {
  Line line = {0, capacity, std::string(static_cast<std::size_t>(capacity), '\0')};
  line.rc = Sock_RecvDelim(sock, line.buf.data(), &line.len, delims);
  return line;
}

std::string Taken(const Line &line) {
  return line.buf.substr(0, static_cast<std::size_t>(line.len));
}

}  // namespace

TEST(SockTCP, SendTCP_Data_IsSentInOneCall) {
  const TcpPair pair;
  const Seams seams;
  int rc = 0;
  const Output output =
      Capture(101, [&] { rc = Sock_SendTCP(pair.near, "hello\n", 6, MSG_NOSIGNAL); });
  EXPECT_EQ(rc, 1);
  EXPECT_EQ(output.log + output.out, "");
  EXPECT_NE(seams.Trace().find("send(6, 16384)\n"), std::string::npos);
  EXPECT_EQ(seams.Count(Call::kSend), 1);
  EXPECT_EQ(ReadBytes(pair.far, 6), "hello\n");
}

TEST(SockTCP, SendTCP_BadArgument_IsLoggedInTheOrderOfTheChecks) {
  int rc = 0;
  EXPECT_EQ(MessagesAt(103, [&] { rc = Sock_SendTCP(-7, nullptr, 0, 0); }),
            "[Sock: SendTCP] Invalid Socket: -7\n");
  EXPECT_EQ(rc, -3);
  EXPECT_EQ(MessagesAt(103, [&] { rc = Sock_SendTCP(0, nullptr, 0, 0); }),
            "[Sock: SendTCP] data is NULL for sock 0\n");
  EXPECT_EQ(rc, -3);
  EXPECT_EQ(MessagesAt(103, [&] { rc = Sock_SendTCP(0, "x", 0, 0); }),
            "[Sock: SendTCP] datalen == 0 for sock 0\n");
  EXPECT_EQ(rc, -3);
}

TEST(SockTCP, SendTCP_BadArgument_MakesNoCall) {
  const Seams seams;
  const Output output = Capture(103, [] {
    Sock_SendTCP(-1, "x", 1, 0);
    Sock_SendTCP(0, nullptr, 1, 0);
    Sock_SendTCP(0, "x", 0, 0);
  });
  EXPECT_EQ(seams.Count(Call::kSend), 0);
  EXPECT_EQ(output.out, "");
}

TEST(SockTCP, SendTCP_PartialSend_IsSuccess) {
  TcpPair pair;
  const std::vector<char> data(16 * 1024 * 1024, 'x');
  int rc = 0;
  const Output output = Capture(101, [&] {
    rc = Sock_SendTCP(pair.near, data.data(), static_cast<int>(data.size()), MSG_DONTWAIT);
  });
  EXPECT_EQ(rc, 1);
  EXPECT_EQ(output.log + output.out, "");
  pair.near.Close();
  const std::size_t arrived = ReadBytes(pair.far, data.size()).size();
  EXPECT_GT(arrived, 0U);
  EXPECT_LT(arrived, data.size());
}

TEST(SockTCP, SendTCP_ClosedPeer_LogsAndReturnsTheNegatedCode) {
  const TcpPair pair;
  ASSERT_EQ(shutdown(pair.near, SHUT_WR), 0);
  int rc = 0;
  const Output output = Capture(103, [&] { rc = Sock_SendTCP(pair.near, "x", 1, MSG_NOSIGNAL); });
  EXPECT_EQ(rc, -EPIPE);
  EXPECT_EQ(output.log, "[SOCK: SendTCP] Error 32 (0x20) from send().  Unable to send on socket " +
                            Num(pair.near) + ".\n");
  EXPECT_EQ(output.out, "errno = 32\n");
}

TEST(SockTCP, SendTCP_Fails_IsLoggedAt103) {
  const TcpPair pair;
  Seams seams;
  seams.Fail(Call::kSend, EINTR, 1, 2);
  EXPECT_EQ(MessagesAt(103, [&] { Sock_SendTCP(pair.near, "x", 1, 0); }),
            "[SOCK: SendTCP] Error 4 (0x4) from send().  Unable to send on socket " +
                Num(pair.near) + ".\n");
  EXPECT_EQ(seams.Count(Call::kSend), 2) << "an interrupted call was repeated";
}

TEST(SockTCP, RecvTCP_Data_IsTakenInOneCallAndNothingElseIsTouched) {
  const TcpPair pair;
  SendAll(pair.far, "hello");
  AwaitInput(pair.near);
  char buf[16];
  std::memset(buf, 'x', sizeof buf);
  int len = 10, rc = 0;
  const Output output = Capture(101, [&] { rc = Sock_RecvTCP(pair.near, buf, &len, 0); });
  EXPECT_EQ(rc, 1);
  EXPECT_EQ(len, 5);
  EXPECT_EQ(std::string(buf, sizeof buf), "helloxxxxxxxxxxx");
  EXPECT_EQ(output.log + output.out, "");
}

TEST(SockTCP, RecvTCP_PassesCapacityAndFlags) {
  const TcpPair pair;
  SendAll(pair.far, "hello");
  char buf[3];
  int len = sizeof buf;
  const Seams seams;
  EXPECT_EQ(Sock_RecvTCP(pair.near, buf, &len, MSG_PEEK), 1);
  EXPECT_EQ(Sock_RecvTCP(pair.near, buf, &len, 0), 1);
  EXPECT_EQ(seams.Trace(), "recv(3, 2)\nrecv(3, 0)\n");
  EXPECT_EQ(std::string(buf, 3), "hel");
  EXPECT_EQ(ReadBytes(pair.near, 2), "lo");
}

TEST(SockTCP, RecvTCP_PeerHasClosed_IsSuccessOfLength0) {
  TcpPair pair;
  pair.far.Close();
  char buf[8];
  int len = sizeof buf;
  EXPECT_EQ(Sock_RecvTCP(pair.near, buf, &len, 0), 1);
  EXPECT_EQ(len, 0);
}

TEST(SockTCP, RecvTCP_BadArgument_IsRefusedWithoutAMessage) {
  char buf[8];
  int len = sizeof buf, none = 0, rc[4] = {};
  const Seams seams;
  std::string written;
  {
    const Output output = Capture(101, [&] {
      rc[0] = Sock_RecvTCP(-1, buf, &len, 0);
      rc[1] = Sock_RecvTCP(0, nullptr, &len, 0);
      rc[2] = Sock_RecvTCP(0, buf, nullptr, 0);
      rc[3] = Sock_RecvTCP(0, buf, &none, 0);
    });
    written = output.log + output.out;
  }
  for (const int code : rc) EXPECT_EQ(code, -3);
  EXPECT_EQ(written, "");
  EXPECT_EQ(seams.Count(Call::kRecv), 0);
}

TEST(SockTCP, RecvTCP_ResetConnection_IsMinus104) {
  TcpPair pair;
  Reset(&pair.far);
  char buf[8];
  int len = sizeof buf, rc = 0;
  const Output output = Capture(103, [&] { rc = Sock_RecvTCP(pair.near, buf, &len, 0); });
  EXPECT_EQ(rc, -104);
  EXPECT_EQ(len, 8);
  EXPECT_EQ(output.log,
            "[SOCK: RecvTCP] Error 104 (0x68) from recv().  Unable to receive on socket " +
                Num(pair.near) + ".\n");
  EXPECT_EQ(output.out, "errno = 104\n");
}

TEST(SockTCP, RecvTCP_UnconnectedSocket_IsMinus107) {
  const Fd sock(socket(AF_INET, SOCK_STREAM, 0));
  char buf[8];
  int len = sizeof buf, rc = 0;
  EXPECT_EQ(MessagesAt(103, [&] { rc = Sock_RecvTCP(sock, buf, &len, 0); }),
            "[SOCK: RecvTCP] Error 107 (0x6b) from recv().  Unable to receive on socket " +
                Num(sock) + ".\n");
  EXPECT_EQ(rc, -107);
}

TEST(SockTCP, RecvTCP_DescriptorThatIsNoSocket_GivesTheResult0) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const Fd out(ends[0]), in(ends[1]);
  char buf[8];
  int len = sizeof buf, rc = 99;
  const Output output = Capture(103, [&] { rc = Sock_RecvTCP(out, buf, &len, 0); });
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(output.log,
            GetErrorLines(out, ENOTSOCK) +
                "[SOCK: RecvTCP] Error 0 (0x0) from recv().  Unable to receive on socket " +
                Num(out) + ".\n");
}

TEST(SockTCP, RecvDelim_TwoLines_AreTakenOneByOneAndThenTheEnd) {
  TcpPair pair;
  Deliver(pair.far, pair.near, "AB\nCD\n");
  pair.far.Close();
  for (const char *expected : {"AB\n", "CD\n"}) {
    const Line line = RecvDelim(pair.near, 64);
    EXPECT_EQ(line.rc, 1);
    EXPECT_EQ(Taken(line), expected);
  }
  const Line end = RecvDelim(pair.near, 64);
  EXPECT_EQ(end.rc, 1);
  EXPECT_EQ(end.len, 0);
}

TEST(SockTCP, RecvDelim_Line_TakesOneLookAheadAndOneRead) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "AB\nCD\n");
  const Seams seams;
  RecvDelim(pair.near, 64);
  EXPECT_EQ(seams.Trace(), "recv(64, 2)\nrecv(3, 0)\n");
}

TEST(SockTCP, RecvDelim_NothingBehindTheDelimiter_IsTaken) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "AB\nCD");
  EXPECT_EQ(Taken(RecvDelim(pair.near, 64)), "AB\n");
  EXPECT_EQ(ReadBytes(pair.near, 2), "CD");
}

TEST(SockTCP, RecvDelim_LineInTwoPieces_TakesTwoPasses) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "AB");
  Seams seams;
  seams.Before(Call::kRecv, 3, [&] { Deliver(pair.far, pair.near, "C\nD"); });
  const Line line = RecvDelim(pair.near, 64);
  EXPECT_EQ(line.rc, 1);
  EXPECT_EQ(Taken(line), "ABC\n");
  EXPECT_EQ(seams.Trace(), "recv(64, 2)\nrecv(2, 0)\nrecv(62, 2)\nrecv(2, 0)\n");
  EXPECT_EQ(ReadBytes(pair.near, 1), "D");
}

TEST(SockTCP, RecvDelim_SeveralDelimiters_EndsAtTheFirstOfThem) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "A\tB\rC\n");
  for (const char *expected : {"A\t", "B\r", "C\n"})
    EXPECT_EQ(Taken(RecvDelim(pair.near, 64, "\n\r\t")), expected);
}

TEST(SockTCP, RecvDelim_DelimiterAsLastByteOfTheBuffer_IsFound) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "ABC\nD");
  const Line line = RecvDelim(pair.near, 4);
  EXPECT_EQ(line.rc, 1);
  EXPECT_EQ(Taken(line), "ABC\n");
}

TEST(SockTCP, RecvDelim_DelimiterAlone_IsALineOfOneByte) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "\n\n");
  EXPECT_EQ(Taken(RecvDelim(pair.near, 64)), "\n");
  EXPECT_EQ(Taken(RecvDelim(pair.near, 64)), "\n");
}

TEST(SockTCP, RecvDelim_FullBuffer_IsOverflow) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "ABCDEFG\n");
  Line line = {};
  const Output output = Capture(101, [&] { line = RecvDelim(pair.near, 4); });
  EXPECT_EQ(line.rc, -4);
  EXPECT_EQ(line.len, 4);
  EXPECT_EQ(line.buf, "ABCD");
  EXPECT_EQ(output.log + output.out, "");
  EXPECT_EQ(ReadBytes(pair.near, 4), "EFG\n");
}

TEST(SockTCP, RecvDelim_FullBufferInTwoPieces_KeepsTheCapacityAsLength) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "AB");
  Seams seams;
  seams.Before(Call::kRecv, 3, [&] { Deliver(pair.far, pair.near, "CDE\n"); });
  const Line line = RecvDelim(pair.near, 4);
  EXPECT_EQ(line.rc, -4);
  EXPECT_EQ(line.len, 4);
  EXPECT_EQ(line.buf, "ABCD");
}

TEST(SockTCP, RecvDelim_EmptyDelimiters_FillTheBuffer) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, std::string("A\0\n", 3));
  const Line line = RecvDelim(pair.near, 3, "");
  EXPECT_EQ(line.rc, -4);
  EXPECT_EQ(line.buf, std::string("A\0\n", 3));
}

TEST(SockTCP, RecvDelim_PeerClosesInTheMiddle_IsSuccessOfLength0) {
  TcpPair pair;
  Deliver(pair.far, pair.near, "AB");
  pair.far.Close();
  const Line line = RecvDelim(pair.near, 64);
  EXPECT_EQ(line.rc, 1);
  EXPECT_EQ(line.len, 0);
  EXPECT_EQ(line.buf.substr(0, 3), std::string("AB\0", 3));
  char byte;
  EXPECT_EQ(recv(pair.near, &byte, 1, 0), 0) << "the letters were not consumed";
}

TEST(SockTCP, RecvDelim_NulBeforeTheNewline_HidesItInTheSameLookAhead) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, std::string("A\0B\nC", 5));
  Seams seams;
  seams.Before(Call::kRecv, 3, [&] { Deliver(pair.far, pair.near, "D\nE"); });
  const Line line = RecvDelim(pair.near, 64);
  EXPECT_EQ(line.rc, 1);
  EXPECT_EQ(Taken(line), std::string("A\0B\nCD\n", 7));
  EXPECT_EQ(ReadBytes(pair.near, 1), "E");
}

TEST(SockTCP, RecvDelim_NulBehindTheNewline_HidesNothing) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, std::string("A\n\0B", 4));
  EXPECT_EQ(Taken(RecvDelim(pair.near, 64)), "A\n");
  EXPECT_EQ(ReadBytes(pair.near, 2), std::string("\0B", 2));
}

TEST(SockTCP, RecvDelim_BytesFrom0x80_AreData) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "\x80\xff\n");
  EXPECT_EQ(Taken(RecvDelim(pair.near, 64)), "\x80\xff\n");
}

// The look-ahead has seen bytes that are not taken; none of them may be left in the buffer.
TEST(SockTCP, RecvDelim_BytesSeenAndNotTaken_AreCleared) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "AB\nSECRET");
  const Line line = RecvDelim(pair.near, 16);
  EXPECT_EQ(line.buf, "AB\n" + std::string(13, '\0'));
}

TEST(SockTCP, RecvDelim_BytesSeenAndThenNotReadable_AreCleared) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "AB");
  Seams seams;
  seams.Before(Call::kRecv, 3, [&] { Deliver(pair.far, pair.near, "SECRET\nMORE"); });
  seams.Fail(Call::kRecv, ECONNRESET, 4);
  Line line = {};
  Capture(103, [&] { line = RecvDelim(pair.near, 16); });
  EXPECT_EQ(line.rc, -104);
  EXPECT_EQ(line.len, 16);
  EXPECT_EQ(line.buf, "AB" + std::string(14, '\0'));
}

// Another reader of the socket took a byte in between.
TEST(SockTCP, RecvDelim_FewerBytesThanSeen_CountsThoseTakenAndClearsTheOthers) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "AB\n");
  Seams seams;
  seams.Before(Call::kRecv, 2, [&] { EXPECT_EQ(ReadBytes(pair.near, 1), "A"); });
  const Line line = RecvDelim(pair.near, 8);
  EXPECT_EQ(line.rc, 1);
  EXPECT_EQ(line.len, 2);
  EXPECT_EQ(line.buf, "B\n" + std::string(6, '\0'));
}

TEST(SockTCP, RecvDelim_UsedBufferWithAnOldNewline_DoesNotEndTheLine) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "AB");
  Seams seams;
  seams.Before(Call::kRecv, 3, [&] { Deliver(pair.far, pair.near, "C\n"); });
  std::string buf = "OLD\nLINE\n";
  int len = static_cast<int>(buf.size());
  EXPECT_EQ(Sock_RecvDelim(pair.near, buf.data(), &len, "\n"), 1);
  EXPECT_EQ(buf.substr(0, static_cast<std::size_t>(len)), "ABC\n");
}

TEST(SockTCP, RecvDelim_LookAheadFails_IsReturnedAsItIs) {
  const TcpPair pair;
  Seams seams;
  seams.Fail(Call::kRecv, ECONNRESET);
  Line line = {};
  const Output output = Capture(103, [&] { line = RecvDelim(pair.near, 16); });
  EXPECT_EQ(line.rc, -104);
  EXPECT_EQ(line.len, 16);
  EXPECT_EQ(output.log,
            "[SOCK: RecvTCP] Error 104 (0x68) from recv().  Unable to receive on socket " +
                Num(pair.near) + ".\n");
}

TEST(SockTCP, RecvDelim_ReadFails_IsReturnedAsItIs) {
  const TcpPair pair;
  Deliver(pair.far, pair.near, "AB\n");
  Seams seams;
  seams.Fail(Call::kRecv, EINTR, 2);
  Line line = {};
  const Output output = Capture(103, [&] { line = RecvDelim(pair.near, 16); });
  EXPECT_EQ(line.rc, -EINTR);
  EXPECT_EQ(line.len, 16);
  EXPECT_EQ(output.log, "[SOCK: RecvTCP] Error 4 (0x4) from recv().  Unable to receive on socket " +
                            Num(pair.near) + ".\n");
}

TEST(SockTCP, RecvDelim_BadArgument_IsRefusedWithoutAMessage) {
  char buf[8];
  int len = sizeof buf, none = 0, negative = -1, rc[6] = {};
  const Output output = Capture(101, [&] {
    rc[0] = Sock_RecvDelim(-1, buf, &len, "\n");
    rc[1] = Sock_RecvDelim(0, nullptr, &len, "\n");
    rc[2] = Sock_RecvDelim(0, buf, &none, "\n");
    rc[3] = Sock_RecvDelim(0, buf, &negative, "\n");
    rc[4] = Sock_RecvDelim(0, buf, &len, nullptr);
    rc[5] = Sock_RecvDelim(0, buf, nullptr, "\n");
  });
  for (const int code : rc) EXPECT_EQ(code, -3);
  EXPECT_EQ(output.log + output.out, "");
}

namespace {

// A server on the other side of one Sock_TransactTCP, played in the middle of it.
class Transact : public testing::Test {
 protected:
  // Takes the connection and the request, and answers, right before the reply is received.
  void AnswerWith(Seams *seams, const std::string &reply, std::size_t request_length) {
    seams->Before(Call::kRecv, 1, [this, seams, reply, request_length] {
      *served_.Place() = accept(listener_, nullptr, nullptr);
      request_ = ReadBytes(served_, request_length);
      Deliver(served_, seams->LastSocket(), reply);
    });
  }

  std::string Place() const { return "127.0.0.1:" + Num(port_); }

  const int port_ = FreePort();
  Fd listener_{ListenOn(port_)};
  SockAddr addr_ = Loopback(port_);
  Fd served_;
  std::string request_;
  char reply_[16] = {};
  int len_ = sizeof reply_;
  int rc_ = 99;
};

}  // namespace

TEST_F(Transact, TransactTCP_Answer_IsDeliveredAndTheSocketClosed) {
  Seams seams;
  AnswerWith(&seams, "pong", 4);
  const Output output =
      Capture(101, [&] { rc_ = Sock_TransactTCP(&addr_, "ping", 4, reply_, &len_, 0); });
  EXPECT_EQ(rc_, 1);
  EXPECT_EQ(request_, "ping");
  EXPECT_EQ(std::string(reply_, static_cast<std::size_t>(len_)), "pong");
  EXPECT_FALSE(IsOpen(seams.LastSocket()));
  EXPECT_EQ(output.log + output.out, "");
}

TEST_F(Transact, TransactTCP_OneFlagsArgument_ServesConnectionAndTransfers) {
  Seams seams;
  AnswerWith(&seams, "pong", 4);
  EXPECT_EQ(Sock_TransactTCP(&addr_, "ping", 4, reply_, &len_, MSG_NOSIGNAL), 1);
  EXPECT_EQ(seams.Count(Call::kIoctl), 0);
  EXPECT_NE(seams.Trace().find("send(4, 16384)\nrecv(16, 16384)\n"), std::string::npos)
      << seams.Trace();
}

TEST_F(Transact, TransactTCP_Bit0OfTheFlags_IsTheConnectionsOption) {
  Seams seams;
  seams.Fail(Call::kIoctl, EIO);
  const Output output =
      Capture(103, [&] { rc_ = Sock_TransactTCP(&addr_, "ping", 4, reply_, &len_, 1); });
  const Fd left(seams.LastSocket());
  EXPECT_EQ(rc_, -EIO);
  EXPECT_EQ(output.log,
            "[SOCK: Connect] Error 5 (0x5) from ioctl().  Unable to set socket " + Num(left) +
                " to non-blocking.\n[Sock: TransactTCP] Unable to connect to " + Place() + "\n");
}

TEST_F(Transact, TransactTCP_ReplyInPieces_IsWhatOneReceiveDelivers) {
  Seams seams;
  AnswerWith(&seams, std::string(20, 'x'), 4);
  EXPECT_EQ(Sock_TransactTCP(&addr_, "ping", 4, reply_, &len_, 0), 1);
  EXPECT_EQ(len_, 16);
  EXPECT_EQ(seams.Count(Call::kRecv), 1);
}

TEST_F(Transact, TransactTCP_PeerClosesWithoutAReply_IsSuccessOfLength0) {
  Seams seams;
  seams.Before(Call::kRecv, 1, [&] {
    const Fd served(accept(listener_, nullptr, nullptr));
    ReadBytes(served, 4);
  });
  EXPECT_EQ(Sock_TransactTCP(&addr_, "ping", 4, reply_, &len_, 0), 1);
  EXPECT_EQ(len_, 0);
  EXPECT_FALSE(IsOpen(seams.LastSocket()));
}

TEST_F(Transact, TransactTCP_NobodyListens_LogsBothLines) {
  listener_.Close();
  Seams seams;
  const Output output =
      Capture(103, [&] { rc_ = Sock_TransactTCP(&addr_, "ping", 4, reply_, &len_, 0); });
  const Fd left(seams.LastSocket());
  EXPECT_EQ(rc_, -ECONNREFUSED);
  EXPECT_EQ(output.log,
            "[SOCK: Connect] Error 111 (0x6f) from connect().  Unable to connect socket " +
                Num(left) + " to " + Place() + ".\n[Sock: TransactTCP] Unable to connect to " +
                Place() + "\n");
  EXPECT_EQ(Capture(104, [&] { Sock_TransactTCP(&addr_, "ping", 4, reply_, &len_, 0); }).log, "");
}

TEST_F(Transact, TransactTCP_NegativePort_IsShownInDecimal) {
  addr_.Port = -25536;
  const Output output =
      Capture(103, [&] { rc_ = Sock_TransactTCP(&addr_, "ping", 4, reply_, &len_, 0); });
  EXPECT_EQ(rc_, -2);
  EXPECT_EQ(output.log, "[Sock: TransactTCP] Unable to connect to 127.0.0.1:-25536\n");
}

TEST_F(Transact, TransactTCP_SendFails_LogsBothLinesAndLeavesTheSocketOpen) {
  Seams seams;
  seams.Fail(Call::kSend, EPIPE);
  const Output output =
      Capture(103, [&] { rc_ = Sock_TransactTCP(&addr_, "ping", 4, reply_, &len_, 0); });
  const Fd left(seams.LastSocket());
  EXPECT_EQ(rc_, -EPIPE);
  EXPECT_EQ(output.log, "[SOCK: SendTCP] Error 32 (0x20) from send().  Unable to send on socket " +
                            Num(left) + ".\n[Sock: TransactTCP] Unable to send to " + Place() +
                            "\n");
  EXPECT_TRUE(IsOpen(left));
}

TEST_F(Transact, TransactTCP_EmptyRequest_IsAFailedSend) {
  Seams seams;
  const Output output =
      Capture(103, [&] { rc_ = Sock_TransactTCP(&addr_, "", 0, reply_, &len_, 0); });
  const Fd left(seams.LastSocket());
  EXPECT_EQ(rc_, -3);
  EXPECT_EQ(output.log, "[Sock: SendTCP] datalen == 0 for sock " + Num(left) +
                            "\n[Sock: TransactTCP] Unable to send to " + Place() + "\n");
}

TEST_F(Transact, TransactTCP_ReceiveFails_LogsBothLinesAndLeavesTheSocketOpen) {
  Seams seams;
  seams.Fail(Call::kRecv, ECONNRESET);
  const Output output =
      Capture(103, [&] { rc_ = Sock_TransactTCP(&addr_, "ping", 4, reply_, &len_, 0); });
  const Fd left(seams.LastSocket());
  EXPECT_EQ(rc_, -104);
  EXPECT_EQ(output.log,
            "[SOCK: RecvTCP] Error 104 (0x68) from recv().  Unable to receive on socket " +
                Num(left) + ".\n[Sock: TransactTCP] Unable to recv from " + Place() + "\n");
  EXPECT_TRUE(IsOpen(left));
}

TEST_F(Transact, TransactTCP_Failures_AreLoggedAt103) {
  for (const Call call : {Call::kSend, Call::kRecv}) {
    Seams seams;
    seams.Fail(call, EPIPE);
    EXPECT_EQ(Capture(104, [&] { Sock_TransactTCP(&addr_, "ping", 4, reply_, &len_, 0); }).log, "");
    EXPECT_EQ(seams.Count(call), 1);
    const Fd left(seams.LastSocket());
  }
}

TEST_F(Transact, TransactTCP_NullAddress_IsBadArgumentWithoutAMessage) {
  const Seams seams;
  const Output output =
      Capture(101, [&] { rc_ = Sock_TransactTCP(nullptr, "ping", 4, reply_, &len_, 0); });
  EXPECT_EQ(rc_, -3);
  EXPECT_EQ(output.log + output.out, "");
  EXPECT_EQ(seams.Count(Call::kSocket), 0);
}

TEST_F(Transact, TransactTCP_CloseFails_IsStillSuccess) {
  Seams seams;
  AnswerWith(&seams, "pong", 4);
  const FdCapture out(STDOUT_FILENO);
  const LogCapture log(103);
  seams.Fail(Call::kClose, EIO);
  rc_ = Sock_TransactTCP(&addr_, "ping", 4, reply_, &len_, 0);
  EXPECT_EQ(rc_, 1);
  const Fd left(seams.LastSocket());
  EXPECT_EQ(log.Messages(), "[SOCK: Close] Error 5 (0x5) from close().  Unable to close socket " +
                                Num(left) + ".\n");
}

TEST_F(Transact, ConnectAndSend_Success_LeavesTheSocketOpenInThePlace) {
  Fd sock;
  const Output output =
      Capture(101, [&] { rc_ = Sock_ConnectAndSend(&addr_, sock.Place(), "ping", 4, 0); });
  EXPECT_EQ(rc_, 1);
  EXPECT_EQ(output.log + output.out, "");
  const Fd served(accept(listener_, nullptr, nullptr));
  EXPECT_EQ(ReadBytes(served, 4), "ping");
  SendAll(served, "pong");
  EXPECT_EQ(ReadBytes(sock, 4), "pong");
}

TEST_F(Transact, ConnectAndSend_Flags_AreThoseOfTheSendOnly) {
  const Seams seams;
  Fd sock;
  EXPECT_EQ(Sock_ConnectAndSend(&addr_, sock.Place(), "ping", 4, MSG_NOSIGNAL | MSG_OOB), 1);
  EXPECT_EQ(seams.Count(Call::kIoctl), 0);
  EXPECT_NE(seams.Trace().find("connect(16)\nsend(4, 16385)\n"), std::string::npos)
      << seams.Trace();
}

TEST_F(Transact, ConnectAndSend_NobodyListens_LogsBothLines) {
  listener_.Close();
  Seams seams;
  int place = 99;
  const Output output =
      Capture(103, [&] { rc_ = Sock_ConnectAndSend(&addr_, &place, "ping", 4, 0); });
  const Fd left(seams.LastSocket());
  EXPECT_EQ(rc_, -ECONNREFUSED);
  EXPECT_EQ(place, -1);
  EXPECT_EQ(output.log,
            "[SOCK: Connect] Error 111 (0x6f) from connect().  Unable to connect socket " +
                Num(left) + " to " + Place() + ".\n[Socket: Conn&Send] Unable to connect to " +
                Place() + ": rc = -111\n");
  EXPECT_EQ(Capture(104, [&] { Sock_ConnectAndSend(&addr_, &place, "ping", 4, 0); }).log, "");
}

TEST_F(Transact, ConnectAndSend_SocketFails_LogsTheResult0) {
  Seams seams;
  seams.Fail(Call::kSocket, EMFILE);
  int place = 99;
  const Output output =
      Capture(103, [&] { rc_ = Sock_ConnectAndSend(&addr_, &place, "ping", 4, 0); });
  EXPECT_EQ(rc_, 0);
  EXPECT_EQ(output.log,
            GetErrorLines(-1, EBADF) +
                "[SOCK: Connect] Error 0 (0x0) from socket().  Unable to get a new socket.\n"
                "[Socket: Conn&Send] Unable to connect to " +
                Place() + ": rc = 0\n");
}

TEST_F(Transact, ConnectAndSend_SendFails_ClosesTheSocketAndKeepsThePlaceEmpty) {
  Seams seams;
  seams.Fail(Call::kSend, EPIPE);
  int place = 99;
  const Output output =
      Capture(103, [&] { rc_ = Sock_ConnectAndSend(&addr_, &place, "ping", 4, 0); });
  EXPECT_EQ(rc_, -EPIPE);
  EXPECT_EQ(place, -1);
  EXPECT_EQ(output.log, "[SOCK: SendTCP] Error 32 (0x20) from send().  Unable to send on socket " +
                            Num(seams.LastSocket()) + ".\n[Socket: Conn&Send] Unable to send to " +
                            Place() + ": rc = -32\n");
  EXPECT_FALSE(IsOpen(seams.LastSocket()));
}

TEST_F(Transact, ConnectAndSend_SendFails_IsLoggedAt103) {
  Seams seams;
  seams.Fail(Call::kSend, EPIPE);
  int place = 99;
  EXPECT_EQ(Capture(104, [&] { rc_ = Sock_ConnectAndSend(&addr_, &place, "x", 1, 0); }).log, "");
  EXPECT_EQ(rc_, -EPIPE);
}

TEST_F(Transact, ConnectAndSend_NullAddress_IsBadArgumentWithoutAMessage) {
  const Seams seams;
  int place = 99;
  const Output output =
      Capture(101, [&] { rc_ = Sock_ConnectAndSend(nullptr, &place, "x", 1, 0); });
  EXPECT_EQ(rc_, -3);
  EXPECT_EQ(output.log + output.out, "");
  EXPECT_EQ(seams.Count(Call::kSocket), 0);
}

TEST_F(Transact, ConnectAndSend_EmptyData_IsAFailedSend) {
  const Seams seams;
  int place = 99;
  const Output output = Capture(103, [&] { rc_ = Sock_ConnectAndSend(&addr_, &place, "x", 0, 0); });
  EXPECT_EQ(rc_, -3);
  EXPECT_EQ(output.log, "[Sock: SendTCP] datalen == 0 for sock " + Num(seams.LastSocket()) +
                            "\n[Socket: Conn&Send] Unable to send to " + Place() + ": rc = -3\n");
  EXPECT_FALSE(IsOpen(seams.LastSocket()));
}

TEST_F(Transact, ConnectAndSend_Port32768_IsShownNegative) {
  addr_.Port = -32768;
  int place = 99;
  const Output output = Capture(103, [&] { rc_ = Sock_ConnectAndSend(&addr_, &place, "x", 1, 0); });
  EXPECT_EQ(rc_, -2);
  EXPECT_EQ(output.log, "[Socket: Conn&Send] Unable to connect to 127.0.0.1:-32768: rc = -2\n");
}

TEST_F(Transact, ConnectAndSend_NullPlace_IsTheConnectionsBadArgument) {
  const Output output =
      Capture(103, [&] { rc_ = Sock_ConnectAndSend(&addr_, nullptr, "x", 1, 0); });
  EXPECT_EQ(rc_, -3);
  EXPECT_EQ(output.log, "[Socket: Conn&Send] Unable to connect to " + Place() + ": rc = -3\n");
}
