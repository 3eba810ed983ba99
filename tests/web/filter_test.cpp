#include "web/filter.h"

#include <gtest/gtest.h>

namespace {

const char *NameOf(Placeholder which) {
  constexpr const char *kNames[] = {"query",    "status", "pager", "sort", "groups",
                                    "spelling", "notice", "hit",   "links"};
  return kNames[static_cast<int>(which)];
}

// Shows what a placeholder is told.
std::string Shown(Placeholder which, const PageFacts &facts) {
  std::string text = std::string("[") + NameOf(which);
  if (which == Placeholder::kStatus && facts.known)
    text += " " + std::to_string(facts.status.matches);
  if (which == Placeholder::kHit) text += " " + std::to_string(facts.hits);
  if (which == Placeholder::kLinks) text += " '" + facts.list + "'";
  if (which == Placeholder::kNotice)
    for (const Trouble trouble : facts.unsaid)
      text += std::string(" ") + Trouble_Info(trouble).name;
  return text + "]";
}

// The output of an input that comes in pieces of that size.
std::string Filtered(bool searching, const std::string &input, std::size_t piece,
                     Trouble end = Trouble::kNone) {
  Filter filter = Filter_Begin(searching, Shown);
  std::string out;
  for (std::size_t at = 0; at < input.size(); at += piece)
    Filter_Feed(&filter, std::string_view(input).substr(at, piece), &out);
  Filter_End(&filter, end, &out);
  return out;
}

// However the input is cut.
std::string Page(bool searching, const std::string &input, Trouble end = Trouble::kNone) {
  const std::string whole = Filtered(searching, input, input.size() + 1, end);
  for (std::size_t piece = 1; piece < std::min<std::size_t>(input.size(), 40); ++piece)
    EXPECT_EQ(whole, Filtered(searching, input, piece, end)) << "in pieces of " << piece;
  return whole;
}

std::string Search(const std::string &input, Trouble end = Trouble::kNone) {
  return Page(true, input, end);
}
std::string Document(const std::string &input) { return Page(false, input); }

// Of a page whose hits have numbers and whose frame behind them is that.
std::string Tailed(const std::string &input, const std::string &tail,
                   Trouble end = Trouble::kNone) {
  std::string whole;
  for (std::size_t piece = input.size() + 1; piece > 0; --piece) {
    Filter filter = Filter_Begin(true, Shown);
    filter.numbered = true;
    filter.tail = [&tail] { return tail; };
    std::string out;
    for (std::size_t at = 0; at < input.size(); at += piece)
      Filter_Feed(&filter, std::string_view(input).substr(at, piece), &out);
    Filter_End(&filter, end, &out);
    if (whole.empty()) whole = out;
    EXPECT_EQ(whole, out) << "in pieces of " << piece;
  }
  return whole;
}

std::string StatusOf(int matches, int shown, const std::string &shards = "4/4") {
  return "\t<!--korvo matches=" + std::to_string(matches) +
         " first=1 shown=" + std::to_string(shown) + " shards=" + shards + " ms=12-->\n";
}

// Of a piece of an answer alone.
std::string Given(const std::string &input) {
  Filter filter = Filter_Begin(true, Shown);
  std::string out;
  Filter_Feed(&filter, input, &out);
  return out;
}

}  // namespace

TEST(Filter, PlainBytes_GoThrough) {
  EXPECT_EQ(Document("a<b>\t\n<!-- x --><!--korvo-->"), "a<b>\t\n<!-- x --><!--korvo-->");
  EXPECT_EQ(Document(""), "");
  EXPECT_EQ(Document("<"), "<");
  EXPECT_EQ(Document("\t"), "\t");
}

TEST(Filter, Placeholders_AreFilledIn) {
  EXPECT_EQ(Document("<!--korvo:query--><!--korvo:groups-->\"<!--korvo:query-->\""),
            "[query][groups]\"[query]\"");
  EXPECT_EQ(Document("<<!--korvo:query-->"), "<[query]");
}

TEST(Filter, Links_TakeTheTextUpToTheNextTag) {
  EXPECT_EQ(Document("<dd><!--korvo:links-->a (&gt;= 2), b</dd>"),
            "<dd>[links 'a (&gt;= 2), b']</dd>");
  EXPECT_EQ(Document("<!--korvo:links--></dd>"), "[links '']</dd>");
  EXPECT_EQ(Document("<!--korvo:links-->a<!--korvo:query-->"), "[links 'a'][query]");
  EXPECT_EQ(Document("<!--korvo:links-->a"), "[links 'a']");
  EXPECT_EQ(Document("<!--korvo:links-->a\t@COMMAND=ERROR\tUnable to retreive document."),
            "[links 'a'][notice lost-document]");
  const std::string list(4095, 'x');
  EXPECT_EQ(Document("<!--korvo:links-->" + list + "<br>"), "[links '" + list + "']<br>");
  EXPECT_EQ(Document("<!--korvo:links-->x" + list + "<br>"), "<!--korvo:links-->x" + list + "<br>");
}

TEST(Filter, UnknownPlaceholder_StaysAsItIs) {
  const std::string text =
      "<!--korvo:other--><!--korvo:--><!--korvo:query ><!--korvo:" + std::string(100, 'x') + "-->";
  EXPECT_EQ(Document(text), text);
}

TEST(Filter, PlaceholderThatIsCutOff_StaysAsItIs) {
  for (const std::string text : {"a<!--korvo:", "a<!--korvo:query", "a<!--korvo:query--"})
    EXPECT_EQ(Document(text), text);
}

// Its name is there, and what follows might yet end it, when the service says something else.
TEST(Filter, PlaceholderThatIsOpen_HoldsNoReasonBack) {
  EXPECT_EQ(Search("<!--korvo:status--><!--korvo:q\tUnable to sort: x\ntail"),
            "[status]<!--korvo:qtail[notice query]");
}

TEST(Filter, TabsThatBeginNothing_StayWhereTheyAre) {
  EXPECT_EQ(Search("<ol>\t\n" + StatusOf(1, 1) + "<li>"), "<ol>\t\n<li>");
  EXPECT_EQ(Search("<ol>\t<b>\n" + StatusOf(1, 1) + "<li>"), "<ol>\t<b>\n<li>");
  EXPECT_EQ(Search(StatusOf(1, 1) + "<li>\t"), "<li>\t");
  EXPECT_EQ(Search(StatusOf(1, 1) + "<li>\t\n"), "<li>\t\n");
}

TEST(Filter, Status_IsTakenOutAndKnownInFrontOfIt) {
  EXPECT_EQ(Search("<h1><!--korvo:status--></h1>\n" + StatusOf(7, 2) + "hits <!--korvo:status-->"),
            "<h1>[status 7]</h1>\nhits [status 7]");
}

TEST(Filter, Frame_IsGivenUpToTheFirstPlaceholderThatWaits) {
  EXPECT_EQ(Given("<h1><!--korvo:query--></h1><p><!--korvo:status--></p>"), "<h1>[query]</h1><p>");
  EXPECT_EQ(Given("a <!--korvo:status--> b" + StatusOf(1, 1) + "first"), "a [status 1] bfirst");
}

TEST(Filter, Placeholders_WaitForTheSearchWhereTheyTellOfIt) {
  EXPECT_EQ(Given("<!--korvo:query--><!--korvo:groups--><!--korvo:hit--><!--korvo:links-->a<p>"),
            "[query][groups][hit 1][links 'a']<p>");
  for (const std::string name : {"status", "pager", "sort", "spelling", "notice"})
    EXPECT_EQ(Given("<p><!--korvo:" + name + "--></p>"), "<p>") << name;
}

TEST(Filter, Hits_AreGivenAsTheyCome) {
  EXPECT_EQ(Given("<" + StatusOf(2, 2) + "<li>one</li>"), "<<li>one</li>");
}

TEST(Filter, StatusThatNeverComes_ReleasesTheFrame) {
  const std::string text(30000, 'x');
  EXPECT_EQ(Given("<!--korvo:status-->" + text), "[status]" + text);
  EXPECT_EQ(Search("<!--korvo:status-->" + text), "[status]" + text);
  EXPECT_EQ(Search("<!--korvo:status-->x"), "[status]x");
}

TEST(Filter, StatusBehindTooLongAFrame_IsNotAwaited) {
  const std::string text(17000, 'x');
  EXPECT_EQ(Search("<!--korvo:status-->" + text + StatusOf(1, 1)),
            "[status]" + text + StatusOf(1, 1));
}

TEST(Filter, StatusInTheFirst16384BytesBehindAPlaceholder_IsAwaited) {
  const std::string mark = "<!--korvo:status-->", text(16383 - mark.size(), 'x');
  EXPECT_EQ(Filtered(true, mark + text + StatusOf(1, 1), 1000), "[status 1]" + text);
  EXPECT_EQ(Filtered(true, mark + text + "x" + StatusOf(1, 1), 1000),
            "[status]" + text + "x" + StatusOf(1, 1));
}

TEST(Filter, FrameThatIsHeldBack_IsGivenAfter20480Bytes) {
  const std::string mark = "<!--korvo:status-->", text(20479 - mark.size(), 'x');
  EXPECT_EQ(Given(mark + text), "");
  EXPECT_EQ(Given(mark + text + "x"), "[status]" + text + "x");
}

TEST(Filter, ReasonOf4096Bytes_IsTheLongest) {
  const std::string reason = "\tUnable to sort: ";
  const std::string longest = reason + std::string(4095 - reason.size(), 'x');
  EXPECT_EQ(Search(longest + "\ntail"), "tail[notice query]");
  EXPECT_EQ(Filtered(true, longest + "x\ntail", 1000), longest + "x\ntail");
}

TEST(Filter, PlaceholderOf64Bytes_IsTheLongest) {
  const std::string open = "<!--korvo:" + std::string(53, 'x');
  EXPECT_EQ(Given(open), "");
  EXPECT_EQ(Given(open + "x"), open + "x");
}

TEST(Filter, ErrorLine_IsHeldBackUntilItIsKnown) {
  const std::string line = "\t@COMMAND=ERROR\tUnable to retreive document.";
  Filter filter = Filter_Begin(true, Shown);
  std::string out;
  Filter_Feed(&filter, line + std::string(99, 'x'), &out);
  EXPECT_TRUE(filter.facts.troubles.empty());
  Filter_Feed(&filter, "x", &out);
  EXPECT_EQ(filter.facts.troubles, std::vector<Trouble>{Trouble::kLostDocument});
}

TEST(Filter, MissingShards_AreANotice) {
  EXPECT_EQ(Search("<!--korvo:notice-->" + StatusOf(1, 1, "3/4") + "x<!--korvo:notice-->"),
            "[notice shards]x[notice]");
}

TEST(Filter, ReasonOfTheSearchManager_IsANotice) {
  EXPECT_EQ(
      Search("<!--korvo:notice-->head\n\tUnable to parse query: @OPER is neither AND nor OR\ntail"),
      "[notice query]head\ntail");
  EXPECT_EQ(Search("head\tUnable to sort: the database has no field\ntail<!--korvo:notice-->"),
            "headtail[notice query]");
  EXPECT_EQ(Search("head\tThe search took too long\ntail"), "headtail[notice too-late]");
  EXPECT_EQ(Search("head\tUnable to read the database\ntail"), "headtail[notice failed]");
  EXPECT_EQ(Search("head\tUnable to read the data"), "head[notice failed]");
}

TEST(Filter, ReasonBehindTheStatus_IsTakenOut) {
  const std::string front = "<ol>" + StatusOf(9, 3) + "<li>one</li>";
  for (const std::string &hits : {front, front + "\n"}) {
    const std::string shown = "<ol>" + hits.substr(hits.find("<li>"));
    EXPECT_EQ(Search(hits + "\tThe search took too long\n</ol>"), shown + "</ol>[notice too-late]");
    EXPECT_EQ(Search(hits + "\tThe search took too long"), shown + "[notice too-late]");
    EXPECT_EQ(Search(hits + "\tUnable to read the database\n</ol>"),
              shown + "</ol>[notice failed]");
    EXPECT_EQ(Search(hits + "\tUnable to sort: no field\n</ol>"), shown + "</ol>[notice query]");
  }
  EXPECT_EQ(Search(front + "\tsecret of the service\n</ol>"),
            "<ol><li>one</li>\tsecret of the service\n</ol>");
  EXPECT_EQ(Search(front + "\n\tsecret of the service\n</ol>"),
            "<ol><li>one</li>\n\tsecret of the service\n</ol>");
  EXPECT_EQ(Search(front + "\tThe searched\tThe"), "<ol><li>one</li>\tThe searched[notice failed]");
  EXPECT_EQ(Search(front + "\n\t<li>two</li>\n</ol>"), "<ol><li>one</li>\n\t<li>two</li>\n</ol>");
  EXPECT_EQ(Document("a\n\tThe search took too long\n"), "a\n\tThe search took too long\n");
}

TEST(Filter, ErrorLines_AreTakenOutWhereverTheyStand) {
  EXPECT_EQ(Search("a" + StatusOf(1, 1) + "<li>\t@COMMAND=ERROR\tUnable to retreive document.tail"),
            "a<li>tail[notice lost-document]");
  EXPECT_EQ(Search("\t@COMMAND=ERROR\tUnable to receive from Search Manager. Please contact Web "
                   "Administrator.\n</ol><!--korvo:notice-->"),
            "</ol>[notice broken]");
  EXPECT_EQ(Document("\t@COMMAND=ERROR\tUnable to locate Document Server."),
            "[notice no-document]");
  EXPECT_EQ(Search("\t@COMMAND=ERROR\tUnable to connect to SearchMgr: rc = -111\n"),
            "[notice gone]");
  EXPECT_EQ(Search("\t@COMMAND=ERROR\tUnable to locate SearchMgr\n"), "[notice gone]");
}

TEST(Filter, UnknownErrorLine_EndsAtItsNewlineOrWhereAFrameBegins) {
  EXPECT_EQ(Document("a\t@COMMAND=ERROR\tsecret\nb"), "ab[notice failed]");
  EXPECT_EQ(Document("a\t@COMMAND=ERROR\tsecret<b>"), "a<b>[notice failed]");
  EXPECT_EQ(Document("a\t@COMMAND=ERROR\t" + std::string(9000, 's') + "\nb"), "ab[notice failed]");
  EXPECT_EQ(Document("\t@COMMAND=ERROR\t"), "[notice failed]");
}

TEST(Filter, ErrorLineThatIsCutOff_IsNotShown) {
  EXPECT_EQ(Document("a\t@COMMAND=ERR"), "a[notice broken]");
  EXPECT_EQ(Document("a\t@"), "a[notice broken]");
}

TEST(Filter, NoticeIsSaidOnce) {
  const std::string lost = "\t@COMMAND=ERROR\tUnable to retreive document.";
  EXPECT_EQ(Document(lost + "<!--korvo:notice-->" + lost + "<!--korvo:notice-->"),
            "[notice lost-document][notice]");
}

TEST(Filter, HitsThatAreMissing_AreANotice) {
  const std::string hit = "<!--korvo:hit-->";
  EXPECT_EQ(Search("<!--korvo:notice-->" + StatusOf(9, 3) + hit + hit + "<!--korvo:notice-->"),
            "[notice][hit 1][hit 2][notice missing-hits]");
  EXPECT_EQ(Search(StatusOf(9, 2) + hit + hit + "<!--korvo:notice-->"), "[hit 1][hit 2][notice]");
  EXPECT_EQ(Search(StatusOf(9, 2) + hit), "[hit 1][notice missing-hits]");
  EXPECT_EQ(Search(StatusOf(9, 2) + hit + "\t@COMMAND=ERROR\tUnable to retreive document."),
            "[hit 1][notice lost-document]");
}

TEST(Filter, PageWithoutItsTail_IsBroken) {
  const std::string hit = "<li><!--korvo:hit--></li>", front = "<ol>" + StatusOf(9, 2);
  const std::string tail = "</ol><!--korvo:notice--></html>\n";
  EXPECT_EQ(Tailed(front + hit + hit + tail, tail),
            "<ol><li>[hit 1]</li><li>[hit 2]</li></ol>[notice]</html>\n");
  EXPECT_EQ(Tailed(front + hit + hit, tail),
            "<ol><li>[hit 1]</li><li>[hit 2]</li></ol>[notice broken]</html>\n");
  EXPECT_EQ(Tailed(front + hit, tail), "<ol><li>[hit 1]</li></ol>[notice broken]</html>\n");
  EXPECT_EQ(Tailed(front + tail, tail), "<ol></ol>[notice missing-hits]</html>\n");
  EXPECT_EQ(Tailed(front, tail), "<ol></ol>[notice broken]</html>\n");
  EXPECT_EQ(Tailed("<ol>" + StatusOf(0, 0) + tail, tail), "<ol></ol>[notice]</html>\n");
  EXPECT_EQ(Tailed("<ol><!--korvo:status-->", tail), "<ol>[status]</ol>[notice broken]</html>\n");
  EXPECT_EQ(Tailed("<ol>\t@COMMAND=ERROR\tsec", tail), "<ol></ol>[notice failed]</html>\n");
  EXPECT_EQ(Tailed(front + hit + "\t@COMMAND=ERROR\tUnable to retreive document." + tail, tail),
            "<ol><li>[hit 1]</li></ol>[notice lost-document]</html>\n");
  EXPECT_EQ(Tailed(front + hit + hit, ""), "<ol><li>[hit 1]</li><li>[hit 2]</li>");
}

// However it is cut: the markup that is open is closed, then comes the frame.
TEST(Filter, PageThatIsCutInItsMarkup_IsClosed) {
  const std::string tail = "</ol>\n<!--korvo:notice-->\n</main></body></html>\n";
  const std::string end = "</ol>\n[notice broken]\n</main></body></html>\n";
  const std::string front = "<html><body><main><p>x<br><ol>";
  const std::pair<const char *, const char *> cuts[] = {
      {"<li>a", "<li>a</li>"},
      {"<li><h2><a href=\"/doc/", "<li><h2><a href=\"/doc/\"></a></h2></li>"},
      {"<li><h2><a href='/doc/", "<li><h2><a href='/doc/'></a></h2></li>"},
      {"<li class=x", "<li class=x></li>"},
      {"<li></li", "<li></li>"},
      {"<li>a</", "<li>a</></li>"},
      {"<LI>a > b < c &lt;", "<LI>a > b < c &lt;</li>"},
      {"<!-- a > -", "<!-- a > --->"},
      {"<!-", "<!->"},
      {"<!-- a --><!x", "<!-- a --><!x>"},
      {"<li><img src=\"a>b\"", "<li><img src=\"a>b\"></li>"},
      {"<li>a<li>b<p>c<p>d", "<li>a<li>b<p>c<p>d</p></li>"},
      {"<li><div><div>a", "<li><div><div>a</div></div></li>"},
      {"<x-y1 z{>a", "<x-y1 z{>a</x-y1>"},
      {"<?x y", "<?x y>"},
      {"<", "<"}};
  for (const auto &[cut, closed] : cuts) {
    EXPECT_EQ(Tailed(front + cut, tail), front + closed + end);
    EXPECT_EQ(Tailed(front + cut, tail, Trouble::kTooLate),
              front + closed + "</ol>\n[notice too-late]\n</main></body></html>\n");
  }
}

TEST(Filter, PageThatIsCut_HasElementsWithoutAnEnd) {
  const std::string end = "</main>[notice broken]", tail = "</main><!--korvo:notice-->";
  for (const std::string name : {"area", "base", "br", "col", "embed", "hr", "img", "input", "link",
                                 "meta", "source", "track", "wbr"})
    EXPECT_EQ(Tailed("<main><" + name + ">", tail), "<main><" + name + ">" + end);
  for (const std::string name : {"p", "li", "dt", "dd", "option", "tr", "td"})
    EXPECT_EQ(Tailed("<main><" + name + "><" + name + ">", tail),
              "<main><" + name + "><" + name + "></" + name + ">" + end);
}

TEST(Filter, ElementsBehindThe64th_AreNotClosed) {
  std::string opened, closed;
  for (int i = 0; i < 70; ++i) opened += "<b>";
  for (int i = 0; i < 63; ++i) closed += "</b>";
  EXPECT_EQ(Tailed("<main>" + opened, "</main>"),
            "<main>" + opened + closed + "</main>[notice broken]");
}

TEST(Filter, WhatIsNotDecided_HasABound) {
  for (const std::string start : {"<!--korvo:", "<!--korvo:links-->", "\t@COMMAND=ERROR\t", "\t",
                                  "<!--korvo:status-->", "<!--korvo:status-->\t", "<"}) {
    Filter filter = Filter_Begin(true, Shown);
    std::string out;
    Filter_Feed(&filter, start, &out);
    for (int i = 0; i < 100; ++i) {
      Filter_Feed(&filter, std::string(1000, 'x'), &out);
      EXPECT_LT(filter.pending.size(), 32768u) << start;
    }
  }
}

TEST(Filter, EndThatCutsThePageShort_IsANotice) {
  EXPECT_EQ(Search("a<!--korvo:status-->b", Trouble::kTooLate), "a[status]b[notice too-late]");
}
