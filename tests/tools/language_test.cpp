// What a source can hold besides instructions, and where its faults are.
#include <gtest/gtest.h>

#include <map>

#include "tests/tools/run.h"
#include "tools/macro/asm.h"

namespace {

using namespace std::string_literals;
using Files = std::map<std::string, std::string>;

// The macro as text again, without offsets; or "FILE:LINE:COLUMN: fault" of each.
std::string Meant(const Files &files) {
  AsmProgram program;
  program.sources.push_back({"main.ms", files.at("main.ms")});
  const auto load = [&](const std::string &path, std::string *text) {
    if (files.count(path) == 0) return false;
    *text = files.at(path);
    return true;
  };
  std::string meant;
  if (!Asm_Assemble(load, false, &program)) {
    for (const AsmError &error : program.errors.first)
      meant += error.file + ":" + std::to_string(error.line) + ":" + std::to_string(error.column) +
               ": " + error.text + "\n";
    return meant;
  }
  const std::string listing = Asm_Disassemble(program.code);
  for (std::size_t at = 0; at < listing.size(); at = listing.find('\n', at) + 1) {
    const std::string line = listing.substr(at, listing.find('\n', at) - at);
    meant += line.substr(0, line.find_last_not_of(' ', line.rfind("; ") - 1) + 1) + "\n";
  }
  return meant;
}

std::string Meant(const std::string &source) { return Meant(Files{{"main.ms", source}}); }

TEST(Language, Constants_StandForTextsAndNumbers) {
  EXPECT_EQ(
      "text \"a\\nb\"\nvalue \"a\\nb\"\nsave 3\nvalue-skip 3 \"a\\nb\"\n",
      Meant(
          "const TITLE \"a\\nb\" ; a comment\nconst Three 0x3\ntext TITLE\nvalue TITLE\nsave Three\nvalue-skip Three TITLE\n"));
  EXPECT_EQ(
      "main.ms:1:7: expected the name of a constant, with a capital in front, found 'title \"x\"'\n",
      Meant("const title \"x\""));
  EXPECT_EQ("main.ms:1:9: expected a text in quotes or a number, found 'x'\n", Meant("const A x"));
  EXPECT_EQ("main.ms:2:7: expected a constant that has no other value yet, found 'A'\n",
            Meant("const A 1\nconst A 2"));
  EXPECT_EQ("main.ms:2:6: expected a register from 0 to 15, found '16'\n",
            Meant("const A 16\nsave A"));
  EXPECT_EQ(
      "main.ms:2:6: expected a text in quotes of at most 255 bytes (text32 takes longer ones), found 'A'\n",
      Meant("const A 16\ntext A"));
}

TEST(Language, Includes_AreLookedForBesideTheirFile) {
  EXPECT_EQ("text \"1\"\ntext \"2\"\ntext \"3\"\ntext \"4\"\n",
            Meant({{"main.ms", "text \"1\"\ninclude \"parts/a.ms\" ; here\ntext \"4\"\n"},
                   {"parts/a.ms", "const B \"2\"\ninclude \"b.ms\"\ntext \"3\""},
                   {"parts/b.ms", "\xef\xbb\xbftext B\n"}}));
  EXPECT_EQ("main.ms:1:9: expected a file that can be read, found 'none.ms'\n",
            Meant("include \"none.ms\""));
  EXPECT_EQ("main.ms:1:9: expected the name of a file in quotes, found 'x'\n", Meant("include x"));
  EXPECT_EQ("a.ms:2:1: expected an instruction, found 'nop'\n",
            Meant({{"main.ms", "include \"a.ms\"\n"}, {"a.ms", "push\nnop\n"}}));
  EXPECT_EQ(
      "main.ms:1:9: expected files that include each other at most 16 deep, found 'main.ms'\n",
      Meant("include \"main.ms\""));
}

TEST(Language, Pages_ReadLikeWhatTheyMake) {
  EXPECT_EQ("text \"<h1>\"\nvalue \"Title\"\ntext \"</h1>\\n  \\\"quoted\\\"; all\\n\"\nend\n",
            Meant("page\n<h1>{{Title}}</h1>\n  \"quoted\"; all\nend-page\nend"));
  EXPECT_EQ("value-skip 2 \"A\"\ntext \" \"\nseek 0\nvalue \"B\"\n",
            Meant("page\n{{A+2}} {{!seek 0}}{{B}}\\\nend-page\n"));
  EXPECT_EQ("text \"one\\ntwo\\n\"\n", Meant("page\r\none\r\ntwo\r\nend-page\r\n"));
  EXPECT_EQ("text32 \"" + std::string(300, 'x') + "\\n\"\n",
            Meant("page\n" + std::string(300, 'x') + "\nend-page"));
  EXPECT_EQ("text \"{{x\"\ntext \"}}\\n\"\n", Meant("page\n{{!text \"{{x\"}}}}\nend-page"));
}

TEST(Language, Pages_FaultsInThem) {
  EXPECT_EQ("main.ms:2:3: expected {{NAME}}, found '{{b'\n", Meant("page\na {{b\nend-page"));
  EXPECT_EQ("main.ms:2:1: expected {{NAME}}, found '{{}}'\n", Meant("page\n{{}}\nend-page"));
  EXPECT_EQ("main.ms:2:1: expected {{NAME+COUNT}}, from 0 to 255, found '{{A+x}}'\n",
            Meant("page\n{{A+x}}\nend-page"));
  EXPECT_EQ("main.ms:2:9: expected a register from 0 to 15, found '16'\n",
            Meant("page\n{{!save 16}} behind\nend-page"));
  EXPECT_EQ("main.ms:1:5: expected a line end-page below, found the end of the line\n",
            Meant("page\nx\n"));
  EXPECT_EQ("main.ms:2:4: expected an instruction, found 'page'\n",
            Meant("page\n{{!page}}\nend-page"));
}

TEST(Language, Repeat_TakesOneAfterTheOther) {
  EXPECT_EQ(
      "text \", \"\nvalue \"Author\"\ntext \", \"\nvalue-skip 1 \"Author\"\ntext \", \"\nvalue-skip 1 \"Author\"\nend\n",
      Meant("repeat \"Author\" 3\n  text \", \"\n  item\nend-repeat\nend"));
  EXPECT_EQ("text \"<a>\"\nvalue \"A\"\ntext \"-\"\nvalue \"A\"\ntext \"\\n<a>\"\n",
            Meant("page\n<a>{{A}}-{{A}}\n<a>\\\nend-page\n"));
  EXPECT_EQ(
      "text \"<a>\"\nvalue \"A\"\ntext \"-\"\nvalue \"A\"\ntext \"\\n\"\ntext \"<a>\"\nvalue-skip 1 \"A\"\ntext \"-\"\nvalue \"A\"\ntext \"\\n\"\n",
      Meant("repeat \"A\" 2\npage\n<a>{{!item}}-{{!item}}\nend-page\nend-repeat\n"));
  EXPECT_EQ("main.ms:1:1: expected an item between repeat and end-repeat, found 'item'\n",
            Meant("item"));
  EXPECT_EQ("main.ms:2:1: expected an instruction, found 'nop'\n",
            Meant("repeat \"A\" 5\nnop\nend-repeat"));
  EXPECT_EQ("main.ms:1:8: expected how often at most, from 1 to 256, found '0'\n",
            Meant("repeat \"A\" 0\nend-repeat"));
  EXPECT_EQ("main.ms:1:12: expected how often at most, from 1 to 256, found '257'\n",
            Meant("repeat \"A\" 257\nend-repeat"));
  EXPECT_EQ("main.ms:1:13: expected a line end-repeat below, found the end of the line\n",
            Meant("repeat \"A\" 2\nitem"));
  EXPECT_EQ("main.ms:1:8: expected a name in quotes of at most 255 bytes, found '256 bytes'\n",
            Meant("repeat \"" + std::string(256, 'n') + "\" 2\nend-repeat"));
  EXPECT_EQ("main.ms:2:1: expected an instruction, found 'repeat'",
            Meant("repeat \"A\" 2\nrepeat \"B\" 2\nend-repeat\nend-repeat").substr(0, 52));
}

TEST(Language, LinesThatEndABlock_HoldNothingElse) {
  EXPECT_EQ("main.ms:3:10: expected the end of the line, found 'x'\n",
            Meant("page\na\nend-page x\n"));
  EXPECT_EQ("main.ms:3:12: expected the end of the line, found '2'\n",
            Meant("repeat \"A\" 2\nitem\nend-repeat 2\n"));
  EXPECT_EQ("text \"a\\n\"\nvalue \"A\"\n",
            Meant("page\na\n end-page ; of it\nrepeat \"A\" 1\nitem\nend-repeat\t; of it\n"));
}

TEST(Language, Texts_FitAPage) {
  const std::string fits(40960, 'x');
  EXPECT_EQ("text32 \"" + fits + "\"\n", Meant("text32 \"" + fits + "\""));
  EXPECT_EQ(
      "main.ms:1:8: expected a text in quotes of at most 40960 bytes, which a page takes, found '40961 bytes'\n",
      Meant("text32 \"" + fits + "y\""));
  EXPECT_EQ(
      "main.ms:1:5: expected a text between values of at most 40960 bytes, which a page takes, found '40961 bytes'\n",
      Meant("page\n" + fits + "\nend-page\n"));
  EXPECT_EQ(
      "main.ms:2:40962: expected a text between values of at most 40960 bytes, which a page takes, found '40961 bytes'\n",
      Meant("page\nx" + fits.substr(1) + "y{{A}}\nend-page\n"));
}

TEST(Language, Includes_ComeToAnEnd) {
  const std::string twice = "include \"main.ms\"\ninclude \"main.ms\"\n";
  const std::string faults = Meant(twice);
  EXPECT_NE(
      std::string::npos,
      faults.find(
          "main.ms:2:9: expected files that include each other at most 16 deep, found 'main.ms'\n"));
  Files files = {{"main.ms", ""}, {"a.ms", "text \"a\"\n"}};
  std::string meant;
  for (int i = 0; i < 256; ++i) {
    files["main.ms"] += "include \"a.ms\"\n";
    meant += "text \"a\"\n";
  }
  EXPECT_EQ(meant, Meant(files));
  files["main.ms"] += "include \"a.ms\"\n";
  EXPECT_EQ("main.ms:257:9: expected at most 256 included files, found 'a.ms'\n", Meant(files));
}

TEST(Language, LinesWithoutCode_AreNotRepeated) {
  AsmProgram program;
  program.sources.push_back({"", "repeat \"A\" 3\n; one\nitem\nend-repeat\n"});
  ASSERT_TRUE(Asm_Assemble({}, false, &program));
  EXPECT_EQ(5U, program.lines.size());
}

TEST(Language, Condition_IsRefusedWithItsReason) {
  EXPECT_EQ(
      "main.ms:1:1: expected an instruction (whether a document has a field cannot be asked without a line in the log), found 'if-field'\n",
      Meant("if-field \"A\""));
}

// What asm says of a source, without the folder.
std::string Said(const std::string &source) {
  const Folder folder;
  const std::string path = folder.Write("page.ms", source);
  const Outcome outcome = RunTool({KORVO_MACRO, "asm", path});
  EXPECT_EQ(65, outcome.status);
  EXPECT_EQ("", outcome.output);
  return outcome.errors.substr(folder.Path().size() + 1);
}

TEST(Language, Caret_StandsBelowTheFault) {
  EXPECT_EQ(
      "page.ms:1:13: expected the end of the line, found 'x'\n"
      "    text \"\xc3\xa9\" x\n"
      "             ^\n",
      Said("\t\ttext \"\xc3\xa9\" x\n"));
  EXPECT_EQ("page.ms:1:2001: expected the end of the line, found 'x'\n  " + std::string(50, ' ') +
                "x\n  " + std::string(50, ' ') + "^\n",
            Said("text \"a\"" + std::string(1992, ' ') + "x\n"));
}

TEST(Language, ControlCharacters_AreNotSaid) {
  EXPECT_EQ(
      "page.ms:1:1: expected an instruction, found '?[2J?'\n"
      "  ?[2J?\n"
      "  ^\n",
      Said("\x1b[2J\0"s));
}

TEST(Language, Listing_ShowsLinesBesideBytes) {
  const Folder folder;
  const std::string path =
      folder.Write("page.ms", "; a page\ntext \"Hello, you\"\ninclude \"end.ms\"\n");
  const std::string other = folder.Write("end.ms", "end\n");
  const Outcome outcome = RunTool({KORVO_MACRO, "asm", "--listing", path});
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ("; " + path +
                "\n"
                "                                      1  ; a page\n"
                "       0  41 0a 48 65 6c 6c 6f 2c     2  text \"Hello, you\"\n"
                "       8  20 79 6f 75\n"
                "                                      3  include \"end.ms\"\n"
                "; " +
                other +
                "\n"
                "      12  00                          1  end\n",
            outcome.output);
  EXPECT_EQ("", outcome.errors);
}

}  // namespace
