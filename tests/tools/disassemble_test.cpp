#include <gtest/gtest.h>

#include <random>

#include "macro/ops.h"
#include "tools/macro/asm.h"

namespace {

using namespace std::string_literals;

// Takes the listing apart: its lines, blanks before the comments folded.
std::string Listing(const std::string &code) {
  std::string folded;
  for (const char c : Asm_Disassemble(code)) {
    if (c == ';')
      while (folded.ends_with("  ")) folded.pop_back();
    folded += c;
  }
  return folded;
}

void ExpectRoundTrip(const std::string &code) {
  std::string again;
  AsmErrors errors;
  const std::string listing = Asm_Disassemble(code);
  ASSERT_TRUE(Asm_Assemble(listing, true, &again, &errors))
      << errors.first[0].line << ": " << errors.first[0].text << "\n"
      << listing;
  ASSERT_EQ(code, again) << listing;
  // Without leave, what the listing calls undefined and nothing else.
  const bool undefined = listing.find(": undefined op-code ") != std::string::npos;
  ASSERT_EQ(!undefined, Asm_Assemble(listing, false, &again, &errors)) << listing;
}

TEST(Disassemble, EveryInstruction_HasItsLine) {
  EXPECT_EQ(
      "text \"a\" ; 0\ntext32 \"b\" ; 3\nvalue \"c\" ; 9\nvalue32 \"d\" ; 12\nvalue-skip 2 \"e\" ; 18\n"
      "number \"f\" ; 22\ndocument ; 25\nfind \"g\" ; 26\nseek 258 ; 29\npush ; 34\npop ; 35\nsave 15 ; 36\n"
      "restore 0 ; 38\nfetch \"h\" \"\" ; 40\ninsert \"i\" ; 44\ninsert-skip 255 \"j\" ; 47\nend ; 51\n",
      Listing("\x41\x01"s
              "a"
              "\x01\x01\0\0\0"s
              "b"
              "\x42\x01"s
              "c"
              "\x02\x01\0\0\0"s
              "d"
              "\x43\x02\x01"s
              "e"
              "\x44\x01"s
              "f"
              "\x07\x0c\x01"s
              "g"
              "\x03\x02\x01\0\0\x08\x09\x0a\x0f\x0b\0\x0d\x01"s
              "h"
              "\0\x0e\x01"s
              "i"
              "\x0f\xff\x01"s
              "j"
              "\0"s));
}

TEST(Disassemble, EveryByteOfAText_IsPrintable) {
  std::string code = "\x01\0\x01\0\0"s;
  for (int c = 0; c < 256; ++c) code += static_cast<char>(c);
  for (const char c : Asm_Disassemble(code)) EXPECT_TRUE(c == '\n' || (c >= ' ' && c <= '~'));
  EXPECT_EQ("text \"\\x00\\t\\n\\r\\\"\\\\\\x7f\\xff\" ; 0\n",
            Listing("\x41\x08\0\t\n\r\"\\\x7f\xff"s));
  ExpectRoundTrip(code);
}

TEST(Disassemble, UndefinedOpCode_IsSaid) {
  EXPECT_EQ("byte 0x05 ; 0: undefined op-code 5, which a run repeats for ever\npush ; 1\n",
            Listing("\x05\x08"));
  for (int op = 0; op < 256; ++op) {
    const bool defined = op <= 3 || (op >= 7 && op <= 15) || (op >= 65 && op <= 68);
    const std::string listing = Listing(std::string(1, static_cast<char>(op)));
    EXPECT_EQ(!defined,
              listing.find("undefined op-code " + std::to_string(op) + ",") != std::string::npos);
  }
}

TEST(Disassemble, BytesBehindTheEnd_AreBytes) {
  EXPECT_EQ("end ; 0\nbyte 0x08 0x00 ; 1: behind the end, never run\n", Listing("\0\x08\0"s));
}

TEST(Disassemble, ManyBytes_TakeSixteenALine) {
  EXPECT_EQ(
      "end ; 0\nbyte 0x01 0x01 0x01 0x01 0x01 0x01 0x01 0x01 0x01 0x01 0x01 0x01 0x01 0x01 0x01 0x01 ; 1: behind the end, never run\nbyte 0x01 ; 17\n",
      Listing("\0"s + std::string(17, '\x01')));
}

TEST(Disassemble, CutOffInstruction_IsMalformed) {
  for (const std::string &code : {"\x41"s,
                                  "\x41\x02"s
                                  "a",
                                  "\x01\x01\0\0"s,
                                  "\x01\xff\xff\xff\xff"s
                                  "a",
                                  "\x0d\x01"s
                                  "a",
                                  "\x0d\x01"s
                                  "a\x02"s
                                  "b",
                                  "\x43"s, "\x0a"s}) {
    EXPECT_NE(std::string::npos,
              Listing(code).find(" ; 0: malformed, an operand runs past the end\n"));
    ExpectRoundTrip(code);
  }
}

TEST(Disassemble, OperandOutOfRange_IsMalformedAndTheNextInstructionShows) {
  EXPECT_EQ("byte 0x0a 0x10 ; 0: malformed, expected a register from 0 to 15\npush ; 2\n",
            Listing("\x0a\x10\x08"));
  const std::string code = "\x02\x00\x10\0\0"s + std::string(4096, 'x') + "\x08";
  const std::string listing = Listing(code);
  EXPECT_NE(std::string::npos,
            listing.find("; 0: malformed, expected a name in quotes of at most 4095 bytes\n"));
  EXPECT_TRUE(listing.ends_with("\npush ; 4101\n"));
  ExpectRoundTrip(code);
}

TEST(Disassemble, EmptyFileAndNoFinalEnd_RoundTrip) {
  EXPECT_EQ("", Asm_Disassemble(""));
  ExpectRoundTrip("");
  ExpectRoundTrip("\x08\x09");
}

// Both halves of the op-codes and lengths of every size come up often, so that runs of good
// instructions do.
std::string RandomCode(std::mt19937 *random) {
  constexpr unsigned char kOps[] = {0, 1, 2, 3, 7, 8, 9, 10, 11, 12, 13, 14, 15, 65, 66, 67, 68};
  std::string code;
  for (auto steps = (*random)() % 40; steps > 0; --steps) {
    const auto dice = (*random)();
    if (dice % 4 == 0)
      code += static_cast<char>(kOps[(*random)() % sizeof kOps]);
    else if (dice % 4 == 1)
      code += static_cast<char>((*random)() % 6);
    else if (dice % 4 == 2)
      code.append(3, '\0');
    else
      code += static_cast<char>((*random)());
  }
  return code;
}

std::string RandomName(std::mt19937 *random, unsigned limit) {
  std::string name((*random)() % limit, '\0');
  for (char &c : name) c = static_cast<char>((*random)());
  return name;
}

std::string RandomInstruction(std::mt19937 *random) {
  const std::string name = RandomName(random, 256);
  const std::string short_name = static_cast<char>(name.size()) + name;
  const std::string long_name = {static_cast<char>(name.size()), 0, 0, 0};
  const std::string byte(1, static_cast<char>((*random)() % 16));
  switch ((*random)() % 8) {
    case 0: return "\x41" + short_name;
    case 1: return "\x01" + long_name + name;
    case 2: return "\x42" + short_name;
    case 3: return "\x02" + long_name + name;
    case 4: return "\x43" + byte + short_name;
    case 5: return "\x0a" + byte;
    case 6: return "\x0d" + short_name + short_name;
    default: return "\x03" + byte + byte + byte + byte;
  }
}

TEST(Disassemble, RandomBytes_RoundTrip) {
  std::mt19937 random(20406);
  for (int i = 0; i < 20000; ++i)
    ASSERT_NO_FATAL_FAILURE(ExpectRoundTrip(RandomCode(&random))) << i;
}

TEST(Disassemble, RandomMacros_RoundTripWithoutBytes) {
  std::mt19937 random(6);
  for (int i = 0; i < 2000; ++i) {
    std::string code;
    for (auto steps = random() % 10; steps > 0; --steps) code += RandomInstruction(&random);
    ASSERT_NO_FATAL_FAILURE(ExpectRoundTrip(code)) << i;
    ASSERT_FALSE(("\n" + Asm_Disassemble(code)).find("\nbyte") != std::string::npos)
        << Asm_Disassemble(code);
  }
}

TEST(Disassemble, LargestMacro_StaysWithinTheSource) {
  const std::string code(kMacroLimit, '\xff');
  EXPECT_LT(Asm_Disassemble(code).size(), kSourceLimit);
  ExpectRoundTrip(code);
}

TEST(Assemble, RandomText_IsRefusedOrAssembled) {
  constexpr char kParts[] = "text value save byte \"\"\"\\x0 12;\n\n\n\t\r";
  std::mt19937 random(7);
  int good = 0;
  for (int i = 0; i < 20000; ++i) {
    std::string source;
    for (auto steps = random() % 20; steps > 0; --steps) {
      const std::size_t at = random() % (sizeof kParts - 1);
      source.append(kParts + at, std::min<std::size_t>(random() % 6, sizeof kParts - 1 - at));
    }
    std::string code;
    AsmErrors errors;
    if (Asm_Assemble(source, false, &code, &errors)) ++good;
    for (const AsmError &error : errors.first)
      ASSERT_TRUE(error.line >= 1 && error.text.starts_with("expected ")) << source;
  }
  EXPECT_GT(good, 0);
}

}  // namespace
