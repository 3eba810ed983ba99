#include "index/json_lines.h"

#include <gtest/gtest.h>

#include "tests/index/reading.h"

namespace {

std::string FieldsOf(const std::string &text) {
  const ReadOutcome outcome = ReadNth(Format::kJsonLines, text);
  EXPECT_EQ(outcome.result, ReadResult::kDocument) << outcome.expected;
  return outcome.fields;
}

std::string WrongWith(const std::string &text) { return FaultOf(Format::kJsonLines, text); }

std::string Repeated(const std::string &text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

}  // namespace

TEST(JsonLines, Read_TakesEachKindOfValue) {
  EXPECT_EQ(
      FieldsOf(
          R"({"S":"text","I":-12,"U":18446744073709551615,"F":12.50,"E":1e3,"T":true,"N":false})"),
      "S=[text]I=[-12]U=[18446744073709551615]F=[12.50]E=[1e3]T=[true]N=[false]");
  EXPECT_EQ(FieldsOf(R"({"Big":123456789012345678901234567890})"),
            "Big=[123456789012345678901234567890]");
  EXPECT_EQ(FieldsOf(R"({"A":"","B":null,"C":"x"})"), "A=[]C=[x]");
}

TEST(JsonLines, Read_GivesAnArrayAsSeveralValues) {
  EXPECT_EQ(FieldsOf(R"({"T":["a",2,null,true,[],["b"]],"U":[]})"), "T=[a]T=[2]T=[true]T=[b]");
  EXPECT_EQ(FieldsOf(R"({"T":"a","T":"b"})"), "T=[a]T=[b]");
}

TEST(JsonLines, Read_NamesWhatIsWithinAnObjectAfterBoth) {
  EXPECT_EQ(FieldsOf(R"({"a":{"b":1,"c":{"d":2},"e":3},"f":4,"g":{}})"),
            "a.b=[1]a.c.d=[2]a.e=[3]f=[4]");
  EXPECT_EQ(FieldsOf(R"({"by":[{"name":"Ann"},{"name":"Bob","age":7}],"x":1})"),
            "by.name=[Ann]by.name=[Bob]by.age=[7]x=[1]");
}

TEST(JsonLines, Read_MakesAValueOneLine) {
  EXPECT_EQ(FieldsOf(R"({"A":"one\ntwo\r\n\tthree\u0000\u007f!"})"), "A=[one two   three  !]");
  EXPECT_EQ(FieldsOf(R"({"A":"K\u00e4se \ud83e\uddc0 =\\\"\/"})"),
            "A=[K\xc3\xa4se \xf0\x9f\xa7\x80 =\\\"/]");
}

TEST(JsonLines, Read_SkipsLinesThatHoldNoValue) {
  const std::string text = "\n \t\r\n{}\n{\"A\":null}\r\n{\"A\":1}\r\n\n{\"A\":2}";
  EXPECT_EQ(ReadNth(Format::kJsonLines, text, 1).fields, "A=[1]");
  EXPECT_EQ(ReadNth(Format::kJsonLines, text, 1).line, 5);
  EXPECT_EQ(ReadNth(Format::kJsonLines, text, 2).fields, "A=[2]");
  EXPECT_EQ(ReadNth(Format::kJsonLines, text, 3).result, ReadResult::kEnd);
}

TEST(JsonLines, Read_NamesTheByteThatIsNoJson) {
  EXPECT_EQ(WrongWith("{\"A\":1}x"),
            "1: expected a JSON object on one line; it is wrong at byte 8");
  EXPECT_EQ(WrongWith("{\"A\":\n1}"),
            "1: expected a JSON object on one line; it is wrong at byte 6");
  for (const char *bad : {"{", "{\"A\"}", "{'A':1}", "{A:1}", "{\"A\":01}", "{\"A\":1,}",
                          "{\"A\":\"\xff\"}", "{\"A\":1e999}", "{\"A\":\"\\ud800\"}", "{\"A\":nul}",
                          "{\"A\":[1,]}", "{\"A\":\"\x01\"}", "{\"A\":1}{\"A\":2}", "]"})
    EXPECT_TRUE(
        WrongWith(bad).starts_with("1: expected a JSON object on one line; it is wrong at byte "))
        << bad;
  EXPECT_TRUE(WrongWith(std::string("\0", 1)).starts_with("1: expected a JSON object"));
}

TEST(JsonLines, Read_TakesObjectsAlone) {
  for (const char *bad : {"[{\"A\":1}]", "1", "\"A\"", "true", "null", "-1.5", "[]"})
    EXPECT_EQ(WrongWith(bad), "1: expected a JSON object on one line, not another value") << bad;
}

TEST(JsonLines, Read_RefusesNamesThatNoFieldHas) {
  const std::string expected =
      "1: expected the name of a field (a letter, then letters, digits, '-', '_' and '.'), not '";
  for (const char *name : {"", "_id", "@time", "first name", "1", "gr\xc3\xb6sse"})
    EXPECT_EQ(WrongWith("{\"" + std::string(name) + "\":1}"), expected + name + "'");
  const std::string long_name(100, 'n');
  EXPECT_EQ(WrongWith("{\"" + long_name + "\":1}"), expected + long_name.substr(0, 80) + "'");
  EXPECT_EQ(
      WrongWith(R"({"a":{"b c":1}})"),
      "1: expected the name of a field (a letter, then letters, digits, '-', '_' and '.'), not 'a.b c'");
}

TEST(JsonLines, Read_BoundsDepthSizeAndNumber) {
  const std::string inner = Repeated("[", 31) + "1" + Repeated("]", 31);
  EXPECT_EQ(FieldsOf("{\"A\":" + inner + "}"), "A=[1]");
  EXPECT_EQ(WrongWith("{\"A\":[" + inner + "]}"), "1: expected objects and arrays at most 32 deep");
  for (const char *deep : {"[", "{\"A\":"})
    EXPECT_EQ(WrongWith("{\"A\":" + Repeated(deep, 10000)),
              "1: expected objects and arrays at most 32 deep");
  EXPECT_EQ(WrongWith("{\"A\":\"" + std::string(17 << 20, 'x') + "\"}"),
            "1: expected a document of at most 16 MiB");
  EXPECT_EQ(WrongWith("{\"A\":[1" + Repeated(",1", 10000) + "]}"),
            "1: expected a document of at most 10000 values");
}

TEST(JsonLines, Read_GoesOnBehindTheLineThatIsNone) {
  const std::string text = "{\"A\":1}\n{\n{\"A\":" + std::string(17 << 20, ' ') + "2}\n{\"A\":3}\n";
  EXPECT_EQ(FaultOf(Format::kJsonLines, text, 2),
            "2: expected a JSON object on one line; it is wrong at byte 2");
  EXPECT_EQ(FaultOf(Format::kJsonLines, text, 3), "3: expected a document of at most 16 MiB");
  EXPECT_EQ(ReadNth(Format::kJsonLines, text, 4).fields, "A=[3]");
}

TEST(JsonLines, Read_OfWhatCannotBeRead_Fails) {
  Reader reader = {Format::kJsonLines, {[](char *, std::size_t) { return std::ptrdiff_t{-1}; }}};
  Fields fields;
  EXPECT_EQ(JsonLines_Read(&reader, &fields), ReadResult::kFailed);
}
