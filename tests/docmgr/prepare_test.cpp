#include "docmgr/prepare.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <sstream>

#include "debug/log.h"
#include "debug/text.h"
#include "store/record.h"
#include "tests/support/log_capture.h"

namespace {

constexpr const char *kHead = "\t@COMMAND=HIT\t@DOCNUM=17\t";
constexpr const char *kPackage =
    "\tPackage=zsh\tSection=shells & more\tTag=a\tTag=\tSize=12\tHomepage=http://shell/\t"
    "Description=The \"shell\" of <shells>\t";

Schema Given(const std::string &text) {
  std::istringstream in(text);
  Schema schema;
  SchemaError error;
  EXPECT_TRUE(Schema_Read(&in, &schema, &error)) << error.reason;
  return schema;
}

Schema PackageSchema() {
  return Given(
      "@language english\nPackage keyword id\nVersion stored\nSection keyword\nDescription text "
      "body\nTag text\nSize number\nHomepage stored\n");
}

Schema Origin(SchemaOrigin origin) {
  Schema schema;
  schema.origin = origin;
  return schema;
}

CmdHdr Request(const std::string &script) {
  CmdHdr hdr = {};
  EXPECT_TRUE(Text_Copy(hdr.SearchGroup, "grp<1>"));
  EXPECT_TRUE(Text_Copy(hdr.RecType, "packages"));
  EXPECT_TRUE(Text_Copy(hdr.Script, script));
  hdr.DocNum = 17;
  return hdr;
}

std::string Prepare(const std::string &data, const Schema &schema, const std::string &script) {
  Xapian::Document document;
  document.set_data(data);
  return Prepare_Record(document, schema, Request(script));
}

// The fields of the record of a document, without the tabs around them.
std::string FieldsOf(const std::string &data, const Schema &schema, const std::string &script) {
  const std::string record = Prepare(data, schema, script);
  const std::string_view head = kHead;
  EXPECT_TRUE(record.starts_with(head) && record.ends_with("\t\n")) << record;
  EXPECT_LE(record.size(), 40959u);
  return record.substr(head.size(), record.size() - head.size() - 2);
}

std::string ValueIn(const std::string &fields, const std::string &name) {
  const std::string text = "\t" + fields + "\t", start = "\t" + name + "=";
  const std::size_t at = text.find(start);
  if (at == std::string::npos) return "none";
  return text.substr(at + start.size(), text.find('\t', at + 1) - at - start.size());
}

std::size_t LongestValue(std::string_view fields) {
  std::size_t longest = 0;
  for (std::string_view pair = Text_Token(&fields, "\t"); !pair.empty();
       pair = Text_Token(&fields, "\t"))
    longest = std::max(longest, pair.size() - pair.find('=') - 1);
  return longest;
}

}  // namespace

TEST(Prepare, WithoutAScriptIsAsStored) {
  for (const std::string data : {"\tA=<b>\x7f\t", "\tno pair\tA=1\t", "\tA=\xff\tB=\t"})
    for (const char *script : {"", " ", "mark:b"})
      EXPECT_EQ(Prepare(data, {}, script), kHead + data.substr(1) + "\n");
}

TEST(Prepare, WhatHasNoFields_IsAnErrorAndLogged) {
  for (const char *data : {"", "plain", "\t", "\t\t@A=b\t"}) {
    std::string record;
    EXPECT_EQ(MessagesAt(kWarning, [&] { record = Prepare(data, {}, "html all"); }),
              "[DocMgr: GetDoc] Document 17 of 'packages' was not stored as a record\n");
    EXPECT_EQ(record, "\t@COMMAND=ERROR\tThe document of this number cannot be sent\n");
  }
}

TEST(Prepare, Html_EscapesEveryValue) {
  EXPECT_EQ(FieldsOf("\tA=&<>\"'\tB=javascript:alert('1')\tA=\xe4\t", {}, "html"),
            "A=&amp;&lt;&gt;&quot;&#39;\tB=javascript:alert(&#39;1&#39;)\tA=\xc3\xa4");
}

TEST(Prepare, Mark_MarksWhereASearchFindsWords) {
  EXPECT_EQ(FieldsOf(kPackage, PackageSchema(), "html mark:shell mark:12"),
            "Package=zsh\tSection=<mark>shells</mark> &amp; more\tTag=a\tTag=\tSize=12\t"
            "Homepage=http://shell/\tDescription=The &quot;<mark>shell</mark>&quot; of "
            "&lt;<mark>shells</mark>&gt;");
  EXPECT_EQ(
      FieldsOf(
          "url=/1\nsample=1\ntype=1\nmodtime=1\ncreated=1\nsize=1\npages=1\nfilename=1\ntitle=1",
          Origin(SchemaOrigin::kOmega), "html mark:1"),
      "url=/1\tsample=<mark>1</mark>\ttype=1\tmodtime=1\tcreated=1\tsize=1\tpages=1\tfilename=1\t"
      "title=<mark>1</mark>");
  EXPECT_EQ(FieldsOf("\tA=shells Shell\t", {}, "html mark:shell"), "A=shells <mark>Shell</mark>");
}

TEST(Prepare, Mark_LeavesPlainTextAlone) {
  EXPECT_EQ(Prepare(kPackage, PackageSchema(), "mark:shell"),
            kHead + std::string(kPackage + 1) + "\n");
  EXPECT_EQ(FieldsOf("\tA=a shell\t", {}, "mark:shell place"),
            "A=a shell\tSearchGroup=grp<1>\tRecType=packages\tDocNum=17");
}

TEST(Prepare, Place_SaysWhereTheDocumentStands) {
  EXPECT_EQ(FieldsOf("\tA=b\t", {}, "html place mark:17 mark:grp"),
            "A=b\tSearchGroup=grp&lt;1&gt;\tRecType=packages\tDocNum=17");
}

TEST(Prepare, WhatIsAddedTakesThePlaceOfFieldsOfThatName) {
  const char *data = "\tDocNum=4\tA=b\tSnippet=x\tRecType=y\tSearchGroup=z\tdocnum=5\t";
  EXPECT_EQ(FieldsOf(data, {}, "place snippet"),
            "A=b\tdocnum=5\tSnippet=b\tSearchGroup=grp<1>\tRecType=packages\tDocNum=17");
  EXPECT_EQ(FieldsOf(data, {}, "html"),
            "DocNum=4\tA=b\tSnippet=x\tRecType=y\tSearchGroup=z\tdocnum=5");
  EXPECT_EQ(FieldsOf("\tA=b\t", Given("Snippet text\nA text\n"), "all snippet"), "A=b\tSnippet=b");
}

TEST(Prepare, Snippet_IsOfTheBody) {
  const std::string other(200, 'o');
  const std::string fields = "\tTitle=" + other + "\tText=The <shell>.\t";
  EXPECT_EQ(
      ValueIn(FieldsOf(fields, Given("Title text\nText text body\n"), "html mark:shell snippet"),
              "Snippet"),
      "The &lt;<mark>shell</mark>&gt;.");
  EXPECT_EQ(ValueIn(FieldsOf(fields, {}, "snippet"), "Snippet"), other);
  EXPECT_EQ(ValueIn(FieldsOf("title=" + other + "\nsample=The <shell>.",
                             Origin(SchemaOrigin::kOmega), "mark:shell snippet"),
                    "Snippet"),
            "The <shell>.");
}

TEST(Prepare, Snippet_WithoutABodyIsOfTheLongestText) {
  const Schema schema = Given("Key keyword\nA text\nB text\nC text body\nD stored\n");
  EXPECT_EQ(
      ValueIn(FieldsOf("\tKey=kkkkkk\tA=a\tB=bbb\tC=\tD=dddddd\tE=eeeeee\t", schema, "snippet"),
              "Snippet"),
      "bbb");
  EXPECT_EQ(ValueIn(FieldsOf("\tKey=kkkkkk\t", schema, "snippet"), "Snippet"), "");
  EXPECT_EQ(ValueIn(FieldsOf("url=/a/long/path\ntitle=tt", Origin(SchemaOrigin::kOmega), "snippet"),
                    "Snippet"),
            "tt");
}

TEST(Prepare, Snippet_IsOfAllValuesOfTheBody) {
  EXPECT_EQ(
      ValueIn(FieldsOf("\tC=one\tA=aaaaaaaa\tC=two\t", Given("A text\nC text body\n"), "snippet"),
              "Snippet"),
      "one two");
}

TEST(Prepare, All_IsEveryFieldInTheOrderOfTheSchema) {
  const char *data = "\tUnknown=u\tdescription=d\tTag=a\tTag=b\tPackage=p\t";
  EXPECT_EQ(FieldsOf(data, PackageSchema(), "all snippet place"),
            "Package=p\tVersion=\tSection=\tDescription=d\tTag=a\tTag=b\tSize=\tHomepage=\t"
            "Unknown=u\tSnippet=d\tSearchGroup=grp<1>\tRecType=packages\tDocNum=17");
  EXPECT_EQ(FieldsOf("\tB=b\tA=a\t", {}, "all"), "B=b\tA=a");
}

// The examples of the manual page, which has a line for each script and one for its record.
TEST(Prepare, IsWhatTheManualPageShows) {
  std::ifstream file(KORVO_DOCMGR_PAGE);
  const std::string page(std::istreambuf_iterator<char>(file), {});
  const Schema schema =
      Given("@language english\nTitle   text\nVersion stored\nBody    text body\n");
  CmdHdr hdr = Request("");
  ASSERT_TRUE(Text_Copy(hdr.SearchGroup, "grp1"));
  Xapian::Document document;
  document.set_data("\tBody=Two <shells>.\tTitle=A & B\t");
  for (const char *script : {"", "html", "html mark:shell", "mark:shell snippet", "place", "all"}) {
    ASSERT_TRUE(Text_Copy(hdr.Script, script));
    std::string shown;
    for (const char c : Prepare_Record(document, schema, hdr))
      shown += c == '\t' ? "\\et" : c == '\n' ? "\\en" : std::string(1, c);
    const std::string lines = (*script != '\0' ? std::string("\n") + script : "") + "\n" + shown;
    EXPECT_TRUE(page.find(lines + "\n") != std::string::npos) << lines;
  }
}

TEST(Prepare, OfOmegaHasItsNames) {
  EXPECT_EQ(FieldsOf("url=/a.html\nsample=A\ttab\r\ncaption=\n\nno field\nsample=2",
                     Origin(SchemaOrigin::kOmega), ""),
            "url=/a.html\tsample=A tab \tcaption=\tsample=2");
}

TEST(Prepare, ALongValueIsCutAtWhatAPageMacroCanShow) {
  const std::string start(4090, 'v');
  EXPECT_EQ(FieldsOf("\tA=" + start + "12345\t", {}, ""), "A=" + start + "12345");
  EXPECT_EQ(FieldsOf("\tA=" + start + "123456\tB=x\t", {}, ""), "A=" + start + "12345\tB=x");
  EXPECT_EQ(FieldsOf("\tA=" + start + "1234\xe2\x82\xac\tB=x\t", {}, ""),
            "A=" + start + "1234\tB=x");
  EXPECT_EQ(FieldsOf("\tA=" + start + "1<\t", {}, "html"), "A=" + start + "1&lt;");
  EXPECT_EQ(FieldsOf("\tA=" + start + "12<\t", {}, "html"), "A=" + start + "12");
  EXPECT_EQ(FieldsOf("\tA=" + start + " it\t", {}, "html mark:it"), "A=" + start + " ");
  EXPECT_EQ(FieldsOf("\tA=" + start.substr(11) + " itch\t", {}, "html mark:it"),
            "A=" + start.substr(11) + " itch");
  // The word is longer than what is left of it.
  EXPECT_EQ(FieldsOf("\tA=" + start + " itch \t", {}, "html mark:it"), "A=" + start + " itch");
}

TEST(Prepare, TheBodyIsCutFirst) {
  std::string data = "\tBody=" + std::string(4000, 'b');
  for (char name = 'A'; name <= 'I'; ++name)
    data += "\t" + std::string(1, name) + "=" + std::string(4095, 'v');
  const Schema schema = Given("Body text body\nA text\n");
  const std::string record = Prepare(data + "\tJ=" + std::string(2000, 'v') + "\t", schema, "");
  // Nine digits short of 40959: the room of the longest number is kept.
  EXPECT_EQ(record.size(), 40959u - 8);
  const std::string fields = record.substr(std::string_view(kHead).size());
  EXPECT_EQ(ValueIn(fields, "Body").size(),
            4000u - (9 * 4098 + 2003 + 4006 + 1 - kRecordFieldsSize));
  EXPECT_EQ(ValueIn(fields, "A").size(), 4095u);
  EXPECT_EQ(ValueIn(fields, "J").size(), 2000u);
}

TEST(Prepare, ThenTheLongestOfTheOthersAreCut) {
  std::string data = "\tBody=b\tShort=s";
  for (char name = 'A'; name <= 'L'; ++name)
    data += "\t" + std::string(1, name) + "=" + std::string(4095, 'v');
  const std::string fields =
      FieldsOf(data + "\t", Given("Body text body\nA text\n"), "place snippet");
  EXPECT_EQ(ValueIn(fields, "Body"), "");
  EXPECT_EQ(ValueIn(fields, "Snippet"), "b");
  EXPECT_EQ(ValueIn(fields, "Short"), "s");
  EXPECT_EQ(ValueIn(fields, "DocNum"), "17");
  for (char name = 'A'; name <= 'L'; ++name)
    EXPECT_EQ(ValueIn(fields, std::string(1, name)).size(), ValueIn(fields, "A").size());
  EXPECT_GT(fields.size(), kRecordFieldsSize - 14);
}

TEST(Prepare, GrownByEscapingItStillFits) {
  const std::string data = "\tA=" + std::string(40000, '"') + "\tB=" + std::string(4095, '\'') +
                           "\tC=" + std::string(4095, '\xe4') + "\tD=x\t";
  const std::string fields = FieldsOf(data, {}, "html");
  EXPECT_EQ(ValueIn(fields, "A").size(), 4092u);  // 682 entities
  EXPECT_EQ(ValueIn(fields, "B").size(), 4095u);
  EXPECT_EQ(ValueIn(fields, "C").size(), 4094u);
  EXPECT_EQ(ValueIn(fields, "D"), "x");
}

TEST(Prepare, MoreFieldsThanFit_KeepTheFirstOfEachName) {
  std::string data = "\t";
  for (int i = 0; i < 200000; ++i) data += "A=\t";
  EXPECT_EQ(FieldsOf(data, {}, "").size(), (kRecordFieldsSize - 1) / 3 * 3 - 1);
  data = "\t";
  for (int i = 0; i < 11000; ++i) data += "A=\t";
  const std::string fields = FieldsOf(data + "Last=x\t" + data.substr(1), {}, "place");
  EXPECT_EQ(ValueIn(fields, "Last"), "x");
  EXPECT_EQ(ValueIn(fields, "DocNum"), "17");
}

TEST(Prepare, AllOfTheLargestSchemaIsThere) {
  std::string text;
  for (int i = 0; i < 500; ++i) text += std::string(61, 'n') + std::to_string(100 + i) + " text\n";
  const Schema schema = Given(text);
  const std::string hostile(4095, '"');
  std::string data = "\t";
  for (const SchemaField &field : schema.fields)
    data += field.name + "=" + hostile.substr(4000) + "\t";
  const std::string fields = FieldsOf(data, schema, "html all snippet place");
  for (const SchemaField &field : schema.fields) ASSERT_NE(ValueIn(fields, field.name), "none");
  EXPECT_EQ(ValueIn(fields, "DocNum"), "17");
}

namespace {

const std::vector<std::string> kPieces = {"shell",
                                          "shells",
                                          "shelling",
                                          "Shell",
                                          "it",
                                          "it's",
                                          "AT&T",
                                          "c++",
                                          "<",
                                          ">",
                                          "&",
                                          "\"",
                                          "'",
                                          "<mark>",
                                          "</mark>",
                                          "&lt;",
                                          "&#39;",
                                          "javascript:",
                                          "<script>",
                                          " ",
                                          " ",
                                          " ",
                                          ". ",
                                          "=",
                                          "@COMMAND=HIT",
                                          "@",
                                          "\n",
                                          "\r",
                                          "\x01",
                                          "\x7f",
                                          "\xc3\xa4",
                                          "\xe2\x82\xac",
                                          "\xf0\x9f\x98\x80",
                                          "\xe4",
                                          "\xff",
                                          "\x80",
                                          "\xc0\xbc",
                                          "\xed\xa0\x80"};
const std::vector<std::string> kNames = {"Title",    "Body",    "Tag",    "body",    "Size",
                                         "Key",      "Snippet", "DocNum", "COMMAND", "x-y.z_",
                                         "@COMMAND", "",        "1",      "a<b"};
const std::vector<std::string> kScripts = {
    "html",      "html",    "snippet", "place",    "all",      "mark:shell", "mark:it",
    "mark:mark", "mark:lt", "mark:<",  "mark:amp", "mark:c++", "mark:39",    "bad"};

using Random = std::mt19937;

const std::string &Any(Random *random, const std::vector<std::string> &pieces) {
  return pieces[(*random)() % pieces.size()];
}

std::string AnyText(Random *random) {
  std::string text;
  const std::size_t kind = (*random)() % 40;
  const std::size_t count = kind == 0 ? 2000 : kind < 8 ? 200 : (*random)() % 12;
  for (std::size_t i = 0; i < count; ++i) {
    text += Any(random, kPieces);
    if ((*random)() % 8 == 0) text += static_cast<char>((*random)() % 256);
  }
  return text;
}

std::string AnyDocument(Random *random, char separator) {
  std::string data(1, separator);
  for (std::size_t count = (*random)() % 25; count > 0; --count)
    data += Any(random, kNames) + "=" + AnyText(random) + separator;
  return data;
}

std::string AnyScript(Random *random) {
  std::string script;
  for (std::size_t count = (*random)() % 8; count > 0; --count)
    script += Any(random, kScripts) + " ";
  return script;
}

// That a value is HTML of nothing but text and marks around words.
void ExpectSafe(std::string_view value) {
  bool marked = false;
  while (!value.empty()) {
    std::string_view unit = value.substr(0, 1);
    for (const std::string_view known :
         {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;", "<mark>", "</mark>"})
      if (value.starts_with(known)) unit = known;
    ASSERT_EQ(std::string_view("&<>\"'").find(unit), std::string_view::npos) << value;
    if (unit == "<mark>" || unit == "</mark>") {
      ASSERT_EQ(marked, unit == "</mark>") << value;
      marked = !marked;
    } else if (marked) {
      ASSERT_NE(unit, " ") << value;
    }
    value.remove_prefix(unit.size());
  }
  ASSERT_FALSE(marked);
}

// That text is UTF-8, to the last character.
void ExpectUtf8(std::string_view text) {
  for (Xapian::Utf8Iterator at(text.data(), text.size()); at != Xapian::Utf8Iterator();) {
    const unsigned code = *at;
    const std::size_t left = at.left();
    ++at;
    ASSERT_TRUE(code < 0x80 || left - at.left() > 1) << text;
  }
}

void ExpectRecord(const std::string &record, bool html) {
  using namespace std::string_view_literals;
  ASSERT_LE(record.size(), 40959u);
  ASSERT_EQ(record.find_first_of("\r\n\0"sv), record.size() - 1);
  if (record.starts_with("\t@COMMAND=ERROR\t")) return;
  CmdHdr hdr = {};
  const char *rest = Util_IntCmdHdr(&hdr, record.c_str());
  ASSERT_NE(rest, nullptr) << record;
  ASSERT_STREQ(hdr.Command, "HIT");
  ASSERT_EQ(hdr.DocNum, 17);
  ASSERT_TRUE(record.ends_with("\t\n"));
  std::string_view fields(rest, std::strlen(rest) - 1);
  ASSERT_LE(LongestValue(fields), 4095u);
  if (!html) return;
  ExpectUtf8(record);
  for (std::string_view pair = Text_Token(&fields, "\t"); !pair.empty();
       pair = Text_Token(&fields, "\t"))
    ExpectSafe(pair.substr(pair.find('=') + 1));
}

}  // namespace

TEST(Prepare, OfRandomDocumentsIsSafe) {
  Random random(1);
  const Schema schemas[] = {{},
                            Origin(SchemaOrigin::kOmega),
                            PackageSchema(),
                            Given("@language english\nTitle text\nBody text body\nTag keyword\n"
                                  "Size number\nKey keyword id\n")};
  const FdCapture log(2);
  for (int i = 0; i < 1500 && !testing::Test::HasFatalFailure(); ++i) {
    const Schema &schema = schemas[random() % 4];
    const std::string script = AnyScript(&random);
    const std::string data =
        AnyDocument(&random, schema.origin == SchemaOrigin::kOmega ? '\n' : '\t');
    const bool html = (" " + script).find(" html ") != std::string::npos;
    ExpectRecord(Prepare(data, schema, script), html);
    if (testing::Test::HasFatalFailure()) ADD_FAILURE() << i << ": " << script;
  }
}
