#include "store/record.h"

#include <gtest/gtest.h>

namespace {

std::string FieldsOf(const Fields &fields) {
  int cut = 0;
  const std::string text = Record_Fields(fields, &cut);
  EXPECT_EQ(cut, 0);
  return text;
}

}  // namespace

TEST(Record, Hit_NamesGroupTypeAndNumber) {
  EXPECT_EQ(Record_Hit("grp1", "packages", 17, ""),
            "\t@COMMAND=HIT\t@SEARCHGROUP=grp1\t@RECTYPE=packages\t@DOCNUM=17\n");
  EXPECT_EQ(Record_Hit("grp1", "packages", 17, "html all"),
            "\t@COMMAND=HIT\t@SEARCHGROUP=grp1\t@RECTYPE=packages\t@DOCNUM=17\t@SCRIPT=html all\n");
}

TEST(Record, Error_CarriesItsReasonAsPredicate) {
  EXPECT_EQ(Record_Error("No luck"), "\t@COMMAND=ERROR\tNo luck\n");
}

TEST(Record, Document_IsReadBackByTheHeaderParser) {
  const std::string record =
      Record_Document(17, FieldsOf({{"Package", "bash"}, {"Essential", ""}}));
  EXPECT_EQ(record, "\t@COMMAND=HIT\t@DOCNUM=17\tPackage=bash\tEssential=\t\n");
  CmdHdr hdr = {};
  EXPECT_STREQ(Util_IntCmdHdr(&hdr, record.c_str()), "\tPackage=bash\tEssential=\t\n");
  EXPECT_STREQ(hdr.Command, "HIT");
  EXPECT_EQ(hdr.DocNum, 17);
}

TEST(Record, Fields_CutsAValueAtWhatAPageMacroCanShow) {
  int cut = 0;
  const std::string whole(4095, 'v');
  EXPECT_EQ(Record_Fields({{"A", whole}}, &cut), "\tA=" + whole + "\t");
  EXPECT_EQ(cut, 0);
  EXPECT_EQ(Record_Fields({{"A", whole + "w"}, {"B", "x"}}, &cut), "\tA=" + whole + "\tB=x\t");
  EXPECT_EQ(cut, 1);
}

TEST(Record, Fields_PartsNoCharacterWhenItCuts) {
  int cut = 0;
  const std::string start(4093, 'v');
  EXPECT_EQ(Record_Fields({{"A", start + "\xe2\x82\xac!"}}, &cut), "\tA=" + start + "\t");
  EXPECT_EQ(Record_Fields({{"A", start.substr(1) + "\xe2\x82\xac!"}}, &cut),
            "\tA=" + start.substr(1) + "\xe2\x82\xac\t");
  EXPECT_EQ(cut, 2);
}

TEST(Record, Fields_CutsBytesThatAreNoTextToo) {
  int cut = 0;
  EXPECT_EQ(Record_Fields({{"A", std::string(5000, '\x80')}}, &cut),
            "\tA=" + std::string(4092, '\x80') + "\t");
  EXPECT_EQ(cut, 1);
}

TEST(Record, Fields_FillTheRecordToTheBrimAndNoFurther) {
  int cut = 0;
  const Fields many(12, {"A", std::string(4095, 'v')});
  const std::string text = Record_Fields(many, &cut);
  EXPECT_EQ(text.size(), kRecordFieldsSize);
  EXPECT_EQ(cut, 3);  // the tenth in part, two more not at all
  EXPECT_TRUE(Record_IsFields(text));
  EXPECT_EQ(Record_Document(INT32_MAX, text).size(), 40959u);
}

TEST(Record, IsFields_RefusesWhatWouldBreakTheRecord) {
  using namespace std::string_view_literals;
  EXPECT_TRUE(Record_IsFields("\tA=b\t"));
  for (const std::string_view text : {""sv, "\t"sv, "A=b\t"sv, "\tA=b"sv, "\t@A=b\t"sv,
                                      "\tA=b\nc\t"sv, "\tA=b\rc\t"sv, "\tA=b\0c\t"sv})
    EXPECT_FALSE(Record_IsFields(text)) << text;
  EXPECT_FALSE(Record_IsFields("\tA=" + std::string(kRecordFieldsSize - 3, 'v') + "\t"));
}

TEST(Record, IsFields_RefusesAValueThatNoPageMacroCanShow) {
  const std::string whole(kRecordValueSize, 'v');
  EXPECT_TRUE(Record_IsFields("\tA=" + whole + "\tB=" + whole + "\t"));
  EXPECT_FALSE(Record_IsFields("\tA=x\tB=" + whole + "v\t"));
  EXPECT_TRUE(Record_IsFields("\t" + whole + whole + "\t"));  // no field, so no value
}
