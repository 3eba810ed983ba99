#include "store/document.h"

#include <gtest/gtest.h>

namespace {

std::string ReadBack(std::string_view data, SchemaOrigin origin = SchemaOrigin::kNone) {
  Fields fields;
  std::string text;
  if (!Document_Read(data, origin, &fields)) return "none";
  for (const Field &field : fields) text += field.name + "=" + field.value + ";";
  return text;
}

}  // namespace

TEST(Document, IsReadAsItWasWritten) {
  int cut = 0;
  const std::string data = Document_Data({{"Title", "a=b"}, {"Tag", ""}, {"Tag", "x"}}, &cut);
  EXPECT_EQ(data, "\tTitle=a=b\tTag=\tTag=x\t");
  EXPECT_EQ(cut, 0);
  EXPECT_EQ(ReadBack(data), "Title=a=b;Tag=;Tag=x;");
}

TEST(Document, OfOmegaIsLines) {
  EXPECT_EQ(ReadBack("url=/a.html\nsample=A\tshell\x7f\n\ncaption=", SchemaOrigin::kOmega),
            "url=/a.html;sample=A shell ;caption=;");
}

TEST(Document, WhatIsNoFieldIsLeftOut) {
  EXPECT_EQ(ReadBack("\t@COMMAND=x\tno pair\t=y\tA=1\n2\t"), "A=1 2;");
  for (const char *data : {"", "\t", "text", "\t\t\t"}) EXPECT_EQ(ReadBack(data), "none") << data;
}

TEST(Document, IsCutWhereItGrowsTooLarge) {
  int cut = 0;
  const std::string whole(kDocumentSize - 4, 'v');  // with the tabs, the name and "="
  EXPECT_EQ(Document_Data({{"A", whole}}, &cut).size(), kDocumentSize);
  EXPECT_EQ(cut, 0);
  const std::string data = Document_Data({{"A", whole + "\xc3\xa4"}, {"B", "x"}}, &cut);
  EXPECT_EQ(data.size(), kDocumentSize);
  EXPECT_EQ(cut, 2);
}
