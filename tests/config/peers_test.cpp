#include "config/peers.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

// The port of a record says which announcement it came from.
INIT_CHILDINFO *Child(const std::string &id, int serial) {
  auto *child = static_cast<INIT_CHILDINFO *>(std::calloc(1, sizeof(INIT_CHILDINFO)));
  id.copy(child->ID, sizeof child->ID - 1);
  child->ClientAddr.Port = static_cast<std::int16_t>(serial);
  return child;
}

std::string Show(const INIT_CHILDINFO *list) {
  std::string text;
  for (; list != nullptr; list = list->Next)
    text += std::string(list->ID) + ":" + std::to_string(list->ClientAddr.Port) + " ";
  return text;
}

void Clear(INIT_CHILDINFO **list) {
  while (*list != nullptr) std::free(std::exchange(*list, (*list)->Next));
}

// Bytes of the heap that are in use.  Nothing under a sanitizer, which reports by itself what is
// lost.
std::size_t InUse() { return mallinfo2().uordblks; }

class Peers : public ::testing::Test {
 protected:
  ~Peers() override {
    Clear(&DocMgrList);
    Clear(&SearchMgrList);
  }

  // The serial numbers are 1, 2, ... over both lists.
  void Doc(std::initializer_list<const char *> ids) {
    for (const char *id : ids) Init_InsertDocMgr(Child(id, ++serial_));
  }
  void Search(std::initializer_list<const char *> ids) {
    for (const char *id : ids) Init_InsertSearchMgr(Child(id, ++serial_));
  }

  int serial_ = 0;
};

TEST_F(Peers, Lists_AreEmptyAtTheStart) {
  EXPECT_EQ(DocMgrList, nullptr);
  EXPECT_EQ(SearchMgrList, nullptr);
}

TEST_F(Peers, Record_HasAnIdOf64Bytes) { EXPECT_EQ(sizeof INIT_CHILDINFO::ID, 64u); }

TEST_F(Peers, InsertDocMgr_IntoAnEmptyList_IsTheHead) {
  INIT_CHILDINFO *child = Child("A", 1);
  Init_InsertDocMgr(child);
  EXPECT_EQ(DocMgrList, child);
  EXPECT_EQ(child->Next, nullptr);
  EXPECT_EQ(SearchMgrList, nullptr);
}

TEST_F(Peers, InsertDocMgr_NewIds_AreAppended) {
  Doc({"A", "B", "C"});
  EXPECT_EQ(Show(DocMgrList), "A:1 B:2 C:3 ");
}

TEST_F(Peers, InsertDocMgr_SameIdTwice_KeepsOneRecord) {
  Doc({"A", "A"});
  EXPECT_EQ(Show(DocMgrList), "A:2 ");
}

TEST_F(Peers, InsertDocMgr_HeadAgain_IsReplacedInItsPlace) {
  Doc({"A", "B", "C", "A"});
  EXPECT_EQ(Show(DocMgrList), "A:4 B:2 C:3 ");
}

TEST_F(Peers, InsertDocMgr_MiddleAgain_KeepsThoseBehindIt) {
  Doc({"A", "B", "C", "B"});
  EXPECT_EQ(Show(DocMgrList), "A:1 B:4 C:3 ");
}

TEST_F(Peers, InsertDocMgr_LastAgain_IsReplacedInItsPlace) {
  Doc({"A", "B", "C", "C"});
  EXPECT_EQ(Show(DocMgrList), "A:1 B:2 C:4 ");
}

TEST_F(Peers, InsertSearchMgr_IntoAnEmptyList_IsTheHead) {
  INIT_CHILDINFO *child = Child("S1", 1);
  Init_InsertSearchMgr(child);
  EXPECT_EQ(SearchMgrList, child);
  EXPECT_EQ(child->Next, nullptr);
  EXPECT_EQ(DocMgrList, nullptr);
}

TEST_F(Peers, InsertSearchMgr_NewIds_AreAppended) {
  Search({"S1", "S2", "S3"});
  EXPECT_EQ(Show(SearchMgrList), "S1:1 S2:2 S3:3 ");
}

TEST_F(Peers, InsertSearchMgr_HeadAgain_KeepsThoseBehindIt) {
  Search({"S1", "S2", "S3", "S1"});
  EXPECT_EQ(Show(SearchMgrList), "S1:4 S2:2 S3:3 ");
}

TEST_F(Peers, InsertSearchMgr_OnlyRecordAgain_KeepsOne) {
  Search({"S1", "S1"});
  EXPECT_EQ(Show(SearchMgrList), "S1:2 ");
}

TEST_F(Peers, InsertSearchMgr_MiddleAgain_DropsThoseBehindIt) {
  Search({"S1", "S2", "S3", "S4", "S2"});
  EXPECT_EQ(Show(SearchMgrList), "S1:1 S2:5 ");
}

TEST_F(Peers, InsertSearchMgr_LastAgain_IsReplacedInItsPlace) {
  Search({"S1", "S2", "S3", "S3"});
  EXPECT_EQ(Show(SearchMgrList), "S1:1 S2:2 S3:4 ");
}

TEST_F(Peers, InsertSearchMgr_DroppedOne_IsListedAgainByItsNextAnnouncement) {
  Search({"S1", "S2", "S3", "S2", "S3"});
  EXPECT_EQ(Show(SearchMgrList), "S1:1 S2:4 S3:5 ");
}

// The C library keeps the first few that are freed, and counts them as in use.
TEST_F(Peers, Insert_ReplacedAndDroppedRecords_AreFreed) {
  Doc({"A"});
  Search({"A", "B"});
  std::size_t after_some = 0;
  for (int i = 0; i < 200; ++i) {
    Doc({"A"});
    Search({"C", "D", "B"});  // B drops the two behind it
    if (i == 100) after_some = InUse();
  }
  EXPECT_EQ(InUse(), after_some);
}

TEST_F(Peers, Insert_SameIdInBothLists_KeepsThemApart) {
  Doc({"grp1"});
  Search({"grp1"});
  EXPECT_EQ(Show(DocMgrList), "grp1:1 ");
  EXPECT_EQ(Show(SearchMgrList), "grp1:2 ");
}

TEST_F(Peers, Insert_IdsThatDifferInCaseOrLength_AreOthers) {
  Doc({"grp1", "GRP1", "grp", "grp11"});
  Search({"grp1", "GRP1", "grp", "grp11"});
  EXPECT_EQ(Show(DocMgrList), "grp1:1 GRP1:2 grp:3 grp11:4 ");
  EXPECT_EQ(Show(SearchMgrList), "grp1:5 GRP1:6 grp:7 grp11:8 ");
}

TEST_F(Peers, Insert_ManyIds_HasNoLimit) {
  std::string expected;
  for (int i = 1; i <= 2000; ++i) {
    Init_InsertDocMgr(Child("D" + std::to_string(i), i));
    expected += "D" + std::to_string(i) + ":" + std::to_string(i) + " ";
  }
  EXPECT_EQ(Show(DocMgrList), expected);
}

using Model = std::vector<std::pair<std::string, int>>;

std::string Show(const Model &model) {
  std::string text;
  for (const auto &[id, serial] : model) text += id + ":" + std::to_string(serial) + " ";
  return text;
}

// Replaces the record of that id, or appends it.  Where drops is set, a place behind the head
// becomes the last.
void Insert(Model *model, const std::string &id, int serial, bool drops) {
  std::size_t at = 0;
  while (at < model->size() && (*model)[at].first != id) ++at;
  if (at == model->size()) model->emplace_back();
  (*model)[at] = {id, serial};
  if (drops && at > 0) model->resize(at + 1);
}

TEST_F(Peers, Insert_AnySequence_FollowsTheRulesOfEachList) {
  std::mt19937 random(20260101);
  Model docs, searches;
  for (int serial = 1; serial <= 3000; ++serial) {
    const std::string id(1, static_cast<char>('A' + random() % 7));
    Init_InsertDocMgr(Child(id, serial));
    Init_InsertSearchMgr(Child(id, serial));
    Insert(&docs, id, serial, false);
    Insert(&searches, id, serial, true);
    ASSERT_EQ(Show(DocMgrList), Show(docs)) << "after " << serial;
    ASSERT_EQ(Show(SearchMgrList), Show(searches)) << "after " << serial;
    if (serial % 100 == 0) {
      Clear(&SearchMgrList);
      searches.clear();
    }
  }
}

TEST_F(Peers, FindPeer_FirstOfThatIdExactly_OrNull) {
  Doc({"A", "B", "C"});
  EXPECT_EQ(Init_FindPeer(DocMgrList, "A"), DocMgrList);
  EXPECT_EQ(Init_FindPeer(DocMgrList, "C")->ClientAddr.Port, 3);
  for (const char *id : {"", "a", "AB", "D"})
    EXPECT_EQ(Init_FindPeer(DocMgrList, id), nullptr) << id;
  EXPECT_EQ(Init_FindPeer(nullptr, "A"), nullptr);
}

TEST_F(Peers, FindPeer_SameIdTwiceInAList_TakesTheFirst) {
  DocMgrList = Child("A", 1);
  DocMgrList->Next = Child("A", 2);
  EXPECT_EQ(Init_FindPeer(DocMgrList, "A")->ClientAddr.Port, 1);
}

}  // namespace
