// The relay between an arbitrary Search Manager, arbitrary Document Managers and a client.
//
// Parts: the Search Manager's stream; the page macro; settings: the hit limit, one byte, and after
// how many bytes the client hangs up, two; then the answers of the Document Managers, a connection
// each.  A connection without an answer is refused.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "commmgr/commmgr.h"
#include "config/peers.h"
#include "debug/text.h"
#include "macro/exec.h"
#include "tests/fuzz/support/macros.h"
#include "tests/fuzz/support/wire.h"

namespace {

constexpr std::size_t kFirstAnswer = 3;
constexpr std::int16_t kDocPort = 7001;

const Input *current = nullptr;
std::size_t connections = 0;

void AddDocMgr(const char *id) {
  auto *child = static_cast<INIT_CHILDINFO *>(std::calloc(1, sizeof(INIT_CHILDINFO)));
  FUZZ_CHECK(child != nullptr);
  FUZZ_CHECK(Text_Copy(child->ID, id));
  child->Type = 'D';
  FUZZ_CHECK(Text_Copy(child->ClientAddr.IP, "127.0.0.1"));
  child->ClientAddr.Port = kDocPort;
  Init_InsertDocMgr(child);
}

const Part *Answer(const sockaddr_in &address) {
  FUZZ_CHECK(ntohs(address.sin_port) == kDocPort);
  const std::size_t answer = kFirstAnswer + connections++;
  return answer < current->parts.size() ? &(*current)[answer] : nullptr;
}

// Every request is a header that names a known Document Manager, and ends its line.  What stands
// behind the group may hold a separator: the words of a fetch are those of a document.
void CheckRequest(const std::string &request) {
  FUZZ_CHECK(request.find_first_of("\r\n") == request.size() - 1);
  CmdHdr hdr = {};
  FUZZ_CHECK(Util_IntCmdHdr(&hdr, request.c_str()) == nullptr);
  FUZZ_CHECK(std::string_view(hdr.Command) == "GETDOC");
  FUZZ_CHECK(Init_FindPeer(DocMgrList, hdr.SearchGroup) != nullptr);
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  current = &input;
  connections = 0;
  if (DocMgrList == nullptr) {
    AddDocMgr("");
    AddDocMgr("dm1");
    AddDocMgr("d2");
  }
  Fuzz_ResetMacros();
  Macro_SetFetch(CommMgr_GetDoc);
  Fuzz_OnMessage = Fuzz_EndUndefined;
  Wire_OnConnect = Answer;

  const std::string settings = input[2].Whole();
  const std::int32_t max_hits = Fuzz_Number(settings, 0, 1, 0);
  const int patience = Fuzz_Number(settings, 1, 2, -1);
  const int macro = Fuzz_LoadMacro(input[1].Whole());
  Wire search(input[0]);
  Wire client({}, patience < 0 ? SIZE_MAX : static_cast<std::size_t>(patience));
  CommMgr_Results(macro, search.Socket(), client.Socket(), max_hits);
  FUZZ_CHECK(search.Socket() >= 0 && client.Socket() >= 0);  // they stay the caller's

  std::string shown = client.Sent();
  for (const std::string &request : Wire_TakeRequests()) {
    CheckRequest(request);
    shown += request;
  }
  return shown;
}
