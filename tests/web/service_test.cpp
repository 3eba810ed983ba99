// korvo-web before the real service.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/service/tree.h"
#include "tests/web/site.h"

namespace {

void CopyMacros(const Site &site) {
  for (const char *macro : {"/results.mo", "/document.mo"})
    std::filesystem::copy(std::string(KORVO_OBJECTS) + macro, site.Files().Path() + "/web" + macro);
}

// Three engines under one Search Manager, and the pages that are shipped.
class Service : public testing::Test {
 protected:
  Service() {
    const std::string schema = data_.Write(
        "schema",
        "@language english\nPackage text weight=8\nSection keyword sort\nInstalled-Size number\n"
        "Version stored\nDescription text body\nDepends stored\nHomepage stored\n");
    tree_.Line('C', "web1", "-");
    tree_.Line('S', "grp1", "web1");
    tree_.Line('D', "grp1", "web1");
    tree_.Database("grp1", "-", "-");
    for (const std::string id : {"e1", "e2"}) {
      tree_.Line('E', id, "grp1");
      const std::string path = data_.Path() + "/" + id;
      const Finished indexer = RunIndexer(
          {"--schema", schema, path,
           data_.Write(
               id + ".txt",
               "Package: " + id +
                   "-printer\nSection: net\nDescription: network <script>alert(1)</script> printers\n")});
      EXPECT_EQ(indexer.status, 0) << indexer.errors;
      tree_.Database(id, path, path);
    }
    tree_.Start('C', "web1");
    tree_.Start('S', "grp1");
    tree_.Start('D', "grp1");
    for (const char *id : {"e1", "e2"}) tree_.Start('E', id);
    site_ = std::make_unique<Site>(tree_.Port('C', "web1"), tree_.AdminPort('C', "web1"));
    CopyMacros(*site_);
  }

  Folder data_;
  Tree tree_;
  std::unique_ptr<Site> site_;
};

}  // namespace

TEST_F(Service, PageOfHits_AndADocumentOfIt) {
  Answer page;
  EXPECT_TRUE(Eventually([&] {
    page = site_->Get("/search?q=printer");
    return page.Has("<p class=\"status\" role=\"status\">2 documents, 1 to 2</p>");
  })) << page.body;
  EXPECT_EQ(page.status, 200);
  EXPECT_TRUE(page.Has("<li value=\"1\"><h2><a href=\"/doc/grp1/1?type=e")) << page.body;
  EXPECT_TRUE(page.Has("network &lt;script&gt;alert(1)&lt;/script&gt; <mark>printers</mark>"))
      << page.body;
  EXPECT_FALSE(page.Has("<!--korvo")) << page.body;
  const Answer document = site_->Get("/doc/grp1/1?type=e2");
  EXPECT_EQ(document.status, 200);
  EXPECT_TRUE(document.Has("<h1>e2-printer</h1>")) << document.body;
  EXPECT_TRUE(document.Has("</html>")) << document.body;
  EXPECT_EQ(site_->Get("/doc/grp1/99?type=e2").status, 404);
}

// Each engine has a Document Manager of its own.
TEST(ServiceOfEngines, DocumentIsOpenedFromItsHit) {
  const Folder data;
  Tree tree;
  const std::string schema =
      data.Write("schema", "@language english\nPackage text\nDescription text body\n");
  tree.Line('C', "web1", "-");
  tree.Line('S', "grp1", "web1");
  tree.Database("grp1", "-", "-");
  tree.Line('E', "e1", "grp1");
  tree.Line('D', "e1", "web1");
  const std::string path = data.Path() + "/e1";
  const Finished indexer = RunIndexer(
      {"--schema", schema, path, data.Write("e1.txt", "Package: one\nDescription: printers\n")});
  EXPECT_EQ(indexer.status, 0) << indexer.errors;
  tree.Database("e1", path, path);
  for (const auto &[type, id] : {std::pair('C', "web1"), {'S', "grp1"}, {'D', "e1"}, {'E', "e1"}})
    tree.Start(type, id);
  const Site site(tree.Port('C', "web1"), tree.AdminPort('C', "web1"), "documents e1 grp1\n");
  CopyMacros(site);
  Answer page;
  const std::string link = "/doc/e1/1?type=e1";
  EXPECT_TRUE(Eventually([&] {
    page = site.Get("/search?q=printer");
    return page.Has("<a href=\"" + link + "\">one</a>");
  })) << page.body;
  const Answer document = site.Get(link);
  EXPECT_EQ(document.status, 200);
  EXPECT_TRUE(document.Has("<h1>one</h1>")) << document.body;
}

TEST_F(Service, EngineThatIsGone_IsANotice) {
  EXPECT_TRUE(Eventually([&] { return site_->Get("/search?q=printer").Has("2 documents"); }));
  tree_.Kill('E', "e1");
  const Answer page = site_->Get("/search?q=printer");
  EXPECT_TRUE(page.Has("Part of the documents could not be searched.")) << page.body;
  EXPECT_TRUE(page.Has("This page is incomplete.")) << page.body;
  EXPECT_TRUE(page.Has("One document")) << page.body;
}

TEST_F(Service, SearchThatCannotBeUnderstood_IsANotice) {
  const Answer page = site_->Get("/search?q=-printer");
  EXPECT_EQ(page.status, 200);
  EXPECT_TRUE(page.Has("This search was not understood. Try plain words.")) << page.body;
  EXPECT_FALSE(page.Has("Unable to")) << page.body;
}

TEST_F(Service, NothingFound_SaysWhatWasSearched) {
  EXPECT_TRUE(site_->Get("/search?q=zebra").Has("Nothing was found for “zebra” in Library."));
}

TEST_F(Service, SearchManagerThatIsGone_Is502) {
  tree_.End('S', "grp1");
  EXPECT_EQ(site_->Get("/search?q=printer").status, 502);
  EXPECT_EQ(site_->Get("/healthz").status, 200);
  tree_.End('C', "web1");
  EXPECT_EQ(site_->Get("/search?q=printer").status, 502);
  EXPECT_EQ(site_->Get("/healthz").status, 503);
}
