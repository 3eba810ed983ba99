#include "web/page.h"

#include <gtest/gtest.h>

namespace {

class Page : public testing::Test {
 protected:
  Page() {
    conf_.groups = {{"grp1", "/m/r", "/m/d", "All & more", {{"-Date", "Newest"}}}};
    std::string wrong;
    EXPECT_TRUE(Texts_Read(KORVO_PAGES "/texts.en", &texts_, &wrong)) << wrong;
    Ask("/search?q=a%22b&group=grp1");
    facts_.known = true;
    facts_.status = {1234, true, 21, 10, 1, 1, ""};
  }

  void Ask(const std::string &target) { asked_ = Asked_Read(target); }
  std::string Fill(Placeholder which) const {
    return Page_Fill({&conf_, &texts_, &asked_, false}, which, facts_);
  }

  WebConf conf_ = Conf_Default();
  Texts texts_;
  Asked asked_;
  PageFacts facts_;
};

}  // namespace

TEST_F(Page, Query_IsEscaped) { EXPECT_EQ(Fill(Placeholder::kQuery), "a&quot;b"); }

TEST_F(Page, QueryOfAFieldAlone_IsThatField) {
  Ask("/search?Section=a%22b&group=grp1");
  EXPECT_EQ(Fill(Placeholder::kQuery), "Section=a&quot;b");
}

TEST_F(Page, Status_SaysWhatIsShown) {
  EXPECT_EQ(Fill(Placeholder::kStatus), "1,234 documents, 21 to 30");
  facts_.status.exact = false;
  EXPECT_EQ(Fill(Placeholder::kStatus), "About 1,234 documents, 21 to 30");
  facts_.status = {1, true, 1, 1, 1, 1, ""};
  EXPECT_EQ(Fill(Placeholder::kStatus), "One document");
  facts_.known = false;
  EXPECT_EQ(Fill(Placeholder::kStatus), "");
}

TEST_F(Page, Status_OfNoHits_SaysWhatWasSearched) {
  facts_.status = {0, true, 0, 0, 1, 1, ""};
  Ask("/search?q=%3Cb%3E&group=grp1&Section=x");
  EXPECT_EQ(
      Fill(Placeholder::kStatus),
      "Nothing was found for “&lt;b&gt; Section=x” in All &amp; more. Try fewer words, other "
      "words, or another spelling; a star behind the beginning of a word stands for any end.");
}

TEST_F(Page, PageBehindTheLast_SaysSoAndLeadsBack) {
  facts_.status = {31, true, 0, 0, 1, 1, ""};
  Ask("/search?q=a&group=grp1&page=9");
  EXPECT_EQ(Fill(Placeholder::kStatus), "This page is behind the last document. Found: 31.");
  EXPECT_EQ(Fill(Placeholder::kPager),
            "<nav class=\"pager\" aria-label=\"Pages\"><ul>"
            "<li><a href=\"/search?q=a&amp;group=grp1&amp;page=4\" rel=\"prev\">Previous</a></li>"
            "<li><a href=\"/search?q=a&amp;group=grp1\">1</a></li>"
            "<li><a href=\"/search?q=a&amp;group=grp1&amp;page=2\">2</a></li>"
            "<li><a href=\"/search?q=a&amp;group=grp1&amp;page=3\">3</a></li>"
            "<li><a href=\"/search?q=a&amp;group=grp1&amp;page=4\">4</a></li></ul></nav>");
  facts_.status.matches = 1;
  EXPECT_EQ(Fill(Placeholder::kPager),
            "<nav class=\"pager\" aria-label=\"Pages\"><ul>"
            "<li><a href=\"/search?q=a&amp;group=grp1\" rel=\"prev\">Previous</a></li>"
            "<li><a href=\"/search?q=a&amp;group=grp1\">1</a></li></ul></nav>");
}

TEST_F(Page, Pager_LeadsAround) {
  facts_.status = {31, true, 11, 10, 1, 1, ""};
  EXPECT_EQ(
      Fill(Placeholder::kPager),
      "<nav class=\"pager\" aria-label=\"Pages\"><ul>"
      "<li><a href=\"/search?q=a%22b&amp;group=grp1\" rel=\"prev\">Previous</a></li>"
      "<li><a href=\"/search?q=a%22b&amp;group=grp1\">1</a></li>"
      "<li><a href=\"/search?q=a%22b&amp;group=grp1&amp;page=2\" aria-current=\"page\">2</a></li>"
      "<li><a href=\"/search?q=a%22b&amp;group=grp1&amp;page=3\">3</a></li>"
      "<li><a href=\"/search?q=a%22b&amp;group=grp1&amp;page=4\">4</a></li>"
      "<li><a href=\"/search?q=a%22b&amp;group=grp1&amp;page=3\" rel=\"next\">Next</a></li>"
      "</ul></nav>");
}

TEST_F(Page, Pager_OfTheFirstPage_LeadsOn) {
  facts_.status = {11, true, 1, 10, 1, 1, ""};
  EXPECT_EQ(Fill(Placeholder::kPager),
            "<nav class=\"pager\" aria-label=\"Pages\"><ul>"
            "<li><a href=\"/search?q=a%22b&amp;group=grp1\" aria-current=\"page\">1</a></li>"
            "<li><a href=\"/search?q=a%22b&amp;group=grp1&amp;page=2\">2</a></li>"
            "<li><a href=\"/search?q=a%22b&amp;group=grp1&amp;page=2\" rel=\"next\">Next</a></li>"
            "</ul></nav>");
}

TEST_F(Page, Pager_OfOnePage_IsNone) {
  facts_.status = {10, true, 1, 10, 1, 1, ""};
  EXPECT_EQ(Fill(Placeholder::kPager), "");
  facts_.known = false;
  EXPECT_EQ(Fill(Placeholder::kPager), "");
}

TEST_F(Page, Pager_EndsWhereNoHitIsGiven) {
  facts_.status = {2147483647, true, 9991, 10, 1, 1, ""};
  const std::string pager = Fill(Placeholder::kPager);
  EXPECT_NE(pager.find("&amp;page=1000\" aria-current=\"page\">1,000</a></li></ul></nav>"),
            std::string::npos)
      << pager;
}

TEST_F(Page, Sort_OffersTheOrdersOfTheGroup) {
  Ask("/search?q=a&group=grp1&sort=-Date&page=3");
  EXPECT_EQ(
      Fill(Placeholder::kSort),
      "<nav class=\"sort\" aria-labelledby=\"sort\"><p id=\"sort\">Sort by</p><ul>"
      "<li><a href=\"/search?q=a&amp;group=grp1\">Relevance</a></li>"
      "<li><a href=\"/search?q=a&amp;group=grp1&amp;sort=-Date\" aria-current=\"true\">Newest</a></li>"
      "</ul></nav>");
  facts_.status.shown = 0;
  EXPECT_EQ(Fill(Placeholder::kSort), "");
}

TEST_F(Page, Sort_WithoutOrdersOrHits_IsNone) {
  facts_.known = false;
  EXPECT_EQ(Fill(Placeholder::kSort), "");
  facts_.known = true;
  conf_.groups[0].sorts.clear();
  EXPECT_EQ(Fill(Placeholder::kSort), "");
}

TEST_F(Page, Groups_AreAChoiceWhereThereAreTwo) {
  EXPECT_EQ(Fill(Placeholder::kGroups), "<input type=\"hidden\" name=\"group\" value=\"grp1\">");
  conf_.groups.push_back({"grp2", "/m/r", "/m/d", "Other", {}});
  EXPECT_EQ(
      Fill(Placeholder::kGroups),
      "<label>Search in <select name=\"group\"><option value=\"grp1\" selected>All &amp; more</option>"
      "<option value=\"grp2\">Other</option></select></label>");
}

TEST_F(Page, Spelling_IsALink) {
  EXPECT_EQ(Fill(Placeholder::kSpelling), "");
  facts_.status.spelling = "network <x>";
  EXPECT_EQ(
      Fill(Placeholder::kSpelling),
      "<p class=\"spelling\">Did you mean <a href=\"/search?q=network%20%3Cx%3E&amp;group=grp1\">"
      "network &lt;x&gt;</a>?</p>");
}

TEST_F(Page, Notice_SaysWhatIsMissing) {
  EXPECT_EQ(Fill(Placeholder::kNotice), "");
  facts_.unsaid = {Trouble::kShards};
  EXPECT_EQ(
      Fill(Placeholder::kNotice),
      "<div class=\"notice incomplete\" role=\"alert\"><p>Part of the documents could not be searched.</p>"
      "<p>This page is incomplete.</p></div>");
  for (const Trouble trouble : {Trouble::kFailed, Trouble::kGone}) {
    facts_.unsaid = {trouble};
    EXPECT_NE(Fill(Placeholder::kNotice).find("<p>This page is incomplete.</p>"),
              std::string::npos);
  }
  facts_.unsaid = {Trouble::kQuery};
  EXPECT_EQ(
      Fill(Placeholder::kNotice),
      "<div class=\"notice\" role=\"alert\"><p>This search was not understood. Try plain words.</p></div>");
}

TEST_F(Page, Notice_OfSeveralTroubles_SaysEach) {
  facts_.unsaid = {Trouble::kShards, Trouble::kQuery};
  EXPECT_EQ(
      Fill(Placeholder::kNotice),
      "<div class=\"notice incomplete\" role=\"alert\"><p>Part of the documents could not be searched.</p>"
      "<p>This search was not understood. Try plain words.</p><p>This page is incomplete.</p></div>");
}

TEST_F(Page, Hit_IsItsNumber) {
  facts_.hits = 3;
  EXPECT_EQ(Fill(Placeholder::kHit), "23");
}

TEST_F(Page, Links_SearchForTheNamesOfAList) {
  Ask("/doc/grp1/7");
  facts_.list = "libc6 (&gt;= 2.36), a&amp;b | libstdc++6,\n x";
  EXPECT_EQ(Fill(Placeholder::kLinks),
            "<a href=\"/search?q=libc6&amp;group=grp1\">libc6</a> (&gt;= 2.36), "
            "<a href=\"/search?q=a%26b&amp;group=grp1\">a&amp;b</a> | "
            "<a href=\"/search?q=libstdc%2B%2B6&amp;group=grp1\">libstdc++6</a>,\n "
            "<a href=\"/search?q=x&amp;group=grp1\">x</a>");
  for (const char *list : {"", " ", ",", ", | "}) {
    facts_.list = list;
    EXPECT_EQ(Fill(Placeholder::kLinks), list);
  }
}

TEST_F(Page, Front_CarriesANotice) {
  const PageView view = {&conf_, &texts_, &asked_, false};
  EXPECT_EQ(Page_Front(view, "<!--korvo:notice-->[<!--korvo:query-->]", Trouble::kNone),
            "[a&quot;b]");
  EXPECT_EQ(Page_Front(view, "<!--korvo:notice-->|", Trouble::kNoPage),
            "<div class=\"notice\" role=\"alert\"><p>There is no page of this address.</p></div>|");
  EXPECT_EQ(
      Page_Front(view, "<!--korvo:notice-->", Trouble::kGone),
      "<div class=\"notice\" role=\"alert\"><p>The search service does not answer. Please try "
      "again later.</p></div>");
  EXPECT_EQ(Page_Front(view, "|", Trouble::kNoPage),
            "|<div class=\"notice\" role=\"alert\"><p>There is no page of this address.</p></div>");
}
