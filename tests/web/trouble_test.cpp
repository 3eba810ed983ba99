#include "web/trouble.h"

#include <gtest/gtest.h>

TEST(Trouble, EachOne_HasItsStatus) {
  const std::tuple<Trouble, const char *, int> infos[] = {
      {Trouble::kNone, "none", 200},
      {Trouble::kNoPage, "no-page", 404},
      {Trouble::kNoGroup, "no-group", 404},
      {Trouble::kNoDocument, "no-document", 404},
      {Trouble::kMethod, "method", 405},
      {Trouble::kLongRequest, "long-request", 414},
      {Trouble::kTooMany, "too-many", 429},
      {Trouble::kQuery, "query", 400},
      {Trouble::kGone, "gone", 502},
      {Trouble::kFailed, "failed", 502},
      {Trouble::kBroken, "broken", 502},
      {Trouble::kBusy, "busy", 503},
      {Trouble::kStopping, "stopping", 503},
      {Trouble::kTooLate, "too-late", 504},
      {Trouble::kLostDocument, "lost-document", 502},
      {Trouble::kMissingHits, "missing-hits", 502},
      {Trouble::kShards, "shards", 200}};
  EXPECT_EQ(std::size(infos), static_cast<std::size_t>(kTroubles));
  for (const auto &[trouble, name, status] : infos) {
    EXPECT_STREQ(Trouble_Info(trouble).name, name);
    EXPECT_EQ(Trouble_Info(trouble).status, status) << name;
  }
}

TEST(Trouble, Lines_AreThoseOfTheDaemon) {
  const std::tuple<const char *, Trouble, std::size_t> lines[] = {
      {"Unable to locate SearchMgr", Trouble::kGone, 0},
      {"Unable to connect to SearchMgr", Trouble::kGone, 0},
      {"Unable to receive from Search Manager", Trouble::kBroken, 0},
      {"Unable to retreive document.", Trouble::kLostDocument, 28},
      {"Unable to locate Document Server.", Trouble::kNoDocument, 33},
      {"Unable to", Trouble::kFailed, 0}};
  for (const auto &[text, trouble, ends] : lines) {
    std::size_t size = 99;
    EXPECT_EQ(Trouble_OfLine(text, &size), trouble) << text;
    EXPECT_EQ(size, ends) << text;
  }
}

TEST(Trouble, Reasons_AreThoseOfTheSearchManager) {
  const std::pair<std::string, Trouble> reasons[] = {
      {"Unable to parse query", Trouble::kQuery},
      {"Unable to sort", Trouble::kQuery},
      {"The search took too long", Trouble::kTooLate},
      {"Unable to read the database", Trouble::kFailed},
      {"Unable to figure out this command", Trouble::kFailed}};
  for (const auto &[reason, trouble] : reasons) {
    EXPECT_EQ(Trouble_OfReason(reason + ": more"), trouble) << reason;
    EXPECT_TRUE(Trouble_MayBeReason(reason + ": more")) << reason;
    for (std::size_t size = 0; size < reason.size(); ++size)
      EXPECT_TRUE(Trouble_MayBeReason(reason.substr(0, size))) << reason << size;
  }
  EXPECT_EQ(Trouble_OfReason("other"), Trouble::kFailed);
  for (const char *text : {"other", "Unable to x", "The search took too lonG"})
    EXPECT_FALSE(Trouble_MayBeReason(text)) << text;
}
