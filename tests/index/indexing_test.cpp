#include "index/indexing.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

Schema Read(const std::string &text) {
  std::istringstream in(text);
  Schema schema;
  SchemaError error;
  EXPECT_TRUE(Schema_Read(&in, &schema, &error)) << error.reason;
  return schema;
}

// Indexes documents into a database in memory, by a schema or without one.
class Indexed {
 public:
  explicit Indexed(const std::string &schema = "") : database_("", Xapian::DB_BACKEND_INMEMORY) {
    Indexing_Begin(&indexing, schema.empty() ? Schema{} : Read(schema), &database_, false);
  }

  Xapian::Document Document(Fields fields) {
    Xapian::Document document;
    std::string expected;
    EXPECT_TRUE(Indexing_Document(&indexing, &fields, &document, &expected)) << expected;
    return document;
  }
  std::string WrongWith(Fields fields) {
    Xapian::Document document;
    std::string expected;
    EXPECT_FALSE(Indexing_Document(&indexing, &fields, &document, &expected));
    return expected;
  }
  std::string Terms(const Fields &fields) {
    const Xapian::Document document = Document(fields);
    std::string terms;
    for (auto term = document.termlist_begin(); term != document.termlist_end(); ++term)
      terms += (terms.empty() ? "" : " ") + *term;
    return terms;
  }

  Indexing indexing;

 private:
  Xapian::WritableDatabase database_;
};

Xapian::termcount CountOf(const Xapian::Document &document, const std::string &term) {
  Xapian::TermIterator found = document.termlist_begin();
  found.skip_to(term);
  return found != document.termlist_end() && *found == term ? found.get_wdf() : 0;
}

std::string Positions(const Xapian::Document &document, const std::string &term) {
  Xapian::TermIterator found = document.termlist_begin();
  found.skip_to(term);
  std::string positions;
  for (auto at = found.positionlist_begin(); at != found.positionlist_end(); ++at)
    positions += std::to_string(*at) + " ";
  return positions;
}

const Fields kBash = {{"Package", "bash"}, {"Architecture", "amd64"}, {"Version", "5.2"}};

}  // namespace

TEST(Indexing, UniqueTerm_IsFirstFieldVersionAndArchitecture) {
  const Indexing indexing;
  EXPECT_EQ(Indexing_UniqueTerm(indexing, kBash), "QPackage=bash\n5.2\namd64");
  EXPECT_EQ(Indexing_UniqueTerm(indexing, {{"Title", "x"}, {"Body", "y"}}), "QTitle=x\n\n");
}

TEST(Indexing, UniqueTerm_IsTheFieldThatNamesADocument) {
  Indexing indexing;
  indexing.id = "Version";
  EXPECT_EQ(Indexing_UniqueTerm(indexing, kBash), "QVersion=5.2");
  EXPECT_EQ(Indexing_IdTerm("Version", "5.2"), "QVersion=5.2");
}

TEST(Indexing, UniqueTerm_OfALongValueIsBoundedAndStillItsOwn) {
  const Indexing indexing;
  const std::string start(300, 'x');
  const std::string a = Indexing_UniqueTerm(indexing, {{"Title", start + "a"}});
  const std::string b = Indexing_UniqueTerm(indexing, {{"Title", start + "b"}});
  EXPECT_EQ(a.size(), 240u);
  EXPECT_EQ(a.substr(0, 224), "QTitle=" + start.substr(0, 217));
  EXPECT_NE(a, b);
  EXPECT_EQ(a, Indexing_UniqueTerm(indexing, {{"Title", start + "a"}}));
}

TEST(Indexing, Document_WithoutASchemaIsWordsWithAndWithoutTheirField) {
  EXPECT_EQ(Indexed().Terms({{"Package", "bash"}, {"Note", "The GNU Shells"}}),
            "QPackage=bash\n\n XNOTE:gnu XNOTE:shells XNOTE:the XPACKAGE:bash bash gnu shells the");
}

TEST(Indexing, Document_HasWhatTheKindsOfItsFieldsSay) {
  Indexed indexed(
      "Id keyword id\nTitle text weight=5\nTag keyword\nPrice number\nDay date\nRemark stored\n");
  const Fields fields = {{"id", "17"},        {"Title", "Shells"}, {"Tag", "Red Wine"},
                         {"Price", "12.50"},  {"Price", "cheap"},  {"Day", "1970-01-02"},
                         {"Remark", "hidden"}};
  EXPECT_EQ(indexed.Terms(fields),
            "QId=17 XID:17 XID:=17 XTAG:=Red Wine XTAG:red XTAG:wine XTITLE:shells shells");
  const Xapian::Document document = indexed.Document(fields);
  EXPECT_EQ(CountOf(document, "shells"), 5u);
  EXPECT_EQ(CountOf(document, "XTITLE:shells"), 5u);
  EXPECT_EQ(CountOf(document, "XTAG:=Red Wine"), 0u);
  EXPECT_EQ(Xapian::sortable_unserialise(document.get_value(3)), 12.5);
  EXPECT_EQ(Xapian::sortable_unserialise(document.get_value(4)), 86400);
  EXPECT_EQ(document.values_count(), 2u);
  EXPECT_EQ(document.get_data(),
            "\tId=17\tTitle=Shells\tTag=Red Wine\tPrice=12.50\tPrice=cheap\tDay=1970-01-02\t"
            "Remark=hidden\t");
}

TEST(Indexing, Document_KeepsWhatItIsSortedByInSmallLetters) {
  Indexed indexed("Title text sort\nTag keyword sort\n");
  const Xapian::Document document = indexed.Document({{"Title", "\xc3\x84pfel UND Birnen"},
                                                      {"Title", "later"},
                                                      {"Tag", std::string(239, 'X') + "\xc3\x84"}});
  EXPECT_EQ(document.get_value(0), "\xc3\xa4pfel und birnen");
  EXPECT_EQ(document.get_value(1), std::string(239, 'x'));
}

TEST(Indexing, Document_HasStemsWhereTheSchemaHasALanguage) {
  EXPECT_EQ(
      Indexed("@language english\nTitle text\nTag keyword\n")
          .Terms({{"Title", "running"}, {"Tag", "Runners"}}),
      "QTitle=running\n\n XTAG:=Runners XTAG:runners XTITLE:running ZXTAG:runner ZXTITLE:run Zrun running");
}

TEST(Indexing, Document_KeepsFieldsApart) {
  const Xapian::Document document = Indexed().Document({{"A", "x y"}, {"B", "x"}});
  EXPECT_EQ(Positions(document, "x"), "1 205 ");
  EXPECT_EQ(Positions(document, "XA:x"), "103 ");
}

TEST(Indexing, Document_HasPositionsUnlessTheyAreNotWanted) {
  Indexed small;
  small.indexing.positions = false;
  const Fields fields = {{"A", "interface"}};
  EXPECT_EQ(Positions(Indexed().Document(fields), "interface"), "1 ");
  EXPECT_EQ(Positions(small.Document(fields), "interface"), "");
  EXPECT_EQ(small.Terms(fields), "QA=interface\n\n XA:interface interface");
}

TEST(Indexing, Document_NamesTheFieldsThatTheSchemaDoesNot) {
  Indexed indexed("Title text\n");
  EXPECT_EQ(indexed.Terms({{"title", "x"}, {"Titel", "y"}, {"Note", "z"}}),
            "QTitle=x\n\n XTITLE:x x");
  EXPECT_EQ(indexed.indexing.unknown, (std::set<std::string>{"Note", "Titel"}));
  for (int i = 0; i < 100; ++i) indexed.Document({{"F" + std::to_string(i), "x"}});
  EXPECT_EQ(indexed.indexing.unknown.size(), 11u);
}

TEST(Indexing, Document_SaysWhichValueIsMissingOrNoNumber) {
  Indexed indexed("Id keyword id\nPrice number\nDay date\n");
  const Field id = {"Id", "1"};
  EXPECT_EQ(indexed.WrongWith({{"Price", "1"}}),
            "expected a value of the field Id, which names the document");
  EXPECT_EQ(indexed.WrongWith({{"Id", ""}}),
            "expected a value of the field Id, which names the document");
  EXPECT_EQ(indexed.WrongWith({id, {"Price", "1,5"}}),
            "expected a number in the field Price, not '1,5'");
  EXPECT_EQ(indexed.WrongWith({id, {"Price", std::string(1000, '9') + "x"}}),
            "expected a number in the field Price, not '" + std::string(80, '9') + "'");
  EXPECT_EQ(
      indexed.WrongWith({id, {"Day", "31.1.2026"}}),
      "expected a date as 2026-01-31 or 2026-01-31T12:30:00Z in the field Day, not '31.1.2026'");
  EXPECT_EQ(indexed.Document({id, {"Price", ""}, {"Day", ""}}).values_count(), 0u);
}

TEST(Indexing, Document_KeepsValuesWholeUpToTheSizeOfADocument) {
  Indexed indexed;
  const std::string value(100'000, 'v');
  EXPECT_EQ(indexed.Document({{"A", value}}).get_data(), "\tA=" + value + "\t");
  EXPECT_EQ(indexed.indexing.cut, 0);
  const std::string large(2 << 20, '.');
  const Fields fields = {{"A", large + " tail"}, {"B", "x"}};
  EXPECT_EQ(CountOf(indexed.Document(fields), "tail"), 1u);
  EXPECT_EQ(indexed.Document(fields).get_data().size(), std::size_t{1} << 20);
  EXPECT_EQ(indexed.indexing.cut, 4);
}

TEST(Indexing, Document_BoundsItsTerms) {
  Indexed indexed;
  std::string words;
  for (int i = 0; i < 600'000; ++i) words += "w" + std::to_string(i) + " ";
  EXPECT_EQ(indexed.WrongWith({{"A", words}}),
            "expected a document of at most 1000000 different terms");
}

TEST(Indexing, Document_OfALongTextHasTheSameWordsAndPositions) {
  std::string words;
  for (int i = 0; i < 30'000; ++i) words += "w" + std::to_string(i % 100) + " ";
  Xapian::Document whole;
  Xapian::TermGenerator terms;
  terms.set_document(whole);
  terms.index_text(words);
  const Xapian::Document document = Indexed().Document({{"A", words}});
  EXPECT_EQ(Positions(document, "w99"), Positions(whole, "w99"));
  EXPECT_EQ(CountOf(document, "w99"), 300u);
}
