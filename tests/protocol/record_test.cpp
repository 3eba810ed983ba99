#include "protocol/record.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

std::string Num(int number) { return std::to_string(number); }

// A buffer of kMessageSize bytes and one more, full of what an earlier message left.
struct Read {
  int rc = 99;
  int len = kMessageSize;
  std::vector<char> buf = std::vector<char>(kMessageSize + 1, 'x');
  CmdHdr hdr = {"OLD", 1, "OLD", "OLD", "OLD", 2, 3, "OLD", 4, "OLD", "OLD", 5};
  char *rest = nullptr;
  std::string log;

  std::string Message() const { return std::string(buf.data(), static_cast<std::size_t>(len)); }
};

void ReadOne(int sock, Read *read, int level = 101) {
  read->rest = read->buf.data();
  read->log = Capture(level, [&] {
                read->rc =
                    Util_ReadInt(sock, read->buf.data(), &read->len, &read->hdr, &read->rest);
              }).log;
}

}  // namespace

TEST(Record, ReadInt_Message_IsReadWithItsNewlineAndParsed) {
  const TcpPair pair;
  SendAll(pair.far, "\t@COMMAND=HIT\t@DOCNUM=7\tTITLE=x\n\t@COMMAND=NEXT\n");
  Read read;
  ReadOne(pair.near, &read);
  EXPECT_EQ(read.rc, 1);
  EXPECT_EQ(read.Message(), "\t@COMMAND=HIT\t@DOCNUM=7\tTITLE=x\n");
  EXPECT_STREQ(read.hdr.Command, "HIT");
  EXPECT_EQ(read.hdr.DocNum, 7);
  EXPECT_STREQ(read.rest, "\tTITLE=x\n");
}

TEST(Record, ReadInt_NextCall_StartsAtTheNextMessage) {
  const TcpPair pair;
  SendAll(pair.far, "\t@COMMAND=HIT\n\t@COMMAND=SEARCHCOMPLETE\n");
  for (const char *command : {"HIT", "SEARCHCOMPLETE"}) {
    Read read;
    ReadOne(pair.near, &read);
    EXPECT_EQ(read.rc, 1);
    EXPECT_STREQ(read.hdr.Command, command);
  }
}

TEST(Record, ReadInt_NoPredicate_GivesANullPlace) {
  const TcpPair pair;
  SendAll(pair.far, "\t@COMMAND=RAW\n");
  Read read;
  ReadOne(pair.near, &read);
  EXPECT_EQ(read.rest, nullptr);
}

TEST(Record, ReadInt_UsedRecord_IsClearedFirst) {
  const TcpPair pair;
  SendAll(pair.far, "\t@SEQNUM=7\n");
  Read read;
  ReadOne(pair.near, &read);
  CmdHdr expected = {};
  expected.SeqNum = 7;
  EXPECT_EQ(std::memcmp(&read.hdr, &expected, sizeof expected), 0);
}

TEST(Record, ReadInt_Message_IsTerminated) {
  const TcpPair pair;
  SendAll(pair.far, "\t@COMMAND=HIT\n");
  Read read;
  ReadOne(pair.near, &read);
  EXPECT_STREQ(read.buf.data(), "\t@COMMAND=HIT\n");
}

TEST(Record, ReadInt_Message_IsDisplayedAt102) {
  const TcpPair pair;
  SendAll(pair.far, "\t@COMMAND=HIT\tTITLE=x\n");
  Read read, expected;
  ReadOne(pair.near, &read, 102);
  expected.log = Capture(102, [&] { Util_Display(&read.hdr, "\tTITLE=x\n"); }).log;
  EXPECT_EQ(read.log, expected.log);
  EXPECT_EQ(read.log.rfind("[Util: Display] CmdHdr->Command       = HIT\n", 0), 0U);
}

TEST(Record, ReadInt_RefusedHeader_IsStillAMessage) {
  const TcpPair pair;
  SendAll(pair.far, "\t@COMMAND=HIT\t@DOCNUM=-1\t@SEQNUM=7\n");
  Read read;
  ReadOne(pair.near, &read, 103);
  EXPECT_EQ(read.rc, 1);
  EXPECT_STREQ(read.hdr.Command, "HIT");
  EXPECT_EQ(read.hdr.SeqNum, 0);
  EXPECT_EQ(read.rest, nullptr);
  EXPECT_EQ(read.log, "[Util: IntCmdHdr] RecType -1 not recognized\n");
}

TEST(Record, ReadInt_TextThatIsNoHeader_IsStillAMessage) {
  const TcpPair pair;
  SendAll(pair.far, "hello\n");
  Read read;
  ReadOne(pair.near, &read, 103);
  EXPECT_EQ(read.rc, 1);
  EXPECT_STREQ(read.hdr.Command, "");
  EXPECT_EQ(read.rest, nullptr);
}

TEST(Record, ReadInt_LoneNewline_IsAMessage) {
  const TcpPair pair;
  SendAll(pair.far, "\n");
  Read read;
  ReadOne(pair.near, &read, 103);
  EXPECT_EQ(read.rc, 1);
  EXPECT_EQ(read.Message(), "\n");
  EXPECT_STREQ(read.hdr.Command, "");
  EXPECT_EQ(read.rest, nullptr);
  EXPECT_EQ(read.log, "");
}

TEST(Record, ReadInt_PeerClosesBeforeSending_IsOver) {
  TcpPair pair;
  pair.far.Close();
  Read read;
  ReadOne(pair.near, &read);
  EXPECT_EQ(read.rc, 2);
  EXPECT_EQ(read.log,
            "[Util:ReadInt] Length of data is 0 (Connection Closed by other side) for sock " +
                Num(pair.near) + "\n");
}

TEST(Record, ReadInt_PeerCloses_IsLoggedAt101) {
  TcpPair pair;
  pair.far.Close();
  Read read;
  ReadOne(pair.near, &read, 102);
  EXPECT_EQ(read.log, "");
}

TEST(Record, ReadInt_PeerClosesInTheMiddle_IsOver) {
  TcpPair pair;
  SendAll(pair.far, "\t@COMMAND=HIT");
  pair.far.Close();
  Read read;
  ReadOne(pair.near, &read);
  EXPECT_EQ(read.rc, 2);
  EXPECT_EQ(read.log,
            "[Util:ReadInt] Length of data is 0 (Connection Closed by other side) for sock " +
                Num(pair.near) + "\n");
}

TEST(Record, ReadInt_ResetConnection_IsOver) {
  TcpPair pair;
  Reset(&pair.far);
  Read read;
  ReadOne(pair.near, &read);
  EXPECT_EQ(read.rc, 2);
  EXPECT_EQ(read.log,
            "[SOCK: RecvTCP] Error 104 (0x68) from recv().  Unable to receive on socket " +
                Num(pair.near) + ".\n[Util:ReadInt] Received Connection Reset Message from Sock " +
                Num(pair.near) + "\n");
}

TEST(Record, ReadInt_ResetConnection_IsLoggedAt101) {
  TcpPair pair;
  Reset(&pair.far);
  Read read;
  ReadOne(pair.near, &read, 102);
  EXPECT_EQ(read.rc, 2);
  EXPECT_EQ(read.log,
            "[SOCK: RecvTCP] Error 104 (0x68) from recv().  Unable to receive on socket " +
                Num(pair.near) + ".\n");
}

TEST(Record, ReadInt_NotConnected_IsOver) {
  const Fd sock(socket(AF_INET, SOCK_STREAM, 0));
  Read read;
  ReadOne(sock, &read);
  EXPECT_EQ(read.rc, 2);
  const std::string recv =
      "[SOCK: RecvTCP] Error 107 (0x6b) from recv().  Unable to receive on socket " + Num(sock) +
      ".\n";
  EXPECT_EQ(read.log,
            recv + "[Util:ReadInt] Received Not Connected Message from Sock " + Num(sock) + "\n");
  ReadOne(sock, &read, 102);
  EXPECT_EQ(read.log, recv);
}

TEST(Record, ReadInt_CapacityWithoutNewline_FailsWithMinus4) {
  const TcpPair pair;
  SendAll(pair.far, std::string(40960, 'x') + "y");
  Read read;
  ReadOne(pair.near, &read, 103);
  EXPECT_EQ(read.rc, 0);
  EXPECT_EQ(read.log, "[Util: ReadInt] Unable to recv on socket " + Num(pair.near) + ": rc = -4\n");
  EXPECT_EQ(ReadBytes(pair.near, 1), "y");
}

TEST(Record, ReadInt_MessageOfTheWholeCapacity_IsReadAndTerminated) {
  const TcpPair pair;
  const std::string message = "\t@COMMAND=HIT\tT=" + std::string(40960 - 17, 'x') + "\n";
  ASSERT_EQ(message.size(), 40960U);
  SendAll(pair.far, message);
  Read read;
  ReadOne(pair.near, &read);
  EXPECT_EQ(read.rc, 1);
  EXPECT_EQ(read.len, 40960);
  EXPECT_EQ(std::string(read.buf.data()), message);
}

TEST(Record, ReadInt_OtherFailures_AreShownWithTheirCode) {
  const TcpPair pair;
  for (const int error : {ETIMEDOUT, EINTR, ENOMEM}) {
    Seams seams;
    seams.Fail(Call::kRecv, error);
    Read read;
    ReadOne(pair.near, &read, 103);
    const std::string last = "[Util: ReadInt] Unable to recv on socket " + Num(pair.near) +
                             ": rc = " + Num(-error) + "\n";
    EXPECT_EQ(read.rc, 0);
    EXPECT_EQ(read.log.substr(read.log.find('\n') + 1), last);
  }
}

TEST(Record, ReadInt_Failure_IsLoggedAt103) {
  Read read;
  ReadOne(-1, &read, 103);
  EXPECT_EQ(read.rc, 0);
  EXPECT_EQ(read.log, "[Util: ReadInt] Unable to recv on socket -1: rc = -3\n");
  ReadOne(-1, &read, 104);
  EXPECT_EQ(read.log, "");
}

TEST(Record, ReadInt_NoMessage_LeavesTheRecordAndThePlace) {
  TcpPair closed, full;
  SendAll(closed.far, "\t@COMMAND=HIT\t@DOCNUM=7");
  closed.far.Close();
  SendAll(full.far, std::string(40960, 'x'));
  const Fd unconnected(socket(AF_INET, SOCK_STREAM, 0));
  const struct {
    int sock, rc;
  } kRows[] = {{closed.near, 2}, {unconnected, 2}, {full.near, 0}, {-1, 0}};
  for (const auto &row : kRows) {
    Read read;
    const CmdHdr before = read.hdr;
    ReadOne(row.sock, &read);
    EXPECT_EQ(read.rc, row.rc);
    EXPECT_EQ(std::memcmp(&read.hdr, &before, sizeof before), 0) << "result " << row.rc;
    EXPECT_EQ(read.rest, read.buf.data()) << "result " << row.rc;
  }
}

TEST(Record, ReadInt_NoCapacity_CountsAsOver) {
  Read read;
  read.len = 0;
  ReadOne(7, &read);
  EXPECT_EQ(read.rc, 2);
  EXPECT_EQ(read.log,
            "[Util:ReadInt] Length of data is 0 (Connection Closed by other side) for sock 7\n");
}

TEST(Record, ReadInt_CodeThatCannotBeRead_FailsWithTheResult0) {
  const TcpPair pair;
  Seams seams;
  seams.Fail(Call::kRecv, EIO).Fail(Call::kGetsockopt, ENOBUFS);
  Read read;
  ReadOne(pair.near, &read, 103);
  EXPECT_EQ(read.rc, 0);
  EXPECT_NE(
      read.log.find("[Util: ReadInt] Unable to recv on socket " + Num(pair.near) + ": rc = 0\n"),
      std::string::npos);
}

TEST(Record, ReadInt_NulBeforeTheNewline_KeepsTheBytes) {
  TcpPair pair;
  SendAll(pair.far, std::string("\t@COMMAND=HIT\0\n", 15));
  Await([&] {
    char seen[15];
    return recv(pair.near, seen, sizeof seen, MSG_PEEK | MSG_DONTWAIT) == 15;
  });
  Seams seams;
  seams.Before(Call::kRecv, 3, [&] { SendAll(pair.far, "\t@SEQNUM=7\n"); });
  Read read;
  ReadOne(pair.near, &read);
  EXPECT_EQ(read.rc, 1);
  EXPECT_EQ(read.len, 26);
  EXPECT_STREQ(read.hdr.Command, "") << "no separator stands before the NUL";
}
