#include <gtest/gtest.h>

#include "tools/macro/asm.h"

namespace {

using namespace std::string_literals;

std::string Assembled(const std::string &source) {
  std::string code;
  AsmErrors errors;
  EXPECT_TRUE(Asm_Assemble(source, false, &code, &errors))
      << errors.first[0].line << ": " << errors.first[0].text;
  return code;
}

// "LINE: what was expected", of each fault.
std::vector<std::string> Faults(const std::string &source) {
  std::string code;
  AsmErrors errors;
  EXPECT_FALSE(Asm_Assemble(source, false, &code, &errors));
  std::vector<std::string> faults;
  for (const AsmError &error : errors.first)
    faults.push_back(std::to_string(error.line) + ": " + error.text);
  return faults;
}

std::string Undefined(int line, int op) {
  return std::to_string(line) + ": expected an op-code that exists, found '" + std::to_string(op) +
         "', which a run repeats for ever; --allow-undefined takes it";
}

TEST(Assemble, EveryInstruction_HasItsBytes) {
  const struct {
    const char *source;
    std::string code;
  } kCases[] = {
      {"end", "\0"s},
      {"text \"ab\"",
       "\x41\x02"s
       "ab"},
      {"text32 \"ab\"",
       "\x01\x02\0\0\0"s
       "ab"},
      {"value \"N\"", "\x42\x01N"s},
      {"value32 \"N\"", "\x02\x01\0\0\0N"s},
      {"value-skip 3 \"N\"", "\x43\x03\x01N"s},
      {"number \"N\"", "\x44\x01N"s},
      {"document", "\x07"s},
      {"find \"N\"", "\x0c\x01N"s},
      {"seek 305419896", "\x03\x78\x56\x34\x12"s},
      {"push", "\x08"s},
      {"pop", "\x09"s},
      {"save 0", "\x0a\x00"s},
      {"restore 15", "\x0b\x0f"s},
      {"fetch \"N\" \"/m\"", "\x0d\x01N\x02/m"s},
      {"insert \"N\"", "\x0e\x01N"s},
      {"insert-skip 255 \"N\"", "\x0f\xff\x01N"s},
      {"byte 8 0x41 0x2 5 0xff 0x0 0x06", "\x08\x41\x02\x05\xff\x00\x06"s},
  };
  for (const auto &[source, code] : kCases) EXPECT_EQ(code, Assembled(source)) << source;
}

TEST(Assemble, Escapes_StandForOneByte) {
  EXPECT_EQ("\x41\x08\n\t\r\"\\\0\xff\x0a"s,
            Assembled("text \"\\n\\t\\r\\\"\\\\\\x00\\xfF\\x0A\""));
}

TEST(Assemble, OtherBytesInQuotes_StandForThemselves) {
  EXPECT_EQ("\x41\x07; \t\xc3\xa9\0'"s, Assembled("text \"; \t\xc3\xa9\0'\""s));
}

TEST(Assemble, CommentsAndBlankLines_AreNoCode) {
  EXPECT_EQ("\x08\x09"s, Assembled("; first\n\n  \t; second\r\n\tpush;third\r\n pop ; fourth"));
  EXPECT_EQ("", Assembled(""));
}

TEST(Assemble, LongestOperands_Fit) {
  EXPECT_EQ("\x41\xff" + std::string(255, 'x'),
            Assembled("text \"" + std::string(255, 'x') + "\""));
  EXPECT_EQ("\x02\xff\x0f\0\0"s + std::string(4095, 'x'),
            Assembled("value32 \"" + std::string(4095, 'x') + "\""));
  EXPECT_EQ("\x03\xff\xff\xff\xff", Assembled("seek 4294967295"));
}

TEST(Assemble, Fault_NamesLineAndWhatWasExpected) {
  std::string large;
  for (int i = 0; i < 27; ++i) large += "text32 \"" + std::string(40960, 'x') + "\"\n";
  const std::string long_text = "\"" + std::string(256, 'x') + "\"";
  const struct {
    std::string source;
    const char *fault;
  } kCases[] = {
      {"push\n\nprint \"x\"\n", "3: expected an instruction, found 'print'"},
      {"\"x\"", "1: expected an instruction, found '\"x\"'"},
      {"END", "1: expected an instruction, found 'END'"},
      {"value", "1: expected a name in quotes of at most 255 bytes, found the end of the line"},
      {"value ; \"N\"",
       "1: expected a name in quotes of at most 255 bytes, found the end of the line"},
      {"value N", "1: expected a name in quotes of at most 255 bytes, found 'N'"},
      {"value \"N", "1: expected a quote at the end of the text, found the end of the line"},
      {"value \"N\\", "1: expected one of \\n \\t \\r \\\" \\\\ \\xHH, found '\\'"},
      {"value \"\\q\"", "1: expected one of \\n \\t \\r \\\" \\\\ \\xHH, found '\\q\"'"},
      {"value \"\\x4\"", "1: expected one of \\n \\t \\r \\\" \\\\ \\xHH, found '\\x4\"'"},
      {"value \"\\x-4\"", "1: expected one of \\n \\t \\r \\\" \\\\ \\xHH, found '\\x-4\"'"},
      {"value \"N\" \"M\"", "1: expected the end of the line, found '\"M\"'"},
      {"push pop", "1: expected the end of the line, found 'pop'"},
      {"fetch \"N\"",
       "1: expected a name in quotes of at most 255 bytes, found the end of the line"},
      {"save 16", "1: expected a register from 0 to 15, found '16'"},
      {"save", "1: expected a register from 0 to 15, found the end of the line"},
      {"save -1", "1: expected a register from 0 to 15, found '-1'"},
      {"save 1x", "1: expected a register from 0 to 15, found '1x'"},
      {"value-skip 256 \"N\"",
       "1: expected a number of matches to skip, from 0 to 255, found '256 \"N\"'"},
      {"seek 4294967296", "1: expected an offset from 0 to 4294967295, found '4294967296'"},
      {"byte", "1: expected a byte from 0 to 255 or 0x00 to 0xff, found the end of the line"},
      {"byte 1 256", "1: expected a byte from 0 to 255 or 0x00 to 0xff, found '256'"},
      {"byte 0x", "1: expected a byte from 0 to 255 or 0x00 to 0xff, found '0x'"},
      {"text " + long_text,
       "1: expected a text in quotes of at most 255 bytes (text32 takes longer ones), found '256 bytes'"},
      {"text32 \"" + std::string(40961, 'x') + "\"",
       "1: expected a text in quotes of at most 40960 bytes, which a page takes, found '40961 bytes'"},
      {large, "26: expected a macro of at most 1048576 bytes, found '1065090 bytes'"},
  };
  for (const auto &[source, fault] : kCases)
    EXPECT_EQ((std::vector<std::string>{fault}), Faults(source)) << source.substr(0, 40);
}

TEST(Assemble, UndefinedOpCode_IsAFaultWhereverItWouldRun) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ((Lines{Undefined(1, 20)}), Faults("byte 20"));
  EXPECT_EQ((Lines{Undefined(2, 4), Undefined(2, 5), Undefined(5, 255)}),
            Faults("push\nbyte 4 5\n; a comment\npop\nbyte 8 255 9\nend\nbyte 6"));
  EXPECT_EQ((Lines{Undefined(3, 7 + 9)}), Faults("byte 0x41\nbyte 2 20 20\nbyte 16"));
}

TEST(Assemble, BytesThatNeverRun_AreNoFault) {
  EXPECT_EQ("\x0a\x0f\x42\x01\x14\0\x14"s,
            Assembled("byte 10\nbyte 15\nbyte 66 1\nbyte 20\nend\nbyte 20"));
  EXPECT_EQ("\x41\x05\x14"s, Assembled("byte 0x41 5 20"));  // cut off by the end of the file
}

TEST(Assemble, UndefinedOpCode_IsToldAsFarAsTheLinesAreRight) {
  EXPECT_EQ((std::vector<std::string>{Undefined(1, 20), "2: expected an instruction, found 'nop'",
                                      "4: expected an instruction, found 'nop'"}),
            Faults("byte 20\nnop\nbyte 21\nnop\n"));
}

TEST(Assemble, Allowed_EveryByteIsTaken) {
  std::string source = "byte", bytes, code;
  for (int value = 255; value >= 0; --value) {
    source += " " + std::to_string(value);
    bytes += static_cast<char>(value);
  }
  AsmErrors errors;
  EXPECT_TRUE(Asm_Assemble(source, true, &code, &errors));
  EXPECT_EQ(bytes, code);
}

TEST(Assemble, ManyFaults_AreCounted) {
  std::string code;
  AsmErrors errors;
  EXPECT_FALSE(
      Asm_Assemble("byte 4 4 4 4 4\n" + std::string(30, '\n') + "x\ny\n", false, &code, &errors));
  EXPECT_EQ(7u, errors.first.size());
  EXPECT_EQ(0u, errors.more);
  EXPECT_EQ(33, errors.first.back().line);
  std::string source;
  for (int i = 0; i < 1000; ++i) source += "byte 4\n";
  EXPECT_FALSE(Asm_Assemble(source + "x\n", false, &code, &errors));
  EXPECT_EQ(20u, errors.first.size());
  EXPECT_EQ(20, errors.first.back().line);
  EXPECT_EQ(981u, errors.more);
}

TEST(Assemble, ByteOrderMark_InFrontIsLeftOut) {
  EXPECT_EQ("\x08", Assembled("\xef\xbb\xbfpush"));
  EXPECT_EQ("", Assembled("\xef\xbb\xbf"));
}

}  // namespace
