// korvo-web before the real service.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <filesystem>

#include "tests/service/tree.h"
#include "tests/web/site.h"

namespace {

// The connections that the queue of this listener has turned away, as the kernel counts them; -1:
// there is none.
long TurnedAway(int port) {
  struct {
    nlmsghdr header;
    inet_diag_req_v2 request;
  } ask = {};
  ask.header = {sizeof ask, SOCK_DIAG_BY_FAMILY, NLM_F_REQUEST | NLM_F_DUMP, 0, 0};
  ask.request.sdiag_family = AF_INET;
  ask.request.sdiag_protocol = IPPROTO_TCP;
  ask.request.idiag_ext = 1 << (INET_DIAG_SKMEMINFO - 1);
  ask.request.idiag_states = 1 << TCP_LISTEN;
  const Socket kernel(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  EXPECT_EQ(send(kernel.Fd(), &ask, sizeof ask, 0), static_cast<ssize_t>(sizeof ask));
  alignas(nlmsghdr) static char bytes[65536];
  for (;;) {
    auto left =
        static_cast<unsigned>(std::max<ssize_t>(recv(kernel.Fd(), bytes, sizeof bytes, 0), 0));
    if (left == 0) return -1;
    for (auto *message = reinterpret_cast<nlmsghdr *>(bytes); NLMSG_OK(message, left);
         message = NLMSG_NEXT(message, left)) {
      if (message->nlmsg_type != SOCK_DIAG_BY_FAMILY) return -1;  // done, or an error
      const auto *found = static_cast<inet_diag_msg *>(NLMSG_DATA(message));
      if (ntohs(found->id.idiag_sport) != port) continue;
      auto size = static_cast<unsigned>(message->nlmsg_len - NLMSG_LENGTH(sizeof *found));
      auto *value =
          reinterpret_cast<rtattr *>(reinterpret_cast<char *>(NLMSG_DATA(message)) + sizeof *found);
      for (; RTA_OK(value, size); value = RTA_NEXT(value, size))
        if (value->rta_type == INET_DIAG_SKMEMINFO)
          return static_cast<long>(static_cast<std::uint32_t *>(RTA_DATA(value))[SK_MEMINFO_DROPS]);
    }
  }
}

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

// Their connections to the daemon are few, so that its short queue never turns one away, for then
// an answer takes a second more.
TEST_F(Service, TwoHundredBrowsersAtOnce_AreAllAnswered) {
  EXPECT_TRUE(Eventually([&] { return site_->Get("/search?q=printer").Has("2 documents"); }));
  std::vector<Socket> browsers;
  for (int i = 0; i < 200; ++i) browsers.push_back(site_->Begin("/search?q=printer"));
  for (const Socket &browser : browsers) {
    const Answer answer = ReadAnswer(browser.ReadAll());
    EXPECT_EQ(answer.status, 200);
    EXPECT_TRUE(answer.whole && answer.Has("2 documents, 1 to 2")) << answer.body;
    EXPECT_FALSE(answer.Has("This page is incomplete.")) << answer.body;
  }
  for (const int port :
       {tree_.Port('C', "web1"), tree_.Port('S', "grp1"), tree_.Port('D', "grp1"), site_->Port()})
    EXPECT_EQ(TurnedAway(port), 0) << port;
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
