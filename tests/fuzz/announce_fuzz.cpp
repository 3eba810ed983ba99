// Announcements: the reader, the lists, and what a sender of the same record writes.
//
// Parts: announcements, a segment each; a field list.
#include <sys/socket.h>

#include <cstdlib>
#include <cstring>

#include "config/announce.h"
#include "debug/text.h"
#include "tests/fuzz/support/fuzz.h"
#include "tests/fuzz/support/peer_model.h"

namespace {

constexpr std::size_t kLongestMessage = 1024;

std::string datagram;

INIT_CHILDINFO *Allocate() {
  auto *child = static_cast<INIT_CHILDINFO *>(std::calloc(1, sizeof(INIT_CHILDINFO)));
  FUZZ_CHECK(child != nullptr);
  return child;
}

bool Read(const std::string &text, INIT_CHILDINFO *child) {
  const Bytes bytes = Fuzz_Terminated(text);
  const int result = Init_RecvAnnounce(bytes.data(), child);
  FUZZ_CHECK(result == 0 || result == 1);
  FUZZ_CHECK(text == bytes.data());
  Fuzz_CheckChild(*child);
  return result == 1;
}

// A sender with the values of child writes what is read as child again.
void CheckWritten(const INIT_CHILDINFO &child, const char *fields) {
  ConfigInfo config = {};
  FUZZ_CHECK(Text_Copy(config.ID, child.ID));
  FUZZ_CHECK(Text_Copy(config.IP, child.ClientAddr.IP));
  config.Type = child.Type;
  config.ClientPort = child.ClientAddr.Port;
  config.AdminPort = child.AdminAddr.Port;
  DBInfo database = {};
  database.FieldList = fields;
  SockAddr parent = {"127.0.0.1", 1, {}};

  datagram.clear();
  FUZZ_CHECK(Init_Announce(&parent, &config, &database) == 1);
  FUZZ_CHECK(datagram.size() <= kLongestMessage);
  FUZZ_CHECK(datagram.back() == '\n');
  FUZZ_CHECK(datagram.find('\0') == std::string::npos);
  FUZZ_CHECK((datagram.find("\tFIELDLIST=") != std::string::npos) == (*fields != '\0'));

  INIT_CHILDINFO again = {};
  FUZZ_CHECK(Read(datagram, &again));
  FUZZ_CHECK(Fuzz_ChildText(again) == Fuzz_ChildText(child));
}

void Insert(INIT_CHILDINFO *child) {
  if (child->Type == 'D')
    Init_InsertDocMgr(child);
  else if (child->Type == 'S')
    Init_InsertSearchMgr(child);
  else
    std::free(child);
}

}  // namespace

extern "C" ssize_t __wrap_sendto(int, const void *data, std::size_t size, int, const sockaddr *,
                                 socklen_t) {
  datagram.assign(static_cast<const char *>(data), size);
  return static_cast<ssize_t>(size);
}

std::string Fuzz_Run(const Input &input) {
  const Bytes fields = Fuzz_Terminated(Fuzz_UpToNul(input[1].Whole()));
  PeerModel model;
  std::string shown;
  for (const std::string &text : input[0].segments) {
    INIT_CHILDINFO *child = Allocate();
    const bool complete = Read(Fuzz_UpToNul(text), child);
    shown += Fuzz_ChildText(*child);
    if (!complete) {
      std::free(child);
      continue;
    }
    if (child->Type != '\0') CheckWritten(*child, fields.data());
    model.Insert(*child);
    Insert(child);
    model.Check();
  }
  return shown + Fuzz_PeerText();
}
