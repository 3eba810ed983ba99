#include "searchmgr/query.h"

#include <gtest/gtest.h>

#include <string>

namespace {

Xapian::WritableDatabase Database() {
  Xapian::WritableDatabase database("", Xapian::DB_BACKEND_INMEMORY);
  Xapian::Document document;
  for (const char *term : {"c++", "bash"}) document.add_term(term);
  database.add_document(document);
  return database;
}

// The query as Xapian describes it, or the reason against it.
std::string Parsed(const char *predicate) {
  Xapian::Query query;
  const char *reason = Query_Parse(Database(), predicate, &query);
  return reason != nullptr ? reason : query.get_description();
}

constexpr const char *kNoTerms = "Unable to parse query: it has no search terms";

}  // namespace

TEST(Query, Parse_JoinsTheWordsOfFreeTextByAnd) {
  EXPECT_EQ(Parsed("\tshell\n"), "Query(shell@1)");
  EXPECT_EQ(Parsed("\tGNU Shell\n"), "Query((gnu@1 AND shell@2))");
}

TEST(Query, Parse_LooksForTermsOfAFieldUnderItsPrefix) {
  EXPECT_EQ(Parsed("\tPackage=bash\n"), "Query(XPACKAGE:bash@1)");
  EXPECT_EQ(Parsed("\tpackage=Bash\n"), "Query(XPACKAGE:bash@1)");
  EXPECT_EQ(Parsed("\tSection=web net\n"), "Query((XSECTION:web@1 AND XSECTION:net@2))");
}

TEST(Query, Parse_JoinsTokensAndWordsByOper) {
  EXPECT_EQ(Parsed("\t@OPER=AND\tPackage=bash\tshell\n"), "Query((XPACKAGE:bash@1 AND shell@1))");
  EXPECT_EQ(Parsed("\t@OPER=OR\tPackage=bash\tgnu shell\n"),
            "Query((XPACKAGE:bash@1 OR (gnu@1 OR shell@2)))");
}

TEST(Query, Parse_TakesOperAtAnyPlaceAndTheLastOne) {
  EXPECT_EQ(Parsed("\ta\t@OPER=OR\tb\n"), "Query((a@1 OR b@1))");
  EXPECT_EQ(Parsed("\t@OPER=OR\ta\tb\t@OPER=AND\n"), "Query((a@1 AND b@1))");
}

TEST(Query, Parse_GivesPunctuationNoMeaning) {
  EXPECT_EQ(Parsed("\tNOT bash\n"), "Query((not@1 AND bash@2))");
  EXPECT_EQ(Parsed("\t+gnu -shell* (x OR y\n"),
            "Query((gnu@1 AND shell@2 AND (x@3 AND or@4 AND y@5)))");
  EXPECT_EQ(Parsed("\tlibc6-dev\n"), "Query((libc6@1 PHRASE 2 dev@2))");
}

TEST(Query, Parse_KeepsTheMarksOfAWordThatTheDatabaseHas) {
  EXPECT_EQ(Parsed("\tC++ bash++\n"), "Query((c++@1 AND bash@2))");
}

TEST(Query, Parse_TakesATokenWithoutAFieldNameAsFreeText) {
  EXPECT_EQ(Parsed("\t1 + 1 = 2\n"), "Query((1@1 AND 1@2 AND 2@3))");
  EXPECT_EQ(Parsed("\t=bash\n"), "Query(bash@1)");
}

TEST(Query, Parse_SplitsAFieldAtItsFirstEqualsSign) {
  EXPECT_EQ(Parsed("\ta=b=c\n"), "Query((XA:b@1 AND XA:c@2))");
}

TEST(Query, Parse_LeavesOutWhatHoldsNoTerm) {
  EXPECT_EQ(Parsed("\tPackage=\tshell\t---\n"), "Query(shell@1)");
  EXPECT_EQ(Parsed("\tshell\r\n"), "Query(shell@1)");
}

TEST(Query, Parse_RefusesAQueryWithoutTerms) {
  for (const char *predicate : {"\t\n", "\r\n", "", "\t@OPER=OR\n", "\tPackage=\n", "\t\"?! --\n"})
    EXPECT_EQ(Parsed(predicate), kNoTerms) << predicate;
}

TEST(Query, Parse_RefusesNoPredicate) {
  EXPECT_EQ(Parsed(nullptr),
            "Unable to parse query: there is none, or a header field before it was refused");
}

TEST(Query, Parse_RefusesAnotherOper) {
  for (const char *predicate :
       {"\t@OPER=XOR\tshell\n", "\t@OPER=and\tshell\n", "\t@OPER=\tshell\n"})
    EXPECT_EQ(Parsed(predicate), "Unable to parse query: @OPER is neither AND nor OR") << predicate;
}

TEST(Query, Parse_RefusesAHeaderFieldBehindItsPlace) {
  EXPECT_EQ(Parsed("\t@OPER=OR\t@MAXHITS=3\tshell\n"),
            "Unable to parse query: a header field stands behind the start of the query");
}

TEST(Query, Parse_TakesAnyBytes) {
  std::string bytes = "\t";
  for (int i = 1; i < 256; ++i) bytes += static_cast<char>(i);
  EXPECT_NE(Parsed((bytes + "\n").c_str()), "");
  const std::string word(4000, 'w');
  EXPECT_EQ(Parsed(("\t" + word + "\n").c_str()), "Query(" + word + "@1)");
}
