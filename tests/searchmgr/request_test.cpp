#include "searchmgr/request.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

// What is asked for by the fields of a header, or the reason against it.
struct Asked {
  SearchRequest request;
  std::string reason;
};

Asked Read(const std::string &fields) {
  const std::string line = "\t@COMMAND=QUERY\t@SEARCHGROUP=grp1" + fields + "\tshell\n";
  CmdHdr hdr = {};
  (void)Util_IntCmdHdr(&hdr, line.c_str());
  Asked asked;
  const char *reason = Request_Read(hdr, line.c_str(), &asked.request);
  if (reason != nullptr) asked.reason = reason;
  return asked;
}

constexpr const char *kFirstHit =
    "Unable to parse query: @FIRSTHIT takes a number of hits to skip, from 0 to 10000";
constexpr const char *kDeadline =
    "Unable to parse query: @DEADLINE takes milliseconds, from 1 to 600000";
constexpr const char *kStatus = "Unable to parse query: @STATUS takes 0 or 1";
constexpr const char *kBestFit =
    "Unable to parse query: @BESTFIT takes per cent of the best weight, from 0 to 100";
constexpr const char *kMaxHits =
    "Unable to parse query: @MAXHITS takes the number of hits of a page, 0 or more";
constexpr const char *kTogether =
    "Unable to parse query: @FIRSTHIT and @MAXHITS together reach beyond hit 10000";

Schema Library() {
  std::istringstream in(
      "Title text sort\nTopic keyword\nYear number\nAdded date\nNote stored\nText text\n");
  Schema schema;
  SchemaError error;
  EXPECT_TRUE(Schema_Read(&in, &schema, &error)) << error.reason;
  return schema;
}

// The slot, or the reason why there is none.
std::string Slot(const std::string &field, const Schema &schema) {
  Xapian::valueno slot = 99;
  const std::string reason = Request_SortSlot(Read("\t@SORT=" + field).request, schema, &slot);
  return reason.empty() ? std::to_string(slot) : reason;
}

}  // namespace

TEST(Request, Read_WithoutFields_IsTheDefaults) {
  const Asked asked = Read("");
  EXPECT_EQ(asked.reason, "");
  EXPECT_EQ(asked.request.first_hit, 0);
  EXPECT_EQ(asked.request.hits, 100);
  EXPECT_EQ(asked.request.deadline, 5000);
  EXPECT_EQ(asked.request.best_fit, 0);
  EXPECT_EQ(asked.request.status, 0);
  EXPECT_EQ(asked.request.sort, "");
}

TEST(Request, Read_TakesEveryField) {
  const Asked asked =
      Read("\t@FIRSTHIT=20\t@MAXHITS=10\t@DEADLINE=250\t@BESTFIT=40\t@STATUS=1\t@SORT=Year");
  EXPECT_EQ(asked.reason, "");
  EXPECT_EQ(asked.request.first_hit, 20);
  EXPECT_EQ(asked.request.hits, 10);
  EXPECT_EQ(asked.request.deadline, 250);
  EXPECT_EQ(asked.request.best_fit, 40);
  EXPECT_EQ(asked.request.status, 1);
  EXPECT_EQ(asked.request.sort, "Year");
  EXPECT_FALSE(asked.request.sort_descending);
}

TEST(Request, Read_AMinusBeforeTheSortField_IsDescending) {
  const Asked asked = Read("\t@SORT=-Year");
  EXPECT_EQ(asked.request.sort, "Year");
  EXPECT_TRUE(asked.request.sort_descending);
}

TEST(Request, Read_TheSameFieldTwice_CountsTheLastTime) {
  EXPECT_EQ(Read("\t@FIRSTHIT=20\t@FIRSTHIT=30").request.first_hit, 30);
  EXPECT_EQ(Read("\t@FIRSTHIT=-20\t@FIRSTHIT=30").request.first_hit, 30);
  EXPECT_EQ(Read("\t@DEADLINE=20\t@DEADLINE=").request.deadline, 5000);
  EXPECT_EQ(Read("\t@MAXHITS=20\t@MAXHITS=30").request.hits, 30);
  EXPECT_EQ(Read("\t@BESTFIT=20\t@BESTFIT=30").request.best_fit, 30);
  const Asked sorted = Read("\t@SORT=-Year\t@SORT=Title");
  EXPECT_EQ(sorted.request.sort, "Title");
  EXPECT_FALSE(sorted.request.sort_descending);
  EXPECT_EQ(Read("\t@SORT=Year\t@SORT=").request.sort, "");
}

TEST(Request, Read_AnEmptyField_IsTheSameAsNone) {
  const Asked asked = Read("\t@FIRSTHIT=\t@MAXHITS=\t@DEADLINE=\t@BESTFIT=\t@STATUS=\t@SORT=");
  EXPECT_EQ(asked.reason, "");
  EXPECT_EQ(asked.request.first_hit, 0);
  EXPECT_EQ(asked.request.hits, 100);
  EXPECT_EQ(asked.request.deadline, 5000);
  EXPECT_EQ(asked.request.best_fit, 0);
  EXPECT_EQ(asked.request.status, 0);
  EXPECT_EQ(asked.request.sort, "");
}

TEST(Request, Read_KeepsEachNumberWithinItsLimits) {
  const struct {
    const char *fields, *reason;
  } kCases[] = {
      {"\t@FIRSTHIT=-1", kFirstHit},
      {"\t@FIRSTHIT=10001", kFirstHit},
      {"\t@FIRSTHIT=99999999999999999999", kFirstHit},
      {"\t@DEADLINE=1", ""},
      {"\t@DEADLINE=0", kDeadline},
      {"\t@DEADLINE=soon", kDeadline},
      {"\t@DEADLINE=600000", ""},
      {"\t@DEADLINE=600001", kDeadline},
      {"\t@DEADLINE=-5000", kDeadline},
      {"\t@STATUS=0", ""},
      {"\t@STATUS=2", kStatus},
      {"\t@STATUS=-1", kStatus},
      {"\t@BESTFIT=100", ""},
      {"\t@BESTFIT=101", kBestFit},
      {"\t@BESTFIT=-1", kBestFit},
      {"\t@MAXHITS=-1", kMaxHits},
  };
  for (const auto &one : kCases) EXPECT_EQ(Read(one.fields).reason, one.reason) << one.fields;
}

TEST(Request, Read_APageReachesToTheTenThousandthHit) {
  EXPECT_EQ(Read("\t@MAXHITS=0").request.hits, 100);
  EXPECT_EQ(Read("\t@MAXHITS=10000").request.hits, 10000);
  EXPECT_EQ(Read("\t@MAXHITS=10001").request.hits, 10000);
  EXPECT_EQ(Read("\t@MAXHITS=99999999999").request.hits, 10000);
  EXPECT_EQ(Read("\t@FIRSTHIT=9990\t@MAXHITS=10").reason, "");
  EXPECT_EQ(Read("\t@FIRSTHIT=9991\t@MAXHITS=10").reason, kTogether);
  EXPECT_EQ(Read("\t@FIRSTHIT=9900").reason, "");
  EXPECT_EQ(Read("\t@FIRSTHIT=9901").reason, kTogether);
  EXPECT_EQ(Read("\t@FIRSTHIT=1\t@MAXHITS=99999999999").reason, kTogether);
}

TEST(Request, Read_EndsWithTheHeader) {
  EXPECT_EQ(Read("\tshell\t@FIRSTHIT=20").request.first_hit, 0);
  EXPECT_EQ(Read("\t@OPER=OR\t@FIRSTHIT=20").request.first_hit, 0);
  EXPECT_EQ(Read("\t\t@FIRSTHIT=20").request.first_hit, 0);
  EXPECT_EQ(Read("\t@FIRSTHIT\t@FIRSTHIT=20").request.first_hit, 0);
  EXPECT_EQ(Read("\r@FIRSTHIT=20").request.first_hit, 20);
  EXPECT_EQ(Read("\t@firsthit=20").request.first_hit, 0);
  EXPECT_EQ(Read("\t@COLOUR=20\t@FIRSTHIT=20").request.first_hit, 20);
}

TEST(Request, Read_TakesOnlyWhatASeparatorEnds) {
  SearchRequest request;
  for (const char *line : {"", "\t", "\t@", "@FIRSTHIT=20\n", "\t@FIRSTHIT=20"}) {
    EXPECT_EQ(Request_Read({}, line, &request), nullptr) << line;
    EXPECT_EQ(request.first_hit, 0) << line;
  }
}

TEST(Request, SortSlot_IsThatOfAFieldThatSorts) {
  const Schema schema = Library();
  EXPECT_EQ(Slot("Title", schema), "0");
  EXPECT_EQ(Slot("-year", schema), "2");
  EXPECT_EQ(Slot("ADDED", schema), "3");
}

TEST(Request, SortSlot_OfAnotherField_SaysWhichThereAre) {
  const Schema schema = Library();
  for (const char *name : {"Topic", "Text", "Note", "Colour", "--Year", "Year ", "<script>"})
    EXPECT_EQ(
        Slot(name, schema),
        "Unable to sort: @SORT takes one of these fields, with '-' before it for descending order: Title, Year, Added")
        << name;
}

TEST(Request, SortSlot_OfADatabaseWithoutAny_SaysSo) {
  EXPECT_EQ(Slot("Title", Schema()),
            "Unable to sort: the database has no field that hits can be sorted by");
}
