#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "tests/system/harness.h"

namespace {

constexpr const char *kUnknown = "[CommMgr: ClientCmd] Unable to figure out this command: ";

class Reader : public ::testing::Test {
 protected:
  // What is logged for what a client sends, with all its processes gone.
  std::string LogOf(const std::string &bytes) {
    const std::size_t before = daemon_.Log().size();
    EXPECT_EQ("", daemon_.Exchange(bytes));
    return daemon_.Log().substr(before);
  }
  Daemon daemon_;
};

TEST_F(Reader, UnknownCommand_IsLoggedWhole) {
  EXPECT_EQ(std::string(kUnknown) + "\t@COMMAND=query\tfoo\n\n", LogOf("\t@COMMAND=query\tfoo\n"));
}

TEST_F(Reader, TwoCommands_OnlyTheFirstIsServed) {
  EXPECT_EQ(std::string(kUnknown) + "one\n\n", LogOf("one\ntwo\n"));
}

TEST_F(Reader, ClientThatSendsNothing_IsAnEmptyCommand) {
  const std::size_t before = daemon_.Log().size();
  daemon_.Client().Close();
  EXPECT_TRUE(daemon_.Program().WaitForLog(kUnknown));
  EXPECT_EQ(std::string(kUnknown) + "\n", daemon_.Log().substr(before));
}

TEST_F(Reader, ClientThatClosesInTheMiddle_HasSentNoCommand) {
  const std::size_t before = daemon_.Log().size();
  {
    const Socket client = daemon_.Client();
    client.Send("half a li");
    daemon_.Ping();
    client.Send("ne");
  }
  EXPECT_TRUE(daemon_.Program().WaitForLog(kUnknown));
  EXPECT_EQ(std::string(kUnknown) + "\n", daemon_.Log().substr(before));
}

TEST_F(Reader, LineInPieces_IsPutTogether) {
  const std::size_t before = daemon_.Log().size();
  const Socket client = daemon_.Client();
  for (const char *piece : {"a", "bc", "\td", "\n"}) {
    client.Send(piece);
    daemon_.Ping();
  }
  EXPECT_EQ("", client.ReadAll());
  EXPECT_EQ(std::string(kUnknown) + "abc\td\n\n", daemon_.Log().substr(before));
}

TEST_F(Reader, CommandOf4095CharactersAndItsNewline_Fits) {
  const std::string line = std::string(4095, 'x') + "\n";
  EXPECT_EQ(kUnknown + line + "\n", LogOf(line));
}

// A dump of count bytes of one character, its first blank line included.
std::string DumpedTitle() {
  return "[MainCore: TCPRead] Incoming command has overflowed the receiving buffer.\n"
         "HEXDUMP of This is the filled buffer\n\n" +
         std::string(47, ' ') + "\n";
}

std::size_t Count(const std::string &text, const std::string &part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

TEST_F(Reader, OverlongCommand_IsDumpedAndDroppedAndTheNextIsServed) {
  const std::string log = LogOf(std::string(4096, 'x') + "\nnext\n");
  EXPECT_EQ(0u, log.find(DumpedTitle())) << log;
  EXPECT_EQ(1u, Count(log, DumpedTitle()));
  EXPECT_EQ(
      256u,
      Count(log, ": 78787878 78787878 78787878 78787878   x x x x x x x x x x x x x x x x\n"));
  const std::string served = std::string(kUnknown) + "next\n\n";
  EXPECT_EQ(served, log.substr(log.size() - served.size()));
}

TEST_F(Reader, OverlongCommand_IsDumpedOnceForEachFilledBuffer) {
  const std::string log = LogOf(std::string(3 * 4096 + 5, 'x') + "\nnext\n");
  EXPECT_EQ(3u, Count(log, DumpedTitle()));
  EXPECT_EQ(1u, Count(log, std::string(kUnknown) + "next\n\n"));
}

TEST_F(Reader, Nul_HidesTheNewlineOfTheSameLookAhead) {
  const std::size_t before = daemon_.Log().size();
  const Socket client = daemon_.Client();
  client.Send(std::string("a\0b\n", 4));
  daemon_.Ping();
  // A further newline counts once it comes in a look-ahead of its own.
  EXPECT_TRUE(Eventually([&] {
    client.Send("\n");
    return client.Readable(5);
  }));
  EXPECT_EQ("", client.ReadAll());
  EXPECT_EQ(std::string(kUnknown) + "a\n", daemon_.Log().substr(before));
}

TEST_F(Reader, Reset_IsLoggedAndTheSecondCloseFails) {
  Socket client = daemon_.Client();
  client.Send("half");
  daemon_.Ping();
  daemon_.Ping();
  const std::size_t before = daemon_.Log().size();
  client.Reset();
  EXPECT_TRUE(daemon_.Program().WaitForLog("[SOCK: Close]"));
  EXPECT_EQ(
      "[SOCK: RecvTCP] Error 104 (0x68) from recv().  Unable to receive on socket 6.\n"
      "[MainCore: TCPRead] Error -104 from Sock_RecvTCP: socket 6\n"
      "[MainCore: TCPRead] Terminating this Read thread and socket.\n"
      "[SOCK: GetError] Uhmm, Houston...We have a problem.\n"
      "[SOCK: GetError] We can't seem to get our socket errors here for sock 6.\n"
      "[SOCK: GetError] The system reports this as errno = 9.\n"
      "[SOCK: GetError] What are your recommendations ?\n"
      "[SOCK: Close] Error 0 (0x0) from close().  Unable to close socket 6.\n",
      daemon_.Log().substr(before));
  EXPECT_TRUE(Eventually([&] {
    return daemon_.Program().Output().find("errno = 104\nerrno = 9\n") != std::string::npos;
  }));
}

TEST_F(Reader, TwoClientsAtOnce_HaveAProcessEach) {
  const Socket first = daemon_.Client();
  first.Send("slow");
  EXPECT_EQ("", daemon_.Exchange("fast\n"));
  EXPECT_TRUE(daemon_.Program().WaitForLog(std::string(kUnknown) + "fast\n"));
  first.Send("\n");
  EXPECT_EQ("", first.ReadAll());
  EXPECT_TRUE(daemon_.Program().WaitForLog(std::string(kUnknown) + "slow\n"));
}

TEST_F(Reader, InfoLevel_ShowsTheRoadOfACommand) {
  daemon_.SetLevel("INFO");
  const std::string log = LogOf("hello\n");
  EXPECT_NE(std::string::npos,
            log.find("[MainCore: Listen] ListSock=4, newsock=6. New connection from 127.0.0.1/"))
      << log;
  EXPECT_NE(std::string::npos,
            log.find("[MainCore: TCPRead] TCP Read started.  Reading Socket 6\n"));
  EXPECT_NE(std::string::npos, log.find("[MainCore: TCPRead] Socket 6...Data Dump:\nHEXDUMP @ "));
  EXPECT_NE(std::string::npos, log.find(" for 6 bytes\n" + std::string(47, ' ') + "\n"));
  EXPECT_NE(std::string::npos,
            log.find(": 68656c6c 6f0a" + std::string(24, ' ') + " h e l l o \n\n"));
  EXPECT_NE(std::string::npos, log.find("[CommMgr: ClientCmd] MySocket = 6.\n"));
}

TEST_F(Reader, RestartedDaemon_BindsWhileAnOldChildServes) {
  daemon_.SetLevel("STATUS");
  const Socket client = daemon_.Client();
  // The child says so behind its last close of what is the main process's.
  EXPECT_TRUE(daemon_.Program().WaitForLog("[MainCore: TCPRead] TCP Read started."));
  daemon_.Program().Signal(SIGTERM);
  EXPECT_EQ(0, ExitStatus(daemon_.Program().Wait()));
  const Folder folder;
  folder.Write("korvo.conf", "web1 C 127.0.0.1 " + std::to_string(daemon_.ClientPort()) + " " +
                                 std::to_string(daemon_.AdminPort()) + " -\n");
  Process again({KORVO_COMMMGR, "web1", folder.Path()}, folder.Path());
  EXPECT_TRUE(again.WaitForLog("Initialization Complete."));
  client.Send("old\n");
  EXPECT_EQ("", client.ReadAll());
}

TEST_F(Reader, ManyClients_LeaveNoDescriptorAndNoZombie) {
  const std::string proc = "/proc/" + std::to_string(daemon_.Program().Pid());
  const auto count = [&](const std::string &folder) {
    return std::distance(std::filesystem::directory_iterator(proc + folder), {});
  };
  const auto before = count("/fd");
  for (int i = 0; i < 50; ++i) daemon_.Exchange("x\n");
  daemon_.Ping();
  EXPECT_EQ(before, count("/fd"));
  EXPECT_TRUE(Eventually([&] {
    return ReadFile(proc + "/task/" + std::to_string(daemon_.Program().Pid()) + "/children")
        .empty();
  }));
}

}  // namespace
