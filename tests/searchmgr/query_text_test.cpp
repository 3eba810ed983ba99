#include "searchmgr/query_text.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

Schema Library() {
  std::istringstream in(
      "Title text\nTopic keyword\nPages number\nAdded date\nNote stored\n@language english\n");
  Schema schema;
  SchemaError error;
  EXPECT_TRUE(Schema_Read(&in, &schema, &error)) << error.reason;
  return schema;
}

std::string Shown(const TextPiece &piece) {
  constexpr const char *kKinds[] = {"", "phrase:", "wildcard:", "exact:", "range:"};
  return (piece.exclude ? std::string("-") : "") + kKinds[static_cast<int>(piece.kind)] + "[" +
         std::string(piece.text) + "]";
}

// Each part with its pieces; empty ones of free text are left out.
std::string Read(const std::string &text, const Schema &schema) {
  std::string shown;
  for (const TextPart &part : QueryText_Read(text, schema)) {
    if (part.name.empty() && part.pieces.empty()) continue;
    if (!shown.empty()) shown += ' ';
    shown += (part.exclude ? "-" : "") + std::string(part.name) + "{";
    for (const TextPiece &piece : part.pieces) shown += Shown(piece);
    shown += '}';
  }
  return shown;
}

std::string Read(const std::string &text) { return Read(text, Library()); }

struct Case {
  const char *text, *parts;
};

std::string Range(FieldKind kind, const std::string &text) {
  ValueRange range;
  if (!QueryText_Range(kind, text, &range)) return "none";
  const auto end = [](const std::optional<double> &number) {
    return number ? std::to_string(static_cast<long>(*number)) : std::string();
  };
  return end(range.low) + ".." + end(range.high);
}

}  // namespace

TEST(QueryText, Read_KeepsWordsThatStandTogether) {
  for (const Case &one : {Case{"", ""},
                          {"  ", ""},
                          {"\t\r\n", ""},
                          {"tea", "{[tea]}"},
                          {" green  tea ", "{[green  tea]}"},
                          {"green\ttea", "{[green]} {[tea]}"},
                          {"e-mail, (C++)", "{[e-mail, (C++)]}"}})
    EXPECT_EQ(Read(one.text), one.parts) << one.text;
}

TEST(QueryText, Read_TakesQuotesForAPhrase) {
  for (const Case &one : {Case{"\"green tea\"", "{phrase:[green tea]}"},
                          {"hot \"green tea\" pot", "{[hot]phrase:[green tea][pot]}"},
                          {"(\"green tea\")", "{[(]phrase:[green tea][)]}"},
                          {"\"a\"\"b\"", "{phrase:[a]phrase:[b]}"},
                          {"\"\"", ""}})
    EXPECT_EQ(Read(one.text), one.parts) << one.text;
}

TEST(QueryText, Read_AQuoteTooFewOrBehindAWord_IsOfTheWords) {
  for (const Case &one : {Case{"\"green tea", "{[\"green tea]}"},
                          {"green tea\"", "{[green tea\"]}"},
                          {"7\" and 12\" disks", "{[7\" and 12\" disks]}"},
                          {"\"", "{[\"]}"},
                          {"\"a\" \"b c", "{phrase:[a][\"b c]}"}})
    EXPECT_EQ(Read(one.text), one.parts) << one.text;
}

TEST(QueryText, Read_AMinusBeforeAWordOrPhrase_ExcludesIt) {
  for (const Case &one : {Case{"tea -green", "{[tea]-[green]}"},
                          {"tea -\"green tea\" pot", "{[tea]-phrase:[green tea][pot]}"},
                          {"-gr*", "{-wildcard:[gr*]}"},
                          {"e-mail - tea -- pot --x -", "{[e-mail - tea -- pot --x -]}"}})
    EXPECT_EQ(Read(one.text), one.parts) << one.text;
}

TEST(QueryText, Read_AStarBehindAWord_IsAWildcard) {
  for (const Case &one : {Case{"gr* tea", "{wildcard:[gr*][tea]}"},
                          {"* ** (* tea *", "{[* ** (* tea *]}"},
                          {"g*n", "{[g*n]}"}})
    EXPECT_EQ(Read(one.text), one.parts) << one.text;
}

TEST(QueryText, Read_ANameOfTheSchema_TakesWhatStandsBehindItToTheNextOrTheTokensEnd) {
  for (const Case &one :
       {Case{"Title=green tea", "Title{[green tea]}"},
        {"pot title=green tea Topic=garden", "{[pot]} title{[green tea]} Topic{[garden]}"},
        {"Title=green\ttea", "Title{[green]} {[tea]}"},
        {"Title=\"green tea\" pot -hot t*", "Title{phrase:[green tea][pot]-[hot]wildcard:[t*]}"},
        {"Title=", "Title{}"},
        {"tea -Title=green pot", "{[tea]} -Title{[green]} {[pot]}"},
        {"-Title=\"green tea\" pot", "-Title{phrase:[green tea]} {[pot]}"},
        {"subTitle=green", "{[subTitle=green]}"},
        {"(Title=green", "{[(Title=green]}"}})
    EXPECT_EQ(Read(one.text), one.parts) << one.text;
}

TEST(QueryText, Read_AnUnknownNameOrOneThatIsOnlyStored_IsWords) {
  for (const Case &one : {Case{"Colour=green tea", "{[Colour=green tea]}"},
                          {"Note=green", "{[Note=green]}"},
                          {"Title=green Colour=tea", "Title{[green Colour=tea]}"},
                          {"=green", "{[=green]}"}})
    EXPECT_EQ(Read(one.text), one.parts) << one.text;
}

TEST(QueryText, Read_AQuotedValueOfAKeyword_IsExactAndFreeTextFollows) {
  for (const Case &one : {Case{"Topic=\"Green Tea\"", "Topic{exact:[Green Tea]}"},
                          {"Topic=\"Green Tea\" pot", "Topic{exact:[Green Tea]} {[pot]}"},
                          {"Topic=hot \"tea\" pot", "Topic{[hot]exact:[tea]} {[pot]}"},
                          {"-Topic=\"tea\"", "-Topic{exact:[tea]}"},
                          {"Topic=\"\" pot", "Topic{} {[pot]}"},
                          {"Topic=\"Green Tea", "Topic{[\"Green Tea]}"}})
    EXPECT_EQ(Read(one.text), one.parts) << one.text;
}

TEST(QueryText, Read_ANumberOrDateHasOneValueAndFreeTextFollows) {
  for (const Case &one : {Case{"Pages=10..20", "Pages{range:[10..20]}"},
                          {"Pages=10 tea", "Pages{range:[10]} {[tea]}"},
                          {"Pages=10 20", "Pages{range:[10]} {[20]}"},
                          {"Pages= 10.. tea", "Pages{range:[10..]} {[tea]}"},
                          {"Pages=-5..-1", "Pages{range:[-5..-1]}"},
                          {"-Pages=5", "-Pages{range:[5]}"},
                          {"tea Added=2026-01-31 pot", "{[tea]} Added{range:[2026-01-31]} {[pot]}"},
                          {"Added=\"2026-01-31 12:30\"", "Added{range:[2026-01-31 12:30]}"},
                          {"Pages=", "Pages{}"},
                          {"Pages= tea", "Pages{} {[tea]}"},
                          {"Pages=.. tea", "Pages{} {[tea]}"},
                          {"Pages=\"\" tea", "Pages{} {[tea]}"}})
    EXPECT_EQ(Read(one.text), one.parts) << one.text;
}

TEST(QueryText, Read_WhatIsNoValueBehindANumbersName_IsWords) {
  for (const Case &one : {Case{"Pages=many", "{[Pages=many]}"},
                          {"Pages=10..many tea", "{[Pages=10..many tea]}"},
                          {"Added=yesterday", "{[Added=yesterday]}"},
                          {"Pages=10,", "{[Pages=10,]}"}})
    EXPECT_EQ(Read(one.text), one.parts) << one.text;
}

TEST(QueryText, Read_WithoutASchema_ANameStandsWhereATokenBegins) {
  for (const SchemaOrigin origin : {SchemaOrigin::kNone, SchemaOrigin::kOmega}) {
    Schema schema;
    schema.origin = origin;
    EXPECT_EQ(Read("Any=green tea\t-Any=pot", schema), "Any{[green tea]} -Any{[pot]}");
    EXPECT_EQ(Read("tea Any=pot", schema), "{[tea Any=pot]}");
    EXPECT_EQ(Read("Any=10..20 \"a b\"", schema), "Any{[10..20]phrase:[a b]}");
  }
}

TEST(QueryText, Range_HasOneEndOrBothOrIsOneNumber) {
  for (const Case &one : {Case{"10..20", "10..20"},
                          {"10..", "10.."},
                          {"..20", "..20"},
                          {"10", "10..10"},
                          {"-20..-10", "-20..-10"},
                          {"1e3..2e3", "1000..2000"},
                          {"", ".."},
                          {"..", ".."},
                          {"....", ".."}})
    EXPECT_EQ(Range(FieldKind::kNumber, one.text), one.parts) << one.text;
}

TEST(QueryText, Range_WithEndsChangedRoundOrADotTooMany_IsPutRight) {
  for (const Case &one : {Case{"20..10", "10..20"}, {"10...20", "10..20"}, {"10....", "10.."}})
    EXPECT_EQ(Range(FieldKind::kNumber, one.text), one.parts) << one.text;
  EXPECT_EQ(Range(FieldKind::kDate, "1970-01-03..1970-01-01"), "0..259199");
}

TEST(QueryText, Range_OfDates_ReachesToTheEndOfASpan) {
  for (const Case &one : {Case{"1970-01-01", "0..86399"},
                          {"1970-01", "0..2678399"},
                          {"1970", "0..31535999"},
                          {"1970-01..1970-02", "0..5097599"},
                          {"..1970-01-02", "..172799"},
                          {"1970-01-02..", "86400.."},
                          {"1970-01-15..1970-01", "1209600..2678399"}})
    EXPECT_EQ(Range(FieldKind::kDate, one.text), one.parts) << one.text;
}

TEST(QueryText, Range_OfWhatIsNoNumber_IsNone) {
  for (const char *text : {"a", "10..a", "a..10", "10..20..30", "1,5", "nan", "inf", "."})
    EXPECT_EQ(Range(FieldKind::kNumber, text), "none") << text;
  for (const char *text : {"10", "2026-13", "2026-01-32", "31.01.2026", "2026-01-31..x"})
    EXPECT_EQ(Range(FieldKind::kDate, text), "none") << text;
}
