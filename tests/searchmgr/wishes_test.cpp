// What a client may wish beside its text, over the real program and a database with a schema.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/searchmgr/library.h"
#include "tests/service/running.h"

namespace {

bool Has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

class Wishes : public testing::Test {
 protected:
  std::string Ask(const std::string &behind) {
    return manager_.Exchange("\t@COMMAND=QUERY" + behind + "\n");
  }
  // The numbers of the hits in their order.
  std::string Numbers(const std::string &behind) {
    const std::string answer = Ask(behind);
    std::string numbers;
    constexpr std::string_view kNumber = "@DOCNUM=";
    for (std::size_t at = answer.find(kNumber); at != std::string::npos;
         at = answer.find(kNumber, at + 1))
      numbers += answer.substr(at + kNumber.size(), 1) + " ";
    return numbers;
  }

  Folder folder_;
  std::string path_ = folder_.Path() + "/db";
  std::string made_ = (Library(path_), path_);
  Running manager_{'S', path_};
};

constexpr const char *kAll = "\t@OPER=OR\tprinter network driver paper";

}  // namespace

TEST_F(Wishes, FirstHitSkipsAndMaxHitsEndsThePage) {
  const std::string all = Numbers(kAll);
  ASSERT_GE(all.size(), 6u) << Ask(kAll);
  EXPECT_EQ(Numbers(std::string("\t@FIRSTHIT=1") + kAll), all.substr(2));
  EXPECT_EQ(Numbers(std::string("\t@FIRSTHIT=1\t@MAXHITS=1") + kAll), all.substr(2, 2));
  EXPECT_EQ(Ask(std::string("\t@FIRSTHIT=100") + kAll), "\t@COMMAND=SEARCHCOMPLETE\n");
}

TEST_F(Wishes, SortOrdersByAValueAndBack) {
  std::string up = Numbers(std::string("\t@SORT=Pages") + kAll);
  const std::string down = Numbers(std::string("\t@SORT=-Pages") + kAll);
  ASSERT_EQ(up.size(), down.size());
  std::string again;
  for (std::size_t i = 0; i < up.size(); i += 2) again = up.substr(i, 2) + again;
  EXPECT_EQ(again, down);
  EXPECT_NE(up, down);
  EXPECT_TRUE(Has(Ask(std::string("\t@SORT=Colour") + kAll), "\t@COMMAND=ERROR\t"));
}

TEST_F(Wishes, BestFitLeavesTheFaintOut) {
  const std::string all = Numbers(kAll);
  const std::string best = Numbers(std::string("\t@BESTFIT=100") + kAll);
  ASSERT_FALSE(best.empty());  // the best hit, though none has all words
  EXPECT_LT(best.size(), all.size());
  EXPECT_EQ(all.substr(0, best.size()), best);
  EXPECT_EQ(Numbers(std::string("\t@BESTFIT=1") + kAll), all);
  EXPECT_EQ(Numbers("\t@BESTFIT=50\tnowhere"), "");
}

TEST_F(Wishes, BestFitGoesWithAnOrder) {
  const auto sorted = [](std::string numbers) {
    std::sort(numbers.begin(), numbers.end());
    return numbers;
  };
  const std::string all = Numbers(kAll), order = Numbers(std::string("\t@SORT=Pages") + kAll);
  for (int percent : {1, 60, 90, 100}) {
    const std::string fit = "\t@BESTFIT=" + std::to_string(percent);
    const std::string best = Numbers(fit + kAll), ordered = Numbers(fit + "\t@SORT=Pages" + kAll);
    EXPECT_EQ(sorted(best), sorted(ordered)) << percent;
    std::string expected;
    for (const char c : order)
      if (best.find(c) != std::string::npos && c != ' ') expected += std::string(1, c) + " ";
    EXPECT_EQ(ordered, expected) << percent;
  }
  EXPECT_EQ(Numbers(kAll), all);
}

TEST_F(Wishes, StatusIsTheFirstRecord) {
  const std::string all = Numbers(kAll);
  const std::string answer = Ask(std::string("\t@STATUS=1\t@FIRSTHIT=1\t@MAXHITS=1") + kAll);
  EXPECT_EQ(answer.find("\t@COMMAND=RAW\t<!--korvo matches=" + std::to_string(all.size() / 2) +
                        " first=2 shown=1 shards=1/1 ms="),
            0u)
      << answer;
  EXPECT_FALSE(Has(Ask(kAll), "RAW"));
}

TEST_F(Wishes, SpellingIsOfferedWhereItFindsMore) {
  EXPECT_TRUE(Has(Ask("\t@STATUS=1\tprintr"), " spelling=printer-->\n"))
      << Ask("\t@STATUS=1\tprintr");
  EXPECT_FALSE(Has(Ask("\t@STATUS=1\tprinter"), " spelling="));
}

TEST_F(Wishes, MarksGoWithAScriptThatShowsThem) {
  EXPECT_TRUE(Has(Ask("\t@SCRIPT=html all\tprinters"), "\t@SCRIPT=html all mark:printer\n"));
  EXPECT_TRUE(Has(Ask("\t@SCRIPT=snippet\tprinter"), "\t@SCRIPT=snippet mark:printer\n"));
  EXPECT_TRUE(Has(Ask("\t@SCRIPT=place\tprinter"), "\t@SCRIPT=place\n"));
  EXPECT_FALSE(Has(Ask("\tprinter"), "SCRIPT"));
  // As many as a field holds.
  const std::string script = "html" + std::string(120, ' ');
  EXPECT_FALSE(Has(Ask("\t@SCRIPT=" + script + "\tprinter"), "mark:"));
}

TEST_F(Wishes, ThatCannotBeAreErrors) {
  for (const char *wish : {"@FIRSTHIT=-1", "@DEADLINE=-1", "@BESTFIT=101", "@FIRSTHIT=10000"})
    EXPECT_EQ(Ask(std::string("\t") + wish + "\tprinter").find("\t@COMMAND=ERROR\t"), 0u) << wish;
}
