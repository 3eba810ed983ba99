#include <gtest/gtest.h>
#include <sysexits.h>

#include "tools/wire/pattern.h"
#include "tools/wire/transcript.h"

namespace {

Transcript Parse(const std::string &text) {
  Transcript transcript;
  std::string wrong;
  EXPECT_TRUE(Transcript_Parse(text, "f", &transcript, &wrong)) << wrong;
  return transcript;
}

std::string WrongIn(const std::string &text) {
  Transcript transcript;
  std::string wrong;
  EXPECT_FALSE(Transcript_Parse(text, "f", &transcript, &wrong)) << text;
  return wrong;
}

// The bytes of what a client sends.
std::string BytesOf(const std::string &items) {
  const Transcript transcript = Parse("client < keep number digits\nclient > " + items + "\n");
  Scene scene = {"/dir", {{"searchmgr", 8011}}, {{"number", "17"}}};
  return Pattern_Bytes(transcript.cases.at(0).steps.at(1).items, scene);
}

struct Matched {
  Fit fit;
  std::size_t length;
};

Matched Match(const std::string &items, const std::string &bytes, bool ended = false) {
  const Transcript transcript = Parse("client < " + items + "\n");
  Scene scene = {"/dir", {}, {}};
  Matched matched = {Fit::kNo, 0};
  matched.fit = Pattern_Match(transcript.cases.at(0).steps.at(0).items, bytes, ended, &scene,
                              &matched.length);
  return matched;
}

void ExpectFit(const std::string &items, const std::string &bytes) {
  const Matched matched = Match(items, bytes + "rest");
  EXPECT_EQ(Fit::kYes, matched.fit) << items;
  EXPECT_EQ(bytes.size(), matched.length) << items;
}

void ExpectNoFit(const std::string &items, const std::string &bytes) {
  EXPECT_EQ(Fit::kNo, Match(items, bytes).fit) << items << " " << bytes;
}

std::string Shown(const std::string &items) {
  const Transcript transcript = Parse("client < " + items + "\n");
  return Pattern_Show(transcript.cases.at(0).steps.at(0).items, {});
}

TEST(Transcript, Cases_HaveTheStepsInFrontOfTheFirstInCommon) {
  const Transcript transcript = Parse(
      "# a comment\n"
      "let more \"x\"\n"
      "file page.mo \"\\x00\"\n"
      "case first\n"
      "says protocol.md: A sentence\n"
      "  over two lines.\n"
      "client > more  # behind it\n"
      "  \"y\"\n"
      "\n"
      "case second\n"
      "log has \"b\"\n");
  ASSERT_EQ(2u, transcript.cases.size());
  EXPECT_EQ("first", transcript.cases[0].name);
  EXPECT_EQ("protocol.md: A sentence over two lines.", transcript.cases[0].says);
  EXPECT_EQ(4, transcript.cases[0].line);
  ASSERT_EQ(2u, transcript.cases[0].steps.size());
  EXPECT_EQ("page.mo", transcript.cases[0].steps[0].actor);
  EXPECT_EQ("xy", Pattern_Bytes(transcript.cases[0].steps[1].items, {}));
  EXPECT_EQ(7, transcript.cases[0].steps[1].line);
  ASSERT_EQ(2u, transcript.cases[1].steps.size());
  EXPECT_EQ(Verb::kLogHas, transcript.cases[1].steps[1].verb);
}

TEST(Transcript, EveryStep_IsTakenWithItsNumbers) {
  const std::vector<Step> steps = Parse(
                                      "client > \"abc\" in pieces of 2 every 3 ms\n"
                                      "client < \"abc\" not before 5 ms before 60 ms\n"
                                      "client < end\n"
                                      "client < reset\n"
                                      "client < nothing for 7 ms\n"
                                      "daemon connects\n"
                                      "daemon closes\n"
                                      "searchmgr resets\n"
                                      "docmgr-b half-closes\n"
                                      "docmgr-b leaves\n"
                                      "searchmgr is not called\n"
                                      "wait 8 ms\n"
                                      "log has \"a\"\n"
                                      "log lacks \"a\"\n"
                                      "start \"a\" \"b\"\n"
                                      "output\n"
                                      "status 3\n"
                                      "status not 0\n"
                                      "admin > \"x\"\n")
                                      .cases.at(0)
                                      .steps;
  const Verb verbs[] = {
      Verb::kSend,      Verb::kExpect, Verb::kExpectEnd, Verb::kExpectReset, Verb::kExpectNothing,
      Verb::kConnect,   Verb::kClose,  Verb::kReset,     Verb::kHalfClose,   Verb::kLeave,
      Verb::kNotCalled, Verb::kWait,   Verb::kLogHas,    Verb::kLogLacks,    Verb::kStart,
      Verb::kOutput,    Verb::kStatus, Verb::kStatusNot, Verb::kSend};
  ASSERT_EQ(std::size(verbs), steps.size());
  for (std::size_t i = 0; i < steps.size(); ++i) EXPECT_EQ(verbs[i], steps[i].verb) << i;
  EXPECT_EQ(2, steps[0].piece);
  EXPECT_EQ(3, steps[0].every);
  EXPECT_EQ(5, steps[1].not_before);
  EXPECT_EQ(60, steps[1].before);
  EXPECT_EQ(7, steps[4].count);
  EXPECT_EQ("docmgr-b", steps[8].actor);
  EXPECT_EQ(8, steps[11].count);
  EXPECT_EQ(2u, steps[14].items.size());
  EXPECT_EQ(3, steps[16].count);
}

TEST(Transcript, Items_AreTheirBytes) {
  EXPECT_EQ(std::string("\t\n\r\"\\\0\xff", 7), BytesOf("\"\\t\\n\\r\\\"\\\\\\x00\\xFf\""));
  EXPECT_EQ("/dir/page", BytesOf("dir \"/page\""));
  EXPECT_EQ("8011", BytesOf("port searchmgr"));
  EXPECT_EQ("17", BytesOf("kept number"));
  EXPECT_EQ("1,2,3,", BytesOf("times 3 (ordinal \",\")"));
  EXPECT_EQ(
      "\x03"
      "abc",
      BytesOf("n8 \"abc\""));
  EXPECT_EQ(std::string("\x03\0\0\0"
                        "abc",
                        7),
            BytesOf("n32 (\"a\" \"bc\")"));
}

TEST(Transcript, Patterns_TakeWhatTheyCan) {
  ExpectFit("\"abc\"", "abc");
  ExpectFit("\"<\" digits \">\"", "<1234>");
  ExpectFit("text \"\\t\" line \"\\n\"", "a b\tc\td\n");
  ExpectFit("bytes 3", "a\n\t");
  ExpectFit("either \"a\" or \"b\" or (\"c\" digits \";\")", "c3;");
  ExpectFit("record HIT DOCNUM=digits SEARCHGROUP=\"g\"",
            "\t@COMMAND=HIT\t@SEARCHGROUP=g\t@OTHER=\t@DOCNUM=9\tmore\n");
  ExpectFit("header \"\\tmail\\n\"", "\t@COMMAND=QUERY\t@X=\tmail\n");
  ExpectFit("header \"\\t@OPER=OR\\n\"", "\t@COMMAND=QUERY\t@OPER=OR\n");
  ExpectNoFit("header", "\t@COMMAND=QUERY\t@mail\n");
  ExpectNoFit("\"abc\"", "abd");
  ExpectNoFit("digits", "x");
  ExpectNoFit("record HIT DOCNUM=digits", "\t@COMMAND=HIT\t@DOCNUM=9x\n");
  ExpectNoFit("record HIT DOCNUM=digits", "\t@COMMAND=HIT\tDOCNUM=9\n");
  ExpectNoFit("record HIT", "\t@COMMAND=HITS\n");
  ExpectFit("any record RAW record HIT", "\t@COMMAND=HIT\n");
  ExpectFit("any record RAW record HIT", "\t@COMMAND=RAW\ta\n\t@COMMAND=RAW\tb\n\t@COMMAND=HIT\n");
  ExpectFit("any \"\" \"x\"", "x");
  ExpectFit("header-of HIT DOCNUM=\"1\" \"\\tTitle=Elm\\t\"",
            "\t@SEQNUM=0\t@COMMAND=HIT\r@DOCNUM=1\t@X=\tTitle=Elm\t");
  ExpectNoFit("header-of HIT", "\t@COMMAND=ERROR\tTitle=Elm\t");
  ExpectNoFit("header-of HIT DOCNUM=digits", "\t@COMMAND=HIT\tDOCNUM=1\n");
  ExpectNoFit("header-of HIT", "\t@COMMAND=HIT\t@x\n");
  ExpectNoFit("either \"a\" or \"b\"", "c");
}

TEST(Transcript, Patterns_MayStandInTimes) {
  ExpectFit("times 3 (digits \",\")", "1,22,333,");
  ExpectFit("times 2 (ordinal \"=\" text \"\\n\")", "1=a\n2=b\n");
  ExpectNoFit("times 2 (ordinal \"=\" text \"\\n\")", "1=a\n1=b\n");
  EXPECT_EQ(Fit::kMore, Match("times 3 (digits \",\")", "1,22,").fit);
  EXPECT_EQ("times 3 (digits \",\")", Shown("times 3 (digits \",\")"));
}

// The daemon reads no field there, so a record does not have it.
TEST(Transcript, Records_HaveTheFieldsOfTheHeaderAlone) {
  const std::string front = "\t@COMMAND=QUERY";
  ExpectFit("record QUERY MAXHITS=\"2\"", front + "\r@MAXHITS=2\n");
  ExpectFit("record QUERY MAXHITS=\"2\"", front + "\t@MAXHITS=1\t@MAXHITS=2\n");
  for (const std::string behind : {"\t@OPER=OR", "\t@STATUS", "\tmail", "\t", "\t@", "\r"})
    ExpectNoFit("record QUERY MAXHITS=\"2\"", front + behind + "\t@MAXHITS=2\n");
  ExpectNoFit("record QUERY MAXHITS=\"2\"",
              front + "\t@X=" + std::string(1022, 'x') + "\t@MAXHITS=2\n");
  ExpectNoFit("record QUERY MAXHITS=\"2\"",
              front + "\t@" + std::string(129, 'N') + "=\t@MAXHITS=2\n");
  ExpectFit("record QUERY MAXHITS=\"2\"", front + "\t@X=" + std::string(1021, 'x') + "\t@" +
                                              std::string(128, 'N') + "=\t@MAXHITS=2\n");
  ExpectNoFit("header", front + "\t@" + std::string(129, 'N') + "=\t@MAXHITS=2\n");
  ExpectFit("header \"\\tmail\\n\"", front + "\r@X=\tmail\n");
}

TEST(Transcript, Patterns_WaitForWhatFollows) {
  for (const char *items :
       {"\"abc\"", "digits", "text", "line", "bytes 9", "record HIT", "header",
        "either \"x\" or \"12345\"", "keep n digits", "any record RAW", "header-of HIT"})
    EXPECT_EQ(Fit::kMore, Match(items, items[0] == '"'   ? "ab"
                                       : items[0] == 'h' ? "\t@A=1"
                                                         : "12")
                              .fit)
        << items;
  EXPECT_EQ(Fit::kYes, Match("digits", "12", true).fit);
  EXPECT_EQ(Fit::kNo, Match("bytes 9", "12", true).fit);
  EXPECT_EQ(Fit::kNo, Match("record HIT", "12", true).fit);
  EXPECT_EQ(Fit::kNo, Match("\"abc\"", "ab", true).fit);
}

TEST(Transcript, Keep_RemembersWhatCame) {
  const Transcript transcript =
      Parse("client < \"<\" keep number digits \">\"\nclient > kept number\n");
  const std::vector<Step> &steps = transcript.cases.at(0).steps;
  Scene scene;
  std::size_t length = 0;
  EXPECT_EQ(Fit::kYes, Pattern_Match(steps[0].items, "<42>", false, &scene, &length));
  EXPECT_EQ("42", Pattern_Bytes(steps[1].items, scene));
}

// What was tried and did not fit has not come.
TEST(Transcript, Keep_ForgetsWhatWasTried) {
  for (const char *items : {"any (keep n digits \",\")",
                            "keep n digits \",\" either (keep n digits \",\") or digits"}) {
    const Transcript transcript =
        Parse(std::string("client < ") + items + " line \"\\n\"\nclient > kept n\n");
    const std::vector<Step> &steps = transcript.cases.at(0).steps;
    Scene scene;
    std::size_t length = 0;
    EXPECT_EQ(Fit::kYes, Pattern_Match(steps[0].items, "1,2;\n", false, &scene, &length));
    EXPECT_EQ("1", Pattern_Bytes(steps[1].items, scene)) << items;
  }
}

TEST(Transcript, Show_IsWhatAPersonWrites) {
  EXPECT_EQ("\"a\\tb\" digits text line header bytes 3",
            Shown("\"a\\t\" \"b\" digits text line header bytes 3"));
  EXPECT_EQ("keep n digits either \"a\" or \"b\"", Shown("keep n digits either \"a\" or \"b\""));
  EXPECT_EQ("record HIT DOCNUM=digits", Shown("record HIT DOCNUM=digits"));
  EXPECT_EQ("any record RAW header-of HIT DOCNUM=digits",
            Shown("any record RAW header-of HIT DOCNUM=digits"));
  EXPECT_EQ("(\"a\" digits)", Shown("(\"a\" digits)"));
  EXPECT_EQ("\"" + std::string(400, 'y') + "\" and 600 bytes more", Shown("times 1000 \"y\""));
  EXPECT_EQ("\"\\\"\\\\\\x00\\x7f\\xff\"", Transcript_Quote(std::string("\"\\\0\x7f\xff", 5)));
}

struct Fault {
  const char *text;
  const char *wrong;
};

constexpr const char *kItem = "f:1: here stands a text in quotes, an item or a name of let, not ";

TEST(Transcript, Faults_NameTheLine) {
  const Fault faults[] = {
      {"", "f:1: there is no step in it"},
      {"client > \"abc\n", "f:1: a text has no second quote on its line"},
      {"\nclient > \"\\q\"\n",
       "f:2: an escape is \\t, \\n, \\r, \\\", \\\\ or \\x and two hexadecimal digits"},
      {"client > \"\\x4\"\n",
       "f:1: an escape is \\t, \\n, \\r, \\\", \\\\ or \\x and two hexadecimal digits"},
      {"server > \"x\"\n",
       "f:1: a line begins with case, says, let, file, start, wait, log, output, status or an actor: client, searchmgr, docmgr, daemon or admin, as in client-b, not 'server'"},
      {"\"x\"\n", "f:1: a line begins with a word, not 'x'"},
      {"client sings\n",
       "f:1: behind an actor stands >, <, connects, closes, resets, half-closes, leaves or is not called, not 'sings'"},
      {"client >\n", "f:1: here stands at least one item, not the end of the line"},
      {"client <\n", "f:1: here stands at least one item, not the end of the line"},
      {"client > digits\n", "f:1: what is sent or written has no patterns"},
      {"client > \"x\" in parts\n", "f:1: here stands in pieces of NUMBER, not 'parts'"},
      {"client > \"x\" in pieces of x\n", "f:1: here stands a number from 1 to 100000, not 'x'"},
      {"client > \"x\" in pieces of 1 every 2 s\n", "f:1: behind a time stands ms, not 's'"},
      {"client < nothing\n", "f:1: behind nothing stands for NUMBER ms, not the end of the line"},
      {"client < \"x\" not behind\n", "f:1: behind not stands before NUMBER ms, not 'behind'"},
      {"client < end end\n", "f:1: here ends the line, not 'end'"},
      {"client < (\"x\"\n", "f:1: a bracket has no second, not the end of the line"},
      {"client > port\n", "f:1: behind port stands an actor, not the end of the line"},
      {"client > \"x\" in pieces of 0\n", "f:1: here stands a number from 1 to 100000, not '0'"},
      {"client < keep Line digits\nclient > kept Lien\n", "f:2: nothing is kept as Lien before"},
      {"client > kept Line\nclient < keep Line digits\n", "f:1: nothing is kept as Line before"},
      {"case a\nclient < keep Line digits\ncase b\nwait 0 ms\nclient > \"x\"\n  (kept Line)\n",
       "f:5: nothing is kept as Line before"},
      {"client > ordinal\n", "f:1: ordinal stands within times alone"},
      {"let x ordinal\nclient > times 2 x\nclient > x\n", "f:3: ordinal stands within times alone"},
      {"client < either \"a\"\n",
       "f:1: behind either stand two items at least, with or between, not the end of the line"},
      {"client > n8 times 256 \"x\"\n",
       "f:1: what stands behind n8 has at most 255 bytes, not 256"},
      {"client < n8 (times 300 n8 \"x\" dir)\n",
       "f:1: what stands behind n8 has at most 255 bytes, not 600"},
      {"let x \"a\"\nlet x \"b\"\n", "f:2: there is a let x before"},
      {"case a\nstart \"a\"\nstart \"b\"\n", "f:3: a case starts one program"},
      {"start \"a\"\ncase a\nstart \"b\"\n", "f:3: a case starts one program"},
      {"case a\ncase b\nwait 0 ms\n", "f:1: the case a has no step"},
      {"wait 0 ms\ncase a\nwait 0 ms\ncase b\nsays d: x\n", "f:4: the case b has no step"},
      {"client > kept\n", "f:1: behind kept stands a name, not the end of the line"},
      {"client < n8 digits\n", "f:1: what has a length in front of it has no patterns"},
      {"client < keep\n", "f:1: behind keep stands a name, not the end of the line"},
      {"client < record \"x\"\n", "f:1: behind record stands the word of its command, not 'x'"},
      {"client < header-of \"x\"\n",
       "f:1: behind header-of stands the word of its command, not 'x'"},
      {"wait 3600001 ms\n", "f:1: here stands a number from 0 to 3600000, not '3600001'"},
      {"status 256\n", "f:1: here stands a number from 0 to 255, not '256'"},
      {"log \"x\"\n", "f:1: behind log stands has or lacks, not 'x'"},
      {"file \"x\"\n", "f:1: behind file stands a name, not 'x'"},
      {"file ../x \"x\"\n", "f:1: a file stands in the folder of its case"},
      {"file /x \"x\"\n", "f:1: a file stands in the folder of its case"},
      {"let \"x\"\n", "f:1: behind let stands a name, not 'x'"},
      {"let digits \"x\"\n", "f:1: digits is an item, and no name of let"},
      {"case \"x\"\n", "f:1: behind case stands a name, not 'x'"},
      {"case a\nwait 0 ms\ncase a\n", "f:3: there is a case a before"},
      {"says x\n", "f:1: says stands in a case"},
      {"case a\nsays x\nsays y\n", "f:3: a case says one sentence"},
  };
  for (const Fault &fault : faults) EXPECT_EQ(fault.wrong, WrongIn(fault.text));
  EXPECT_EQ(std::string(kItem) + "'who'", WrongIn("client > who\n"));
  std::string deep = "client < " + std::string(20, '(') + "\"x\"" + std::string(20, ')') + "\n";
  EXPECT_EQ("f:1: items stand too deep within each other", WrongIn(deep));
}

// A few lines that would be more bytes than any machine has.
TEST(Transcript, WhatGrowsWithoutBound_IsRefused) {
  const std::string large = "items make more than 67108864 bytes";
  EXPECT_EQ("f:1: " + large, WrongIn("client > times 100000 (times 100000 \"x\")\n"));
  EXPECT_EQ("f:1: " + large, WrongIn("let a times 100000 (times 100000 \"x\")\nwait 0 ms\n"));
  EXPECT_EQ("f:1: " + large,
            WrongIn("client < times 100000 (times 100000 (times 100000 (times 100000 digits)))\n"));
  std::string chain = "let a0 \"x\"\n", wide = "let a0 \"x\"\n";
  for (int i = 1; i < 100; ++i)
    chain += "let a" + std::to_string(i) + " (a" + std::to_string(i - 1) + ")\n";
  EXPECT_EQ("f:10: items stand too deep within each other", WrongIn(chain));
  for (int i = 1; i < 8; ++i) {
    wide += "let a" + std::to_string(i);
    for (int j = 0; j < 100; ++j) wide += " a" + std::to_string(i - 1);
    wide += "\n";
  }
  EXPECT_EQ("f:4: names of let and steps of every case are more than 1000000 items", WrongIn(wide));
  std::string cases;
  for (int i = 0; i < 1001; ++i) cases += "wait 0 ms\n";
  for (int i = 0; i < 1001; ++i) cases += "case c" + std::to_string(i) + "\nwait 0 ms\n";
  EXPECT_EQ("f:3000: names of let and steps of every case are more than 1000000 items",
            WrongIn(cases));
}

TEST(Transcript, AFileThatIsNotThere_IsNamed) {
  Transcript transcript;
  std::string wrong;
  EXPECT_EQ(EX_NOINPUT, Transcript_Read("/no/such", &transcript, &wrong));
  EXPECT_EQ("cannot read /no/such: No such file or directory", wrong);
}

}  // namespace
