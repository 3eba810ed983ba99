#include "index/control_file.h"

#include <gtest/gtest.h>

#include "tests/index/reading.h"

namespace {

ReadOutcome ReadNth(const std::string &text, int count) {
  return ReadNth(Format::kControl, text, count);
}

}  // namespace

TEST(ControlFile, Read_EndsADocumentAtABlankLine) {
  const std::string text = "A: 1\nB: 2\n\nA: 3\n";
  EXPECT_EQ(ReadNth(text, 1).fields, "A=[1]B=[2]");
  EXPECT_EQ(ReadNth(text, 2).fields, "A=[3]");
  EXPECT_EQ(ReadNth(text, 2).result, ReadResult::kDocument);
  EXPECT_EQ(ReadNth(text, 3).result, ReadResult::kEnd);
}

TEST(ControlFile, Read_TakesSeveralBlankLinesAsOne) {
  const std::string text = "\n \t\nA: 1\n\n\r\n\nA: 2\n\n\n";
  EXPECT_EQ(ReadNth(text, 2).fields, "A=[2]");
  EXPECT_EQ(ReadNth(text, 3).result, ReadResult::kEnd);
}

TEST(ControlFile, Read_TakesALastLineWithoutItsNewline) {
  EXPECT_EQ(ReadNth("A: 1\nB: 2", 1).fields, "A=[1]B=[2]");
}

TEST(ControlFile, Read_OfNothing_IsTheEnd) { EXPECT_EQ(ReadNth("", 1).result, ReadResult::kEnd); }

TEST(ControlFile, Read_JoinsContinuationLinesByOneBlank) {
  EXPECT_EQ(ReadNth("D: shell\n the GNU\n\tshell  \n .\n   - last\n", 1).fields,
            "D=[shell the GNU shell - last]");
  EXPECT_EQ(ReadNth("Conffiles:\n /etc/x 12\n", 1).fields, "Conffiles=[/etc/x 12]");
}

TEST(ControlFile, Read_TurnsControlCharactersIntoBlanks) {
  using namespace std::string_literals;
  EXPECT_EQ(ReadNth("D: a\tb\rc\0d\x1f\x7f!\n"s, 1).fields, "D=[a b c d  !]");
  EXPECT_EQ(ReadNth("D: a\n b\tc\n", 1).fields, "D=[a b c]");
}

TEST(ControlFile, Read_KeepsColonsEqualsSignsAndOtherBytesOfAValue) {
  EXPECT_EQ(ReadNth("V: 1:2=3\nN: K\xc3\xa4se \xff\nE:\n", 1).fields,
            "V=[1:2=3]N=[K\xc3\xa4se \xff]E=[]");
}

TEST(ControlFile, Read_NamesTheLineThatIsNeitherFieldNorContinuation) {
  for (const char *bad : {"no colon", ": x", "@A: x", "a b: x", "# note: x"}) {
    const ReadOutcome outcome = ReadNth(std::string("A: 1\n\nB: 2\n") + bad + "\n", 2);
    EXPECT_EQ(outcome.result, ReadResult::kBad) << bad;
    EXPECT_EQ(outcome.line, 4) << bad;
  }
}

TEST(ControlFile, Read_RefusesAContinuationOfNothing) {
  EXPECT_EQ(ReadNth(" x\n", 1).result, ReadResult::kBad);
  EXPECT_EQ(ReadNth("A: 1\n\n x\n", 2).result, ReadResult::kBad);
}

TEST(ControlFile, Read_GoesOnBehindTheDocumentThatIsNone) {
  const std::string text = "A: 1\nwrong\nB: 2\nwrong again\n\nA: 3\n";
  EXPECT_EQ(FaultOf(Format::kControl, text), "2: expected \"Name: value\"");
  EXPECT_EQ(ReadNth(text, 2).fields, "A=[3]");
  EXPECT_EQ(ReadNth(text, 2).line, 6);
  EXPECT_EQ(ReadNth(text, 3).result, ReadResult::kEnd);
}

TEST(ControlFile, Read_BoundsADocument) {
  const std::string half(9 << 20, 'x');
  const std::string large = "A: " + half + "\nB: " + half + "\n\nA: 1\n";
  EXPECT_EQ(FaultOf(Format::kControl, large), "2: expected a document of at most 16 MiB");
  EXPECT_EQ(ReadNth(large, 2).fields, "A=[1]");
  const std::string line = "A: " + half + half + "\n\nA: 1\n";
  EXPECT_EQ(FaultOf(Format::kControl, line), "1: expected a document of at most 16 MiB");
  EXPECT_EQ(ReadNth(line, 2).fields, "A=[1]");
  std::string many;
  for (int i = 0; i < 10001; ++i) many += "A:\n";
  EXPECT_EQ(FaultOf(Format::kControl, many), "10001: expected a document of at most 10000 values");
}

TEST(ControlFile, Read_OfWhatCannotBeRead_Fails) {
  Reader reader = {Format::kControl, {[](char *, std::size_t) { return std::ptrdiff_t{-1}; }}};
  Fields fields;
  EXPECT_EQ(ControlFile_Read(&reader, &fields), ReadResult::kFailed);
}
