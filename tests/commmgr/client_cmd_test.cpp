// A client's one command.
#include <gtest/gtest.h>

#include <filesystem>

#include "commmgr/commmgr.h"
#include "debug/log.h"
#include "macro/table.h"
#include "tests/commmgr/handler_case.h"
#include "tests/macro/file_seams.h"
#include "tests/support/log_capture.h"

namespace {

constexpr const char *kComplete = "\t@COMMAND=SEARCHCOMPLETE\n";
constexpr const char *kDocument = "\t@COMMAND=HIT\tT=1\t\n";
const std::string kPage("\x41\x02<>\0", 5);  // a macro that makes "<>" of every document

// A macro library, and frames of the same name there and in the working directory.
struct Library {
  Library() {
    file_seams.from = kLibraryDir;
    file_seams.to = dir.Path() + "/lib";
    std::filesystem::create_directory("lib");
    WriteFile("lib/page.mo", kPage);
    WriteFile("lib/page.hdr", "LIBRARY HEAD\n");
    WriteFile("lib/page.tail", "LIBRARY TAIL\n");
    WriteFile("page.hdr", "OWN HEAD\n");
    WriteFile("page.tail", "OWN TAIL\n");
  }
  ~Library() { file_seams.from.clear(); }

  const TempDir dir;
};

std::string Command(const std::string &word, const std::string &group,
                    const std::string &macro = "page") {
  return "\t@COMMAND=" + word + "\t@SEARCHGROUP=" + group + "\t@RECTYPE=r\t@MACROFILE=" + macro +
         "\tTITLE=x\n";
}

void Run(const Client &client, const std::string &command) {
  CommMgr_ClientCmd(-1, client.near, command.c_str());
}

// What every command begins with.
std::vector<Line> Begin(const Client &client, const std::string &command) {
  return {Displayed(command),
          {kInfo, "[CommMgr: ClientCmd] MySocket = " + Num(client.near) + ".\n"}};
}

// Expects the lines behind those that every command begins with.
void ExpectCommandLog(const Client &client, const std::string &command,
                      const std::vector<Line> &more) {
  std::vector<Line> lines = Begin(client, command);
  lines.insert(lines.end(), more.begin(), more.end());
  ExpectLog(lines, [&] { Run(client, command); });
}

Line ReplyFailed(const Client &client) {
  return {kWarning,
          "[CommMgr: ClientCmd] Unable to send to client sock " + Num(client.near) + " rc = -32\n"};
}

HANDLER_CASE(ClientCmd, QueryWithARelativeMacro_TakesMacroAndFramesFromTheLibrary) {
  const Library library;
  Manager search('S', "grp", kComplete);
  Client client;
  ExpectCommandLog(
      client, Command("QUERY", "grp"),
      {{kInfo, "[CommMgr: SendHdr] Looking for /usr/local/korvo/lib/page.hdr\n"},
       Displayed(kComplete),
       {kInfo, "[CommMgr: Results] Search Complete for Socket " + Num(client.near) + "\n"},
       {kInfo, "[CommMgr: SendTail] Looking for /usr/local/korvo/lib/page.tail\n"}});
  const std::string page = "LIBRARY HEAD\nLIBRARY TAIL\n";
  EXPECT_EQ(client.Received(), page + page + page + page + page);  // once a level
}

HANDLER_CASE(ClientCmd, QueryWithAnAbsoluteMacro_TakesTheFramesBesideIt) {
  const Library library;
  Manager search('S', "grp", kComplete);
  Client client;
  WriteFile("page.mo", kPage);
  Capture(kInfo, [&] { Run(client, Command("QUERY", "grp", library.dir.Path() + "/page")); });
  EXPECT_EQ(client.Received(), "OWN HEAD\nOWN TAIL\n");
}

HANDLER_CASE(ClientCmd, GetDocWithARelativeMacro_TakesFramesFromTheWorkingDirectory) {
  const Library library;
  Manager documents('D', "doc", kDocument);
  Client client;
  ExpectCommandLog(client, Command("GETDOC", "doc"),
                   {Displayed(kDocument),
                    {kInfo, "[CommMgr: GetDoc] Raw Doc:\n\tT=1\t\n\n"},
                    {kStatus, "[Macro: Exec] done\n"},
                    {kInfo, "[CommMgr: GetDoc] Formatted Doc (len = 2):\n<>\n"},
                    {kInfo, "[CommMgr: SendHdr] Looking for page.hdr\n"},
                    {kInfo, "[CommMgr: SendTail] Looking for page.tail\n"}});
  const std::string page = "OWN HEAD\n<>OWN TAIL\n";
  EXPECT_EQ(client.Received(), page + page + page + page + page);  // once a level
}

HANDLER_CASE(ClientCmd, UnknownCommand_IsLoggedWholeAt103) {
  Client client;
  for (const char *word : {"query", "getdoc", "QUERYX", ""}) {
    const std::string command = Command(word, "grp");
    ExpectCommandLog(
        client, command,
        {{kWarning, "[CommMgr: ClientCmd] Unable to figure out this command: " + command + "\n"}});
  }
  EXPECT_EQ(client.Received(), "");
}

HANDLER_CASE(ClientCmd, MissingMacro_IsLoggedAt103ForBothCommands) {
  const Library library;
  Manager search('S', "grp", kComplete), documents('D', "grp", kDocument);
  Client client;
  for (const char *word : {"QUERY", "GETDOC"})
    ExpectCommandLog(
        client, Command(word, "grp", "other"),
        {{kWarning,
          "[Macro: Open] Unable to open macro '/usr/local/korvo/lib/other.mo': errno = 2\n"},
         {kWarning, "[CommMgr: ClientCmd] Unable to open Macro other\n"}});
  EXPECT_EQ(client.Received(), "");
  EXPECT_TRUE(search.Requests().empty() && documents.Requests().empty());
}

HANDLER_CASE(ClientCmd, UnknownSearchManagerAndClientRefuses_IsLoggedAt103) {
  const Library library;
  Manager documents('D', "grp", kComplete), longer('S', "grp2", kComplete);
  Client client;
  client.Refuse();
  ExpectCommandLog(
      client, Command("QUERY", "grp"),
      {{kWarning, "[CommMgr: ClientCmd] Unable to locate SearchGroup '' amongst my flock\n"},
       SendRefused(client),
       ReplyFailed(client)});
  EXPECT_TRUE(documents.Requests().empty() && longer.Requests().empty());
}

HANDLER_CASE(ClientCmd, SearchManagerThatIsGone_IsLoggedAt103AndToldToTheClient) {
  const Library library;
  const GoneManager gone('S', "grp");
  Client client;
  ExpectCommandLog(
      client, Command("QUERY", "grp"),
      {{kWarning,
        "[SOCK: Connect] Error 111 (0x6f) from connect().  Unable to connect socket <sock> to " +
            gone.Where() + ".\n"},
       {kWarning, "[Socket: Conn&Send] Unable to connect to " + gone.Where() + ": rc = -111\n"},
       {kWarning, "[CommMgr: ClientCmd] Unable to connect to SearchMgr: rc = -111\n"}});
  const std::string reply = "\t@COMMAND=ERROR\tUnable to connect to SearchMgr: rc = -111\n";
  EXPECT_EQ(client.Received(), reply + reply + reply + reply + reply);  // once a level
}

HANDLER_CASE(ClientCmd, SearchManagerThatIsGoneAndClientRefuses_IsLoggedAt103) {
  const Library library;
  const GoneManager gone('S', "grp");
  Client client;
  client.Refuse();
  ExpectCommandLog(
      client, Command("QUERY", "grp"),
      {{kWarning,
        "[SOCK: Connect] Error 111 (0x6f) from connect().  Unable to connect socket <sock> to " +
            gone.Where() + ".\n"},
       {kWarning, "[Socket: Conn&Send] Unable to connect to " + gone.Where() + ": rc = -111\n"},
       {kWarning, "[CommMgr: ClientCmd] Unable to connect to SearchMgr: rc = -111\n"},
       SendRefused(client),
       ReplyFailed(client)});
}

HANDLER_CASE(ClientCmd, GetDocFailsAndClientRefuses_IsSaidOfResultsAt103) {
  const Library library;
  Client client;
  client.Refuse();
  ExpectCommandLog(client, Command("GETDOC", "doc"),
                   {{kWarning, "[CommMgr: GetDoc] Unable to find a docmgr for doc:r\n"},
                    SendRefused(client),
                    {kWarning, "[CommMgr: Results] Unable to send to client sock " +
                                   Num(client.near) + " rc = -32\n"}});
}

HANDLER_CASE(ClientCmd, GetDocForAClientThatRefuses_IsSaidOfResultsAt103AndHasNoTail) {
  const Library library;
  Manager documents('D', "doc", "");
  Client client;
  ExpectCommandLog(
      client, Command("GETDOC", "doc"),
      {{kInfo,
        "[Util:ReadInt] Length of data is 0 (Connection Closed by other side) for sock <sock>\n"},
       {kInfo, "[CommMgr: GetDoc] ReadAndInterpret returned an END OF DATA message\n"},
       {kInfo, "[CommMgr: SendHdr] Looking for page.hdr\n"},
       {kWarning, "[Sock: SendTCP] datalen == 0 for sock " + Num(client.near) + "\n"},
       {kWarning,
        "[CommMgr: Results] Unable to send to client sock " + Num(client.near) + " rc = -3\n"}});
}

HANDLER_CASE(ClientCmd, SearchManager_GetsTheTextAndAnsweringItLeavesBothSocketsOpen) {
  const Library library;
  Manager search('S', "grp", kComplete);
  Client client;
  const std::string command = Command("QUERY", "grp");
  const int before = OpenDescriptors();
  Capture(kInfo, [&] { Run(client, command); });
  EXPECT_EQ(search.Requests(), std::vector<std::string>{command});
  EXPECT_TRUE(IsOpen(client.near));
  EXPECT_EQ(OpenDescriptors(), before + 2);  // both ends of the Search Manager's connection
}

}  // namespace
