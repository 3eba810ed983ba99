// The relay of a Search Manager's records.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>

#include "commmgr/commmgr.h"
#include "debug/log.h"
#include "macro/table.h"
#include "tests/commmgr/handler_case.h"
#include "tests/support/log_capture.h"
#include "tests/support/syscall_seams.h"

namespace {

constexpr const char *kHit = "\t@COMMAND=HIT\t@SEARCHGROUP=doc\t@RECTYPE=r\t@DOCNUM=17\n";
constexpr const char *kComplete = "\t@COMMAND=SEARCHCOMPLETE\n";
constexpr const char *kDocument = "\t@COMMAND=HIT\tT=1\t\n";

// The relay between a Search Manager, which the case plays, and a client.
struct Relay {
  TcpPair search;
  Client client;
  std::int32_t max_hits = 0;

  // Relays the records of one answer.
  void Run(const std::string &records, int macro = -1) {
    SendAll(search.far, records);
    CommMgr_Results(macro, search.near, client.near, max_hits);
  }
};

// A macro that makes "<>" of every document.
int PageMacro() { return Macro_Open(WriteMacro("page", std::string("\x41\x02<>\0", 5)).c_str()); }

void FailToReceive(Relay *relay) {
  Seams seams;
  seams.Fail(Call::kRecv, EIO);
  CommMgr_Results(-1, relay->search.near, relay->client.near, 0);
}

std::vector<Line> ReceiveFailed(const Relay &relay) {
  const std::string sock = Num(relay.search.near);
  return {
      {kWarning,
       "[SOCK: RecvTCP] Error 5 (0x5) from recv().  Unable to receive on socket " + sock + ".\n"},
      {kWarning, "[Util: ReadInt] Unable to recv on socket " + sock + ": rc = -5\n"},
      {kWarning, "[CommMgr: Results: 0] Unable to recv from SearchMgr sock " + sock + " rc = 0\n"}};
}

HANDLER_CASE(Results, LimitBelowZero_IsNoLimit) {
  Manager documents('D', "doc", kDocument);
  for (const std::int32_t limit : {-1, INT32_MIN}) {
    Relay relay;
    relay.max_hits = limit;
    relay.Run(std::string(kHit) + kHit + kHit + kComplete, PageMacro());
    EXPECT_EQ(relay.client.Received(), "<><><>") << limit;
  }
  EXPECT_EQ(documents.Requests().size(), 6U);
}

HANDLER_CASE(Results, Limit_IsLoggedAt101WithTheSearchManagersSocket) {
  Manager documents('D', "doc", kDocument);
  const int macro = PageMacro();
  Relay relay;
  relay.max_hits = 1;
  ExpectLog({Displayed(kHit),
             Displayed(kDocument),
             {kInfo, "[CommMgr: GetDoc] Raw Doc:\n\tT=1\t\n\n"},
             {kStatus, "[Macro: Exec] done\n"},
             {kInfo, "[CommMgr: GetDoc] Formatted Doc (len = 2):\n<>\n"},
             Displayed(kHit),
             {kInfo, "[CommMgr: Results] Max Hits (1) reached for SearchSock " +
                         Num(relay.search.near) + ".\n"}},
            [&] { relay.Run(std::string(kHit) + kHit, macro); });
  EXPECT_EQ(documents.Requests().size(), 5U);  // once a level
}

HANDLER_CASE(Results, Limit_CountsHitsAlone) {
  Manager documents('D', "doc", kDocument);
  const std::string raw = "\t@COMMAND=RAW\tx\n";
  Relay relay;
  relay.max_hits = 1;
  relay.Run(raw + kHit + raw + kHit + raw, PageMacro());
  EXPECT_EQ(relay.client.Received(), "\tx\n<>\tx\n");
}

HANDLER_CASE(Results, EarlyEnd_LeavesTheRestUnreadAndBothSocketsOpen) {
  const Manager documents('D', "doc", kDocument);
  const int macro = PageMacro();
  const std::string rest = "\t@COMMAND=RAW\tlate\n";
  const std::string records[] = {kComplete, "\t@COMMAND=ERROR\tx\n", "\t@COMMAND=NONE\tx\n",
                                 "\t@COMMAND=HIT\t@SEARCHGROUP=nobody\n", std::string(kHit) + kHit};
  for (const std::string &record : records) {
    SCOPED_TRACE(record);
    Relay relay;
    relay.max_hits = 1;
    Capture(kInfo, [&] { relay.Run(record + rest, macro); });
    std::string unread(64, '\0');
    const ssize_t got = recv(relay.search.near, unread.data(), unread.size(), MSG_DONTWAIT);
    EXPECT_EQ(unread.substr(0, got > 0 ? static_cast<std::size_t>(got) : 0), rest);
    EXPECT_TRUE(IsOpen(relay.client.near));
    char byte = 0;
    EXPECT_EQ(recv(relay.search.far, &byte, 1, MSG_DONTWAIT), -1)
        << "the Search Manager was sent something";
  }
}

HANDLER_CASE(Results, EndOfData_IsLoggedAt101) {
  Relay relay;
  shutdown(relay.search.far, SHUT_WR);
  const std::string sock = Num(relay.search.near);
  ExpectLog(
      {{kInfo, "[Util:ReadInt] Length of data is 0 (Connection Closed by other side) for sock " +
                   sock + "\n"},
       {kInfo, "[CommMgr: Results] End of Data for SearchSock " + sock + " reached.\n"}},
      [&] { CommMgr_Results(-1, relay.search.near, relay.client.near, 0); });
  EXPECT_EQ(relay.client.Received(), "");
}

HANDLER_CASE(Results, SearchComplete_IsLoggedAt101WithTheClientsSocket) {
  Relay relay;
  ExpectLog(
      {Displayed(kComplete),
       {kInfo, "[CommMgr: Results] Search Complete for Socket " + Num(relay.client.near) + "\n"}},
      [&] { relay.Run(kComplete); });
}

HANDLER_CASE(Results, UnknownRecord_IsLoggedWholeAt103) {
  const std::string record = "\t@COMMAND=NONE\tx\n";
  Relay relay;
  ExpectLog({Displayed(record),
             {kWarning, "[CommMgr: Results] Unable to figure out this command: " + record + "\n"}},
            [&] { relay.Run(record); });
  EXPECT_EQ(relay.client.Received(), "");
}

HANDLER_CASE(Results, CommandLikeOneOfTheFour_IsUnknown) {
  for (const char *word : {"hit", "HI", "HITS", "raw", "RAWS", "error", "ERRORS", "searchcomplete",
                           "SEARCHCOMPLETED", "SEARCH"}) {
    const std::string record = std::string("\t@COMMAND=") + word + "\tx\n";
    Relay relay;
    SendAll(relay.search.far, record);
    shutdown(relay.search.far, SHUT_WR);
    const Output output =
        Capture(kWarning, [&] { CommMgr_Results(-1, relay.search.near, relay.client.near, 0); });
    EXPECT_EQ(output.log, "[CommMgr: Results] Unable to figure out this command: " + record + "\n");
    EXPECT_EQ(relay.client.Received(), "") << word;
  }
}

// A NUL hides a newline that waits behind it, so that the newline comes later here.
HANDLER_CASE(Results, RawAndErrorWithANul_GoOutAsFarAsTheyAreAString) {
  for (const char *word : {"RAW", "ERROR"}) {
    Relay relay;
    Seams seams;
    seams.Before(Call::kRecv, 3, [&] {
      SendAll(relay.search.far, "\n");
      shutdown(relay.search.far, SHUT_WR);
    });
    relay.Run(std::string("\t@COMMAND=") + word + "\tab\t" + std::string("\0cd", 3));
    EXPECT_EQ(relay.client.Received(), "\tab\t") << word;
  }
}

HANDLER_CASE(Results, ReceiveFails_IsLoggedAt103AndTellsTheClient) {
  Relay relay;
  ExpectLog(ReceiveFailed(relay), [&] { FailToReceive(&relay); });
  const std::string reply =
      "\t@COMMAND=ERROR\tUnable to receive from Search Manager. Please contact Web Administrator.\n";
  EXPECT_EQ(relay.client.Received(), reply + reply + reply + reply + reply);  // once a level
}

HANDLER_CASE(Results, ReceiveFailsAndClientRefuses_IsSaidOfSend1) {
  Relay relay;
  relay.client.Refuse();
  std::vector<Line> lines = ReceiveFailed(relay);
  lines.push_back(SendRefused(relay.client));
  lines.push_back({kWarning, "[CommMgr: Results: 1] Unable to send to client sock " +
                                 Num(relay.client.near) + " rc = -32\n"});
  ExpectLog(lines, [&] { FailToReceive(&relay); });
}

HANDLER_CASE(Results, DocumentFailsAndClientRefuses_IsSaidOfSend2) {
  Relay relay;
  relay.client.Refuse();
  ExpectLog({Displayed(kHit),
             {kWarning, "[CommMgr: GetDoc] Unable to find a docmgr for doc:r\n"},
             SendRefused(relay.client),
             {kWarning, "[CommMgr: Results: 2] Unable to send to client sock " +
                            Num(relay.client.near) + " rc = -32\n"}},
            [&] { relay.Run(kHit); });
}

HANDLER_CASE(Results, DocumentForAClientThatRefuses_IsSaidOfSend3AndEndsTheRelay) {
  Manager documents('D', "doc", kDocument);
  const int macro = PageMacro();
  Relay relay;
  relay.client.Refuse();
  ExpectLog({Displayed(kHit),
             Displayed(kDocument),
             {kInfo, "[CommMgr: GetDoc] Raw Doc:\n\tT=1\t\n\n"},
             {kStatus, "[Macro: Exec] done\n"},
             {kInfo, "[CommMgr: GetDoc] Formatted Doc (len = 2):\n<>\n"},
             SendRefused(relay.client),
             {kWarning, "[CommMgr: Results: 3] Unable to send to client sock " +
                            Num(relay.client.near) + " rc = -32\n"}},
            [&] { relay.Run(kHit, macro); });
}

HANDLER_CASE(Results, RawForAClientThatRefuses_IsSaidOfSend4AndTheRelayGoesOn) {
  const std::string raw = "\t@COMMAND=RAW\tx\n";
  Relay relay;
  relay.client.Refuse();
  ExpectLog(
      {Displayed(raw),
       SendRefused(relay.client),
       {kWarning, "[CommMgr: Results: 4] Unable to send to client sock " + Num(relay.client.near) +
                      " rc = -32\n"},
       Displayed(kComplete),
       {kInfo, "[CommMgr: Results] Search Complete for Socket " + Num(relay.client.near) + "\n"}},
      [&] { relay.Run(raw + kComplete); });
}

HANDLER_CASE(Results, ErrorForAClientThatRefuses_IsSaidOfSend5AndEndsTheRelay) {
  const std::string error = "\t@COMMAND=ERROR\tx\n";
  Relay relay;
  relay.client.Refuse();
  ExpectLog({Displayed(error),
             SendRefused(relay.client),
             {kWarning, "[CommMgr: Results: 5] Unable to send to client sock " +
                            Num(relay.client.near) + " rc = -32\n"}},
            [&] { relay.Run(error); });
}

}  // namespace
