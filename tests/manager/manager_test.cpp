// A manager's command line, with answers that fail as a search may.
#include "manager/manager.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <csignal>
#include <new>

#include "debug/log.h"
#include "tests/service/running.h"
#include "tests/support/log_capture.h"

namespace {

constexpr const char *kCommand = "\t@COMMAND=ASK\tword\n";
constexpr const char *kUnreadable = "\t@COMMAND=ERROR\tUnable to read the database\n";

std::string Answer(const Xapian::Database &, const CmdHdr &, const char *) { return "answer\n"; }

std::string FindModified(const Xapian::Database &, const CmdHdr &, const char *) {
  throw Xapian::DatabaseModifiedError("the revision is gone");
}

std::string FindNoMemory(const Xapian::Database &, const CmdHdr &, const char *) {
  throw std::bad_alloc();
}

// A connection of a client.
struct Connection {
  Connection() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    near = Socket(ends[0]);
    far = Socket(ends[1]);
  }
  std::string Run(const char *text, Manager_AnswerFn answer) {
    return Capture(kWarning,
                   [&] {
                     Manager_ClientCmd(near.Fd(), text, {"ASK", database.c_str(), answer});
                   })
        .log;
  }
  std::string Received() {
    near.Close();
    return far.ReadAll();
  }

  const Folder folder;
  std::string database = BuildIndex(folder, "db", kPackages);
  Socket near, far;
};

}  // namespace

TEST(Manager, ADatabaseThatKeepsChanging_IsTriedThreeTimes) {
  Connection client;
  std::string log;
  for (const char *attempt : {"1", "2", "3"})
    log += "[Manager: Answer] Database '" + client.database + "' changed, attempt " + attempt +
           ": the revision is gone\n";
  EXPECT_EQ(client.Run(kCommand, FindModified), log);
  EXPECT_EQ(client.Received(), kUnreadable);
}

TEST(Manager, MemoryThatRunsOut_IsAnErrorOfOneLine) {
  Connection client;
  EXPECT_EQ(client.Run(kCommand, FindNoMemory),
            "[Manager: Answer] Unable to answer from database '" + client.database +
                "': std::bad_alloc\n");
  EXPECT_EQ(client.Received(), kUnreadable);
}

TEST(Manager, ADatabaseThatIsMissing_IsAnErrorOfOneLine) {
  Connection client;
  client.database = client.folder.Path() + "/none";
  EXPECT_EQ(client.Run(kCommand, Answer), "[Manager: Answer] Unable to read database '" +
                                              client.database +
                                              "': DatabaseNotFoundError: Couldn't stat '" +
                                              client.database + "' (No such file or directory)\n");
  EXPECT_EQ(client.Received(), kUnreadable);
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
            "[SOCK: SendTCP] Error 32 (0x20) from send().  Unable to send on socket " + sock +
                ".\n[Manager: ClientCmd] Unable to send to client sock " + sock + " rc = -32\n");
}
