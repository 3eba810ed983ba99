#include "debug/collector.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "debug/log.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"
#include "tests/support/syscall_seams.h"

namespace {

const std::string kLevelLine = "[DEBUG: SetLevel] Global Debug Level Set to 103\n";

// A collector on a port of its own, and a log socket that is forgotten at the end.
class Collector : public testing::Test {
 protected:
  ~Collector() override { Debug_SetSend(nullptr); }

  void Init() {
    const Seams seams;
    const Output output = Capture(103, [&] {
      init_result_ = Debug_Init();
      dest_result_ = Debug_SetDest("127.0.0.1", port_);
    });
    ASSERT_EQ(init_result_, 1);
    ASSERT_EQ(dest_result_, 1);
    log_socket_ = seams.LastSocket();
  }

  // One datagram, "" when none waits.
  std::string Receive() {
    char bytes[65536];
    const ssize_t count = recv(socket_, bytes, sizeof bytes, MSG_DONTWAIT);
    return count < 0 ? "" : std::string(bytes, static_cast<std::size_t>(count));
  }

  const int port_ = FreePort();
  const Fd socket_{BindUDP(port_)};
  int init_result_ = 0, dest_result_ = 0;
  int log_socket_ = -1;
};

std::string WithTerminator(std::string text) {
  text.push_back('\0');
  return text;
}

}  // namespace

TEST_F(Collector, Init_Success_SetsTheLevelAndSaysSoOnStandardOutput) {
  int result = 0, level = 0;
  const Output output = Capture(0, [&] {
    result = Debug_Init();
    level = Debug_Level;
  });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(level, 103);
  EXPECT_EQ(output.log, kLevelLine);
  EXPECT_EQ(output.out, "[DEBUG: Init] Debug subsystem initialized successfully.\n");
}

TEST_F(Collector, Init_Success_OpensAnUnboundUDPSocketWithTheBlockingRequest) {
  Seams seams;
  Capture(103, [] { Debug_Init(); });
  EXPECT_EQ(seams.Trace(), "inet_addr(127.0.0.1)\nsocket(2, 2, 17)\nioctl(FIONBIO, 0)\n");
}

TEST_F(Collector, Init_SocketFails_ShowsTheSocketValueAndGoesOnWithStandardError) {
  Seams seams;
  seams.Fail(Call::kSocket, EMFILE);
  int result = 1;
  const Output output = Capture(103, [&] {
    result = Debug_Init();
    DPRINTF(nullptr, kWarning, "to standard error\n");
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(output.out, "errno = 24\n[DEBUG: Init] Error initing socket to Syslogd, rc = -1\n");
  EXPECT_EQ(output.log,
            kLevelLine +
                "[SOCK: GetError] Uhmm, Houston...We have a problem.\n"
                "[SOCK: GetError] We can't seem to get our socket errors here for sock -1.\n"
                "[SOCK: GetError] The system reports this as errno = 9.\n"
                "[SOCK: GetError] What are your recommendations ?\n"
                "[SOCK: OpenUDP] Error 0 (0x0) from socket().  Unable to get a new socket.\n"
                "to standard error\n");
}

TEST_F(Collector, Init_IoctlFails_ShowsTheSocketValueNotTheCode) {
  Seams seams;
  seams.Fail(Call::kIoctl, EIO);
  int result = 1;
  const Output output = Capture(103, [&] { result = Debug_Init(); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(output.out, "errno = 5\n[DEBUG: Init] Error initing socket to Syslogd, rc = -1\n");
  EXPECT_EQ(output.log, kLevelLine +
                            "[SOCK: OpenUDP] Error 5 (0x5) from ioctl().  Unable to set socket " +
                            std::to_string(seams.LastSocket()) + " to non-blocking.\n");
}

TEST_F(Collector, Init_DestinationFails_IsLoggedAndInitGoesOn) {
  Seams seams;
  seams.Fail(Call::kInetAddr, 0);
  int result = 0;
  const Output output = Capture(103, [&] { result = Debug_Init(); });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(output.log,
            "[SOCK: ConvertIP] Error converting to network address.  Network Address result is 0.\n"
            "[DEBUG: Init] Error setting UDP Destination.\n" +
                kLevelLine);
  EXPECT_EQ(output.out, "[DEBUG: Init] Debug subsystem initialized successfully.\n");
}

TEST_F(Collector, Init_Destination_IsPort113OfThisMachine) {
  const TempDir dir;  // where the fall-back file is written
  Seams seams;
  seams.Fail(Call::kSendto, EPERM, 1, kEveryTime);
  Capture(103, [] {
    Debug_Init();
    DPRINTF(nullptr, kWarning, "a line\n");
  });
  EXPECT_NE(FileText("debug.log").find(" to 127.0.0.1:113.\n"), std::string::npos);
}

TEST_F(Collector, Init_Messages_HaveTheirOwnLevels) {
  const std::string failed = "[DEBUG: Init] Error initing socket to Syslogd, rc = -1\n";
  const std::string done = "[DEBUG: Init] Debug subsystem initialized successfully.\n";
  const struct {
    int level, error;  // of the log, and of the ioctl
    std::string out;
  } kRows[] = {
      {103, 0, done},
      {104, 0, ""},
      {104, EIO, "errno = 5\n" + failed},
      {105, EIO, "errno = 5\n"},
  };
  for (const auto &row : kRows) {
    Seams seams;
    // Init sets the level 103 itself, before its last line.
    seams.Before(Call::kIoctl, 1, [&] { Debug_Level = row.level; });
    if (row.error != 0) seams.Fail(Call::kIoctl, row.error);
    EXPECT_EQ(Capture(103, [] { Debug_Init(); }).out, row.out) << row.level;
    Debug_SetSend(nullptr);
  }
}

TEST_F(Collector, Init_DestinationFails_IsLoggedAt103) {
  Seams seams;
  seams.Fail(Call::kInetAddr, 0);
  EXPECT_EQ(Capture(104, [] { Debug_Init(); }).log, kLevelLine);
}

TEST_F(Collector, Init_DefaultDestination_IsPort113OfThisMachine) {
  const TempDir dir;
  Capture(103, [] { Debug_Init(); });
  Seams seams;
  seams.Fail(Call::kSendto, EPERM, 1, kEveryTime);
  Capture(103, [] { DPRINTF(nullptr, kWarning, "lost\n"); });
  EXPECT_NE(FileText("debug.log").find(" to 127.0.0.1:113.\n"), std::string::npos);
}

TEST_F(Collector, SetDest_Address_IsConvertedByTheRulesOfTheSocketLayer) {
  static constexpr struct {
    const char *host;
    int port, result;
    const char *log;
  } kRows[] = {
      {"127.0.0.1", 113, 1, ""},
      {"10.255.255.254", 32767, 1, ""},
      {"no address", 113, 1, ""},
      {"127.0.0.1", 0, 0, ""},
      {"127.0.0.1", -5, 0, ""},
      {"127.0.0.1", 32768, 0, ""},
      {"0.0.0.0", 113, 0,
       "[SOCK: ConvertIP] Error converting to network address.  Network Address result is 0.\n"},
      {"", 113, 0,
       "[SOCK: ConvertIP] Error converting from network address.  Network Address is 0.\n"},
  };
  for (const auto &row : kRows) {
    Capture(103, [&] { Debug_SetDest("0.0.0.0", 113); });  // leaves the address 0
    int result = -1;
    const Output output = Capture(103, [&] { result = Debug_SetDest(row.host, row.port); });
    EXPECT_EQ(result, row.result) << row.host << ":" << row.port;
    EXPECT_EQ(output.log, row.log) << row.host << ":" << row.port;
  }
}

TEST_F(Collector, SetDest_HostTooLong_IsCutAndLoggedAt103) {
  int result = 0;
  EXPECT_EQ(MessagesAt(103, [&] { result = Debug_SetDest("127.000.000.0001", 113); }),
            "[DEBUG: SetDest] Host '127.000.000.0001' cut to 15 characters\n");
  EXPECT_EQ(result, 1);
}

TEST_F(Collector, DPRINTF_OpenCollector_SendsOneDatagramWithItsTerminator) {
  Init();
  int result = 0;
  const Output output =
      Capture(103, [&] { result = DPRINTF(nullptr, kWarning, "[Test: Log] %d\n", 7); });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(output.log + output.out, "");
  const std::string text = Receive();
  EXPECT_EQ(text.substr(0, 68), std::string(63, '-') + "\nPID:");
  EXPECT_EQ(StripHeaders(text), WithTerminator("[Test: Log] 7\n"));
  EXPECT_EQ(Receive(), "");
}

TEST_F(Collector, DPRINTF_Continuation_IsSentWithoutHeader) {
  Init();
  Capture(103, [] { DPRINTF(nullptr, kWarning, "@abc\n"); });
  EXPECT_EQ(Receive(), WithTerminator("abc\n"));
}

TEST_F(Collector, DPRINTF_BelowTheLevel_IsNotSent) {
  Init();
  int result = 1;
  Capture(103, [&] { result = DPRINTF(nullptr, kStatus, "x\n"); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Receive(), "");
}

TEST_F(Collector, DPRINTF_SendUsesFlags0AndSixteenBytesOfAddress) {
  Init();
  Seams seams;
  Capture(103, [] { DPRINTF(nullptr, kWarning, "@abc\n"); });
  EXPECT_EQ(seams.Trace(), "inet_addr(127.0.0.1)\nsendto(5, 0, 16)\n");
}

TEST_F(Collector, DPRINTF_SendFailsOnce_SendsTheReportAndFallsBackToTheFile) {
  const TempDir dir;
  Init();
  Seams seams;
  seams.Fail(Call::kSendto, EPERM);
  int result = 1;
  const Output output =
      Capture(103, [&] { result = DPRINTF(nullptr, kWarning, "[Test: Log] %s\n", "lost"); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(output.log, "");
  EXPECT_EQ(output.out, "errno = 1\n");
  EXPECT_EQ(StripHeaders(Receive()),
            WithTerminator(
                "[SOCK: SendUDP] Error 1 (0x1) from sendto().  Unable to send on socket " +
                std::to_string(log_socket_) + " to 127.0.0.1:" + std::to_string(port_) + ".\n"));
  EXPECT_EQ(StripHeaders(FileText("debug.log")),
            "[DEBUG: DPRINTF] Error -1 (0xffffffff) from SendTCP().\n[Test: Log] lost\n");
}

TEST_F(Collector, DPRINTF_SendAlwaysFails_EndsAndLeavesTheReportInTheFileToo) {
  const TempDir dir;
  Init();
  Seams seams;
  seams.Fail(Call::kSendto, EPERM, 1, kEveryTime);
  int result = 1;
  Capture(103, [&] { result = DPRINTF(nullptr, kWarning, "[Test: Log] lost\n"); });
  EXPECT_EQ(result, 0);
  const std::string text = StripHeaders(FileText("debug.log"));
  const std::string failed = "[DEBUG: DPRINTF] Error -1 (0xffffffff) from SendTCP().\n";
  EXPECT_EQ(
      text.find(failed + "[SOCK: SendUDP] Error 1 (0x1) from sendto().  Unable to send on socket "),
      0U)
      << text;
  EXPECT_NE(text.find("\n" + failed + "[Test: Log] lost\n"), std::string::npos) << text;
  EXPECT_EQ(text.substr(text.size() - 17), "[Test: Log] lost\n");
}

TEST_F(Collector, DPRINTF_DestinationWithoutAddress_FallsBackWithItsCode) {
  const TempDir dir;
  Init();
  Capture(103, [] { Debug_SetDest("127.0.0.1", 0); });
  const Output output = Capture(103, [] { DPRINTF(nullptr, kWarning, "lost\n"); });
  EXPECT_EQ(output.log + output.out, "");
  EXPECT_EQ(StripHeaders(FileText("debug.log")),
            "[DEBUG: DPRINTF] Error -2 (0xfffffffe) from SendTCP().\nlost\n");
}

TEST_F(Collector, DPRINTF_SecondFailure_IsAppendedAndTheFileOpenedAgain) {
  const TempDir dir;
  Init();
  Capture(103, [] { Debug_SetDest("127.0.0.1", 0); });
  Seams seams;
  Capture(103, [] {
    DPRINTF(nullptr, kWarning, "first\n");
    DPRINTF(nullptr, kWarning, "second\n");
  });
  const std::string failed = "[DEBUG: DPRINTF] Error -2 (0xfffffffe) from SendTCP().\n";
  EXPECT_EQ(StripHeaders(FileText("debug.log")), failed + "first\n" + failed + "second\n");
  EXPECT_EQ(seams.Trace(), "fopen(debug.log, a)\nfopen(debug.log, a)\n");
}

TEST_F(Collector, DPRINTF_EveryFailure_LeavesTheFileOpen) {
  const TempDir dir;
  Init();
  Capture(103, [] { Debug_SetDest("127.0.0.1", 0); });
  const int before = OpenDescriptors();
  Capture(103, [] { DPRINTF(nullptr, kWarning, "first\n"); });
  EXPECT_EQ(OpenDescriptors(), before + 1);
  Capture(103, [] { DPRINTF(nullptr, kWarning, "second\n"); });
  EXPECT_EQ(OpenDescriptors(), before + 2);
}

TEST_F(Collector, DPRINTF_FallBack_WritesHeadersAndKeepsContinuationsBare) {
  const TempDir dir;
  Init();
  Capture(103, [] { Debug_SetDest("127.0.0.1", 0); });
  Capture(103, [] { DPRINTF(nullptr, kWarning, "@more\n"); });
  const std::string text = FileText("debug.log");
  EXPECT_EQ(text.substr(0, 68), std::string(63, '-') + "\nPID:");
  EXPECT_EQ(text.find("---", 64), std::string::npos);
  EXPECT_EQ(StripHeaders(text), "[DEBUG: DPRINTF] Error -2 (0xfffffffe) from SendTCP().\nmore\n");
}

TEST_F(Collector, DPRINTF_FallBackFileCannotBeOpened_GoesToStandardOutput) {
  const TempDir dir;
  ASSERT_EQ(mkdir("debug.log", 0700), 0);
  Init();
  Capture(103, [] { Debug_SetDest("127.0.0.1", 0); });
  int result = 1;
  const Output output = Capture(103, [&] { result = DPRINTF(nullptr, kWarning, "lost %d\n", 7); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(output.log, "");
  EXPECT_EQ(output.out,
            "[DEBUG: DPRINTF] Error -2 (0xfffffffe) from SendTCP().\n"
            "[DEBUG: DPRINTF] Unable to open default syslog 'debug.log'\n"
            "lost 7\n");
}

TEST_F(Collector, DPRINTF_FopenFails_GoesToStandardOutput) {
  const TempDir dir;
  Init();
  Capture(103, [] { Debug_SetDest("127.0.0.1", 0); });
  Seams seams;
  seams.Fail(Call::kFopen, EMFILE);
  const Output output = Capture(103, [] { DPRINTF(nullptr, kWarning, "lost\n"); });
  EXPECT_EQ(output.out,
            "[DEBUG: DPRINTF] Error -2 (0xfffffffe) from SendTCP().\n"
            "[DEBUG: DPRINTF] Unable to open default syslog 'debug.log'\nlost\n");
}

TEST_F(Collector, DPRINTF_FallBackLines_AreAt104) {
  const TempDir dir;
  Init();
  Capture(103, [] { Debug_SetDest("127.0.0.1", 0); });
  Seams seams;
  seams.Fail(Call::kFopen, EMFILE, 1, kEveryTime);
  EXPECT_EQ(Capture(104, [] { DPRINTF(nullptr, kOff, "lost\n"); }).out,
            "[DEBUG: DPRINTF] Error -2 (0xfffffffe) from SendTCP().\n"
            "[DEBUG: DPRINTF] Unable to open default syslog 'debug.log'\nlost\n");
  EXPECT_EQ(Capture(105, [] { DPRINTF(nullptr, kOff, "lost\n"); }).out, "lost\n");
}

TEST_F(Collector, SetLevel_105WithFailingSend_DropsTheErrorLineAt104) {
  const TempDir dir;
  Init();
  Capture(103, [] { Debug_SetDest("127.0.0.1", 0); });
  Capture(103, [] { SetLevel(105); });
  EXPECT_EQ(StripHeaders(FileText("debug.log")),
            "[DEBUG: SetLevel] Global Debug Level Set to 105\n");
}

TEST_F(Collector, Init_Twice_SendsTheLevelLineThroughTheOldSocket) {
  Init();
  const Seams seams;
  const Output output = Capture(103, [] { Debug_Init(); });
  EXPECT_EQ(output.log, "");
  EXPECT_EQ(seams.Count(Call::kSendto), 1);
}

TEST_F(Collector, Init_AgainAndTheSocketFails_GoesBackToStandardError) {
  const TempDir dir;  // where a fall-back file would be written
  Init();
  const int old_socket = log_socket_;
  Seams seams;
  seams.Fail(Call::kSocket, EMFILE);
  int result = 1;
  const Output output = Capture(103, [&] {
    result = Debug_Init();
    Debug_SetDest("127.0.0.1", port_);
    DPRINTF(nullptr, kWarning, "to standard error\n");
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(output.out, "errno = 24\n[DEBUG: Init] Error initing socket to Syslogd, rc = -1\n");
  EXPECT_EQ(output.log,
            "[SOCK: GetError] Uhmm, Houston...We have a problem.\n"
            "[SOCK: GetError] We can't seem to get our socket errors here for sock -1.\n"
            "[SOCK: GetError] The system reports this as errno = 9.\n"
            "[SOCK: GetError] What are your recommendations ?\n"
            "[SOCK: OpenUDP] Error 0 (0x0) from socket().  Unable to get a new socket.\n"
            "to standard error\n");
  EXPECT_EQ(Receive(), "");
  EXPECT_EQ(FileText("debug.log"), "");
  EXPECT_TRUE(IsOpen(old_socket));
}
