#include "store/schema.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <streambuf>

namespace {

Schema Read(const std::string &text) {
  std::istringstream in(text);
  Schema schema;
  SchemaError error;
  EXPECT_TRUE(Schema_Read(&in, &schema, &error)) << error.line << ": " << error.reason;
  return schema;
}

std::string WrongWith(const std::string &text) {
  std::istringstream in(text);
  Schema schema;
  SchemaError error;
  EXPECT_FALSE(Schema_Read(&in, &schema, &error)) << text;
  return std::to_string(error.line) + ": " + error.reason;
}

constexpr const char *kArticles =
    "# articles\n"
    "@language english\n"
    "Number  keyword id\n"
    "Title   text    weight=5\n"
    "Body    text    body\n"
    "Tag     keyword sort\n"
    "Price   number\n"
    "Day     date\n"
    "Remark  stored\n";

double NumberOf(FieldKind kind, const std::string &text, bool end = false) {
  double number = -1;
  EXPECT_TRUE(Schema_Number(kind, text, end, &number)) << text;
  return number;
}

}  // namespace

TEST(Schema, IsReadAndWrittenTheSame) {
  const Schema schema = Read(kArticles);
  EXPECT_EQ(Schema_Text(schema),
            "# korvo-schema 1\n@language english\nNumber keyword id\nTitle text weight=5\n"
            "Body text body\nTag keyword sort\nPrice number\nDay date\nRemark stored\n");
  EXPECT_EQ(Schema_Text(Read(Schema_Text(schema))), Schema_Text(schema));
  EXPECT_EQ(Schema_Text(Read("@language none\r\nA text\r\n")), "# korvo-schema 1\nA text\n");
}

TEST(Schema, FieldsAreFoundByNameInCapitalsAndSmallLetters) {
  const Schema schema = Read(kArticles);
  EXPECT_EQ(Schema_Find(schema, "TITLE"), &schema.fields[1]);
  EXPECT_EQ(Schema_Find(schema, "titl"), nullptr);
  EXPECT_EQ(Schema_Slot(schema, schema.fields[3]), 3u);
  EXPECT_TRUE(Schema_IsSorted(schema.fields[3]));
  EXPECT_FALSE(Schema_IsRanged(schema.fields[3]));
  EXPECT_TRUE(Schema_IsSorted(schema.fields[5]));
  EXPECT_TRUE(Schema_IsRanged(schema.fields[5]));
  EXPECT_FALSE(Schema_IsSorted(schema.fields[1]));
}

TEST(Schema, AWrongLineIsNamedWithWhatWouldBeRight) {
  EXPECT_EQ(WrongWith(""), "0: a schema names at least one field");
  EXPECT_EQ(WrongWith("A\n"), "1: a kind is text, keyword, number, date or stored, not ''");
  EXPECT_EQ(WrongWith("\nA words\n"),
            "2: a kind is text, keyword, number, date or stored, not 'words'");
  EXPECT_EQ(
      WrongWith("1 text\n"),
      "1: a name begins with a letter and has letters, digits, '-', '_' and '.' behind it, at most 64");
  EXPECT_EQ(WrongWith("A text big\n"), "1: an option is id, body, sort or weight=N, not 'big'");
  for (const char *weight : {"0", "101", "", "x", "1x", "99999999999"})
    EXPECT_EQ(WrongWith(std::string("A text weight=") + weight),
              "1: weight takes a number from 1 to 100, and belongs to a text");
  EXPECT_EQ(WrongWith("A number weight=2"),
            "1: weight takes a number from 1 to 100, and belongs to a text");
  EXPECT_EQ(WrongWith("A keyword body\n"), "1: only a text can be the body");
  EXPECT_EQ(WrongWith("A stored sort\n"), "1: what is only stored cannot be sorted by");
  EXPECT_EQ(WrongWith("Ab text\naB text\n"), "2: the field Ab is there already");
  EXPECT_EQ(WrongWith("A text id\nB text id\n"), "2: the id is the field A already");
  EXPECT_EQ(WrongWith("A text body\nB text body\n"), "2: the body is the field A already");
  EXPECT_EQ(WrongWith("@language\nA text\n"),
            "1: @language takes one name, as in @language english");
  EXPECT_EQ(WrongWith("@language english german\n"),
            "1: @language takes one name, as in @language english");
  EXPECT_EQ(WrongWith("@language klingon\n"), "1: there is no language 'klingon'; there are " +
                                                  Xapian::Stem::get_available_languages() +
                                                  " none");
  EXPECT_EQ(WrongWith("@stemmer english\n"), "1: @language is the only word with '@'");
  EXPECT_EQ(WrongWith("A text " + std::string(1024, ' ') + "\n"),
            "1: a line has at most 1024 bytes");
  EXPECT_EQ(WrongWith(std::string("A te\0xt\n", 8)), "1: a line of text has no NUL");
  std::string many;
  for (int i = 0; i < 501; ++i) many += "F" + std::to_string(i) + " text\n";
  EXPECT_EQ(WrongWith(many), "501: a schema has at most 500 fields");
}

TEST(Schema, AStreamThatBreaksOffIsNoSchema) {
  std::istringstream in(kArticles);
  Schema schema;
  SchemaError error;
  in.setstate(std::ios::badbit);
  EXPECT_FALSE(Schema_Read(&in, &schema, &error));
  EXPECT_EQ(error.reason, "it cannot be read");

  std::ifstream folder("/");
  EXPECT_FALSE(Schema_Read(&folder, &schema, &error));
  EXPECT_EQ(error.reason, "it cannot be read");
}

// Gives the same bytes for as long as they are asked for, up to 64 MiB, and counts them.
class Endless : public std::streambuf {
 public:
  std::size_t given = 0;

 protected:
  int_type underflow() override {
    if (given >= (64u << 20)) return traits_type::eof();
    given += sizeof block_;
    setg(block_, block_, block_ + sizeof block_);
    return traits_type::to_int_type(block_[0]);
  }

 private:
  char block_[4096] = {};
};

TEST(Schema, ALineWithoutEndIsNotReadToItsEnd) {
  Endless bytes;
  std::istream in(&bytes);
  Schema schema;
  SchemaError error;
  EXPECT_FALSE(Schema_Read(&in, &schema, &error));
  EXPECT_EQ(error.line, 1);
  EXPECT_EQ(error.reason, "a line has at most 1024 bytes");
  EXPECT_LE(bytes.given, 8192u);
}

TEST(Schema, IsKeptInTheDatabase) {
  Xapian::WritableDatabase database("", Xapian::DB_BACKEND_INMEMORY);
  EXPECT_EQ(Schema_Of(database).origin, SchemaOrigin::kNone);
  Schema_Store(&database, Read(kArticles));
  const Schema schema = Schema_Of(database);
  EXPECT_EQ(schema.origin, SchemaOrigin::kGiven);
  EXPECT_EQ(Schema_Text(schema), Schema_Text(Read(kArticles)));

  database.set_metadata("korvo-schema", "# korvo-schema 2\n");
  try {
    Schema_Of(database);
    FAIL();
  } catch (const Xapian::DatabaseVersionError &error) {
    EXPECT_EQ(error.get_msg(), "its schema is of another version of this program");
  }
  database.set_metadata("korvo-schema", "# korvo-schema 1\nA\n");
  try {
    Schema_Of(database);
    FAIL();
  } catch (const Xapian::DatabaseVersionError &error) {
    EXPECT_EQ(error.get_msg(),
              "its schema cannot be read: a kind is text, keyword, number, date or stored, not ''");
  }
}

TEST(Schema, WithoutOneTheFirstRecordTellsWhoseTheDatabaseIs) {
  Xapian::WritableDatabase ours("", Xapian::DB_BACKEND_INMEMORY);
  Xapian::WritableDatabase omegas("", Xapian::DB_BACKEND_INMEMORY);
  Xapian::Document document;
  document.set_data("\tPackage=bash\t");
  ours.add_document(document);
  document.set_data("url=/bash.html\nsample=A shell.");
  omegas.add_document(document);
  EXPECT_EQ(Schema_Of(ours).origin, SchemaOrigin::kNone);
  EXPECT_EQ(Schema_Of(omegas).origin, SchemaOrigin::kOmega);
  EXPECT_EQ(Schema_Prefix(Schema_Of(ours), "title"), "XTITLE:");
  EXPECT_EQ(Schema_Prefix(Schema_Of(omegas), "shelf"), "XSHELF");
}

TEST(Schema, OmegasFieldsHaveThePrefixesOfItsIndexers) {
  struct Known {
    const char *name, *prefix;
  };
  constexpr Known kKnown[] = {
      {"author", "A"},   {"caption", "S"},  {"ext", "E"},  {"filename", "F"}, {"host", "H"},
      {"keywords", "K"}, {"language", "L"}, {"path", "P"}, {"site", "H"},     {"subject", "S"},
      {"title", "S"},    {"topic", "B"},    {"type", "T"}};
  Schema omega;
  omega.origin = SchemaOrigin::kOmega;
  for (const Known &known : kKnown) EXPECT_EQ(Schema_Prefix(omega, known.name), known.prefix);
  EXPECT_EQ(Schema_Prefix(omega, "AuThOr"), "A");
}

TEST(Schema, AnExactTermKeepsTheValueAndNeverGrowsTooLong) {
  EXPECT_EQ(Schema_ExactTerm("Tag", "Red Wine"), "XTAG:=Red Wine");
  const std::string term = Schema_ExactTerm("Tag", std::string(1000, 'x'));
  EXPECT_EQ(term.size(), 240u);
  EXPECT_NE(term, Schema_ExactTerm("Tag", std::string(1001, 'x')));
}

TEST(Schema, NumbersAreDecimal) {
  EXPECT_EQ(NumberOf(FieldKind::kNumber, "10"), 10);
  EXPECT_EQ(NumberOf(FieldKind::kNumber, "-0.5"), -0.5);
  EXPECT_EQ(NumberOf(FieldKind::kNumber, "+1e3"), 1000);
  double number = 0;
  for (const char *text :
       {"", "+", "-", "x", "1x", "1 ", " 1", "nan", "inf", "1e999", "0x10", "1,5"})
    EXPECT_FALSE(Schema_Number(FieldKind::kNumber, text, false, &number)) << text;
}

TEST(Schema, DatesAreSecondsAndSpans) {
  EXPECT_EQ(NumberOf(FieldKind::kDate, "1970-01-01"), 0);
  EXPECT_EQ(NumberOf(FieldKind::kDate, "1970-01-01", true), 86399);
  EXPECT_EQ(NumberOf(FieldKind::kDate, "2026"), 1767225600);
  EXPECT_EQ(NumberOf(FieldKind::kDate, "2026", true), 1798761599);
  EXPECT_EQ(NumberOf(FieldKind::kDate, "2024-02", true), 1709251199);
  EXPECT_EQ(NumberOf(FieldKind::kDate, "2026-01-31T12:30"), 1769862600);
  EXPECT_EQ(NumberOf(FieldKind::kDate, "2026-01-31T12:30", true), 1769862659);
  EXPECT_EQ(NumberOf(FieldKind::kDate, "2026-01-31 12:30:05Z", true), 1769862605);
  for (const char *zone : {"Z", "+00:00", "-00:00"})
    EXPECT_EQ(NumberOf(FieldKind::kDate, std::string("2026-01-31T12:30:05").append(zone)),
              1769862605);
  EXPECT_EQ(NumberOf(FieldKind::kDate, "2026-01-31T12:30:05.123+01:00"), 1769859005);
  EXPECT_EQ(NumberOf(FieldKind::kDate, "2026-01-31T12:30:05-0130"), 1769868005);
  double number = 0;
  for (const char *text : {"",
                           "26",
                           "2026-",
                           "2026-1",
                           "2026-13",
                           "2026-02-30",
                           "2026-01-31T",
                           "2026-01-31x",
                           "2026-01-31T24:00",
                           "2026-01-31T12:60",
                           "2026-01-31T12:30:61",
                           "2026-01-31T1:30",
                           "2026-01-31T12:30+15:00",
                           "2026-01-31T12:30+01:60",
                           "2026-01-31T12:30X",
                           "-026",
                           "20x6",
                           "2026-01-31T12:30+1",
                           "2026-01-31T12.30",
                           "2026-01-31T12:30:0"})
    EXPECT_FALSE(Schema_Number(FieldKind::kDate, text, false, &number)) << text;
}
