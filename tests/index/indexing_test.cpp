#include "index/indexing.h"

#include <gtest/gtest.h>

namespace {

bool HasTerm(const Fields &fields, const std::string &term) {
  int cut = 0;
  const Xapian::Document document = Indexing_Document(fields, &cut);
  Xapian::TermIterator found = document.termlist_begin();
  found.skip_to(term);
  return found != document.termlist_end() && *found == term;
}

const Fields kBash = {{"Package", "bash"}, {"Architecture", "amd64"}, {"Version", "5.2"}};

}  // namespace

TEST(Indexing, UniqueTerm_IsFirstFieldVersionAndArchitecture) {
  EXPECT_EQ(Indexing_UniqueTerm(kBash), "QPackage=bash\n5.2\namd64");
  EXPECT_EQ(Indexing_UniqueTerm({{"Title", "x"}, {"Body", "y"}}), "QTitle=x\n\n");
}

TEST(Indexing, UniqueTerm_OfALongValueIsBoundedAndStillItsOwn) {
  const std::string start(300, 'x');
  const std::string a = Indexing_UniqueTerm({{"Title", start + "a"}});
  const std::string b = Indexing_UniqueTerm({{"Title", start + "b"}});
  EXPECT_EQ(a.size(), 240u);
  EXPECT_EQ(a.substr(0, 224), "QTitle=" + start.substr(0, 217));
  EXPECT_NE(a, b);
  EXPECT_EQ(a, Indexing_UniqueTerm({{"Title", start + "a"}}));
}

TEST(Indexing, Document_HasItsTermsWithAndWithoutTheirField) {
  const Fields fields = {{"Package", "bash"}, {"Description", "The GNU Shell"}};
  for (const char *term :
       {"bash", "XPACKAGE:bash", "shell", "XDESCRIPTION:shell", "QPackage=bash\n\n"})
    EXPECT_TRUE(HasTerm(fields, term)) << term;
  EXPECT_FALSE(HasTerm(fields, "XPACKAGE:shell"));
}

TEST(Indexing, Document_IndexesTheWholeOfAValueThatIsStoredCut) {
  int cut = 0;
  const Fields fields = {{"Body", std::string(5000, '.') + " tail"}};
  EXPECT_TRUE(HasTerm(fields, "tail"));
  const std::string data = Indexing_Document(fields, &cut).get_data();
  EXPECT_EQ(data, "\tBody=" + std::string(4095, '.') + "\t");
  EXPECT_EQ(cut, 1);
}
