// What nobody should send, to the real managers and to the daemon before them: each answer is whole
// records, nobody dies of it, and what a page shows of a document's markup is text.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <random>

#include "tests/service/tree.h"

namespace {

constexpr std::size_t kCommandSize = 4096;  // of a line, its newline included
constexpr std::size_t kClients = 30;

bool Has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

// Lines that each begin with a command, at least one, and none longer than its reader takes.
bool IsRecords(const std::string &answer) {
  constexpr std::size_t kLongest = 40959;
  std::size_t at = 0;
  while (at < answer.size()) {
    const std::size_t end = answer.find('\n', at);
    if (end == std::string::npos || end - at >= kLongest) return false;
    if (answer.compare(at, 10, "\t@COMMAND=") != 0) return false;
    if (answer.substr(at, end - at).find_first_of(std::string("\r\0", 2)) != std::string::npos)
      return false;
    at = end + 1;
  }
  return at > 0;
}

// Every character that means something in a page, in a header and in a query, and some that are no
// UTF-8.
std::string Markup() {
  std::string text = "<script>alert('x')</script> & \"q\" <mark>evil</mark> --> ]]> &lt; &#60; <b/";
  for (int c = 0x21; c < 0x7f; ++c) text += static_cast<char>(c);
  return text + " \x80\x9f\xc3\xa9\xff\xfe <\xc0\xbc> \xf0\x9f\x98";
}

std::string Documents() {
  std::string text;
  for (int i = 0; i < 20; ++i)
    text += "Package: p" + std::to_string(i) + "\nText: common evil " + Markup() +
            "\nOther: common " + Markup() + "\n\n";
  return text;
}

class Hostile : public testing::Test {
 protected:
  Hostile() {
    tree_.Line('C', "web1", "-");
    tree_.Line('S', "grp1", "web1");
    tree_.Line('D', "grp1", "web1");
    const std::string schema = data_.Write(
        "schema",
        "@language english\nPackage keyword id\nText text body\nOther text\nSize number\nDay date\n");
    const std::string path = data_.Path() + "/db";
    const Finished indexer =
        RunIndexer({"--schema", schema, path, data_.Write("in.txt", Documents())});
    EXPECT_EQ(indexer.status, 0) << indexer.errors;
    tree_.Database("grp1", path, path);
    for (const char type : {'C', 'S', 'D'}) tree_.Start(type, type == 'C' ? "web1" : "grp1");
  }

  // Sends the lines, as many at once as there are clients.
  void Attack(char type, const std::vector<std::string> &lines) {
    for (std::size_t at = 0; at < lines.size(); at += kClients) {
      const std::size_t end = std::min(at + kClients, lines.size());
      const std::vector<std::string> some(lines.begin() + static_cast<std::ptrdiff_t>(at),
                                          lines.begin() + static_cast<std::ptrdiff_t>(end));
      const std::vector<std::string> answers = tree_.ExchangeAll(type, "grp1", some);
      for (std::size_t i = 0; i < some.size(); ++i)
        EXPECT_TRUE(IsRecords(answers[i])) << type << ": " << some[i] << "\n" << answers[i];
      tree_.Ping(type, "grp1");
    }
  }

  void TearDown() override {
    for (const char type : {'S', 'D'}) {
      tree_.Ping(type, "grp1");
      EXPECT_FALSE(Has(tree_.Program(type, "grp1").Log(), "[MainCore: Workers] Worker "))
          << tree_.Program(type, "grp1").Log();
    }
    const std::string hit = "\t@COMMAND=HIT\t";
    EXPECT_TRUE(Has(tree_.Exchange('S', "grp1", "\t@COMMAND=QUERY\tcommon\n"), hit));
    EXPECT_TRUE(Has(tree_.Exchange('D', "grp1", "\t@COMMAND=GETDOC\t@DOCNUM=1\n"), hit));
  }

  Folder data_;
  Tree tree_;
};

constexpr const char *kFields[] = {"FIRSTHIT", "SORT",   "DEADLINE", "BESTFIT", "STATUS",
                                   "MAXHITS",  "SCRIPT", "RECTYPE",  "DOCNUM",  "OPER"};

std::vector<std::string> Values() {
  return {"",
          "0",
          "-0",
          "-1",
          "-2147483648",
          "-99999999999999999999",
          "2147483647",
          "4294967297",
          "99999999999999999999",
          "1e9",
          "0x10",
          "1 2",
          " 1",
          "1;2",
          "\xff\xfe",
          "%s%n%d",
          "..",
          "=",
          "@",
          std::string(127, '9'),
          std::string(128, 'a'),
          std::string(1000, 'm'),
          std::string(1100, 'x'),
          std::string(3900, '-')};
}

std::string Line(char type, const std::string &fields) {
  return (type == 'S' ? "\t@COMMAND=QUERY" : "\t@COMMAND=GETDOC\t@DOCNUM=1") + fields +
         "\tcommon\n";
}

std::string Filled(const std::string &head, const std::string &pattern) {
  std::string line = head;
  while (line.size() + pattern.size() < kCommandSize) line += pattern;
  return line + "\n";
}

// Texts that fill a command to its last byte.
std::vector<std::string> LongQueries() {
  const std::string head = "\t@COMMAND=QUERY\t@STATUS=1\t@SCRIPT=html snippet\t";
  std::vector<std::string> lines;
  for (const char *pattern : {"\"",
                              "*",
                              "(",
                              ")",
                              "[",
                              "]",
                              "..",
                              "-",
                              "=",
                              " ",
                              "\t",
                              "\t@",
                              "a*",
                              "a* ",
                              "a\"",
                              "\"a\" ",
                              "\"a",
                              "-a ",
                              "-\"a\" ",
                              "a..b ",
                              "1..2 ",
                              "Size=1..2 ",
                              "Size=..",
                              "Size=\t",
                              "Day=",
                              "Day=2026-01-31..\t",
                              "Package=",
                              "Package=\"",
                              "Package=\"x\" ",
                              "Text=a* ",
                              "Text=\"common evil\" ",
                              "-Text=\"",
                              "common ",
                              "common evil ",
                              "comon evli ",
                              "\xff",
                              "\xc3\xa9 ",
                              "\xe2\x80\x8b",
                              "a'",
                              "a&b ",
                              "U.N. ",
                              "C++ ",
                              "@OPER=OR\t",
                              "\t@OPER=OR\tx",
                              "p1..p9 ",
                              "\x01",
                              "<>",
                              "--",
                              "- ",
                              "{}",
                              "~",
                              "a:b ",
                              "XTEXT:a ",
                              "Za "})
    lines.push_back(Filled(head, pattern));
  std::mt19937 random(20260131);
  const std::string pieces[] = {
      "\"",     "*",    "(",     ")",     "[",    "..", "-", "=",          " ",    "\t",
      "common", "evil", "Text=", "Size=", "Day=", "1",  "9", "2026-01-31", "\xc3", "a"};
  for (int i = 0; i < 30; ++i) {
    std::string line = head;
    while (line.size() < kCommandSize - 12) line += pieces[random() % std::size(pieces)];
    lines.push_back(line + "\n");
  }
  return lines;
}

// What is left of a page without the marks, which have to come in pairs.
std::string WithoutMarks(const std::string &page) {
  constexpr std::string_view kBegin = "<mark>", kEnd = "</mark>";
  std::string rest;
  bool marked = false;
  for (std::size_t at = 0; at < page.size();) {
    const std::string_view mark = marked ? kEnd : kBegin;
    if (page.compare(at, mark.size(), mark) == 0) {
      marked = !marked;
      at += mark.size();
    } else {
      rest += page[at++];
    }
  }
  EXPECT_FALSE(marked);
  return rest;
}

void ExpectEscaped(const std::string &page) {
  const std::string text = WithoutMarks(page);
  EXPECT_EQ(text.find_first_of("<>\"'"), std::string::npos) << text;
  for (std::size_t at = text.find('&'); at != std::string::npos; at = text.find('&', at + 1)) {
    const char *const entities[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;"};
    EXPECT_TRUE(std::any_of(std::begin(entities), std::end(entities), [&](const char *entity) {
      return text.compare(at, std::string_view(entity).size(), entity) == 0;
    })) << text.substr(at, 20);
  }
}

}  // namespace

TEST_F(Hostile, ValuesOfHeaderFields) {
  for (const char type : {'S', 'D'}) {
    std::vector<std::string> lines;
    for (const std::string name : kFields)
      for (const std::string &value : Values()) {
        const std::string field = "\t@" + name + "=" + value;
        lines.push_back(Line(type, field));
        if (field.size() * 2 < kCommandSize - 100) lines.push_back(Line(type, field + field));
        lines.push_back(Line(type, field.substr(0, 1500) + "\t@" + name + "=1\t@DEADLINE=4000"));
      }
    Attack(type, lines);
  }
}

TEST_F(Hostile, ValuesThroughTheDaemon) {
  data_.Write("page.hdr", "<");
  data_.Write("page.tail", ">");
  data_.Write("page.mo", TextOp("[") + ValueOp("Package") + TextOp("]") + EndOp());
  const std::string place = "\t@SEARCHGROUP=grp1\t@MACROFILE=" + data_.Path() + "/page";
  for (const std::string name : kFields) {
    for (const std::string &value : Values()) {
      const std::string field = "\t@" + name + "=" + value.substr(0, 3000);
      const std::string page =
          tree_.Exchange('C', "web1", "\t@COMMAND=QUERY" + place + field + "\tcommon\n");
      EXPECT_TRUE(page.starts_with('<') && page.ends_with('>')) << field << "\n" << page;
      tree_.Exchange('C', "web1", "\t@COMMAND=GETDOC\t@DOCNUM=1" + place + field + "\n");
    }
    for (const char type : {'S', 'D'}) tree_.Ping(type, "grp1");
    tree_.Ping('C', "web1");
  }
}

TEST_F(Hostile, BytesOfHeaderFields) {
  for (const char type : {'S', 'D'})
    for (const std::string name : kFields) {
      std::vector<std::string> lines;
      for (int c = 0; c < 256; ++c) {
        const std::string byte(1, static_cast<char>(c));
        std::string line = Line(type, "\t@" + name + "=" + byte);
        if (c == '\n') line.resize(line.find('\n') + 1);  // what stands behind a line is not read
        if (c != 0)
          lines.push_back(line);
        else
          EXPECT_EQ(tree_.ExchangeAll(type, "grp1", {line})[0], "");  // no line of text
      }
      Attack(type, lines);
    }
}

TEST_F(Hostile, BytesInNamesAndInTheText) {
  for (const char type : {'S', 'D'}) {
    std::vector<std::string> lines;
    for (int c = 1; c < 256; ++c) {
      if (c == '\n') continue;
      const std::string byte(1, static_cast<char>(c));
      lines.push_back(Line(type, "\t@" + byte + "=1"));
      lines.push_back(Line(type, "\t" + byte));
      lines.push_back(Line(type, "\tcommon" + byte + "evil\t" + byte));
      lines.push_back(Line(type, "\tText=" + byte + "common" + byte));
    }
    Attack(type, lines);
  }
}

TEST_F(Hostile, LongQueries) {
  const std::vector<std::string> lines = LongQueries();
  for (const std::string &line : lines) ASSERT_LE(line.size(), kCommandSize);
  Attack('S', lines);
  Attack('S', lines);
}

TEST_F(Hostile, ALineThatIsCutAnywhereIsNoCommand) {
  const std::string line = Line('S', "\t@STATUS=1\t@SCRIPT=html\t@FIRSTHIT=1");
  for (const char type : {'S', 'D'})
    for (std::size_t size = 0; size < line.size(); size += kClients) {
      std::vector<std::string> lines;
      for (std::size_t i = size; i < std::min(size + kClients, line.size()); ++i)
        lines.push_back(line.substr(0, i));
      for (const std::string &answer : tree_.ExchangeAll(type, "grp1", lines))
        EXPECT_EQ(answer, "");
      tree_.Ping(type, "grp1");
    }
}

TEST_F(Hostile, LinesThatAreTooLongOrOfAnotherKind) {
  for (const char type : {'S', 'D'}) {
    for (const std::size_t size : {kCommandSize - 1, kCommandSize, 3 * kCommandSize}) {
      const std::string flood(size, 'f');
      EXPECT_EQ(tree_.ExchangeAll(type, "grp1", {flood})[0], "") << size;
    }
    EXPECT_EQ(tree_.Exchange(type, "grp1", "\tx\n"),
              "\t@COMMAND=ERROR\tUnable to figure out this command\n");
    for (const char *line : {"\n", "\t\n", "\t@\n", "\t@=\n", "\t@COMMAND\n", "\t@COMMAND=\n",
                             "\t@COMMAND=STARTUPANNOUNCEMENT\tID=x\n", "GET / HTTP/1.1\r\n"})
      EXPECT_TRUE(IsRecords(tree_.Exchange(type, "grp1", line))) << line;
    tree_.Ping(type, "grp1");
  }
}

TEST_F(Hostile, AStatusKeepsInsideItsComment) {
  for (const char *text : {"comon-->", "comon --> evli", "evli\" onload=\"x", "comon<script>"}) {
    const std::string answer = tree_.Exchange(
        'S', "grp1", std::string("\t@COMMAND=QUERY\t@STATUS=1\t@OPER=OR\t") + text + "\n");
    const std::size_t end = answer.find("-->");
    ASSERT_TRUE(answer.starts_with("\t@COMMAND=RAW\t<!--korvo matches=")) << answer;
    ASSERT_NE(end, std::string::npos);
    EXPECT_EQ(answer[end + 3], '\n') << answer;
    EXPECT_EQ(answer.substr(0, end).find_first_of("<>\"'", 18), std::string::npos) << answer;
    EXPECT_EQ(answer.substr(18, end - 18).find("--"), std::string::npos) << answer;
  }
}

TEST_F(Hostile, AnErrorRepeatsNothingOfTheClient) {
  for (const std::string name : kFields)
    for (const char type : {'S', 'D'}) {
      const std::string answer = tree_.Exchange(type, "grp1", Line(type, "\t@" + name + "=<evil>"));
      EXPECT_FALSE(answer.starts_with("\t@COMMAND=ERROR\t") && Has(answer, "<evil>")) << answer;
    }
}

TEST_F(Hostile, APageHoldsNoMarkupOfADocument) {
  data_.Write("page.hdr", "");
  data_.Write("page.tail", "");
  std::string macro;
  for (const char *name :
       {"Package", "Text", "Other", "Size", "Day", "Snippet", "SearchGroup", "RecType", "DocNum"})
    macro += ValueOp(name) + TextOp("|");
  data_.Write("page.mo", macro + EndOp());
  const std::string head =
      "\t@SEARCHGROUP=grp1\t@MACROFILE=" + data_.Path() + "/page\t@SCRIPT=html place all snippet";
  for (const char *text :
       {"common", "evil", "mark script alert q", "lt amp quot 39", "b \xc3\xa9 x"}) {
    const std::string page =
        tree_.Exchange('C', "web1", "\t@COMMAND=QUERY" + head + "\t@OPER=OR\t" + text + "\n");
    EXPECT_TRUE(Has(page, "<mark>")) << text << page;
    ExpectEscaped(page);
  }
  for (const char *script :
       {"", " mark:evil", " mark:script mark:lt", " mark:<b> mark:\"x mark:&"}) {
    const std::string page =
        tree_.Exchange('C', "web1", "\t@COMMAND=GETDOC" + head + script + "\t@DOCNUM=7\n");
    EXPECT_TRUE(Has(page, "&lt;script&gt;") || Has(page, "&lt;<mark>script</mark>&gt;")) << page;
    EXPECT_TRUE(Has(page, "|grp1|")) << page;
    ExpectEscaped(page);
  }
  // Where a document stands is what a client said.
  const std::string page =
      tree_.Exchange('C', "web1", "\t@COMMAND=GETDOC" + head + "\t@RECTYPE=<b>\"x'&y\t@DOCNUM=7\n");
  EXPECT_TRUE(Has(page, "|grp1|&lt;b&gt;&quot;x&#39;&amp;y|7|")) << page;
  ExpectEscaped(page);
}
