#include <string_view>

#include "commmgr/commmgr.h"
#include "debug/log.h"
#include "debug/text.h"
#include "protocol/record.h"

namespace {

struct Relay {
  int macro;
  int search;
  int client;
  std::int32_t max_hits;
  std::int32_t hits;
};

MessageBuffer record;
MessageBuffer document;

void ReceiveFailed(const Relay &relay, int result) {
  DPRINTF(nullptr, kWarning,
          "[CommMgr: Results: 0] Unable to recv from SearchMgr sock %d rc = %d\n", relay.search,
          result);
  constexpr const char *kReply =
      "\t@COMMAND=ERROR\tUnable to receive from Search Manager. Please contact Web Administrator.\n";
  const int rc = Sock_SendTCP(relay.client, kReply, Text_Length(kReply), 0);
  if (rc != kSockOk)
    DPRINTF(nullptr, kWarning, "[CommMgr: Results: 1] Unable to send to client sock %d rc = %d\n",
            relay.client, rc);
}

// Each handler of a record says whether the relay goes on.

bool Hit(Relay *relay, CmdHdr *hdr) {
  ++relay->hits;
  if (relay->max_hits > 0 && relay->hits > relay->max_hits) {
    DPRINTF(nullptr, kInfo, "[CommMgr: Results] Max Hits (%d) reached for SearchSock %d.\n",
            relay->max_hits, relay->search);
    return false;
  }
  int length = kMessageSize;
  if (CommMgr_GetDoc(relay->macro, hdr, document.text, &length, 1) != 1) {
    constexpr const char *kReply = "\t@COMMAND=ERROR\tUnable to retreive document.";
    const int rc = Sock_SendTCP(relay->client, kReply, Text_Length(kReply), 0);
    if (rc != kSockOk)
      DPRINTF(nullptr, kWarning, "[CommMgr: Results: 2] Unable to send to client sock %d rc = %d\n",
              relay->client, rc);
    return false;
  }
  const int rc = Sock_SendTCP(relay->client, document.text, length, 0);
  if (rc == kSockOk) return true;
  DPRINTF(nullptr, kWarning, "[CommMgr: Results: 3] Unable to send to client sock %d rc = %d\n",
          relay->client, rc);
  return false;
}

// The rest of these two is null when the record is a lone header; the socket layer refuses that.

bool Raw(const Relay &relay, const char *rest) {
  const int rc = Sock_SendTCP(relay.client, rest, Text_Length(rest), 0);
  if (rc != kSockOk)
    DPRINTF(nullptr, kWarning, "[CommMgr: Results: 4] Unable to send to client sock %d rc = %d\n",
            relay.client, rc);
  return true;  // Kept: a raw text that cannot be sent does not end the page
}

bool Error(const Relay &relay, const char *rest) {
  const int rc = Sock_SendTCP(relay.client, rest, Text_Length(rest), 0);
  if (rc != kSockOk)
    DPRINTF(nullptr, kWarning, "[CommMgr: Results: 5] Unable to send to client sock %d rc = %d\n",
            relay.client, rc);
  return false;
}

bool Dispatch(Relay *relay, CmdHdr *hdr, const char *rest) {
  const std::string_view command = hdr->Command;
  if (command == "HIT") return Hit(relay, hdr);
  if (command == "RAW") return Raw(*relay, rest);
  if (command == "SEARCHCOMPLETE") {
    // Kept: the socket is the client's.
    DPRINTF(nullptr, kInfo, "[CommMgr: Results] Search Complete for Socket %d\n", relay->client);
    return false;
  }
  if (command == "ERROR") return Error(*relay, rest);
  DPRINTF(nullptr, kWarning, "[CommMgr: Results] Unable to figure out this command: %s\n",
          record.text);
  return false;
}

}  // namespace

void CommMgr_Results(int macro, int search_sock, int client_sock, std::int32_t max_hits) {
  Relay relay = {macro, search_sock, client_sock, max_hits, 0};
  for (;;) {
    CmdHdr hdr;
    int length = kMessageSize;
    char *rest = nullptr;
    const int result = Util_ReadInt(search_sock, record.text, &length, &hdr, &rest);
    if (result == kRecordOver) {
      DPRINTF(nullptr, kInfo, "[CommMgr: Results] End of Data for SearchSock %d reached.\n",
              search_sock);
      return;
    }
    if (result != kRecordRead) return ReceiveFailed(relay, result);
    if (!Dispatch(&relay, &hdr, rest)) return;
  }
}
