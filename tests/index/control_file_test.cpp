#include "index/control_file.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

struct Outcome {
  ControlResult result;
  int line;
  std::string fields;  // name=[value] of each
};

// Reads count documents and tells of the last.
Outcome ReadNth(const std::string &text, int count) {
  std::istringstream in(text);
  ControlReader reader = {&in, 0};
  Fields fields;
  Outcome outcome = {};
  for (int i = 0; i < count; ++i) outcome.result = ControlFile_Read(&reader, &fields);
  outcome.line = reader.line;
  for (const Field &field : fields) outcome.fields += field.name + "=[" + field.value + "]";
  return outcome;
}

}  // namespace

TEST(ControlFile, Read_EndsADocumentAtABlankLine) {
  const std::string text = "A: 1\nB: 2\n\nA: 3\n";
  EXPECT_EQ(ReadNth(text, 1).fields, "A=[1]B=[2]");
  EXPECT_EQ(ReadNth(text, 2).fields, "A=[3]");
  EXPECT_EQ(ReadNth(text, 2).result, ControlResult::kDocument);
  EXPECT_EQ(ReadNth(text, 3).result, ControlResult::kEnd);
}

TEST(ControlFile, Read_TakesSeveralBlankLinesAsOne) {
  const std::string text = "\n \t\nA: 1\n\n\r\n\nA: 2\n\n\n";
  EXPECT_EQ(ReadNth(text, 2).fields, "A=[2]");
  EXPECT_EQ(ReadNth(text, 3).result, ControlResult::kEnd);
}

TEST(ControlFile, Read_TakesALastLineWithoutItsNewline) {
  EXPECT_EQ(ReadNth("A: 1\nB: 2", 1).fields, "A=[1]B=[2]");
}

TEST(ControlFile, Read_OfNothing_IsTheEnd) {
  EXPECT_EQ(ReadNth("", 1).result, ControlResult::kEnd);
}

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
    const Outcome outcome = ReadNth(std::string("A: 1\n\nB: 2\n") + bad + "\n", 2);
    EXPECT_EQ(outcome.result, ControlResult::kBadLine) << bad;
    EXPECT_EQ(outcome.line, 4) << bad;
  }
}

TEST(ControlFile, Read_RefusesAContinuationOfNothing) {
  EXPECT_EQ(ReadNth(" x\n", 1).result, ControlResult::kBadLine);
  EXPECT_EQ(ReadNth("A: 1\n\n x\n", 2).result, ControlResult::kBadLine);
}

TEST(ControlFile, Read_OfADirectory_Fails) {
  std::ifstream in("/");
  ControlReader reader = {&in, 0};
  Fields fields;
  EXPECT_EQ(ControlFile_Read(&reader, &fields), ControlResult::kFailed);
}
