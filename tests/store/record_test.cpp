#include "store/record.h"

#include <gtest/gtest.h>

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
      Record_Document(17, "\tPackage=bash\tEssential=\t");
  EXPECT_EQ(record, "\t@COMMAND=HIT\t@DOCNUM=17\tPackage=bash\tEssential=\t\n");
  CmdHdr hdr = {};
  EXPECT_STREQ(Util_IntCmdHdr(&hdr, record.c_str()), "\tPackage=bash\tEssential=\t\n");
  EXPECT_STREQ(hdr.Command, "HIT");
  EXPECT_EQ(hdr.DocNum, 17);
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
