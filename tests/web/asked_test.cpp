#include "web/asked.h"

#include <gtest/gtest.h>

namespace {

std::string LineOf(const std::string &target, const std::string &lines = "") {
  WebConf conf = Conf_Default();
  conf.groups = {{"grp1", "/m/results", "/m/document", "Group", {}}};
  if (!lines.empty()) conf.page_hits = std::stoi(lines);
  std::string line;
  EXPECT_TRUE(Asked_Line(Asked_Read(target), conf.groups[0], conf, 8000, &line));
  return line;
}

const std::string kQuery =
    "\t@COMMAND=QUERY\t@SEARCHGROUP=grp1\t@MACROFILE=/m/results\t@SCRIPT=html place all snippet\t@MAXHITS=10";

}  // namespace

TEST(Asked, Routes) {
  const std::pair<const char *, Route> targets[] = {{"/", Route::kFront},
                                                    {"/?q=a", Route::kFront},
                                                    {"/search", Route::kSearch},
                                                    {"/search?", Route::kSearch},
                                                    {"/search/", Route::kNone},
                                                    {"/doc/a/1", Route::kDocument},
                                                    {"/doc", Route::kNone},
                                                    {"/opensearch.xml", Route::kOpenSearch},
                                                    {"/metrics", Route::kMetrics},
                                                    {"/healthz", Route::kHealth},
                                                    {"/static/a.css", Route::kStatic},
                                                    {"", Route::kNone},
                                                    {"*", Route::kNone},
                                                    {"?q=a", Route::kNone},
                                                    {"/other", Route::kNone}};
  for (const auto &[target, route] : targets) EXPECT_EQ(Asked_Read(target).route, route) << target;
}

// As a request to a proxy has it, and every server has to take it.
TEST(Asked, AbsoluteTarget_IsThatOfItsPath) {
  EXPECT_EQ(Asked_Read("http://x/search?q=zz").text, "zz");
  EXPECT_EQ(Asked_Read("HTTPS://x:81/doc/a/1").number, 1);
  for (const char *target : {"http://x", "http://x/", "http://x?q=a"})
    EXPECT_EQ(Asked_Read(target).route, Route::kFront) << target;
  EXPECT_EQ(Asked_Read("http://x?q=a").text, "a");
  EXPECT_EQ(Asked_Read("/search?q=http://x/").text, "http://x/");
  EXPECT_EQ(Asked_Read("ftp://x/").route, Route::kNone);
}

TEST(Asked, NamesOfRoutes) {
  const std::pair<Route, const char *> names[] = {
      {Route::kNone, "none"},      {Route::kFront, "front"},           {Route::kSearch, "search"},
      {Route::kDocument, "doc"},   {Route::kOpenSearch, "opensearch"}, {Route::kMetrics, "metrics"},
      {Route::kHealth, "healthz"}, {Route::kStatic, "static"}};
  for (const auto &[route, name] : names) EXPECT_STREQ(Asked_Name(route), name);
}

TEST(Asked, Parameters) {
  const Asked asked = Asked_Read(
      "/search?q=a+b%26c&group=grp1&page=3&sort=-Date&Section=x&Title=&=y&&bad%09name=z");
  EXPECT_EQ(asked.text, "a b&c");
  EXPECT_EQ(asked.group, "grp1");
  EXPECT_EQ(asked.page, 3);
  EXPECT_EQ(asked.sort, "-Date");
  ASSERT_EQ(asked.fields.size(), 1u);
  EXPECT_EQ(asked.fields[0], (std::pair<std::string, std::string>("Section", "x")));
}

// The daemon keeps 127 bytes of a field.
TEST(Asked, NameThatIsTooLong_IsLeftOut) {
  const std::string longest(127, 'a'), longer(128, 'a');
  EXPECT_EQ(Asked_Read("/search?sort=" + longest).sort, longest);
  EXPECT_EQ(Asked_Read("/search?sort=" + longer).sort, "");
  EXPECT_EQ(Asked_Read("/doc/grp1/1?type=" + longest).type, longest);
  EXPECT_EQ(Asked_Read("/doc/grp1/1?type=" + longer).type, "");
  EXPECT_EQ(Asked_Read("/search?" + longest + "=x").fields.size(), 1u);
  EXPECT_EQ(Asked_Read("/search?" + longer + "=x").fields.size(), 0u);
}

TEST(Asked, FieldsBehindThe32nd_AreLeftOut) {
  std::string target = "/search?q=a";
  for (int i = 1; i <= 33; ++i) target += "&f" + std::to_string(i) + "=x";
  const Asked asked = Asked_Read(target + "&group=grp1");
  ASSERT_EQ(asked.fields.size(), 32u);
  EXPECT_EQ(asked.fields.back().first, "f32");
  EXPECT_EQ(asked.group, "grp1");
}

TEST(Asked, PagesThatAreNone_AreTheFirst) {
  for (const char *page : {"", "0", "-1", "x", "1x", "99999999999"})
    EXPECT_EQ(Asked_Read(std::string("/search?page=") + page).page, 1) << page;
}

TEST(Asked, Document) {
  const Asked asked = Asked_Read("/doc/grp%31/17?type=pack&group=other");
  EXPECT_EQ(asked.group, "grp1");
  EXPECT_EQ(asked.number, 17);
  EXPECT_EQ(asked.type, "pack");
  EXPECT_EQ(Asked_Read("/doc/grp1").number, -1);
  EXPECT_EQ(Asked_Read("/doc/grp1/x").number, -1);
  EXPECT_EQ(Asked_Read("/doc/grp1/1?type=a%09@SEARCHGROUP=b").type, "");
}

TEST(Asked, LineOfASearch) {
  EXPECT_EQ(LineOf("/search?q=mail"), kQuery + "\t@FIRSTHIT=0\t@DEADLINE=8000\t@STATUS=1\tmail\n");
  EXPECT_EQ(LineOf("/search?q=mail&page=3&sort=-Size&Section=net"),
            kQuery + "\t@FIRSTHIT=20\t@SORT=-Size\t@DEADLINE=8000\t@STATUS=1\tmail\tSection=net\n");
}

TEST(Asked, LineOfADocument) {
  EXPECT_EQ(
      LineOf("/doc/grp1/17?type=pack"),
      "\t@COMMAND=GETDOC\t@SEARCHGROUP=grp1\t@MACROFILE=/m/document\t@SCRIPT=html place all snippet"
      "\t@RECTYPE=pack\t@DOCNUM=17\n");
}

TEST(Asked, LastPage_IsTheLastThatASearchManagerGives) {
  EXPECT_EQ(Asked_Read("/search?page=10000").page, 10000);
  EXPECT_EQ(Asked_Read("/search?page=10001").page, 10000);
  for (const char *page : {"1000", "1001", "10000"})
    EXPECT_EQ(LineOf(std::string("/search?q=a&page=") + page),
              kQuery + "\t@FIRSTHIT=9990\t@DEADLINE=8000\t@STATUS=1\ta\n");
  EXPECT_EQ(LineOf("/search?q=a&page=999"),
            kQuery + "\t@FIRSTHIT=9980\t@DEADLINE=8000\t@STATUS=1\ta\n");
}

TEST(Asked, NoByteOfAUser_BeginsAField) {
  const std::string whole = kQuery + "\t@FIRSTHIT=0\t@DEADLINE=8000\t@STATUS=1\t";
  EXPECT_EQ(LineOf("/search?q=a%09@MACROFILE=/x%0D%0Ab%00c"), whole + "a @MACROFILE=/x  b c\n");
  EXPECT_EQ(LineOf("/search?q=%20@@OPER=OR"), whole + "OPER=OR\n");
  EXPECT_EQ(LineOf("/search?Title=%09@x%09@y"), whole + "Title=x @y\n");
  for (int byte = 0; byte < 256; ++byte) {
    char escape[8];
    std::snprintf(escape, sizeof escape, "%%%02x", static_cast<unsigned>(byte));
    const std::string e = escape;
    const std::string line =
        LineOf("/search?q=a" + e + "@b&sort=a" + e + "&" + e + "x=1&x" + e + "=" + e + "z");
    EXPECT_EQ(line.find_first_of(std::string("\n\r\0", 3)), line.size() - 1) << byte;
    int fields = 0;
    for (std::size_t at = line.find("\t@"); at != std::string::npos; at = line.find("\t@", at + 1))
      ++fields;
    EXPECT_EQ(fields, line.find("\t@SORT=") == std::string::npos ? 8 : 9) << line;
  }
}

TEST(Asked, LineThatIsTooLong_IsRefused) {
  WebConf conf = Conf_Default();
  conf.groups = {{"grp1", "/m/results", "/m/document", "Group", {}}};
  std::string line;
  const std::size_t fixed = LineOf("/search?q=a").size() - 2;
  EXPECT_TRUE(Asked_Line(Asked_Read("/search?q=" + std::string(4095 - fixed, 'a')), conf.groups[0],
                         conf, 8000, &line));
  EXPECT_EQ(line.size(), 4096u);
  EXPECT_FALSE(Asked_Line(Asked_Read("/search?q=" + std::string(4096 - fixed, 'a')), conf.groups[0],
                          conf, 8000, &line));
}

TEST(Asked, Link_AsksForTheSame) {
  const Asked asked = Asked_Read("/search?q=a%26b+c&group=grp1&page=2&Section=x%3Dy");
  EXPECT_EQ(Asked_Link(asked, 1, ""), "/search?q=a%26b%20c&group=grp1&Section=x%3Dy");
  EXPECT_EQ(Asked_Link(asked, 3, "-Date"),
            "/search?q=a%26b%20c&group=grp1&page=3&sort=-Date&Section=x%3Dy");
  EXPECT_EQ(Asked_Link(asked, 2, ""), "/search?q=a%26b%20c&group=grp1&page=2&Section=x%3Dy");
  EXPECT_EQ(Asked_Link(Asked_Read("/?q=a"), 1, ""), "/search?q=a");
}
