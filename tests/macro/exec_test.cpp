#include "macro/exec.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "debug/log.h"
#include "macro/cursor.h"
#include "macro/table.h"
#include "tests/macro/file_seams.h"
#include "tests/macro/macro_case.h"
#include "tests/support/log_capture.h"
#include "tests/support/loopback.h"

namespace {

// ---- instructions

std::string Byte(unsigned value) { return std::string(1, static_cast<char>(value)); }

std::string LE32(std::uint32_t value) {
  return Byte(value & 0xff) + Byte(value >> 8 & 0xff) + Byte(value >> 16 & 0xff) +
         Byte(value >> 24);
}

std::string N8(const std::string &text) { return Byte(static_cast<unsigned>(text.size())) + text; }
std::string N32(const std::string &text) {
  return LE32(static_cast<std::uint32_t>(text.size())) + text;
}

const std::string kEnd = Byte(0), kDocument = Byte(7), kPush = Byte(8), kPop = Byte(9);

std::string Text32(const std::string &text) { return Byte(1) + N32(text); }
std::string Value32(const std::string &name) { return Byte(2) + N32(name); }
std::string Seek(std::uint32_t offset) { return Byte(3) + LE32(offset); }
std::string Save(unsigned number) { return Byte(10) + Byte(number); }
std::string Restore(unsigned number) { return Byte(11) + Byte(number); }
std::string Find(const std::string &name) { return Byte(12) + N8(name); }
std::string Fetch(const std::string &name, const std::string &macro) {
  return Byte(13) + N8(name) + N8(macro);
}
std::string Insert(const std::string &name) { return Byte(14) + N8(name); }
std::string InsertSkip(unsigned skip, const std::string &name) {
  return Byte(15) + Byte(skip) + N8(name);
}
std::string Text8(const std::string &text) { return Byte(65) + N8(text); }
std::string Value8(const std::string &name) { return Byte(66) + N8(name); }
std::string ValueSkip(unsigned skip, const std::string &name) {
  return Byte(67) + Byte(skip) + N8(name);
}
std::string Number(const std::string &name) { return Byte(68) + N8(name); }

// ---- a run

constexpr int kBufferSize = 40960;
constexpr int kOutputSize = 40960;

// A document in a buffer like that of a received record.
struct Document {
  explicit Document(const std::string &text) { text.copy(bytes, kBufferSize); }
  std::string Text() const { return bytes; }
  int Room() const { return kBufferSize - static_cast<int>(std::strlen(bytes)); }

  char bytes[kBufferSize + 1] = {};
};

struct Page {
  Page(const std::string &code, Document *document, int capacity = kOutputSize, int room = -1)
      : Page(Macro_Open(WriteMacro("page", code).c_str()), document, capacity, room) {}

  Page(const std::string &code, const std::string &text)
      : Page(code, std::make_unique<Document>(text).get()) {}

  Page(int handle, Document *document, int capacity = kOutputSize, int room = -1)
      : output(static_cast<std::size_t>(capacity) + 16, '#'), length(capacity) {
    log = Capture(102, [&] {
            result = Macro_Exec(handle, document->bytes, output.data(), &length,
                                room < 0 ? document->Room() : room);
          }).log;
    EXPECT_EQ(output.substr(static_cast<std::size_t>(capacity)), std::string(16, '#'))
        << "written behind the output";
    if (result == 1) output.resize(static_cast<std::size_t>(length));
  }

  std::string output;  // what was produced; after a failure the whole buffer
  int length;
  int result = 0;
  std::string log;  // at 102
};

constexpr char kDone[] = "[Macro: Exec] done\n";

std::string Missing(const std::string &name) {
  return "[Macro: FindField] Wraparound looking for '" + name + "' (\t" + name +
         "=)\n[Macro: FindField] Unable to find field = '" + name + "' (\t" + name + "=)\n";
}

std::string Wrapped(const std::string &name) {
  return "[Macro: FindField] Wraparound looking for '" + name + "' (\t" + name + "=)\n";
}

std::string Inserting(const std::string &value) {
  return "[Macro: Exec] FOLE_INSERT " + value + "\n";
}

void ExpectOutput(const Page &run, const std::string &output, const std::string &log = "") {
  EXPECT_EQ(run.result, 1);
  EXPECT_EQ(run.output, output);
  EXPECT_EQ(run.log, log + kDone);
}

void ExpectFailure(const Page &run, int capacity, const std::string &log) {
  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(run.length, capacity);
  EXPECT_EQ(run.log, log);
}

std::string Malformed(int op, std::size_t offset, const std::string &reason) {
  return "[Macro: Exec] op-code " + std::to_string(op) + " at offset " + std::to_string(offset) +
         ": " + reason + "\n";
}

// ---- a document source

struct Fetched {
  int calls;
  int macro;
  CmdHdr hdr;  // of the last call
  const char *out;
  int capacity;
  int format;
  bool cleared;  // the whole capacity was zero
};

Fetched fetched;
std::string answer;          // the document, or what fits of it
int fetch_result = 1;        // 0: the document is not found
std::string fetch_commands;  // COMMAND and DOCNUM of every call

int AnswerFetch(int macro, CmdHdr *hdr, char *out, int *len, int format) {
  fetched = {fetched.calls + 1, macro, *hdr, out, *len, format, false};
  const int room = std::max(*len, 0);
  fetched.cleared = std::all_of(out, out + room, [](char byte) { return byte == '\0'; });
  fetch_commands += std::string(hdr->Command) + std::to_string(hdr->DocNum) + " ";
  std::memset(hdr, 1, sizeof *hdr);  // the header is its own, to use up
  if (fetch_result != 1) return 0;
  const std::size_t count = answer.copy(out, static_cast<std::size_t>(room));
  out[count] = '\0';
  *len = static_cast<int>(count);
  return 1;
}

void AnswerWith(const std::string &text) {
  Macro_SetFetch(AnswerFetch);
  answer = text;
}

void RefuseFetches() {
  Macro_SetFetch(AnswerFetch);
  fetch_result = 0;
}

// ---- start and end

MACRO_CASE(Exec, TextAndEnd_GivesItsBytes) {
  ExpectOutput(Page(Text8("Hello") + kEnd, ""), "Hello");
}

MACRO_CASE(Exec, End_IsLoggedAt102) {
  const int handle = Macro_Open(WriteMacro("page", kEnd).c_str());
  char document[] = "", output[1];
  int length = 1;
  EXPECT_EQ(MessagesAt(102, [&] { Macro_Exec(handle, document, output, &length); }), kDone);
  EXPECT_EQ(length, 0);
}

MACRO_CASE(Exec, EndOfTheFile_StopsLikeAnEnd) {
  ExpectOutput(Page(Text8("Hello"), ""), "Hello");
  ExpectOutput(Page("", "\ta=1"), "");
}

MACRO_CASE(Exec, CodeBehindTheEnd_IsNotRun) {
  ExpectOutput(Page(Text8("a") + kEnd + Text8("b"), ""), "a");
}

MACRO_CASE(Exec, Instructions_RunOneAfterTheOther) {
  ExpectOutput(
      Page(Text8("<") + Value8("b") + Text32("|") + Value32("c") + Text8(">"), "\ta=1\tb=2\tc=3\t"),
      "<2|3>");
}

MACRO_CASE(Exec, NewRun_StartsWithAnEmptyOutputAndStack) {
  Document document("\ta=1\t");
  const int page = Macro_Open(WriteMacro("page", kPush + Text8("x")).c_str());
  for (int i = 0; i < 12; ++i) ExpectOutput(Page(page, &document), "x");
}

MACRO_CASE(Exec, NewRun_StartsAtTheStartOfItsDocument) {
  const int page = Macro_Open(WriteMacro("page", Value8("a") + Find("b")).c_str());
  Document first("\ta=1\tb=2\t"), second("\ta=3\tb=4\ta=5\t");
  ExpectOutput(Page(page, &first), "1");
  ExpectOutput(Page(page, &second), "3");
  ExpectOutput(Page(page, &second), "3");
}

MACRO_CASE(Exec, Document_IsLeftAsItWas) {
  Document document("\ta=1\tb=2\n");
  Page(kDocument + Value8("a") + Find("b"), &document);
  EXPECT_EQ(document.Text(), "\ta=1\tb=2\n");
}

MACRO_CASE(Exec, HandleThatIsNotOpen_EndsTheRun) {
  Document document("\ta=1\t");
  for (const int handle : {-1, 0, 20, 1000})
    ExpectFailure(Page(handle, &document), kOutputSize, Malformed(0, 0, "macro is not open"));
}

// ---- ops 1 and 65

MACRO_CASE(Text, Bytes_MayBeAny) {
  std::string bytes;
  for (unsigned i = 0; i < 255; ++i) bytes += Byte(i);
  ExpectOutput(Page(Text8(bytes), ""), bytes);
  ExpectOutput(Page(Text32(bytes + bytes), ""), bytes + bytes);
}

MACRO_CASE(Text, Lengths_AreUnsignedAndMayBe0) {
  ExpectOutput(Page(Text8("") + Text32("") + Text8(std::string(255, 'x')), ""),
               std::string(255, 'x'));
  ExpectOutput(Page(Text32(std::string(33000, 'y')), ""), std::string(33000, 'y'));
}

// ---- ops 2, 66, 67

MACRO_CASE(Value, Field_IsItsValue) {
  ExpectOutput(Page(Value8("b"), "\ta=1\tb=two\tc=3\t"), "two");
  ExpectOutput(Page(Value32("b"), "\ta=1\tb=two\tc=3\t"), "two");
  ExpectOutput(Page(ValueSkip(0, "b"), "\ta=1\tb=two\tc=3\t"), "two");
}

MACRO_CASE(Value, MissingField_IsNothingAndTheRunGoesOn) {
  for (const std::string &look_up : {Value8("x"), Value32("x"), ValueSkip(0, "x")})
    ExpectOutput(Page(Text8("<") + look_up + Text8(">"), "\ta=1\t"), "<>", Missing("x"));
}

MACRO_CASE(Value, LookUp_MovesTheCursor) {
  const std::string document = "\ta=1\tb=2\ta=3\t";
  for (const std::string &look_up : {Value8("b"), Value32("b"), ValueSkip(0, "b")})
    ExpectOutput(Page(look_up + Value8("a"), document), "23");
}

MACRO_CASE(Value, FieldBeforeTheCursor_WrapsAround) {
  ExpectOutput(Page(Value8("b") + Value8("a"), "\ta=1\tb=2\t"), "21", Wrapped("a"));
}

MACRO_CASE(Value, SameFieldAgain_IsTheSameValue) {
  ExpectOutput(Page(Value8("a") + Value8("a"), "\ta=1\ta=2\t"), "11");
}

MACRO_CASE(Value, Skip_TakesALaterMatch) {
  ExpectOutput(Page(ValueSkip(1, "a") + ValueSkip(1, "a"), "\ta=1\ta=2\ta=3\t"), "23");
}

MACRO_CASE(Value, SkipOverTheLast_IsNothing) {
  ExpectOutput(Page(ValueSkip(2, "a") + Value8("a"), "\ta=1\ta=2\t"), "1",
               "[Macro: FindField] Unable to find field = 'a' (\ta=)\n");
}

MACRO_CASE(Value, SkipOf200_IsUnsigned) {
  std::string document;
  for (int i = 0; i <= 255; ++i) document += "\ta=" + std::to_string(i);
  ExpectOutput(Page(ValueSkip(200, "a"), document), "200");
  ExpectOutput(Page(ValueSkip(255, "a"), document), "255");
}

MACRO_CASE(Value, LastField_EndsWithTheTextAndItsNewline) {
  ExpectOutput(Page(Value8("b"), "\ta=1\tb=2\n"), "2\n");
}

MACRO_CASE(Value, Of4095Characters_IsWhole) {
  const std::string value(4095, 'v');
  ExpectOutput(Page(Value8("a"), "\ta=" + value + "\t"), value);
}

MACRO_CASE(Value, Of4096CharactersOrMore_IsCutTo4096) {
  const std::string value(4096, 'v');
  for (const char *more : {"", "w", "wxyz"})
    ExpectOutput(Page(Value8("a") + Text8("|"), "\ta=" + value + more + "\tb=2\t"), value + "|",
                 "[Macro: GetTerms] Buffer too small (size = 4096)\n");
}

MACRO_CASE(Value, NameOf4095Characters_IsLookedUp) {
  const std::string name(4095, 'n');
  const Page run(Value32(name) + Text8("|"), "\ta=1\t");
  EXPECT_EQ(run.result, 1);
  EXPECT_EQ(run.output, "|");
}

MACRO_CASE(Value, LongerName_EndsTheRun) {
  ExpectFailure(Page(Text8("ab") + Value32(std::string(4096, 'n')), "\ta=1\t"), kOutputSize,
                Malformed(2, 4, "name is longer than 4095"));
}

MACRO_CASE(Value, EmptyName_IsTheFieldWithoutOne) {
  ExpectOutput(Page(Value8(""), "\ta=1\t=2\t"), "2");
}

// ---- op 68

MACRO_CASE(Number, Value_IsFourBytesLittleEndian) {
  const struct {
    const char *value;
    std::uint32_t number;
  } rows[] = {{"0", 0},
              {"17", 17},
              {"305419896", 0x12345678},
              {"-1", 0xffffffff},
              {"-2147483648", 0x80000000},
              {"2147483647", 0x7fffffff},
              {"4294967297", 0x7fffffff},
              {"-4294967297", 0x80000000},
              {"12x34", 12},
              {"x", 0},
              {"", 0},
              {" +5", 5},
              {"0x10", 0},
              {"010", 10}};
  const int page = Macro_Open(WriteMacro("page", Number("n")).c_str());
  for (const auto &row : rows) {
    Document document(std::string("\tn=") + row.value + "\t");
    ExpectOutput(Page(page, &document), LE32(row.number));
  }
}

MACRO_CASE(Number, MissingField_IsNothing) {
  ExpectOutput(Page(Text8("<") + Number("n") + Text8(">"), "\ta=1\t"), "<>", Missing("n"));
}

MACRO_CASE(Number, LookUp_MovesTheCursor) {
  ExpectOutput(Page(Number("n") + Value8("a"), "\ta=1\tn=2\ta=3\t"), LE32(2) + "3");
}

MACRO_CASE(Number, ValueTooLong_IsReadFromItsFirst4096Characters) {
  ExpectOutput(Page(Number("n"), "\tn=7" + std::string(5000, ' ') + "\t"), LE32(7),
               "[Macro: GetTerms] Buffer too small (size = 4096)\n");
}

// ---- op 3

MACRO_CASE(Seek, OffsetInside_MovesTheCursor) {
  ExpectOutput(Page(Seek(4) + Value8("a"), "\ta=1\ta=2\t"), "2");
  ExpectOutput(Page(Seek(4) + Seek(0) + Value8("a"), "\ta=1\ta=2\t"), "1");
}

MACRO_CASE(Seek, OffsetOfTheLengthOrMore_IsIgnored) {
  for (const std::uint32_t offset : {8u, 9u, 0x7fffffffu, 0x80000000u, 0xffffffffu})
    ExpectOutput(Page(Seek(3) + Seek(offset) + Value8("a"), "\ta=1\ta=2"), "2");
}

MACRO_CASE(Seek, Offset_HasFourBytes) {
  const std::string document = "\ta=" + std::string(70000 - 3 - 4, 'x') + "\ta=2";
  std::vector<char> bytes(document.begin(), document.end());
  bytes.push_back('\0');
  const int handle = Macro_Open(WriteMacro("page", Seek(69996) + Value8("a")).c_str());
  char output[10];
  int length = 10;
  EXPECT_EQ(Macro_Exec(handle, bytes.data(), output, &length), 1);
  EXPECT_EQ(std::string(output, static_cast<std::size_t>(length)), "2");
}

// ---- op 7

MACRO_CASE(WholeDocument, Tabs_AreLineEnds) {
  ExpectOutput(Page(kDocument, "\ta=1\tb=2"), "\na=1\nb=2");
}

MACRO_CASE(WholeDocument, OutputBefore_KeepsItsTabs) {
  ExpectOutput(Page(Text8("\t") + kDocument + Text8("\t"), "\ta=1"), "\t\na=1\t");
}

MACRO_CASE(WholeDocument, Cursor_StaysWhereItIs) {
  ExpectOutput(Page(Find("b") + kDocument + Value8("a"), "\ta=1\tb=2\ta=3"), "\na=1\nb=2\na=33");
}

MACRO_CASE(WholeDocument, EmptyDocument_IsNothing) { ExpectOutput(Page(kDocument, ""), ""); }

// ---- ops 8 to 12

MACRO_CASE(Find, Field_MovesTheCursor) {
  ExpectOutput(Page(Find("b") + Value8("a"), "\ta=1\tb=2\ta=3\t"), "3");
}

MACRO_CASE(Find, MissingField_LeavesTheCursor) {
  ExpectOutput(Page(Find("b") + Find("x") + Value8("a"), "\ta=1\tb=2\ta=3\t"), "3", Missing("x"));
}

MACRO_CASE(Stack, PushFindPop_IsBackWhereItWas) {
  ExpectOutput(Page(kPush + Find("b") + kPop + Value8("a"), "\ta=1\tb=2\ta=3\t"), "1");
  EXPECT_EQ(Macro_Cursor(), 0);
}

MACRO_CASE(Stack, LastIn_IsFirstOut) {
  const std::string at4 = Seek(4), at8 = Seek(8), value = Value8("a");
  ExpectOutput(
      Page(at4 + kPush + at8 + kPush + Seek(0) + kPop + value + kPop + value, "\ta=1\ta=2\ta=3\t"),
      "32");
}

MACRO_CASE(Stack, TenCursors_FitAndComeBack) {
  std::string code, document, expected;
  for (unsigned i = 0; i < 10; ++i) {
    code += Seek(4 * i) + kPush;
    document += "\ta=" + std::to_string(i);
    expected.insert(0, std::to_string(i));
  }
  for (int i = 0; i < 10; ++i) code += kPop + Value8("a");
  ExpectOutput(Page(code, document), expected);
}

MACRO_CASE(Stack, TheEleventhPush_EndsTheRun) {
  std::string code;
  for (int i = 0; i < 11; ++i) code += kPush;
  ExpectFailure(Page(code, "\ta=1"), kOutputSize, Malformed(8, 10, "stack of 10 is full"));
}

MACRO_CASE(Stack, PopOfNone_EndsTheRun) {
  ExpectFailure(Page(Text8("abc") + kPop, "\ta=1"), kOutputSize, Malformed(9, 5, "stack is empty"));
  ExpectFailure(Page(kPush + kPop + kPop, "\ta=1"), kOutputSize, Malformed(9, 2, "stack is empty"));
}

MACRO_CASE(Registers, Each_KeepsItsCursor) {
  std::string code, document, expected;
  for (unsigned i = 0; i < 16; ++i) {
    code += Seek(4 * i) + Save(i);
    document += "\ta=" + std::string(1, static_cast<char>('A' + i));
    expected += static_cast<char>('A' + i);
  }
  for (unsigned i = 0; i < 16; ++i) code += Restore(i) + Value8("a");
  ExpectOutput(Page(code, document), expected);
}

MACRO_CASE(Registers, NextRun_FindsThemAsTheyWere) {
  Document document("\ta=1\ta=2\t");
  ExpectOutput(Page(Seek(4) + Save(3), &document), "");
  ExpectOutput(Page(Restore(3) + Value8("a"), &document), "2");
}

MACRO_CASE(Registers, CursorBehindAShorterDocument_StaysInside) {
  Document longer("\ta=1\ta=2\ta=3\t"), shorter("\ta=1");
  ExpectOutput(Page(Seek(12) + Save(0), &longer), "");
  ExpectOutput(Page(Restore(0) + Value8("a"), &shorter), "1", Wrapped("a"));
}

MACRO_CASE(Registers, NumberAbove15_EndsTheRun) {
  for (const unsigned number : {16u, 128u, 255u}) {
    ExpectFailure(Page(kPush + Save(number), "\ta=1"), kOutputSize,
                  Malformed(10, 1, "there are 16 registers"));
    ExpectFailure(Page(kPush + Restore(number), "\ta=1"), kOutputSize,
                  Malformed(11, 1, "there are 16 registers"));
  }
}

// ---- op 13

MACRO_CASE(Fetch, Value_NamesADocumentThatGoesToTheOutput) {
  AnswerWith("\tt=raw\n");
  ExpectOutput(
      Page(Text8("<") + Fetch("f", WriteMacro("sub", "")) + Text8(">"), "\tf=SG1, T, 17\t"),
      "<\tt=raw\n>");
  EXPECT_EQ(fetched.calls, 1);
  EXPECT_STREQ(fetched.hdr.Command, "GETDOC");
  EXPECT_STREQ(fetched.hdr.SearchGroup, "SG1");
  EXPECT_STREQ(fetched.hdr.RecType, "T");
  EXPECT_EQ(fetched.hdr.DocNum, 17);
}

MACRO_CASE(Fetch, OtherFieldsOfTheHeader_AreCleared) {
  AnswerWith("");
  const std::string sub = WriteMacro("sub", "");
  Page(Fetch("f", sub) + Fetch("f", sub), "\tf=SG1, T, 17\t");
  EXPECT_EQ(fetched.calls, 2);
  const CmdHdr &hdr = fetched.hdr;
  EXPECT_EQ(std::string(hdr.MacroFile) + hdr.Script + hdr.AuthCode + hdr.FileName, "");
  EXPECT_EQ(hdr.BestFit, 0);
  EXPECT_EQ(hdr.MaxHits, 0);
  EXPECT_EQ(hdr.SeqNum, 0);
  EXPECT_EQ(hdr.ExpDate, 0);
}

MACRO_CASE(Fetch, Buffer_IsCleared32768BytesForARawCopy) {
  AnswerWith("x");
  Page(Fetch("f", WriteMacro("sub", "")), "\tf=SG1, T, 17\t");
  EXPECT_EQ(fetched.capacity, 32768);
  EXPECT_EQ(fetched.format, 0);
  EXPECT_TRUE(fetched.cleared);
}

MACRO_CASE(Fetch, Macro_IsOpenedAndItsHandleHandedOn) {
  AnswerWith("x");
  ExpectOutput(Page(Fetch("f", WriteMacro("sub", "")), "\tf=SG1, T, 17\t"), "x");
  EXPECT_EQ(fetched.macro, 1) << "0 is the page itself";
}

MACRO_CASE(Fetch, MissingMacro_IsLoggedAndHandedOnAsItIs) {
  AnswerWith("x");
  ExpectOutput(Page(Fetch("f", "/no/sub"), "\tf=SG1, T, 17\t"), "x",
               "[Macro: Open] Unable to open macro '/no/sub.mo': errno = 2\n");
  EXPECT_EQ(fetched.macro, -1);
}

MACRO_CASE(Fetch, Pieces_ArePartedByRunsOfCommasBlanksAndBars) {
  const struct {
    const char *value;
    const char *group;
    const char *type;
    std::int32_t number;
  } rows[] = {{"SG1, T, 17", "SG1", "T", 17},
              {"SG1 T 17", "SG1", "T", 17},
              {"SG1|T|17", "SG1", "T", 17},
              {" ,|SG1|, T ,,|17| ,", "SG1", "T", 17},
              {"SG1,T,17,more", "SG1", "T", 17},
              {"SG1,T,17x", "SG1", "T", 17},
              {"SG1,T,-4", "SG1", "T", -4},
              {"SG1,T,none", "SG1", "T", 0},
              {"SG1,T,4294967297", "SG1", "T", INT32_MAX},
              {"S;G.1,T-2,0", "S;G.1", "T-2", 0}};
  AnswerWith("x");
  const int page = Macro_Open(WriteMacro("page", Fetch("f", "")).c_str());
  for (const auto &row : rows) {
    Document document(std::string("\tf=") + row.value + "\t");
    const Page run(page, &document);
    EXPECT_EQ(run.output, "x") << row.value;
    EXPECT_STREQ(fetched.hdr.SearchGroup, row.group) << row.value;
    EXPECT_STREQ(fetched.hdr.RecType, row.type) << row.value;
    EXPECT_EQ(fetched.hdr.DocNum, row.number) << row.value;
  }
}

MACRO_CASE(Fetch, LastFieldWithItsNewline_IsReadUpToIt) {
  AnswerWith("x");
  ExpectOutput(Page(Fetch("f", WriteMacro("sub", "")), "\tf=SG1, T, 17\n"), "x");
  EXPECT_EQ(fetched.hdr.DocNum, 17);
}

MACRO_CASE(Fetch, PiecesLongerThanTheirFields_AreCutWithOneLine) {
  AnswerWith("x");
  const std::string group(128, 'g'), type(130, 't'), fits(127, 'f');
  ExpectOutput(
      Page(Fetch("f", WriteMacro("sub", "")), "\tf=" + group + " " + type + " 17\t"), "x",
      "[Macro: Exec] Fetch of '" + group.substr(1) + "' '" + type.substr(3) + "' is cut\n");
  ExpectOutput(Page(Fetch("f", WriteMacro("sub", "")), "\tf=" + fits + " " + fits + " 17\t"), "x");
  EXPECT_EQ(fetched.hdr.SearchGroup, fits);
  EXPECT_EQ(fetched.hdr.RecType, fits);
}

MACRO_CASE(Fetch, TypeLongerThanItsField_IsCutWithOneLineAt103) {
  AnswerWith("x");
  const std::string type(128, 't');
  const int page = Macro_Open(WriteMacro("page", Fetch("f", WriteMacro("sub", ""))).c_str());
  Document document("\tf=SG1 " + type + " 17\t");
  char output[10];
  int length = 10;
  EXPECT_EQ(MessagesAt(103, [&] { Macro_Exec(page, document.bytes, output, &length); }),
            "[Macro: Exec] Fetch of 'SG1' '" + type.substr(1) + "' is cut\n");
  EXPECT_EQ(fetched.hdr.RecType, type.substr(1));
}

MACRO_CASE(Fetch, FewerThanThreePieces_EndTheRunSilently) {
  AnswerWith("x");
  const std::string sub = WriteMacro("sub", "");
  for (const char *value : {"", "SG1", "SG1, T", "SG1, T, ", ", | "}) {
    const Page run(Text8("ab") + Fetch("f", sub), std::string("\tf=") + value + "\t");
    ExpectFailure(run, kOutputSize, "");
  }
  EXPECT_EQ(fetched.calls, 0);
}

MACRO_CASE(Fetch, LineEndInAWord_WouldEndTheRequestAndEndsTheRun) {
  AnswerWith("x");
  const std::string sub = WriteMacro("sub", "");
  for (const char *value : {"SG1 T\r@FILENAME=x 17", "SG1\n T 17", "SG1 T\n 17"})
    ExpectFailure(
        Page(Text8("ab") + Fetch("f", sub), std::string("\tf=") + value + "\t"), kOutputSize,
        "[Macro: Exec] op-code 13 at offset 4: a line end in the words of a fetch would end "
        "its request\n");
  EXPECT_EQ(fetched.calls, 0);
}

MACRO_CASE(Fetch, Macro_IsOpenedBeforeTheValueIsLookedAt) {
  AnswerWith("x");
  ExpectFailure(Page(Fetch("f", "/no/sub"), "\tf=SG1\t"), kOutputSize,
                "[Macro: Open] Unable to open macro '/no/sub.mo': errno = 2\n");
}

MACRO_CASE(Fetch, ValueTooLong_IsReadFromItsFirst4096Characters) {
  AnswerWith("x");
  ExpectOutput(
      Page(Fetch("f", WriteMacro("sub", "")), "\tf=SG1, T, 17" + std::string(5000, ' ') + "\t"),
      "x", "[Macro: GetTerms] Buffer too small (size = 4096)\n");
  EXPECT_EQ(fetched.hdr.DocNum, 17);
}

// The length of the macro's name is op 3 then, and the name with the byte behind it the offset 4.
MACRO_CASE(Fetch, MissingField_LeavesTheSecondOperandToBeRunAsCode) {
  AnswerWith("x");
  const std::string name = LE32(4).substr(0, 3);
  ExpectOutput(Page(Fetch("f", name) + LE32(4).substr(3) + Value8("a"), "\ta=1\ta=2\t"), "2",
               Missing("f"));
  EXPECT_EQ(fetched.calls, 0);
}

MACRO_CASE(Fetch, MissingFieldBeforeAnEmptyName_Stops) {
  ExpectOutput(Page(Text8("a") + Fetch("f", "") + Text8("b"), "\ta=1\t"), "a", Missing("f"));
}

MACRO_CASE(Fetch, LookUp_MovesTheCursor) {
  AnswerWith("x");
  ExpectOutput(Page(Fetch("f", WriteMacro("sub", "")) + Value8("a"), "\ta=1\tf=SG1, T, 17\ta=2\t"),
               "x2");
}

MACRO_CASE(Fetch, FailingFetch_Gives32768ZeroBytes) {
  RefuseFetches();
  ExpectOutput(
      Page(Text8("<") + Fetch("f", WriteMacro("sub", "")) + Text8(">"), "\tf=SG1, T, 17\t"),
      "<" + std::string(32768, '\0') + ">");
  EXPECT_EQ(fetched.calls, 1);
}

MACRO_CASE(Fetch, NoSource_IsAFailingFetch) {
  Macro_SetFetch(nullptr);
  ExpectOutput(Page(Fetch("f", WriteMacro("sub", "")), "\tf=SG1, T, 17\t"),
               std::string(32768, '\0'));
}

MACRO_CASE(Fetch, EndOfData_GivesNothing) {
  AnswerWith("");
  ExpectOutput(
      Page(Text8("<") + Fetch("f", WriteMacro("sub", "")) + Text8(">"), "\tf=SG1, T, 17\t"), "<>");
}

MACRO_CASE(Fetch, DocumentOf32768Bytes_IsWhole) {
  AnswerWith(std::string(32768, 'd'));
  ExpectOutput(Page(Fetch("f", WriteMacro("sub", "")), "\tf=SG1, T, 17\t"),
               std::string(32768, 'd'));
}

MACRO_CASE(Fetch, Document_KeepsItsTabsAndStaysOutOfTheOther) {
  AnswerWith("\tt=1\t");
  Document document("\tf=SG1, T, 17\t");
  ExpectOutput(Page(Fetch("f", WriteMacro("sub", "")) + Value8("t"), &document), "\tt=1\t",
               Missing("t"));
  EXPECT_EQ(document.Text(), "\tf=SG1, T, 17\t");
}

MACRO_CASE(Fetch, TwoOfThem_AskTwice) {
  AnswerWith("x");
  const std::string sub = WriteMacro("sub", "");
  ExpectOutput(Page(Fetch("f", sub) + Fetch("g", sub), "\tf=SG1, T, 17\tg=SG2, U, 18\t"), "xx");
  EXPECT_EQ(fetch_commands, "GETDOC17 GETDOC18 ");
  EXPECT_EQ(fetched.macro, 2);
}

MACRO_CASE(Fetch, NoMemory_EndsTheRun) {
  AnswerWith("x");
  const std::string code = Text8("a") + Fetch("f", WriteMacro("sub", ""));
  Document document("\tf=SG1, T, 17\t");
  const int page = Macro_Open(WriteMacro("page", code).c_str());
  file_seams.fail_calloc = ENOMEM;
  ExpectFailure(Page(page, &document), kOutputSize, Malformed(13, 3, "no memory for a fetch"));
  EXPECT_EQ(fetched.calls, 0);
}

MACRO_CASE(Fetch, DocumentLargerThanTheOutput_EndsTheRun) {
  AnswerWith(std::string(100, 'd'));
  Document document("\tf=SG1, T, 17\t");
  ExpectFailure(Page(Fetch("f", WriteMacro("sub", "")), &document, 99), 99,
                Malformed(13, 0, "output is full"));
}

MACRO_CASE(Fetch, ManyRuns_OnlyFillTheTable) {
  AnswerWith("x");
  Document document("\tf=SG1, T, 17\t");
  const std::string sub = WriteMacro("sub", "");
  const int page = Macro_Open(WriteMacro("page", Fetch("f", sub)).c_str());
  for (int i = 1; i <= 19; ++i) ExpectOutput(Page(page, &document), "x");
  ExpectOutput(Page(page, &document), "x",
               "[Macro: Open] Unable to open macro '" + sub + ".mo': all 20 slots are taken\n");
  EXPECT_EQ(fetched.macro, -1);
}

// ---- ops 14 and 15

MACRO_CASE(Insert, Value_NamesADocumentThatIsAppended) {
  AnswerWith("\tt=raw\t");
  Document document("\tf=SG1, T, 17\t\n");
  ExpectOutput(Page(Insert("f") + Value8("t") + Text8("|") + kDocument, &document),
               "raw|\nf=SG1, T, 17\n\n\nt=raw\n", Inserting("SG1, T, 17"));
  EXPECT_EQ(document.Text(), "\tf=SG1, T, 17\t\n\tt=raw\t");
}

MACRO_CASE(Insert, Request_IsThatOfARawCopyBehindTheDocument) {
  AnswerWith("\tt=raw\t");
  Document document("\tf=SG1, T, 17\t");
  Page(Insert("f"), &document);
  EXPECT_EQ(fetched.calls, 1);
  EXPECT_EQ(fetched.macro, 0);
  EXPECT_EQ(fetched.format, 0);
  EXPECT_EQ(fetched.out, document.bytes + 14);
  EXPECT_STREQ(fetched.hdr.Command, "GETDOC");
  EXPECT_EQ(fetched.hdr.BestFit, 0);
  EXPECT_STREQ(fetched.hdr.SearchGroup, "SG1");
  EXPECT_STREQ(fetched.hdr.RecType, "T");
  EXPECT_EQ(fetched.hdr.DocNum, 17);
}

MACRO_CASE(Insert, Capacity_Is39000MinusTheDocument) {
  AnswerWith("x");
  for (const std::size_t length : {14u, 1000u, 38998u}) {
    Document document("\tf=SG1, T, 17\t" + std::string(length - 14, 'd'));
    Page(Insert("f"), &document);
    EXPECT_EQ(fetched.capacity, 39000 - static_cast<int>(length));
  }
}

MACRO_CASE(Insert, DocumentOf39000BytesOrMore_HasNoRoomLeft) {
  AnswerWith("x");
  for (const std::size_t length : {39000u, 39001u, 40960u}) {
    Document document("\tf=SG1, T, 17\t" + std::string(length - 14, 'd'));
    const Page run(Insert("f") + Text8("|"), &document);
    EXPECT_EQ(run.output, "|") << length;
    EXPECT_EQ(document.Text().size(), length);
    EXPECT_LE(fetched.capacity, 0);
  }
}

MACRO_CASE(Insert, SmallerRoomBehindTheDocument_BoundsTheCapacity) {
  AnswerWith("\tt=12345\t");
  Document document("\tf=SG1, T, 17\t");
  ExpectOutput(Page(Insert("f") + Value8("t"), &document, kOutputSize, 5), "12",
               Inserting("SG1, T, 17"));
  EXPECT_EQ(fetched.capacity, 5);
  EXPECT_EQ(document.Text(), "\tf=SG1, T, 17\t\tt=12");
}

MACRO_CASE(Insert, SecondOne_HasTheRoomThatTheFirstLeft) {
  AnswerWith("12345");
  Document document("\tf=SG1, T, 17\t");
  Page(Insert("f") + Insert("f"), &document, kOutputSize, 8);
  EXPECT_EQ(fetched.calls, 2);
  EXPECT_EQ(fetched.capacity, 3);
  EXPECT_EQ(document.Text(), "\tf=SG1, T, 17\t12345123");
}

MACRO_CASE(Insert, NoRoomAtAll_AppendsNothing) {
  AnswerWith("12345");
  Document document("\tf=SG1, T, 17\t");
  ExpectOutput(Page(Insert("f") + Text8("|"), &document, kOutputSize, 0), "|",
               Inserting("SG1, T, 17"));
  EXPECT_EQ(document.Text(), "\tf=SG1, T, 17\t");
}

MACRO_CASE(Insert, Append_LeavesTheCursorAtTheField) {
  AnswerWith("\ta=9\t");
  ExpectOutput(Page(Insert("f") + Value8("a"), "\ta=1\tf=SG1, T, 17\ta=2\t"), "2",
               Inserting("SG1, T, 17"));
}

MACRO_CASE(Insert, AppendedFields_AreFoundBehindTheOthers) {
  AnswerWith("\ta=9\t");
  ExpectOutput(Page(Insert("f") + ValueSkip(1, "a"), "\ta=1\tf=SG1, T, 17\ta=2\t"), "9",
               Inserting("SG1, T, 17"));
}

MACRO_CASE(Insert, AppendedFields_MayNameFurtherDocuments) {
  AnswerWith("\tg=SG2|U|18\t");
  ExpectOutput(Page(Insert("f") + Insert("g"), "\tf=SG1, T, 17\t"), "",
               Inserting("SG1, T, 17") + Inserting("SG2|U|18"));
  EXPECT_EQ(fetch_commands, "GETDOC17 GETDOC18 ");
}

MACRO_CASE(Insert, MissingField_IsNothing) {
  AnswerWith("x");
  for (const std::string &insert : {Insert("x"), InsertSkip(0, "x")})
    ExpectOutput(Page(insert + Text8("|"), "\ta=1\t"), "|", Missing("x"));
  EXPECT_EQ(fetched.calls, 0);
}

MACRO_CASE(Insert, FewerThanThreePieces_EndTheRunBehindTheirLine) {
  AnswerWith("x");
  for (const std::string value : {"", "SG1", "SG1, T"}) {
    ExpectFailure(Page(Insert("f"), "\tf=" + value + "\t"), kOutputSize, Inserting(value));
    ExpectFailure(Page(InsertSkip(0, "f"), "\tf=" + value + "\t"), kOutputSize, Inserting(value));
  }
  EXPECT_EQ(fetched.calls, 0);
}

MACRO_CASE(Insert, Line_IsLoggedAt103) {
  AnswerWith("");
  Document document("\tf=SG1, T, 17\t");
  const int page = Macro_Open(WriteMacro("page", Insert("f")).c_str());
  char output[10];
  int length = 10;
  EXPECT_EQ(
      MessagesAt(103, [&] { Macro_Exec(page, document.bytes, output, &length, document.Room()); }),
      Inserting("SG1, T, 17"));
}

MACRO_CASE(Insert, ValueTooLong_IsShownAndReadFromItsFirst4096Characters) {
  AnswerWith("x");
  const std::string value = "SG1, T, 17" + std::string(4086, '.');
  ExpectOutput(Page(Insert("f"), "\tf=" + value + "more\t"), "",
               "[Macro: GetTerms] Buffer too small (size = 4096)\n" + Inserting(value));
  EXPECT_EQ(fetched.hdr.DocNum, 17);
}

MACRO_CASE(Insert, NumberAtTheEndOfALongValue_IsReadAsFarAsThe4096thCharacter) {
  AnswerWith("x");
  const std::string group_and_type = "SG1, T,";
  for (const std::size_t length : {4095u, 4096u}) {
    const std::string blanks(length - group_and_type.size() - 2, ' ');
    Document document("\tf=" + group_and_type + blanks + "17" + (length == 4096 ? "8" : "") + "\t");
    EXPECT_EQ(Page(Insert("f"), &document).result, 1) << length;
    EXPECT_EQ(fetched.hdr.DocNum, 17) << length;
    EXPECT_STREQ(fetched.hdr.SearchGroup, "SG1") << length;
  }
}

MACRO_CASE(Insert, FailingFetch_LeavesTheDocument) {
  RefuseFetches();
  Document document("\ta=1\tf=SG1, T, 17\t");
  ExpectOutput(Page(Insert("f") + Value8("a"), &document), "1",
               Inserting("SG1, T, 17") + Wrapped("a"));
  EXPECT_EQ(document.Text(), "\ta=1\tf=SG1, T, 17\t");
}

MACRO_CASE(Insert, NoSource_LeavesTheDocument) {
  Macro_SetFetch(nullptr);
  Document document("\tf=SG1, T, 17\t");
  ExpectOutput(Page(Insert("f"), &document), "", Inserting("SG1, T, 17"));
  EXPECT_EQ(document.Text(), "\tf=SG1, T, 17\t");
}

MACRO_CASE(Insert, Skip_TakesALaterMatch) {
  AnswerWith("x");
  ExpectOutput(Page(InsertSkip(1, "f"), "\tf=SG1, T, 17\tf=SG2, U, 18\t"), "",
               Inserting("SG2, U, 18"));
  EXPECT_STREQ(fetched.hdr.SearchGroup, "SG2");
  EXPECT_EQ(fetched.hdr.DocNum, 18);
}

MACRO_CASE(Insert, SkipOverTheLast_IsNothing) {
  AnswerWith("x");
  ExpectOutput(Page(InsertSkip(200, "f") + Text8("|"), "\tf=SG1, T, 17\tf=SG2, U, 18\t"), "|",
               "[Macro: FindField] Unable to find field = 'f' (\tf=)\n");
}

// ---- what ends a run

TEST(Malformed, OperandBehindTheEnd_NamesItsInstruction) {
  const std::string text = Text8("ab");
  const struct {
    int op;
    std::string code;
  } rows[] = {{1, Byte(1)},
              {1, Byte(1) + Byte(1) + Byte(0)},
              {1, Byte(1) + LE32(2) + "a"},
              {1, Byte(1) + LE32(0xffffffff) + "a"},
              {1, Byte(1) + LE32(0x80000000) + "a"},
              {2, Byte(2)},
              {2, Byte(2) + LE32(2) + "a"},
              {3, Byte(3)},
              {3, Byte(3) + Byte(0) + Byte(0) + Byte(0)},
              {10, Byte(10)},
              {11, Byte(11)},
              {12, Byte(12)},
              {12, Byte(12) + "\2a"},
              {13, Byte(13)},
              {13, Byte(13) + "\2f"},
              {13, Byte(13) + "\1f"},
              {13, Byte(13) + "\1f\2a"},
              {14, Byte(14)},
              {14, Byte(14) + "\2f"},
              {15, Byte(15)},
              {15, Byte(15) + Byte(0)},
              {15, Byte(15) + Byte(0) + "\2f"},
              {65, Byte(65)},
              {65, Byte(65) + "\2a"},
              {65, Byte(65) + "\xff" + std::string(254, 'a')},
              {66, Byte(66)},
              {66, Byte(66) + "\2f"},
              {67, Byte(67)},
              {67, Byte(67) + Byte(0)},
              {67, Byte(67) + Byte(0) + "\2f"},
              {68, Byte(68)},
              {68, Byte(68) + "\2f"}};
  for (const auto &row : rows) {
    RunInChild([&] {
      AnswerWith("x");
      ExpectFailure(Page(text + row.code, "\tf=SG1, T, 17\t"), kOutputSize,
                    Malformed(row.op, text.size(), "operand runs past the end of the macro"));
      EXPECT_EQ(fetched.calls, 0);
    });
  }
}

TEST(Malformed, OutputThatFillsItsBuffer_IsComplete) {
  const struct {
    std::string code, output;
  } rows[] = {{Text8("abc"), "abc"},
              {Text32("abc"), "abc"},
              {Value8("a"), "one"},
              {Value32("a"), "one"},
              {ValueSkip(0, "a"), "one"},
              {Number("n"), LE32(7)},
              {kDocument, "\na=one\nn=7\nf=SG1|T|17\n"},
              {Fetch("f", ""), "fetched"},
              {"", ""},
              {Find("a"), ""}};
  for (const auto &row : rows) {
    RunInChild([&] {
      AnswerWith("fetched");
      Document document("\ta=one\tn=7\tf=SG1|T|17\t");
      const Page run(row.code, &document, static_cast<int>(row.output.size()));
      EXPECT_EQ(run.result, 1) << row.output;
      EXPECT_EQ(run.output, row.output);
    });
  }
}

TEST(Malformed, OutputOfAByteMore_EndsTheRunAndStaysInside) {
  const struct {
    int op;
    std::string code;
    int length;
  } rows[] = {{65, Text8("abc"), 3}, {1, Text32("abc"), 3},      {66, Value8("a"), 3},
              {2, Value32("a"), 3},  {67, ValueSkip(0, "a"), 3}, {68, Number("n"), 4},
              {7, kDocument, 22},    {13, Fetch("f", ""), 7}};
  for (const auto &row : rows) {
    RunInChild([&] {
      AnswerWith("fetched");
      Document document("\ta=one\tn=7\tf=SG1|T|17\t");
      const int page = Macro_Open(WriteMacro("page", Text8("xy") + row.code).c_str());
      const int capacity = row.length + 1;
      const std::string opened =
          row.op == 13
              ? "[Macro: Open] Unable to open macro '/usr/local/korvo/lib/.mo': errno = 2\n"
              : "";
      ExpectFailure(Page(page, &document, capacity), capacity,
                    opened + Malformed(row.op, 4, "output is full"));
    });
  }
}

MACRO_CASE(Malformed, Failure_IsOneLineAt103) {
  const int page = Macro_Open(WriteMacro("page", kPop + kPop).c_str());
  char document[] = "\ta=1", output[10];
  int length = 10, result = 0;
  EXPECT_EQ(MessagesAt(103, [&] { result = Macro_Exec(page, document, output, &length); }),
            Malformed(9, 0, "stack is empty"));
  EXPECT_EQ(result, -1);
}

MACRO_CASE(Malformed, Failure_LeavesTheNextRunAlone) {
  Document document("\ta=1\t");
  ExpectFailure(Page(Seek(2) + kPush + Byte(65), &document), kOutputSize,
                Malformed(65, 6, "operand runs past the end of the macro"));
  ExpectOutput(Page(Value8("a"), &document), "1");
}

// ---- op-codes without a meaning

std::string UndefinedMacro(unsigned op) { return WriteMacro("page", Text8("a") + Byte(op) + kEnd); }

// Runs the macro with that level of its log.  It repeats its op-code until a signal ends it.
void RepeatUndefined(const std::string &macro, int log, int level) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // whatever ends this test ends the repetition too
  signal(SIGINT, SIG_DFL);           // a shell's background job ignores it
  dup2(log, STDERR_FILENO);
  Debug_Level = level;
  Document document("\ta=1\t");
  char output[10];
  int length = 10;
  Macro_Exec(Macro_Open(macro.c_str()), document.bytes, output, &length);
  _exit(0);
}

// Runs the op-code in a child until it has written some lines and then ends it by the signal; the
// first three messages of its log.
std::string LogOfUndefined(unsigned op, int signal_number) {
  const std::string macro = UndefinedMacro(op);
  const Fd log(memfd_create("log", MFD_CLOEXEC));
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) RepeatUndefined(macro, log, kWarning);
  Await([&] {
    struct stat status;
    return fstat(log, &status) == 0 && status.st_size > 1000;
  });
  kill(child, signal_number);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal_number)
      << "op " << op << " ended with " << status;

  std::string text(1000, '\0');
  EXPECT_EQ(pread(log, text.data(), text.size(), 0), 1000);
  std::size_t end = 0;
  for (int line = 0; line < 12; ++line) end = text.find('\n', end) + 1;
  return StripHeaders(text.substr(0, end));
}

MACRO_CASE(Undefined, EveryOtherOpCode_RepeatsItsLineUntilASignalEndsTheProcess) {
  for (unsigned op = 4; op <= 255; ++op) {
    if ((op >= 7 && op <= 15) || (op >= 65 && op <= 68)) continue;
    const std::string line = "\n[undefined op-code = " + std::to_string(op) + "]\n";
    EXPECT_EQ(LogOfUndefined(op, SIGTERM), line + line + line);
  }
}

MACRO_CASE(Undefined, Repetition_IsEndedByEachEndingSignal) {
  const std::string line = "\n[undefined op-code = 200]\n";
  for (const int number : {SIGINT, SIGTERM, SIGUSR1})
    EXPECT_EQ(LogOfUndefined(200, number), line + line + line);
}

constexpr int kStopped = 77;

MACRO_CASE(Undefined, Repetition_IsNotShownAbove103) {
  const std::string macro = UndefinedMacro(5);
  const Fd log(memfd_create("log", MFD_CLOEXEC));
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    signal(SIGPROF, [](int) { _exit(kStopped); });
    const itimerval soon = {{0, 0}, {0, 50000}};  // of its own time, so that it has repeated much
    setitimer(ITIMER_PROF, &soon, nullptr);
    RepeatUndefined(macro, log, kFatal);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == kStopped) << status;
  struct stat written;
  ASSERT_EQ(fstat(log, &written), 0);
  EXPECT_EQ(written.st_size, 0);
}

}  // namespace
