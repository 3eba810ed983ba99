#include "searchmgr/query.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>

#include "tests/searchmgr/library.h"
#include "tests/system/harness.h"

namespace {

constexpr const char *kNoTerms =
    "Unable to parse query: it has no search terms; type a word to look for";
constexpr const char *kOnlyExcluded =
    "Unable to parse query: it only says what to leave out; type a word to look for";

// A database without documents is enough for what a query looks like.
Xapian::Database Terms() {
  static const Xapian::WritableDatabase kDatabase = [] {
    Xapian::WritableDatabase database("", Xapian::DB_BACKEND_INMEMORY);
    Xapian::Document document;
    for (const char *term : {"c++", "bash"}) document.add_term(term);
    database.add_document(document);
    return database;
  }();
  return kDatabase;
}

// The query as Xapian describes it, or the reason against it.
std::string Parsed(const std::string &predicate, const Schema &schema = {}) {
  SearchQuery query;
  const char *reason = Query_Parse(Terms(), schema, predicate.c_str(), &query);
  return reason != nullptr ? reason : query.query.get_description();
}

std::string InLibrary(const std::string &text) {
  return Parsed("\t" + text + "\n", SchemaFrom(kLibrarySchema));
}

std::string InOmega(const std::string &text) {
  Schema schema;
  schema.origin = SchemaOrigin::kOmega;
  return Parsed("\t" + text + "\n", schema);
}

std::string Joined(const std::vector<std::string> &words) {
  std::string joined;
  for (const std::string &word : words) joined.append(joined.empty() ? "" : " ").append(word);
  return joined;
}

std::string Marks(const std::string &text, const Schema &schema) {
  SearchQuery query;
  EXPECT_EQ(Query_Parse(Terms(), schema, ("\t" + text + "\n").c_str(), &query), nullptr) << text;
  return Joined(query.marks);
}

// The lines of the block of examples, without what they are said to find.
std::vector<std::string> ExamplesOfTheManual() {
  std::istringstream page(ReadFile(KORVO_SOURCES "/docs/korvo-searchmgr.8"));
  std::vector<std::string> examples;
  std::string line;
  while (std::getline(page, line) && line != ".Ss The text of a search") continue;
  while (std::getline(page, line) && line != ".Bd -literal -offset indent") continue;
  while (std::getline(page, line) && line != ".Ed")
    examples.push_back(line.substr(0, line.find("   ")));
  return examples;
}

// The library on disk, and what is found in it.
class InTheLibrary : public testing::Test {
 protected:
  SearchQuery Parse(const std::string &text) const {
    SearchQuery query;
    EXPECT_EQ(Query_Parse(database_, schema_, ("\t" + text + "\n").c_str(), &query), nullptr)
        << text;
    return query;
  }

  CorrectedQuery Correct(const std::string &text) const {
    return Query_Correct(database_, schema_, ("\t" + text + "\n").c_str());
  }

  std::string FoundBy(const Xapian::Query &query) const {
    Xapian::Enquire enquire(database_);
    enquire.set_query(query);
    enquire.set_docid_order(Xapian::Enquire::ASCENDING);
    enquire.set_weighting_scheme(Xapian::BoolWeight());
    const Xapian::MSet hits = enquire.get_mset(0, 100);
    std::vector<std::string> numbers;
    for (auto hit = hits.begin(); hit != hits.end(); ++hit) numbers.push_back(std::to_string(*hit));
    return Joined(numbers);
  }

  std::string Found(const std::string &text) const { return FoundBy(Parse(text).query); }

  Folder folder_;
  Xapian::Database database_ = Library(folder_.Path() + "/db");
  Schema schema_ = Schema_Of(database_);
};

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

TEST(Query, Parse_GivesOtherPunctuationNoMeaning) {
  EXPECT_EQ(Parsed("\tNOT bash\n"), "Query((not@1 AND bash@2))");
  EXPECT_EQ(Parsed("\t+gnu ~shell (x OR y\n"),
            "Query((gnu@1 AND shell@2 AND x@3 AND or@4 AND y@5))");
  EXPECT_EQ(Parsed("\tlibc6-dev\n"), "Query((libc6@1 PHRASE 2 dev@2))");
}

TEST(Query, Parse_KeepsTheMarksOfAWordThatTheDatabaseHas) {
  EXPECT_EQ(Parsed("\tC++ bash++\n"), "Query((c++@1 AND bash@2))");
}

TEST(Query, Parse_TakesATokenWithoutAFieldNameAsFreeText) {
  EXPECT_EQ(Parsed("\t1 + 1 = 2\n"), "Query((1@1 AND 2@3))");
  EXPECT_EQ(Parsed("\t=bash\n"), "Query(bash@1)");
}

TEST(Query, Parse_SplitsAFieldAtItsFirstEqualsSign) {
  EXPECT_EQ(Parsed("\ta=b=c\n"), "Query((XA:b@1 AND XA:c@2))");
}

TEST(Query, Parse_LeavesOutWhatHoldsNoTerm) {
  EXPECT_EQ(Parsed("\tPackage=\tshell\t---\n"), "Query(shell@1)");
  EXPECT_EQ(Parsed("\tshell\r\n"), "Query(shell@1)");
}

TEST(Query, Parse_KnowsPhrasesExclusionsAndWildcardsWithoutASchemaToo) {
  EXPECT_EQ(Parsed("\t\"gnu shell\"\n"), "Query((gnu@1 PHRASE 2 shell@2))");
  EXPECT_EQ(Parsed("\tgnu -shell -sh*\n"),
            "Query((gnu@1 AND_NOT (shell@1 OR WILDCARD SYNONYM sh)))");
  EXPECT_EQ(Parsed("\tSection=\"web net\"\n"), "Query((XSECTION:web@1 PHRASE 2 XSECTION:net@2))");
  EXPECT_EQ(Parsed("\tSize=10..20\n"), "Query((XSIZE:10@1 PHRASE 2 XSIZE:20@2))");
}

TEST(Query, Parse_TheSameNameTwice_IsAnyOfThem) {
  EXPECT_EQ(Parsed("\tSection=web\tshell\tsection=net\n"),
            "Query(((XSECTION:web@1 OR XSECTION:net@1) AND shell@1))");
  EXPECT_EQ(InLibrary("Section=\"Sea\" Section=\"Office\""),
            "Query((0 * XSECTION:=Sea OR 0 * XSECTION:=Office))");
}

TEST(Query, Parse_WhatIsAskedAgain_IsAskedOnce) {
  EXPECT_EQ(Parsed("\tw x w,w=W\tw\tw\n"), "Query(((w@1 AND x@2) AND w@1))");
  EXPECT_EQ(Parsed("\t\"w x\" -y \"w x\" -y s* s*\t\"w x\"\n"),
            "Query((((w@1 PHRASE 2 x@2) AND WILDCARD SYNONYM s) AND_NOT y@1))");
  EXPECT_EQ(InLibrary("Title=a Title=a Pages=1 Pages=1 -Title=b -Title=b"),
            InLibrary("Title=a Pages=1 -Title=b"));
}

TEST(Query, Parse_RefusesAQueryWithoutTerms) {
  for (const char *predicate : {"\t\n", "\r\n", "", "\t@OPER=OR\n", "\tPackage=\n", "\t\"?! --\n"})
    EXPECT_EQ(Parsed(predicate), kNoTerms) << predicate;
  for (const char *text : {"Pages=..", "Section=\"\"", "Added=", "*", "\"\"", "-"})
    EXPECT_EQ(InLibrary(text), kNoTerms) << text;
}

TEST(Query, Parse_RefusesAQueryThatOnlyExcludes) {
  for (const char *text : {"-printer", "-Section=\"Sea\"", "-Pages=10..20 -net*"})
    EXPECT_EQ(InLibrary(text), kOnlyExcluded) << text;
}

TEST(Query, Parse_RefusesNoPredicate) {
  SearchQuery query;
  EXPECT_STREQ(Query_Parse(Terms(), Schema(), nullptr, &query),
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

TEST(Query, Parse_StemsInTheLanguageOfTheSchema) {
  EXPECT_EQ(InLibrary("printing networks"), "Query((Zprint@1 AND Znetwork@2))");
  EXPECT_EQ(InLibrary("Title=nets"), "Query(ZXTITLE:net@1)");
  EXPECT_EQ(InLibrary("\"printing networks\""), "Query((printing@1 PHRASE 2 networks@2))");
  EXPECT_EQ(InLibrary("Networks"), "Query(networks@1)");
  EXPECT_EQ(Parsed("\tprinting\n", SchemaFrom("Title text\n")), "Query(printing@1)");
}

TEST(Query, Parse_LeavesStopWordsOut) {
  EXPECT_EQ(InLibrary("the printing of a network"), "Query((Zprint@2 AND Znetwork@5))");
  EXPECT_EQ(InLibrary("The Network and its Drivers"), "Query((network@2 AND drivers@5))");
  EXPECT_EQ(InLibrary("Title=the nets"), "Query(ZXTITLE:net@2)");
  EXPECT_EQ(InLibrary("network -the"), "Query((Znetwork@1 AND_NOT Zthe@1))");
  // Quoted, with a star or alone they are looked for.
  EXPECT_EQ(InLibrary("\"the printing\""), "Query((the@1 PHRASE 2 printing@2))");
  EXPECT_EQ(InLibrary("to be"), "Query((Zto@1 AND Zbe@2))");
  const Schema german = SchemaFrom("@language german\nTitle text\n");
  EXPECT_EQ(Parsed("\tdie netze der stadt\n", german), "Query((Znetz@2 AND Zstadt@4))");
  EXPECT_EQ(Parsed("\tdie netze\n", SchemaFrom("@language german2\nTitle text\n")),
            "Query(Znetz@2)");
  EXPECT_EQ(Parsed("\tthe nets\n", SchemaFrom("@language porter\nTitle text\n")), "Query(Znet@2)");
  EXPECT_EQ(Parsed("\tthe nets\n", SchemaFrom("@language french\nTitle text\n")),
            "Query((Zthe@1 AND Znet@2))");
  EXPECT_EQ(Parsed("\tthe nets\n", SchemaFrom("Title text\n")), "Query((the@1 AND nets@2))");
}

TEST(Query, Parse_PunctuationBehindAWord_LeavesItAWordOfItsOwn) {
  EXPECT_EQ(
      InLibrary("networks\" (printers) nets* x* networks{"),
      "Query(((Znetwork@1 AND Zprinter@2) AND WILDCARD SYNONYM nets AND WILDCARD SYNONYM x AND Znetwork@1))");
}

TEST(Query, Parse_RangesAndExactValues_HaveToBeMetHoweverWordsAreJoined) {
  EXPECT_EQ(Parsed("\t@OPER=OR\tSection=\"Sea\"\tfish nets\n", SchemaFrom(kLibrarySchema)),
            "Query(((Zfish@1 OR Znet@2) AND 0 * XSECTION:=Sea))");
  EXPECT_EQ(Parsed("\t@OPER=OR\tfish\tPages=..10\tTitle=nets\n", SchemaFrom(kLibrarySchema)),
            "Query(((Zfish@1 OR ZXTITLE:net@1) AND VALUE_LE 2 " +
                Xapian::Query(Xapian::Query::OP_VALUE_LE, 2, Xapian::sortable_serialise(10))
                    .get_description()
                    .substr(std::string("Query(VALUE_LE 2 ").size()) +
                ")");
}

TEST(Query, Parse_TakesTenWildcardsAndThoseBehindThemForWords) {
  std::string text, expected;
  for (char c = 'a'; c <= 'j'; ++c) text += std::string(1, c) + "* ";
  const std::string ten = Parsed("\t" + text + "\n");
  EXPECT_EQ(ten.substr(ten.rfind("WILDCARD")), "WILDCARD SYNONYM j))");
  const std::string eleven = Parsed("\t" + text + "k*\n");
  EXPECT_EQ(eleven.substr(eleven.rfind("WILDCARD")), "WILDCARD SYNONYM j AND k@1))");
}

TEST(Query, Parse_ADatabaseOfOmegas_HasItsPrefixesAndEnglishStems) {
  EXPECT_EQ(InOmega("printing networks"), "Query((Zprint@1 AND Znetwork@2))");
  EXPECT_EQ(InOmega("title=printing"), "Query(ZSprint@1)");
  EXPECT_EQ(InOmega("title=nets\tsubject=news"), "Query((ZSnet@1 OR ZSnews@1))");
  EXPECT_EQ(InOmega("colour=green"), "Query(ZXCOLOURgreen@1)");
}

TEST(Query, Parse_AQuotedValueOfOmegas_IsAPhraseOrTheWholeValue) {
  EXPECT_EQ(InOmega("type=\"text/html\""), "Query(((Ttext@1 PHRASE 2 Thtml@2) OR 0 * Ttext/html))");
  EXPECT_EQ(InOmega("shelf=\"A1\""), "Query((XSHELFa1@1 OR 0 * XSHELF:A1))");
  EXPECT_EQ(InOmega("\"text html\""), "Query((text@1 PHRASE 2 html@2))");
}

TEST(Query, Marks_AreTheStemsOfThePositiveWordsInTheirOrder) {
  const Schema english = SchemaFrom(kLibrarySchema);
  EXPECT_EQ(Marks("Printing \"the networks\" nets -fish Title=news printers", english),
            "print network net news printer");
  EXPECT_EQ(Marks("networks network Networks Title=networks", english), "network");
  EXPECT_EQ(Marks("Section=\"Sea\" Pages=10..20 net* -Title=fish -\"a b\" trade", english),
            "trade");
  EXPECT_EQ(Marks("Section=sea", english), "sea");
  EXPECT_EQ(Marks("Pages=10..20", english), "");
}

TEST(Query, Marks_WithoutStemming_AreTheWordsInSmallLetters) {
  EXPECT_EQ(Marks("GNU Shells C++ \xc3\x84pfel", Schema()), "gnu shells c++ \xc3\xa4pfel");
}

TEST(Query, Parse_TakesAnyBytes) {
  std::string bytes = "\t";
  for (int i = 1; i < 256; ++i) bytes += static_cast<char>(i);
  EXPECT_NE(Parsed(bytes + "\n"), "");
  EXPECT_NE(InLibrary(bytes), "");
  const std::string word(4000, 'w');
  EXPECT_EQ(Parsed("\t" + word + "\n"), "Query(" + word + "@1)");
}

TEST_F(InTheLibrary, WordsAreFoundInAllTheirFormsAndAllOfThemOrAny) {
  EXPECT_EQ(Found("network printers"), "1 5 6");
  EXPECT_EQ(Found("@OPER=OR\tfish history"), "4");
  EXPECT_EQ(Found("@OPER=OR\tfish trade"), "3 4");
}

TEST_F(InTheLibrary, APhraseIsFoundAsItStands) {
  EXPECT_EQ(Found("\"trade network\""), "3");
  EXPECT_EQ(Found("\"network trade\""), "");
  EXPECT_EQ(Found("Title=\"fishing nets\""), "4");
  EXPECT_EQ(Found("\"trade network"), "3") << "a quote too few is searched as words";
}

TEST_F(InTheLibrary, AMinusLeavesOut) {
  EXPECT_EQ(Found("printer -circuits"), "1 6");
  EXPECT_EQ(Found("printer -\"printed circuit\" -Section=\"Office\""), "1");
  EXPECT_EQ(Found("network -Pages=..100"), "3 5");
}

TEST_F(InTheLibrary, AStarFindsWhatBeginsSo) {
  EXPECT_EQ(Found("net*"), "1 3 4 5 6");
  EXPECT_EQ(Found("Title=net*"), "1 3 4 6");
}

TEST(Query, AStar_StandsForTheHundredMostFrequentWords) {
  const Folder folder;
  Xapian::WritableDatabase database(folder.Path() + "/db", Xapian::DB_CREATE);
  const Schema schema = SchemaFrom("Title text\n");
  for (int i = 0; i < 120; ++i) AddTo(&database, schema, {{"Title", "w" + std::to_string(i)}});
  AddTo(&database, schema, {{"Title", "w119"}});
  database.commit();
  SearchQuery query;
  ASSERT_EQ(Query_Parse(database, schema, "\tw*\n", &query), nullptr);
  Xapian::Enquire enquire(database);
  enquire.set_query(query.query);
  EXPECT_EQ(enquire.get_mset(0, 200).size(), 101u) << "the word of two documents among them";
}

TEST(Query, APhraseWithoutPositions_IsAllOfItsWords) {
  const Folder folder;
  Xapian::WritableDatabase database(folder.Path() + "/db", Xapian::DB_CREATE);
  Xapian::Document document;
  for (const char *term : {"trade", "network"}) document.add_term(term);
  database.add_document(document);
  database.commit();
  SearchQuery query;
  ASSERT_EQ(Query_Parse(database, Schema(), "\t\"network trade\"\n", &query), nullptr);
  Xapian::Enquire enquire(database);
  enquire.set_query(query.query);
  EXPECT_EQ(enquire.get_mset(0, 10).size(), 1u);
}

TEST_F(InTheLibrary, ANameLooksInItsField) {
  EXPECT_EQ(Found("Title=network"), "1 3");
  EXPECT_EQ(Found("printer Section=office"), "1 6");
  EXPECT_EQ(Found("Section=office\tPages=15.."), "6");
  EXPECT_EQ(Found("Section=office Section=sea"), "1 4 6");
  EXPECT_EQ(Found("office"), "") << "the words of a keyword are found with its name alone";
}

TEST_F(InTheLibrary, AQuotedKeywordIsTheWholeValue) {
  EXPECT_EQ(Found("Section=\"Office\""), "6");
  EXPECT_EQ(Found("Section=\"Office Machines\""), "1");
  EXPECT_EQ(Found("Section=\"office\""), "");
  EXPECT_EQ(Found("Section=\"History\" trade"), "3");
}

TEST_F(InTheLibrary, ARangeFindsNumbersAndDates) {
  EXPECT_EQ(Found("Pages=10..20"), "1 6");
  EXPECT_EQ(Found("Pages=20..10"), "1 6");
  EXPECT_EQ(Found("Pages=..20"), "1 4 6") << "a document without the field is not in a range";
  EXPECT_EQ(Found("Pages=250.."), "2 3");
  EXPECT_EQ(Found("Pages=320.5"), "3");
  EXPECT_EQ(Found("Pages=-3"), "4");
  EXPECT_EQ(Found("Pages=10 Pages=250"), "1 2");
  EXPECT_EQ(Found("Added=2026-01-31"), "1");
  EXPECT_EQ(Found("Added=2026-01..2026-02"), "1 2");
  EXPECT_EQ(Found("Added=2026"), "1 2");
  EXPECT_EQ(Found("Added=..2026-01"), "1 3");
  EXPECT_EQ(Found("Added=2026-02-01T12:30"), "2");
}

TEST_F(InTheLibrary, TheExamplesOfTheManual_FindWhatTheySay) {
  const std::map<std::string, std::string> expected = {
      {"network printers", "1 5 6"},
      {"\"trade network\"", "3"},
      {"printer -circuits", "1 6"},
      {"net*", "1 3 4 5 6"},
      {"Title=network", "1 3"},
      {"printer Section=office", "1 6"},
      {"Section=\"Office Machines\"", "1"},
      {"Section=\"Sea\" trade", ""},
      {"Section=\"Sea\" Section=\"Office\"", "4 6"},
      {"Pages=10..20", "1 6"},
      {"Pages=250..", "2 3"},
      {"Added=2026-01", "1"},
      {"Added=2025-12-24..2026-01", "1 3"},
      {"printer -Pages=..15", "5 6"}};
  std::map<std::string, std::string> found;
  for (const std::string &text : ExamplesOfTheManual()) found[text] = Found(text);
  EXPECT_EQ(found, expected);
}

TEST_F(InTheLibrary, ARangeOfWhatHasNoneAndAnUnknownName_AreWords) {
  EXPECT_EQ(Found("Title=10..20"), "");
  EXPECT_EQ(Found("Sea=nothing"), "6");
  EXPECT_EQ(Found("Note=secret"), "");
  EXPECT_EQ(Found("Pages=many"), "");
}

TEST_F(InTheLibrary, SpellingIsCorrectedAndTheRestIsKept) {
  EXPECT_EQ(Correct("netwrok \"prinetd circuit\" -Title=fsihing Section=\"Ofice\"").text,
            "network \"printed circuit\" -Title=fishing Section=\"Ofice\"");
  EXPECT_EQ(FoundBy(Correct("netwrok  Title=(tarde)").query), "3");
  EXPECT_EQ(Correct("@OPER=OR\tnetwrok\tTitle=tarde").text, "network\tTitle=trade");
  EXPECT_EQ(FoundBy(Correct("@OPER=OR\tnetwrok\tTitle=fsihing").query), "1 3 4 5 6");
}

TEST_F(InTheLibrary, SpellingThatIsRight_HasNoCorrection) {
  for (const char *text : {"network printers", "Pages=10..20", "Section=ofice", "netwr* x",
                           "zzzzzzzzzz", "\"trade network\""}) {
    EXPECT_EQ(Correct(text).text, "") << text;
    EXPECT_TRUE(Correct(text).query.empty()) << text;
  }
}

TEST_F(InTheLibrary, SpellingOfAQuotedValueOfOmegas_IsLeftAlone) {
  Schema omega;
  omega.origin = SchemaOrigin::kOmega;
  EXPECT_EQ(Query_Correct(database_, omega, "\ttype=\"netwrok\"\ttitle=tarde\n").text,
            "type=\"netwrok\"\ttitle=trade");
}

TEST_F(InTheLibrary, SpellingOfALongText_IsLeftAlone) {
  const std::string blanks(256 - std::string("netwrok").size() - 1, ' ');
  EXPECT_NE(Correct("netwrok" + blanks + "x").text, "");
  EXPECT_EQ(Correct("netwrok" + blanks + " x").text, "");
}

TEST_F(InTheLibrary, SpellingWithoutItsData_HasNoCorrection) {
  EXPECT_EQ(Query_Correct(Terms(), schema_, "\tnetwrok\n").text, "");
}

TEST_F(InTheLibrary, SpellingBesideAShardOnAnotherMachine_IsThatOfTheOthers) {
  const std::string path = folder_.Path() + "/db";
  const Xapian::Database remote = Xapian::Remote::open("xapian-progsrv", path);
  EXPECT_EQ(Query_Correct(remote, schema_, "\tnetwrok\n").text, "");
  Xapian::Database both = remote;
  both.add_database(database_);
  EXPECT_EQ(Query_Correct(both, schema_, "\tnetwrok\n").text, "network");
}
