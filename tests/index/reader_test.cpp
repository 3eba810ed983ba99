#include "index/reader.h"

#include <gtest/gtest.h>

#include "tests/index/reading.h"

TEST(Reader, FormatOf_IsToldByTheName) {
  EXPECT_EQ(Reader_FormatOf("/x/a.jsonl"), Format::kJsonLines);
  EXPECT_EQ(Reader_FormatOf("a.ndjson"), Format::kJsonLines);
  EXPECT_EQ(Reader_FormatOf("a.json"), Format::kJsonLines);
  EXPECT_EQ(Reader_FormatOf("a.csv"), Format::kCsv);
  EXPECT_EQ(Reader_FormatOf("a.tsv"), Format::kTsv);
  for (const char *name : {"", "status", "a.txt", "csv", "a.csv.old", "x.CSV/"})
    EXPECT_EQ(Reader_FormatOf(name), Format::kControl) << name;
}

TEST(Reader, Format_IsKnownByItsName) {
  Format format = Format::kControl;
  EXPECT_TRUE(Reader_Format("jsonl", &format));
  EXPECT_EQ(format, Format::kJsonLines);
  EXPECT_TRUE(Reader_Format("csv", &format));
  EXPECT_EQ(format, Format::kCsv);
  EXPECT_TRUE(Reader_Format("tsv", &format));
  EXPECT_EQ(format, Format::kTsv);
  EXPECT_TRUE(Reader_Format("control", &format));
  EXPECT_EQ(format, Format::kControl);
  EXPECT_FALSE(Reader_Format("xml", &format));
}

// Each byte, alone and doubled, as the whole input and in the middle of one, is a document or a
// fault.
TEST(Reader, Next_AlwaysComesToAnEnd) {
  for (const Format format : {Format::kControl, Format::kJsonLines, Format::kCsv, Format::kTsv})
    for (int byte = 0; byte < 256; ++byte)
      for (const std::size_t count : {1u, 2u, 3u})
        for (const char *around : {"", "A: 1\n", "{\"A\":1}\n", "A,B\n1,2\n", "A\tB\n1\t2\n"}) {
          const std::string text = around + std::string(count, static_cast<char>(byte)) + around;
          Reader reader = {format, LinesOf(text)};
          Fields fields;
          ReadResult result = ReadResult::kDocument;
          int calls = 0;
          while (result == ReadResult::kDocument || result == ReadResult::kBad) {
            ASSERT_LT(++calls, 20) << byte;
            result = Reader_Next(&reader, &fields);
            if (result != ReadResult::kDocument) continue;
            ASSERT_FALSE(fields.empty());
            for (const Field &field : fields) ASSERT_TRUE(Field_IsName(field.name));
          }
        }
}
