#include "tests/fuzz/support/peer_model.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "tests/fuzz/support/fuzz.h"

namespace {

void Empty(INIT_CHILDINFO **list) {
  while (*list != nullptr) {
    INIT_CHILDINFO *next = (*list)->Next;
    std::free(*list);
    *list = next;
  }
}

// Replaces the record of that ID or appends; the place it then has.
std::size_t Place(std::vector<INIT_CHILDINFO> *list, const INIT_CHILDINFO &child) {
  for (std::size_t i = 0; i < list->size(); ++i) {
    if (std::strcmp((*list)[i].ID, child.ID) != 0) continue;
    (*list)[i] = child;
    return i;
  }
  list->push_back(child);
  return list->size() - 1;
}

void CheckList(const std::vector<INIT_CHILDINFO> &expected, INIT_CHILDINFO *list) {
  for (const INIT_CHILDINFO &child : expected) {
    FUZZ_CHECK(list != nullptr);
    FUZZ_CHECK(Fuzz_ChildText(*list) == Fuzz_ChildText(child));
    list = list->Next;
  }
  FUZZ_CHECK(list == nullptr);
}

std::string ListText(const INIT_CHILDINFO *list) {
  std::string text;
  for (; list != nullptr; list = list->Next) text += Fuzz_ChildText(*list);
  return text + '\n';
}

}  // namespace

PeerModel::PeerModel() {
  Empty(&DocMgrList);
  Empty(&SearchMgrList);
}

PeerModel::~PeerModel() {
  Empty(&DocMgrList);
  Empty(&SearchMgrList);
}

void PeerModel::Insert(const INIT_CHILDINFO &child) {
  if (child.Type == 'D') Place(&documents_, child);
  if (child.Type != 'S') return;
  const bool known = std::any_of(searches_.begin(), searches_.end(), [&](const auto &other) {
    return std::strcmp(other.ID, child.ID) == 0;
  });
  const std::size_t at = Place(&searches_, child);
  if (known && at > 0) searches_.resize(at + 1);  // those behind it are out
}

void PeerModel::Check() const {
  CheckList(documents_, DocMgrList);
  CheckList(searches_, SearchMgrList);
}

void Fuzz_CheckChild(const INIT_CHILDINFO &child) {
  FUZZ_CHECK(Fuzz_IsTerminated(child.ID));
  FUZZ_CHECK(Fuzz_IsTerminated(child.ClientAddr.IP));
  FUZZ_CHECK(Fuzz_IsTerminated(child.AdminAddr.IP));
}

std::string Fuzz_ChildText(const INIT_CHILDINFO &child) {
  Fuzz_CheckChild(child);
  return std::string(child.ID) + '\t' + child.Type + '\t' + child.ClientAddr.IP + '\t' +
         std::to_string(child.ClientAddr.Port) + '\t' + child.AdminAddr.IP + '\t' +
         std::to_string(child.AdminAddr.Port) + '\n';
}

std::string Fuzz_PeerText() { return ListText(DocMgrList) + ListText(SearchMgrList); }
