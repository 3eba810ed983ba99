#include "tools/query/request.h"

#include <gtest/gtest.h>

namespace {

Request Query(const std::vector<std::string> &predicate) {
  Request request;
  request.group = "sm1";
  request.macro = "/m/page";
  request.predicate = predicate;
  return request;
}

std::string LineOf(const Request &request) {
  std::string line, wrong;
  EXPECT_TRUE(Request_Format(request, &line, &wrong)) << wrong;
  return line;
}

std::string Wrong(const Request &request) {
  std::string line, wrong;
  EXPECT_FALSE(Request_Format(request, &line, &wrong)) << line;
  EXPECT_EQ("", line);
  return wrong;
}

constexpr const char *kHead = "\t@COMMAND=QUERY\t@SEARCHGROUP=sm1\t@MACROFILE=/m/page\t";

TEST(Request, Words_AreOneFreeText) {
  EXPECT_EQ(kHead + std::string("tcp wrappers\n"), LineOf(Query({"tcp", "wrappers"})));
}

TEST(Request, Pairs_AreTokensOfTheirOwn) {
  EXPECT_EQ(kHead + std::string("a b\tName=x y\tOther=z\tc\t@OPER=OR\n"),
            LineOf(Query({"a", "b", "Name=x y", "Other=z", "c", "@OPER=OR"})));
  EXPECT_EQ(kHead + std::string("@OPER=AND\ta\n"), LineOf(Query({"@OPER=AND", "a"})));
}

TEST(Request, Query_CarriesWhatWasGiven) {
  Request request = Query({"a"});
  request.type = "T";
  request.max_hits = 0;
  EXPECT_EQ("\t@COMMAND=QUERY\t@SEARCHGROUP=sm1\t@RECTYPE=T\t@MACROFILE=/m/page\t@MAXHITS=0\ta\n",
            LineOf(request));
}

TEST(Request, Headers_GoBehindTheOthersInTheirOrder) {
  Request request = Query({"a"});
  request.headers = {"SORT=-Date", "SCRIPT=html place", "EMPTY=", "SORT=a=b"};
  EXPECT_EQ(
      "\t@COMMAND=QUERY\t@SEARCHGROUP=sm1\t@MACROFILE=/m/page\t@SORT=-Date\t@SCRIPT=html place\t@EMPTY=\t@SORT=a=b\ta\n",
      LineOf(request));
}

TEST(Request, HeaderThatIsNone_IsRefused) {
  const auto wrong = [](const std::string &field) {
    Request request = Query({"a"});
    request.headers = {field};
    return Wrong(request);
  };
  for (const char *field : {"", "SORT", "=x", "sort=x", "SO RT=x", "@SORT=x"})
    EXPECT_EQ(
        wrong(field),
        std::string("--header takes NAME=VALUE with a name in capitals, as in SORT=Date, not '") +
            field + "'");
  for (const char *name :
       {"COMMAND", "SEARCHGROUP", "RECTYPE", "MACROFILE", "DOCNUM", "MAXHITS", "OPER"})
    EXPECT_EQ(wrong(std::string(name) + "=x"),
              "--header has no say in " + std::string(name) + "; there is an option");
  EXPECT_EQ(wrong("SORT=a\tb"),
            "--header holds a tab, newline or carriage return; a value goes without");
  EXPECT_EQ(wrong("SORT=" + std::string(1019, 'x')),
            "--header has a value of more bytes than a field holds");
  Request longest = Query({"a"});
  longest.headers = {"SORT=" + std::string(1018, 'x')};
  EXPECT_NE(LineOf(longest), "");
}

TEST(Request, Doc_IsAGetdoc) {
  Request request = Query({});
  request.type = "T";
  request.doc = 17;
  EXPECT_EQ("\t@COMMAND=GETDOC\t@SEARCHGROUP=sm1\t@RECTYPE=T\t@MACROFILE=/m/page\t@DOCNUM=17\n",
            LineOf(request));
}

TEST(Request, Separator_IsRefusedEverywhere) {
  for (const char *text : {"a\tb", "a\nb", "a\r", "\t"}) {
    Request request = Query({"a"});
    request.group = text;
    EXPECT_EQ(
        "--group (or KORVO_GROUP) holds a tab, newline or carriage return; a value goes without",
        Wrong(request));
    request = Query({"a"});
    request.macro = text;
    EXPECT_EQ(
        "--macro (or KORVO_MACRO) holds a tab, newline or carriage return; a value goes without",
        Wrong(request));
    request = Query({"a"});
    request.type = text;
    EXPECT_EQ("--type holds a tab, newline or carriage return; a value goes without",
              Wrong(request));
    EXPECT_EQ("an argument holds a tab, newline or carriage return; put a blank in its place",
              Wrong(Query({"a", text})));
  }
}

TEST(Request, Field_CannotBeSmuggledIn) {
  for (const char *word : {"@MACROFILE=/x", "@", "@OPER=XOR", "@OPER", "@OPER=AND "})
    EXPECT_EQ("an argument begins with '@'; only @OPER=AND and @OPER=OR may",
              Wrong(Query({"a", word})));
}

TEST(Request, LongestValue_Has127Bytes) {
  Request request = Query({"a"});
  request.group = std::string(127, 'g');
  EXPECT_NE("", LineOf(request));
  request.group += 'g';
  EXPECT_EQ("--group (or KORVO_GROUP) is longer than 127 bytes, the most that a field holds",
            Wrong(request));
}

TEST(Request, LongestLine_Has4095BytesAndANewline) {
  const std::size_t room = 4095 - std::string(kHead).size();
  EXPECT_EQ(4096u, LineOf(Query({std::string(room, 'x')})).size());
  EXPECT_EQ("the request has 4096 bytes; a line takes 4095, so search for less",
            Wrong(Query({std::string(room + 1, 'x')})));
}

TEST(Request, Contradictions_AreRefused) {
  EXPECT_EQ("there is nothing to search for; give words or NAME=terms, or --doc", Wrong(Query({})));
  EXPECT_EQ("an argument is empty; leave it out", Wrong(Query({""})));
  Request request = Query({"a"});
  request.doc = 1;
  EXPECT_EQ("--doc asks for one document; leave out what to search for, or --doc", Wrong(request));
  request = Query({});
  request.doc = request.max_hits = 1;
  EXPECT_EQ("--doc asks for one document; leave out --max-hits, or --doc", Wrong(request));
  request = Query({"a"});
  request.macro = "";
  EXPECT_EQ("--macro (or KORVO_MACRO) is missing: a request names a group and a macro",
            Wrong(request));
}

}  // namespace
