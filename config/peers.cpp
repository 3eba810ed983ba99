#include "config/peers.h"

#include <cstdlib>
#include <cstring>

#include "debug/signal_hold.h"

INIT_CHILDINFO *DocMgrList = nullptr;
INIT_CHILDINFO *SearchMgrList = nullptr;

namespace {

// The link that leads to the record of that ID, or the one at the end of the list.
INIT_CHILDINFO **FindLink(INIT_CHILDINFO **list, const char *id) {
  INIT_CHILDINFO **link = list;
  while (*link != nullptr && std::strcmp((*link)->ID, id) != 0) link = &(*link)->Next;
  return link;
}

void Replace(INIT_CHILDINFO **link, INIT_CHILDINFO *child) {
  INIT_CHILDINFO *old = *link;
  child->Next = old != nullptr ? old->Next : nullptr;
  *link = child;
  std::free(old);
}

void FreeAll(INIT_CHILDINFO *list) {
  while (list != nullptr) {
    INIT_CHILDINFO *next = list->Next;
    std::free(list);
    list = next;
  }
}

}  // namespace

INIT_CHILDINFO *Init_FindPeer(INIT_CHILDINFO *list, const char *id) { return *FindLink(&list, id); }

void Init_InsertDocMgr(INIT_CHILDINFO *child) {
  const SignalHold hold;
  Replace(FindLink(&DocMgrList, child->ID), child);
}

void Init_InsertSearchMgr(INIT_CHILDINFO *child) {
  const SignalHold hold;
  INIT_CHILDINFO **link = FindLink(&SearchMgrList, child->ID);
  Replace(link, child);
  if (link == &SearchMgrList) return;
  // Kept: those behind it are listed again by their own next announcements.
  FreeAll(child->Next);
  child->Next = nullptr;
}
