#include "index/table.h"

#include <gtest/gtest.h>

#include "tests/index/reading.h"

namespace {

// The count-th document below a line of names.
std::string Csv(const std::string &text, int count = 1) {
  const ReadOutcome outcome = ReadNth(Format::kCsv, text, count);
  EXPECT_EQ(outcome.result, ReadResult::kDocument) << outcome.expected;
  return outcome.fields;
}

constexpr const char *kOpenQuote = "expected a quote at the end of each value that begins with one";
constexpr const char *kStrayQuote =
    "expected quotes around the whole of a value, and doubled ones within it";

}  // namespace

TEST(Table, ReadCsv_GivesAValueAName) {
  const std::string text = "A,B\n1,2\n3,4";
  EXPECT_EQ(Csv(text, 1), "A=[1]B=[2]");
  EXPECT_EQ(Csv(text, 2), "A=[3]B=[4]");
  EXPECT_EQ(ReadNth(Format::kCsv, text, 2).line, 3);
  EXPECT_EQ(ReadNth(Format::kCsv, text, 3).result, ReadResult::kEnd);
  EXPECT_EQ(Csv("\xef\xbb\xbf\"A\",B\r\n1,2\r\n"), "A=[1]B=[2]");
}

TEST(Table, ReadCsv_TakesQuotedValuesAsTheyStand) {
  EXPECT_EQ(Csv("A,B\n\"x, y\",\"say \"\"hi\"\"\"\n"), "A=[x, y]B=[say \"hi\"]");
  EXPECT_EQ(Csv("A,B\r\n\" x \r\n y\",2\r\n"), "A=[ x    y]B=[2]");
  EXPECT_EQ(Csv("A,B\n \"x\" , y z \n"), "A=[x]B=[y z]");
  EXPECT_EQ(Csv(std::string("A\n\"a\0b\tc\x7f\xff\"\n", 13)), "A=[a b c \xff]");
}

TEST(Table, ReadCsv_TakesAnEmptyValueForNoneUnlessItIsQuoted) {
  EXPECT_EQ(Csv("A,B,C\n,\"\",x\n"), "B=[]C=[x]");
  EXPECT_EQ(Csv("A,B\n\n,\n , \nx,\n"), "A=[x]");
}

TEST(Table, ReadCsv_CountsTheLinesWithinValues) {
  const std::string text = "A,B\n1,\"x\ny\n\nz\"\n2,\"\n\"\n3,4,5\n";
  EXPECT_EQ(Csv(text, 1), "A=[1]B=[x y  z]");
  EXPECT_EQ(ReadNth(Format::kCsv, text, 1).line, 2);
  EXPECT_EQ(FaultOf(Format::kCsv, text, 3),
            "8: expected 2 values, a value a name of the first line, not 3");
}

TEST(Table, ReadCsv_NamesTheLineOfAStrayQuoteAndGoesOnBehindIt) {
  const std::string text = "A,B\n1,a\"b\n2,\"c\"d\n3,ok\n";
  EXPECT_EQ(FaultOf(Format::kCsv, text, 1), std::string("2: ") + kStrayQuote);
  EXPECT_EQ(FaultOf(Format::kCsv, text, 2), std::string("3: ") + kStrayQuote);
  EXPECT_EQ(Csv(text, 3), "A=[3]B=[ok]");
  EXPECT_EQ(FaultOf(Format::kCsv, "A,B\n1,\"x\ny\" z\n"),
            "3: expected quotes around the whole of a value, and doubled ones within it");
}

TEST(Table, ReadCsv_NamesTheLineWhoseQuoteNeverEnds) {
  const std::string text = "A,B\n1,2\n3,\"open\n4,5\n";
  const ReadOutcome outcome = ReadNth(Format::kCsv, text, 2);
  EXPECT_EQ(outcome.result, ReadResult::kBroken);
  EXPECT_EQ(outcome.line, 3);
  EXPECT_EQ(outcome.expected, kOpenQuote);
  EXPECT_EQ(FaultOf(Format::kCsv, "A,B\n1,2\n3,\"open", 2),
            "3: expected a quote at the end of each value that begins with one");
}

TEST(Table, ReadCsv_BoundsADocument) {
  std::string endless = "A,B\n1,\"";
  for (int i = 0; i < 20; ++i) endless += std::string(1 << 20, 'x') + "\n";
  const ReadOutcome outcome = ReadNth(Format::kCsv, endless);
  EXPECT_EQ(outcome.result, ReadResult::kBroken);
  EXPECT_EQ(outcome.line, 2);
  EXPECT_EQ(outcome.expected, "expected a document of at most 16 MiB");

  const std::string line = "A,B\n1," + std::string(17 << 20, 'x') + "\n3,4\n";
  EXPECT_EQ(FaultOf(Format::kCsv, line), "2: expected a document of at most 16 MiB");
  EXPECT_EQ(Csv(line, 2), "A=[3]B=[4]");

  const std::string wide = "A\n" + std::string(10000, ',') + "\nx" + std::string(20000, ',') + "\n";
  EXPECT_EQ(FaultOf(Format::kCsv, wide),
            "3: expected 1 values, a value a name of the first line, not 10001");
  std::string names = "A";
  for (int i = 0; i < 10000; ++i) names += ",A";
  EXPECT_EQ(FaultOf(Format::kCsv, names + "\n"), "1: expected a document of at most 10000 values");
}

TEST(Table, ReadCsv_WithoutNames_IsNoTable) {
  const std::string expected =
      "expected the name of a field (a letter, then letters, digits, '-', '_' and '.'), not '";
  EXPECT_EQ(FaultOf(Format::kCsv, "A,first name\n1,2\n"), "1: " + expected + "first name'");
  EXPECT_EQ(FaultOf(Format::kCsv, "A,\n1,2\n"), "1: " + expected + "'");
  EXPECT_EQ(FaultOf(Format::kCsv, "A;B\n1,2\n"), "1: " + expected + "A;B'");
  for (const char *text : {"A\"\n1\n", "A,1\n1,2\n", "\"A\nB\"\nx\n"})
    EXPECT_EQ(ReadNth(Format::kCsv, text).result, ReadResult::kBroken) << text;
  EXPECT_EQ(ReadNth(Format::kCsv, "").result, ReadResult::kEnd);
  EXPECT_EQ(ReadNth(Format::kCsv, "A,B").result, ReadResult::kEnd);
}

TEST(Table, ReadTsv_PartsAtTabsAndKnowsNoQuotes) {
  const std::string text = "A\tB\tC\n1\t\"x, y\t z \r\n\n\t\t\n\t\t3\n1\t2\n";
  EXPECT_EQ(ReadNth(Format::kTsv, text, 1).fields, "A=[1]B=[\"x, y]C=[z]");
  EXPECT_EQ(ReadNth(Format::kTsv, text, 2).fields, "C=[3]");
  EXPECT_EQ(FaultOf(Format::kTsv, text, 3),
            "6: expected 3 values, a value a name of the first line, not 2");
  EXPECT_EQ(ReadNth(Format::kTsv, text, 4).result, ReadResult::kEnd);
}

TEST(Table, ReadTsv_BoundsADocument) {
  const std::string line = "A\tB\n1\t" + std::string(17 << 20, 'x') + "\n3\t4\n";
  EXPECT_EQ(FaultOf(Format::kTsv, line), "2: expected a document of at most 16 MiB");
  EXPECT_EQ(ReadNth(Format::kTsv, line, 2).fields, "A=[3]B=[4]");
  EXPECT_EQ(ReadNth(Format::kTsv, std::string(17 << 20, 'A') + "\n1\n").result,
            ReadResult::kBroken);
}

TEST(Table, Read_OfWhatCannotBeRead_Fails) {
  for (const Format format : {Format::kCsv, Format::kTsv}) {
    Reader reader = {format, {[](char *, std::size_t) { return std::ptrdiff_t{-1}; }}};
    Fields fields;
    EXPECT_EQ(Reader_Next(&reader, &fields), ReadResult::kFailed);
  }
}
