// What a check finds, each finding with its words and the document that shows it.
#include "tools/macro/check.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tools/macro/asm.h"

namespace {

using namespace std::string_literals;

std::string Assembled(const std::string &source) {
  std::string code;
  AsmErrors errors;
  EXPECT_TRUE(Asm_Assemble(source, true, &code, &errors)) << source;
  return code;
}

Documents Told(const std::string &text) {
  Documents documents;
  int line = 0;
  std::string wrong;
  EXPECT_TRUE(Documents_Read(text, &documents, &line, &wrong)) << line << ": " << wrong;
  return documents;
}

// "OFFSET what: document", a line a finding.
std::string Findings(const std::string &code, const Documents &documents) {
  std::string text;
  for (const Finding &finding : Check_Macro(code, documents))
    text += std::to_string(finding.offset) + " " + finding.what + ": " +
            (finding.shown ? Check_Show(finding.witness.document) : "none") + "\n";
  return text;
}

std::string Alone(const std::string &source) {
  const std::string code = Assembled(source);
  return Findings(code, Documents_For(code));
}

constexpr const char *kFields =
    "@language english\n"
    "# what a shop sells\n"
    "Name text weight=5\n"
    "Price number\n"
    "Text text body\n";

std::string Given(const std::string &source, const std::string &more = "#: script html all\n") {
  return Findings(Assembled(source), Told(kFields + more));
}

TEST(Check, InOrder_IsRight) {
  EXPECT_EQ("", Alone("text \"x\"\nvalue \"A\"\nvalue \"B\"\nend"));
  EXPECT_EQ("", Alone("text \"x\"\nvalue \"B\"\nseek 0\nvalue \"A\"\nvalue \"B\""));
  EXPECT_EQ("", Given("text \"<p>\"\nvalue \"Name\"\nvalue \"Price\"\nvalue \"Text\"\nend"));
  EXPECT_EQ(
      "",
      Given(
          "text \"x\"\npush\nfind \"Text\"\nsave 1\npop\nvalue \"Name\"\nrestore 1\nvalue \"Text\""));
}

TEST(Check, OpCodeThatDoesNotExist_IsFound) {
  EXPECT_EQ("3 there is no op-code 20, and a run repeats it for ever: \\t\\n\n",
            Alone("text \"x\"\nbyte 20"));
}

TEST(Check, Operands_AreFound) {
  EXPECT_EQ("3 an operand runs past the end of the macro: \\t\\n\n",
            Alone("text \"x\"\nbyte 65 9"));
  EXPECT_EQ("3 there are the registers 0 to 15: \\t\\n\n", Alone("text \"x\"\nbyte 10 16"));
  const std::string name = "\x41\x01x\x02\x00\x10\0\0"s + std::string(4096, 'n');
  EXPECT_EQ("3 a name is longer than 4095 bytes: \\t\\n\n", Findings(name, Documents_For(name)));
  const std::string text = "\x01\x01\xa0\0\0"s + std::string(40961, 't');
  EXPECT_EQ("0 a text is longer than 40960 bytes, which a page takes: \\t\\n\n",
            Findings(text, Documents_For(text)));
}

TEST(Check, Stack_IsFound) {
  EXPECT_EQ("3 pops a cursor off an empty stack: \\t\\n\n", Alone("text \"x\"\npop"));
  std::string source = "text \"x\"\n";
  for (int i = 0; i < 11; ++i) source += "push\n";
  EXPECT_EQ("13 pushes an eleventh cursor, and the stack holds 10: \\t\\n\n", Alone(source));
}

TEST(Check, RegisterThatIsNotWritten_IsFound) {
  EXPECT_EQ(
      "3 reads register 2 before it is written: the first document of a page has nothing there, and a later one a place of the one before: \\t\\n\n",
      Alone("text \"x\"\nrestore 2"));
}

TEST(Check, Output_IsFoundWhereItIsFull) {
  std::string source = "text \"x\"\n";
  for (int i = 0; i < 10; ++i) source += "value \"A\"\n";
  EXPECT_EQ("", Alone(source));
  EXPECT_EQ("33 the output can reach 45046 bytes, and a page takes 40960: \\tA=x\\{4095}\\t\\n\n",
            Alone(source + "value \"A\"\n"));
  EXPECT_EQ("", Findings(Assembled(source + "value \"A\"\n"),
                         Told("#: script all\n#: field A most=3723\n")));
  EXPECT_EQ(
      "33 the output can reach 40965 bytes, and a page takes 40960: \\tA=x\\{3724}\\t\\n\n",
      Findings(Assembled(source + "value \"A\"\n"), Told("#: script all\n#: field A most=3724\n")));
}

// Of each field one or two more may be there, and each that is takes room for its name as well.
TEST(Check, Output_OfFieldsThatMayBeMissing_HasRoomForTheirNames) {
  std::string fields = "#: script all\n", source = "text \"12345678901\"\n";
  for (const std::string name : {"A", "B", "C", "D", "E"}) {
    fields += "#: field " + name + " times=1-3\n";
    source += "value-skip 1 \"" + name + "\"\nvalue-skip 1 \"" + name + "\"\n";
  }
  const std::string code = Assembled(source);
  for (const Finding &finding : Check_Macro(code, Told(fields)))
    EXPECT_FALSE(Check_IsFault(finding)) << finding.offset << finding.what;
  const std::string more(82, 'x');
  EXPECT_NE(std::string::npos,
            Findings(code + "\x41" + "\x52" + more, Told(fields)).find("the output can reach"));
}

TEST(Check, NothingWritten_IsFound) {
  EXPECT_EQ(
      "3 nothing may be written for a document, which ends the page there without a line; begin with a text: \\tA=\\t\\n\n",
      Alone("value \"A\"\nend"));
}

TEST(Check, Fetch_OfWhatMayBeMissing) {
  const std::string slots =
      "3 each document of a page takes one of the 20 places for macros, and from the twentieth on that is logged: ";
  EXPECT_EQ(
      "3 a document may lack 'A', and then the name of the macro is run as code: \\tOther=x\\t\\n\n",
      Alone("text \"x\"\nfetch \"A\" \"/m\"\nvalue \"Other\"").substr(0, 88));
  EXPECT_EQ(slots + "\\tA=Group Type 1\\t\\n\n",
            Findings(Assembled("text \"x\"\nfetch \"A\" \"/m\""),
                     Told("#: script all\n#: field A document=500\n")));
  EXPECT_EQ(
      "3 a value of 'A' may have fewer than the three words of a document's name, which ends the page with an error line: \\tA=x\\t\\n\n",
      Findings(Assembled("text \"x\"\nfetch \"A\" \"/m\""), Told("#: script all\n#: field A\n")));
}

TEST(Check, FetchThatIsCut_RunsItsMacroAsCode) {
  for (const std::string name : {"", "A"}) {
    const std::string code = "\x41\x01x\x0d"s + static_cast<char>(name.size()) + name + "\x1axy";
    const std::string found = Findings(code, Told("#: script html\n"));
    EXPECT_NE(std::string::npos,
              found.find("3 a document may lack '" + name +
                         "', and then the name of the macro is run as code: \\t\\n\n"))
        << found;
    EXPECT_EQ(std::string::npos, found.find("an operand runs past")) << found;
  }
}

TEST(Check, Insert_HasRoom) {
  const std::string line = "3 an insert leaves a line in the log for each document: ";
  EXPECT_EQ(line + "\\tA=Group Type 1\\t\\n\n",
            Findings(Assembled("text \"x\"\ninsert \"A\""),
                     Told("#: script all\n#: field A document=30000\n")));
  EXPECT_EQ(
      line + "\\tA=Group Type 1\\t\\n\n" +
          "3 a document with what is inserted can reach 42100 bytes, and is cut at 39000: \\tA=Group Type 1 \\{4083}\\t\\n\n",
      Findings(Assembled("text \"x\"\ninsert \"A\""),
               Told("#: script all\n#: field A document=38000\n")));
}

TEST(Check, BehindAnInsert_OtherFindingsHaveTheirDocuments) {
  const std::string fields = "#: script all\n#: field A\n#: field B\n";
  const std::string inserts = "text \"x\"\ninsert \"A\"\n";
  const std::string pops = Findings(Assembled(inserts + "value \"B\"\npop\n"), Told(fields));
  EXPECT_NE(std::string::npos,
            pops.find("9 pops a cursor off an empty stack: \\tA=Group Type 1\\tB=x\\t\\n\n"))
      << pops;
  const std::string again = Findings(Assembled(inserts + "insert \"B\"\n"), Told(fields));
  EXPECT_NE(
      std::string::npos,
      again.find(
          "6 a value of 'B' may have fewer than the three words of a document's name, which ends the page with an error line: \\tA=Group Type 1\\tB=x\\t\\n\n"))
      << again;
}

TEST(Check, FieldThatNamedADocument_NamesOne) {
  const std::string fetch = "fetch \"A\" \"/m\"\n";
  const Documents documents = Told("#: script all\n#: field A times=0-1\n");
  const std::string found = Findings(Assembled("text \"x\"\n" + fetch + fetch), documents);
  for (const char *words : {"run as code", "three words"}) {
    EXPECT_NE(std::string::npos, found.find(words)) << found;
    EXPECT_EQ(found.find(words), found.rfind(words)) << found;
  }
}

TEST(Check, Insert_DoesNotLengthenWhatIsWritten) {
  EXPECT_EQ(
      "3 an insert leaves a line in the log for each document: \\tA=Group Type 1\\tB=x\\t\\n\n",
      Findings(Assembled("document\ndocument\ndocument\ninsert \"A\"\n"),
               Told("#: script all\n#: field A most=3000 document=9000\n#: field B most=3000\n")));
}

TEST(Check, FieldThatEveryDocumentHas_IsFoundBehindAnInsert) {
  const std::string code = Assembled("text \"x\"\ninsert \"B\"\nfetch \"A\" \"/m\"\n");
  EXPECT_EQ(std::string::npos,
            Findings(code, Told("#: script all\n#: field A document=50\n#: field B document=50\n"))
                .find("run as code"));
}

TEST(Check, NothingIsLookedFor_WhereNoRunComes) {
  EXPECT_EQ("40965 the output can reach 40961 bytes, and a page takes 40960: \\t\\n\n",
            Alone("text32 \"" + std::string(40960, 'x') + "\"\ntext \"y\"\npop\n"));
  EXPECT_EQ(std::string::npos, Findings(Assembled("text \"x\"\nfetch \"B\" \"/m\"\npop\n"),
                                        Told("#: script all\n#: field A\n"))
                                   .find("pops"));
}

TEST(Check, ShortValue_NamesADocumentToo) {
  EXPECT_EQ("3 an insert leaves a line in the log for each document: \\tA=G T 1\\t\\n\n",
            Findings(Assembled("text \"x\"\ninsert \"A\""),
                     Told("#: script all\n#: field A most=8 document=500\n")));
}

TEST(Check, LookUps_CostWhatTheyLog) {
  EXPECT_EQ(
      "3 no document has 'Nmae', and each time that is logged: \\tName=x\\tPrice=x\\tText=x\\t\\n\n",
      Given("text \"x\"\nvalue \"Nmae\""));
  EXPECT_EQ("3 a document may lack 'Text', and each time that is logged: \\t\\n\n",
            Given("text \"x\"\nvalue \"Text\"", "#: script html\n"));
  EXPECT_EQ(
      "9 looks for 'Name' where the cursor may stand behind it, and each time that is logged and the document read again: \\tName=x\\tPrice=x\\tText=x\\t\\n\n",
      Given("text \"x\"\nfind \"Text\"\nvalue \"Name\""));
  EXPECT_EQ(
      "3 there may be fewer than 3 of 'Name' from there on, and each time that is logged: \\tName=x\\tPrice=x\\tText=x\\t\\n\n",
      Given("text \"x\"\nvalue-skip 2 \"Name\""));
  const std::string code = "\x41\x01x\x02\xff\x03\0\0"s + std::string(1023, 'n');
  EXPECT_EQ(
      "3 a name of more than 1022 bytes is never found, and each time that is logged: \\t\\n\n",
      Findings(code, Told("#: script html\n")));
}

TEST(Check, FieldThatComesSeveralTimes) {
  const std::string told = "#: script html all\n#: field Name times=2-3\n";
  EXPECT_EQ("", Given("text \"x\"\nvalue \"Name\"\nvalue-skip 1 \"Name\"", told));
  EXPECT_EQ(
      "10 there may be fewer than 2 of 'Name' from there on, and each time that is logged: \\tName=\\tName=\\tPrice=\\tText=\\t\\n\n",
      Given("text \"x\"\nvalue-skip 1 \"Name\"\nvalue-skip 1 \"Name\"", told));
}

// Whatever stands in a value in front of "=" belongs to the pattern of such a name.
TEST(Check, NameWithAnEqualsSign_FindsAValueThatBeginsSo) {
  const Documents documents = Told("#: script all\n#: field A\n#: field B\n");
  const std::string lacks =
      "3 a document may lack 'A=b', and each time that is logged: \\tA=x\\tB=x\\t\\n\n";
  EXPECT_EQ(lacks, Findings(Assembled("text \"x\"\nvalue \"A=b\""), documents));
  EXPECT_EQ(
      lacks + "3 an insert leaves a line in the log for each document: \\tA=b=\\tB=x\\t\\n\n" +
          "3 a value of 'A=b' may have fewer than the three words of a document's name, which ends the page with an error line: \\tA=b=\\tB=x\\t\\n\n",
      Findings(Assembled("text \"x\"\ninsert \"A=b\""), documents).substr(0, lacks.size() + 205));
  std::string source = "text \"x\"\n";
  for (int i = 0; i < 11; ++i) source += "value \"A=b\"\n";
  const std::string found = Findings(Assembled(source), documents);
  EXPECT_NE(
      std::string::npos,
      found.find("the output can reach 45046 bytes, and a page takes 40960: \\tA=b=x\\{4093}"))
      << found;
  const std::string html = Findings(Assembled("text \"<p>\"\nvalue \"A=b\""), documents);
  EXPECT_NE(std::string::npos, html.find("@SCRIPT=html: \\tA=b=<b>&")) << html;
  EXPECT_NE(
      std::string::npos,
      Findings(Assembled("text \"x\"\nvalue \"Z=b\""), documents).find("no document has 'Z=b'"));
}

TEST(Check, NameOverSeveralFields_IsFound) {
  const std::string found = Findings(Assembled("text \"x\"\ninsert \"A=b\\tB\""),
                                     Told("#: script all\n#: field A\n#: field B\n"));
  EXPECT_NE(std::string::npos,
            found.find("an insert leaves a line in the log for each document: \\tA=b\\tB="))
      << found;
}

TEST(Check, LongValue_IsCut) {
  EXPECT_EQ(
      "3 a value can have 5000 bytes; more than 4095 are cut at 4096, and that is logged: \\tA=x\\{5000}\\t\\n\n",
      Findings(Assembled("text \"x\"\nvalue \"A\""),
               Told("#: script all\n#: field A most=5000\n")));
}

TEST(Check, Html_WantsValuesThatAreHtml) {
  const std::string found =
      "5 what a document holds stands on a page of HTML as it is; ask for documents with @SCRIPT=html: ";
  EXPECT_EQ(found + "\\tName=<b>&\\tPrice=<b>&\\tText=<b>&\\t\\n\n",
            Given("text \"<p>\"\nvalue \"Name\"", "#: script all\n"));
  EXPECT_EQ(found + "\\tA=<b>&\\t\\n\n", Alone("text \"<p>\"\nvalue \"A\""));
  EXPECT_EQ("Other.fields", Documents_For(Assembled("document")).places.back().name);
  EXPECT_EQ(found + "\\tOther.fields=<b>&\\t\\n\n", Alone("text \"<p>\"\ndocument"));
  EXPECT_EQ("", Given("text \"1 < 2\"\nvalue \"Name\"", "#: script all\n"));
}

TEST(Check, Html_OverSeveralTexts_IsHtml) {
  const std::string found =
      " what a document holds stands on a page of HTML as it is; ask for documents with @SCRIPT=html: \\tA=<b>&\\t\\n\n";
  EXPECT_EQ("7" + found, Alone("text \"<\"\ntext \"p>\"\nvalue \"A\""));
  EXPECT_EQ("12" + found, Alone("text \"<\"\nseek 0\ntext \"p>\"\nvalue \"A\""));
  EXPECT_EQ("3" + found, Alone("text \"<\"\nvalue \"A\"\ntext \"<\"\ntext \"/p>\""));
  EXPECT_EQ("", Alone("text \"1 <\"\nvalue \"A\"\ntext \"p>\""));
  EXPECT_EQ(
      "7" + found + "10 there is no op-code 20, and a run repeats it for ever: \\tA=x\\t\\n\n",
      Alone("text \"<\"\ntext \"p>\"\nvalue \"A\"\nbyte 20"));
}

TEST(Check, Script_AddsItsFields) {
  const std::string source =
      "text \"x\"\nvalue \"Name\"\nvalue \"Snippet\"\nvalue \"SearchGroup\"\nvalue \"RecType\"\nvalue \"DocNum\"";
  EXPECT_EQ("", Given(source, "#: script html place all snippet\n"));
  EXPECT_NE("", Given(source, "#: script html all\n"));
}

TEST(Check, WithoutAScript_ADocumentMayLackItsFields) {
  const std::string found = "3 a document may lack 'Name', and each time that is logged: \\t\\n\n";
  for (const char *script : {"", "#: script\n"})
    EXPECT_EQ(found, Given("text \"x\"\nvalue \"Name\"", script)) << script;
  EXPECT_EQ("", Given("text \"x\"\nvalue \"Snippet\"", "#: script snippet\n"));
}

TEST(Check, Fields_ThatComeTooOften) {
  std::string text;
  for (int i = 0; i < 5; ++i) text += "#: field F" + std::to_string(i) + " times=0-200\n";
  EXPECT_EQ(1000U, Told(text).places.size());
  Documents documents;
  int line = 0;
  std::string wrong;
  EXPECT_FALSE(Documents_Read(text + "\nOne text\n", &documents, &line, &wrong));
  EXPECT_EQ(7, line);
  EXPECT_EQ("expected fields that come 1000 times in all at most, found 1001", wrong);
}

TEST(Check, Fields_ThatAreWrong) {
  const struct {
    const char *text;
    int line;
    const char *wrong;
  } kCases[] = {
      {"A text\nB\n", 2, "expected a line of a schema, NAME KIND"},
      {"#: fields A\n", 1, "expected '#: script WORD...' or '#: field NAME ...'"},
      {"#: field\n", 1, "expected '#: script WORD...' or '#: field NAME ...'"},
      {"\n#: field A most=x\n", 2,
       "expected most=BYTES, times=LEAST-MOST or document=BYTES, found 'most=x'"},
      {"#: field A=b most=9\n", 1, "expected the name of a field, without '=', found 'A=b'"},
      {"A text\nA=b text\n", 2, "expected the name of a field, without '=', found 'A=b'"},
      {"#: field A most=4 document=9\n", 1,
       "expected most=5 or more of a field that names a document, in three words"},
      {"#: field A times=2-1\n", 1,
       "expected most=BYTES, times=LEAST-MOST or document=BYTES, found 'times=2-1'"},
  };
  for (const auto &[text, line, wrong] : kCases) {
    Documents documents;
    int found = 0;
    std::string said;
    EXPECT_FALSE(Documents_Read(text, &documents, &found, &said)) << text;
    EXPECT_EQ(line, found) << text;
    EXPECT_EQ(wrong, said) << text;
  }
}

TEST(Check, DocumentsAreShown_AndReadAgain) {
  std::string all = "\t\n\\ab\x01\xff\x7f" + std::string(17, 'y') + std::string(3000, '\0');
  EXPECT_EQ("\\t\\n\\\\ab\\x01\\xff\\x7fy\\{17}\\x00\\{3000}", Check_Show(all));
  std::string again;
  EXPECT_TRUE(Check_Unshow(Check_Show(all), &again));
  EXPECT_EQ(all, again);
  for (const char *wrong : {"\\", "\\q", "\\x1", "\\{3}", "a\\{0}", "a\\{", "a\\{9999999}"})
    EXPECT_FALSE(Check_Unshow(wrong, &again)) << wrong;
}

}  // namespace
