// korvo-web before a daemon that the test plays.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "tests/web/site.h"

namespace {

const std::string kStatus = "\t<!--korvo matches=25 first=1 shown=2 shards=1/1 ms=3-->\n";
const std::string kFrame = "<h1><!--korvo:query--></h1><!--korvo:notice--><ol>";

struct Web {
  explicit Web(const std::string &lines = "", const std::function<void()> &prepare = {})
      : site(daemon.Port(), 9, lines, prepare) {
    Tails("");
  }

  // What the daemon gets of a request, and the connection.
  Socket Accept(std::string *line = nullptr) const {
    Socket connection = daemon.Accept();
    const std::string got = connection.ReadLine();
    if (line != nullptr) *line = got;
    return connection;
  }

  // The answer to a request whose daemon says that.
  Answer Told(const std::string &target, const std::string &bytes,
              const std::string &method = "GET") {
    const Socket browser = site.Begin(target, method);
    Socket connection = Accept();
    connection.Send(bytes);
    connection.Close();
    return ReadAnswer(browser.ReadAll());
  }

  // The frames behind what the daemon sends.
  void Tails(const std::string &bytes) const {
    for (const char *name : {"web/results.tail", "web/document.tail"})
      site.Files().Write(name, bytes);
  }

  Manager daemon;
  Site site;
};

// The bytes of an answer so far, once they hold that.
bool Comes(const Socket &browser, const std::string &text) {
  std::string bytes;
  return Eventually([&] {
    char some[4096];
    const ssize_t got = recv(browser.Fd(), some, sizeof some, MSG_DONTWAIT);
    if (got > 0) bytes.append(some, static_cast<std::size_t>(got));
    return bytes.find(text) != std::string::npos;
  });
}

}  // namespace

TEST(Server, Search_AsksTheDaemonAndFillsThePageIn) {
  Web web;
  const Socket browser = web.site.Begin("/search?q=a%3Cb&Section=net&group=grp1&sort=-Size&page=2");
  std::string line;
  Socket connection = web.Accept(&line);
  EXPECT_EQ(line, "\t@COMMAND=QUERY\t@SEARCHGROUP=grp1\t@MACROFILE=" + web.site.Files().Path() +
                      "/web/results\t@SCRIPT=html place all snippet\t@MAXHITS=10\t@FIRSTHIT=10"
                      "\t@SORT=-Size\t@DEADLINE=8000\t@STATUS=1\ta<b\tSection=net\n");
  connection.Send(kFrame + kStatus + "<li><!--korvo:hit--></li><li><!--korvo:hit--></li></ol>");
  connection.Close();
  const Answer answer = ReadAnswer(browser.ReadAll());
  EXPECT_EQ(answer.status, 200);
  EXPECT_TRUE(answer.whole);
  EXPECT_EQ(answer.body, "<h1>a&lt;b</h1><ol><li>1</li><li>2</li></ol>");
  for (
      const char *header :
      {"\r\nContent-Type: text/html; charset=utf-8\r\n", "\r\nTransfer-Encoding: chunked\r\n",
       "\r\nContent-Security-Policy: default-src 'none'; style-src 'self'; img-src 'self'; form-action 'self'; base-uri 'none'; frame-ancestors 'none'\r\n",
       "\r\nX-Content-Type-Options: nosniff\r\n", "\r\nReferrer-Policy: no-referrer\r\n"})
    EXPECT_NE(answer.headers.find(header), std::string::npos) << answer.headers;
}

TEST(Server, Document_AsksTheDaemon) {
  Web web;
  const Socket browser = web.site.Begin("/doc/grp1/17?type=pack");
  std::string line;
  Socket connection = web.Accept(&line);
  EXPECT_EQ(line, "\t@COMMAND=GETDOC\t@SEARCHGROUP=grp1\t@MACROFILE=" + web.site.Files().Path() +
                      "/web/document\t@SCRIPT=html place all snippet\t@RECTYPE=pack\t@DOCNUM=17\n");
  connection.Send("<p>document");
  connection.Close();
  EXPECT_EQ(ReadAnswer(browser.ReadAll()).body, "<p>document");
}

TEST(Server, DocumentOfAnEngine_IsShownAsThoseOfItsGroup) {
  Web web("documents e1 grp1\n");
  const Socket browser = web.site.Begin("/doc/e1/17?type=pack");
  std::string line;
  Socket connection = web.Accept(&line);
  EXPECT_EQ(line, "\t@COMMAND=GETDOC\t@SEARCHGROUP=e1\t@MACROFILE=" + web.site.Files().Path() +
                      "/web/document\t@SCRIPT=html place all snippet\t@RECTYPE=pack\t@DOCNUM=17\n");
  connection.Send("<!--korvo:groups--><!--korvo:links-->libc6</dd>");
  connection.Close();
  EXPECT_EQ(ReadAnswer(browser.ReadAll()).body,
            "<input type=\"hidden\" name=\"group\" value=\"grp1\">"
            "<a href=\"/search?q=libc6&amp;group=grp1\">libc6</a></dd>");
  EXPECT_EQ(web.site.Get("/search?q=a&group=e1").status, 404);
  EXPECT_FALSE(web.daemon.Called());
}

TEST(Server, Bytes_AreGivenAsTheyCome) {
  Web web;
  const Socket browser = web.site.Begin("/search?q=a");
  Socket connection = web.Accept();
  connection.Send("<h1>first");
  EXPECT_TRUE(Comes(browser, "<h1>first"));
  connection.Send(kStatus + "<li>second");
  EXPECT_TRUE(Comes(browser, "<li>second"));
}

TEST(Server, ErrorInFrontOfThePage_HasItsStatus) {
  Web web;
  const std::tuple<const char *, const char *, int, const char *> cases[] = {
      {"/search?q=a", "\t@COMMAND=ERROR\tUnable to locate SearchMgr\n", 502,
       "The search service does not answer. Please try again later."},
      {"/search?q=a", "", 502,
       "The search service could not carry this out. Please try again later."},
      {"/doc/grp1/1", "\t@COMMAND=ERROR\tUnable to locate Document Server.", 404,
       "This document cannot be had: it is no longer there, or the service that keeps it does not answer."}};
  for (const auto &[target, bytes, status, sentence] : cases) {
    const Answer answer = web.Told(target, bytes);
    EXPECT_EQ(answer.status, status);
    EXPECT_TRUE(answer.Has(sentence)) << answer.body;
    EXPECT_TRUE(answer.Has("<form role=\"search\"")) << answer.body;
    EXPECT_FALSE(answer.Has("ERROR")) << answer.body;
  }
}

TEST(Server, ErrorBehindTheFirstByte_IsANotice) {
  Web web;
  const Answer answer = web.Told(
      "/search?q=a", kFrame + kStatus + "<li>\t@COMMAND=ERROR\tUnable to retreive document.</ol>");
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(
      answer.body,
      "<h1>a</h1><ol><li></ol><div class=\"notice incomplete\" role=\"alert\"><p>A document could not be "
      "fetched; the documents behind it are missing here.</p><p>This page is incomplete.</p></div>");
}

TEST(Server, AnswerThatEndsTooEarly_IsANotice) {
  Web web;
  const std::string tail = "<!--korvo:notice--></main>\n";
  const std::string notice =
      "<div class=\"notice incomplete\" role=\"alert\"><p>The search service broke off its answer."
      "</p><p>This page is incomplete.</p></div></main>\n";
  web.Tails(tail);
  EXPECT_EQ(web.Told("/doc/grp1/1", "<main><p>whole</p>" + tail).body,
            "<main><p>whole</p></main>\n");
  EXPECT_EQ(web.Told("/doc/grp1/1", "<main><p>half").body, "<main><p>half</p>" + notice);
  EXPECT_EQ(web.Told("/doc/grp1/1", "<main>").body, "<main>" + notice);
  EXPECT_EQ(web.Told("/search?q=a", "<main>" + kStatus + "<p>one</p><p>two</p>").body,
            "<main><p>one</p><p>two</p>" + notice);
  EXPECT_TRUE(Eventually([&] {
    return web.site.Get("/metrics").Has("\nkorvo_web_errors_total{kind=\"broken\"} 3\n");
  }));
  // The daemon sends no more of a frame, and nothing behind a zero byte.
  const std::string large(10238, 'x');
  web.Tails(large + "y");
  EXPECT_EQ(web.Told("/doc/grp1/1", "<p>" + large).body, "<p>" + large);
  web.Tails("end" + std::string(1, '\0') + "y");
  EXPECT_EQ(web.Told("/doc/grp1/1", "<p>end").body, "<p>end");
}

TEST(Server, GroupWithoutATail_EndsWhereTheDaemonEnds) {
  Web web;
  std::filesystem::remove(web.site.Files().Path() + "/web/document.tail");
  EXPECT_EQ(web.Told("/doc/grp1/1", "<p>all").body, "<p>all");
}

TEST(Server, NoHitOfThose_ThatWereSent_IsANotice) {
  Web web;
  web.site.Files().Write("web/results.mo", TextOp("<li value=\"<!--korvo:hit-->\">") + EndOp());
  web.site.Restart();
  const std::string tail = "<!--korvo:notice-->\n";
  web.Tails(tail);
  EXPECT_EQ(web.Told("/search?q=a", "<ol>" + kStatus + "</ol>" + tail).body,
            "<ol></ol><div class=\"notice incomplete\" role=\"alert\"><p>Some of the documents "
            "could not be shown.</p><p>This page is incomplete.</p></div>\n");
}

TEST(Server, DaemonThatIsGone_Is502) {
  const int port = ReservePort();
  Site site(port, 9);
  EXPECT_EQ(site.Get("/search?q=a").status, 502);
  ReleasePort(port);
}

TEST(Server, DaemonOfAnotherAddress_IsNotAsked) {
  const Manager daemon;
  const Site site(daemon.Port(), 9, "daemon-address 127.0.0.2\n");
  EXPECT_EQ(site.Get("/search?q=a").status, 502);
  EXPECT_FALSE(daemon.Called());
}

TEST(Server, DaemonThatSaysNothing_Is504) {
  Web web("deadline 300\n");
  const Socket browser = web.site.Begin("/search?q=a");
  const Socket connection = web.Accept();
  EXPECT_EQ(ReadAnswer(browser.ReadAll()).status, 504);
  EXPECT_TRUE(connection.Readable(kPatienceMs));  // its end
}

TEST(Server, PageThatIsLate_EndsWithANotice) {
  Web web("deadline 3000\n");
  const Socket browser = web.site.Begin("/search?q=a");
  const Socket connection = web.Accept();
  connection.Send("<p>half");
  const Answer answer = ReadAnswer(browser.ReadAll());
  EXPECT_EQ(answer.status, 200);
  EXPECT_TRUE(answer.whole);
  EXPECT_TRUE(answer.Has(
      "<p>half<div class=\"notice incomplete\" role=\"alert\"><p>The search took too long."))
      << answer.body;
}

TEST(Server, OnlySoManyConnections_TheOthersWaitInTheirOrder) {
  Web web("connections 2\n");
  std::vector<Socket> browsers, connections;
  std::string line;
  for (const char *word : {"a", "b", "c", "d"}) {
    browsers.push_back(web.site.Begin(std::string("/search?q=word") + word));
    if (browsers.size() > 2) continue;
    connections.push_back(web.Accept(&line));
    EXPECT_TRUE(line.ends_with(std::string("\tword") + word + "\n"));
  }
  EXPECT_FALSE(web.daemon.Called());
  for (const char *word : {"c", "d"}) {
    connections.front().Close();
    connections.erase(connections.begin());
    connections.push_back(web.Accept(&line));
    EXPECT_TRUE(line.ends_with(std::string("\tword") + word + "\n")) << line;
  }
}

TEST(Server, WhoeverWaitsTooLong_Is503) {
  Web web("connections 1\ndeadline 400\n");
  const Socket first = web.site.Begin("/search?q=a");
  const Socket connection = web.Accept();
  const Socket second = web.site.Begin("/search?q=b");
  const Answer one = ReadAnswer(first.ReadAll()), other = ReadAnswer(second.ReadAll());
  EXPECT_EQ(one.status, 504);
  EXPECT_TRUE(other.status == 503 || other.status == 504) << other.status;
}

void LimitDescriptors() {
  const rlimit limit = {100, 200};
  setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(Server, ManyThatWait_AreServedWithFewDescriptors) {
  Web web("connections 1\n", LimitDescriptors);
  EXPECT_EQ(
      web.site.Program().RawLog(),
      "korvo-web: 1100 clients need more than the 200 descriptors there are: 135 are served\n");
  std::vector<Socket> browsers;
  for (int i = 0; i < 120; ++i) browsers.push_back(web.site.Begin("/search?q=a"));
  for (int i = 0; i < 120 && !HasFailure(); ++i) {  // each may have to be waited for
    Socket connection = web.Accept();
    connection.Send("<p>");
    connection.Close();
  }
  for (const Socket &browser : browsers) EXPECT_EQ(ReadAnswer(browser.ReadAll()).status, 200);
}

TEST(Server, DescriptorsThatAreEnough_AreNoMessage) {
  Web web("connections 1\nclients 135\n", LimitDescriptors);
  EXPECT_EQ(web.site.Program().RawLog(), "");
  Web less("connections 1\nclients 136\n", LimitDescriptors);
  EXPECT_EQ(
      less.site.Program().RawLog(),
      "korvo-web: 136 clients need more than the 200 descriptors there are: 135 are served\n");
}

TEST(Server, DescriptorsForOneBrowser_AreEnough) {
  const Site site(9, 9, "connections 135\n", LimitDescriptors);
  EXPECT_EQ(site.Get("/").status, 200);
}

TEST(Server, TooFewDescriptors_NothingIsServed) {
  const Folder folder;
  const std::string conf = folder.Write("web.conf", "texts " KORVO_PAGES "/texts.en\n");
  Process program({KORVO_WEB, conf}, folder.Path(), [] {
    const rlimit limit = {70, 70};
    setrlimit(RLIMIT_NOFILE, &limit);
  });
  ASSERT_TRUE(Eventually([&] { return program.Ended(); }));
  EXPECT_EQ(ExitStatus(program.Wait()), 71);
  EXPECT_EQ(program.RawLog(), "korvo-web: 70 descriptors are too few to serve anybody\n");
}

TEST(Server, ClientsThatAreTooMany_AreServedWhenOneLeaves) {
  Web web("clients 2\nsender-time 3600\n");
  Socket one = ConnectTo(web.site.Port());
  const Socket other = ConnectTo(web.site.Port());
  const Socket next = web.site.Begin("/");
  other.Send("GET / HTTP/1.1\r\nHost: x\r\n\r\n");
  EXPECT_TRUE(Comes(other, "</html>"));
  EXPECT_FALSE(next.Readable(0));
  one.Close();
  EXPECT_EQ(ReadAnswer(next.ReadAll()).status, 200);
}

TEST(Server, QueueThatIsFull_Is503AtOnce) {
  Web web("connections 1\nwaiting 0\n");
  const Socket first = web.site.Begin("/search?q=a");
  const Socket connection = web.Accept();
  const Answer answer = web.site.Get("/search?q=b");
  EXPECT_EQ(answer.status, 503);
  EXPECT_NE(answer.headers.find("\r\nRetry-After: 5\r\n"), std::string::npos);
}

TEST(Server, BrowserThatLeaves_EndsItsConnectionToTheDaemon) {
  Web web;
  Socket browser = web.site.Begin("/search?q=a");
  const Socket silent = web.Accept();
  browser.Close();
  EXPECT_EQ(silent.ReadAll(), "");
  browser = web.site.Begin("/search?q=a");
  const Socket talking = web.Accept();
  talking.Send("<p>");
  EXPECT_TRUE(Comes(browser, "<p>"));
  browser.Close();
  EXPECT_EQ(talking.ReadAll(), "");
}

TEST(Server, BrowserThatLeavesTheQueue_IsNotAskedFor) {
  Web web("connections 1\n");
  const Socket first = web.site.Begin("/search?q=a");
  Socket connection = web.Accept();
  web.site.Begin("/search?q=gone").Close();
  EXPECT_TRUE(
      Eventually([&] { return web.site.Log().find("\"query\":\"gone\"") != std::string::npos; }));
  const Socket third = web.site.Begin("/search?q=c");
  connection.Close();
  std::string line;
  const Socket next = web.Accept(&line);
  EXPECT_TRUE(line.ends_with("\tc\n")) << line;
}

TEST(Server, OnlyGroupsOfTheFile) {
  Web web;
  const Answer answer = web.site.Get("/search?q=a&group=other");
  EXPECT_EQ(answer.status, 404);
  EXPECT_TRUE(answer.Has("There is no such collection to search in."));
  EXPECT_EQ(web.site.Get("/doc/other/1").status, 404);
  EXPECT_EQ(web.site.Get("/doc/grp1/x").status, 404);
  EXPECT_FALSE(web.daemon.Called());
}

TEST(Server, LongSearch_Is414) {
  Web web;
  EXPECT_EQ(web.site.Get("/search?q=" + std::string(4000, 'a')).status, 414);
  EXPECT_FALSE(web.daemon.Called());
}

TEST(Server, AbsoluteTarget_IsServed) {
  Web web;
  EXPECT_EQ(web.Told("http://search.example/search?q=a", "<p>").body, "<p>");
}

TEST(Server, OtherMethods_Are405) {
  Web web;
  for (const char *method : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE", "X"}) {
    const Answer answer = web.site.Get("/search?q=a", method);
    EXPECT_EQ(answer.status, 405) << method;
    EXPECT_NE(answer.headers.find("\r\nAllow: GET, HEAD\r\n"), std::string::npos);
    EXPECT_TRUE(answer.Has(" value=\"a\"")) << answer.body;
  }
  EXPECT_FALSE(web.daemon.Called());
}

TEST(Server, Head_HasTheStatusAndNoBody) {
  Web web;
  const Answer page = web.Told("/search?q=a", "<p>" + kStatus, "HEAD");
  EXPECT_EQ(page.status, 200);
  EXPECT_EQ(page.body, "");
  EXPECT_EQ(web.site.Get("/", "HEAD").body, "");
  EXPECT_EQ(web.site.Get("/none", "HEAD").status, 404);
}

TEST(Server, FrontPage_HasTheForm) {
  Web web;
  for (const char *target : {"/", "/search", "/search?q=", "/search?q=%20"}) {
    const Answer answer = web.site.Get(target);
    EXPECT_EQ(answer.status, 200);
    EXPECT_TRUE(answer.Has("<input type=\"hidden\" name=\"group\" value=\"grp1\">")) << answer.body;
    EXPECT_FALSE(answer.Has("korvo:")) << answer.body;
  }
}

TEST(Server, Files_OfOneDirectoryAlone) {
  Web web;
  const std::pair<const char *, const char *> types[] = {{"x.css", "text/css; charset=utf-8"},
                                                         {"x.html", "text/html; charset=utf-8"},
                                                         {"x.ico", "image/x-icon"},
                                                         {"x.jpg", "image/jpeg"},
                                                         {"x.png", "image/png"},
                                                         {"x.svg", "image/svg+xml"},
                                                         {"x.txt", "text/plain; charset=utf-8"},
                                                         {"x.other", "application/octet-stream"}};
  for (const auto &[name, type] : types) {
    web.site.Files().Write(std::string("web/static/") + name, name);
    const Answer answer = web.site.Get(std::string("/static/") + name);
    EXPECT_EQ(answer.body, name);
    EXPECT_NE(answer.headers.find(std::string("\r\nContent-Type: ") + type + "\r\n"),
              std::string::npos)
        << answer.headers;
  }
  std::filesystem::create_directory(web.site.Files().Path() + "/web/static/folder");
  for (const char *target :
       {"/static/", "/static/../texts.en", "/static/..%2ftexts.en", "/static/.", "/static/none",
        "/static/x.css%00", "/static//etc/passwd", "/static/folder"})
    EXPECT_EQ(web.site.Get(target).status, 404) << target;
}

TEST(Server, FileThatBecomesShorter_BreaksOff) {
  Web web;
  const std::string path = web.site.Files().Write("web/static/large", "");
  std::filesystem::resize_file(path, 64 << 20);
  const Socket browser = web.site.Begin("/static/large");
  EXPECT_TRUE(browser.Readable(kPatienceMs));
  std::filesystem::resize_file(path, 0);
  const Answer answer = ReadAnswer(browser.ReadAll());
  EXPECT_EQ(answer.status, 200);
  EXPECT_FALSE(answer.whole);
}

TEST(Server, FrontPageThatIsGoneOrEmpty_HasAForm) {
  Web web;
  std::filesystem::remove(web.site.Files().Path() + "/web/front.html");
  const Answer answer = web.site.Get("/none?q=a");
  EXPECT_EQ(
      answer.body,
      "<!DOCTYPE html>\n<html lang=\"en\"><head><title>Search</title></head><body><h1>Search</h1>\n"
      "<div class=\"notice\" role=\"alert\"><p>There is no page of this address.</p></div>\n"
      "<form role=\"search\" action=\"/search\"><label>Search for "
      "<input name=\"q\" type=\"search\" value=\"a\"></label>\n"
      "<input type=\"hidden\" name=\"group\" value=\"grp1\">\n"
      "<button>Search</button></form></body></html>\n");
  EXPECT_TRUE(
      Eventually([&] { return web.site.Log().find(",\"fallback\":true,") != std::string::npos; }));
  web.site.Files().Write("web/front.html", "");
  EXPECT_EQ(web.site.Get("/none?q=a").body, answer.body);
}

TEST(Server, EveryAnswer_ForbidsScripts) {
  Web web;
  for (const char *target : {"/", "/none", "/search?q=a&group=other", "/doc/grp1/x",
                             "/static/korvo.css", "/opensearch.xml", "/metrics", "/healthz"})
    for (const char *method : {"GET", "POST"})
      for (
          const char *header :
          {"\r\nContent-Security-Policy: default-src 'none'; style-src 'self'; img-src 'self'; form-action 'self'; base-uri 'none'; frame-ancestors 'none'\r\n",
           "\r\nX-Content-Type-Options: nosniff\r\n", "\r\nReferrer-Policy: no-referrer\r\n"})
        EXPECT_NE(web.site.Get(target, method).headers.find(header), std::string::npos) << target;
}

// What a page takes on a slow line.
TEST(Pages, AreSmall) {
  std::uintmax_t size = 0;
  for (const auto &file : std::filesystem::recursive_directory_iterator(KORVO_PAGES))
    if (file.is_regular_file()) size += file.file_size();
  EXPECT_GT(size, 5000u);
  EXPECT_LT(size, 15u * 1024);
}

TEST(Server, OpenSearch_NamesTheHost) {
  Web web("public-url https://a.example\n");
  EXPECT_EQ(web.site.Get("/opensearch.xml").body,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<OpenSearchDescription xmlns=\"http://a9.com/-/spec/opensearch/1.1/\">\n"
            "<ShortName>Library</ShortName>\n<Description>Library</Description>\n"
            "<InputEncoding>UTF-8</InputEncoding>\n"
            "<Url type=\"text/html\" template=\"https://a.example/search?q={searchTerms}\"/>\n"
            "</OpenSearchDescription>\n");
  Web plain;
  EXPECT_NE(plain.site.Get("/opensearch.xml")
                .headers.find("\r\nContent-Type: application/opensearchdescription+xml\r\n"),
            std::string::npos);
  for (const std::string host : {"a\"b", "<a>", "a b", "a/b", ""}) {
    const Socket browser = ConnectTo(plain.site.Port());
    browser.Send("GET /opensearch.xml HTTP/1.1\r\nHost: " + host + "\r\nConnection: close\r\n\r\n");
    EXPECT_TRUE(ReadAnswer(browser.ReadAll())
                    .Has("template=\"http://" + std::string("localhost") + "/search?q="))
        << host;
  }
  EXPECT_TRUE(plain.site.Get("/opensearch.xml").Has("template=\"http://search.example/search?q="));
  const Socket browser = ConnectTo(plain.site.Port());
  browser.Send("GET /opensearch.xml HTTP/1.1\r\nHost: AZaz09.-:[]\r\nConnection: close\r\n\r\n");
  EXPECT_TRUE(ReadAnswer(browser.ReadAll()).Has("template=\"http://AZaz09.-:[]/search?q="));
  const Socket old = ConnectTo(plain.site.Port());
  old.Send("GET /opensearch.xml HTTP/1.0\r\n\r\n");  // names none
  EXPECT_NE(old.ReadAll().find("template=\"http://localhost/search?q="), std::string::npos);
}

TEST(Server, Health_IsThatOfTheDaemon) {
  const Daemon daemon;
  Site site(daemon.ClientPort(), daemon.AdminPort());
  EXPECT_EQ(site.Get("/healthz").body, "ok\n");
  const int port = ReservePort();
  Site lonely(port, port);
  const Answer answer = lonely.Get("/healthz");
  EXPECT_EQ(answer.status, 503);
  EXPECT_EQ(answer.body, "the daemon does not answer\n");
  ReleasePort(port);
}

TEST(Server, HealthOfADaemonThatSaysNothing_Is503) {
  const int port = ReservePort();
  const Socket silent(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_in own = {
      AF_INET, htons(static_cast<std::uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
  ASSERT_EQ(bind(silent.Fd(), reinterpret_cast<const sockaddr *>(&own), sizeof own), 0);
  const Site site(9, port);
  EXPECT_EQ(site.Get("/healthz").status, 503);
  EXPECT_TRUE(silent.Readable(0));
  ReleasePort(port);
}

// The system lets nobody speak to all machines unasked.
TEST(Server, HealthOfADaemonThatCannotBeAsked_Is503) {
  const Site site(9, 9, "daemon-address 255.255.255.255\n");
  const Answer answer = site.Get("/healthz");
  EXPECT_EQ(answer.status, 503);
  EXPECT_EQ(answer.body, "the daemon does not answer\n");
}

TEST(Server, Metrics_CountRequests) {
  Web web;
  web.site.Get("/none");
  EXPECT_NE(
      web.site.Get("/metrics").headers.find("\r\nContent-Type: text/plain; version=0.0.4\r\n"),
      std::string::npos);
  EXPECT_TRUE(Eventually([&] {
    const Answer answer = web.site.Get("/metrics");
    return answer.Has("\nkorvo_web_errors_total{kind=\"no-page\"} 1\n") &&
           answer.Has("\nkorvo_web_requests_total{route=\"none\"} 1\n");
  }));
}

TEST(Server, Metrics_TellWhoIsServedAndWhoWaits) {
  Web web("connections 1\n");
  const Socket first = web.site.Begin("/search?q=a");
  const Socket connection = web.Accept();
  const Socket second = web.site.Begin("/search?q=b");
  EXPECT_TRUE(Eventually([&] {
    const Answer answer = web.site.Get("/metrics");
    return answer.Has("\nkorvo_web_in_flight 3\n") && answer.Has("\nkorvo_web_waiting 1\n");
  }));
}

TEST(Server, EveryTroubleOfAPage_IsLoggedAndCounted) {
  Web web;
  web.Told("/search?q=a", kFrame +
                              "\t<!--korvo matches=2 first=1 shown=2 shards=1/2 ms=3-->\n<li>"
                              "\t@COMMAND=ERROR\tUnable to retreive document.</ol>");
  EXPECT_TRUE(Eventually([&] { return web.site.Log().ends_with("}\n"); }));
  EXPECT_NE(web.site.Log().find(",\"trouble\":\"shards lost-document\","), std::string::npos)
      << web.site.Log();
  const Answer measures = web.site.Get("/metrics");
  EXPECT_TRUE(measures.Has("\nkorvo_web_errors_total{kind=\"shards\"} 1\n"));
  EXPECT_TRUE(measures.Has("\nkorvo_web_errors_total{kind=\"lost-document\"} 1\n"));
  EXPECT_TRUE(measures.Has("\nkorvo_web_errors_total{kind=\"busy\"} 0\n"));
}

// A browser that leaves in the middle has not got all of it.
TEST(Server, LogOfAFile_HasWhatWasGiven) {
  Web web;
  const std::size_t size = 64 << 20;
  web.site.Files().Write("web/static/large", std::string(size, 'x'));
  Socket browser = web.site.Begin("/static/large");
  EXPECT_TRUE(browser.Readable(kPatienceMs));
  browser.Close();
  EXPECT_TRUE(Eventually([&] { return web.site.Log().ends_with("}\n"); }));
  const std::string log = web.site.Log();
  const std::size_t bytes = log.find("\"bytes\":");
  ASSERT_NE(bytes, std::string::npos) << log;
  EXPECT_LT(std::stoul(log.substr(bytes + 8)), size) << log;
  EXPECT_NE(log.find(",\"first_ms\":"), std::string::npos) << log;
  EXPECT_EQ(web.site.Get("/static/large").body.size(), size);
  EXPECT_TRUE(Eventually([&] {
    return web.site.Log().find("\"bytes\":" + std::to_string(size) + ",") != std::string::npos;
  }));
  const Answer head = web.site.Get("/static/large", "HEAD");
  EXPECT_NE(head.headers.find("\r\nContent-Length: " + std::to_string(size) + "\r\n"),
            std::string::npos);
}

TEST(Server, Log_HasALineARequest) {
  Web web("log-queries no\n");
  web.Told("/search?q=secret", "<p>" + kStatus);
  EXPECT_TRUE(Eventually([&] { return web.site.Log().ends_with("}\n"); }));
  const std::string log = web.site.Log();
  EXPECT_NE(
      log.find(
          "\"route\":\"search\",\"status\":200,\"hits\":2,\"matches\":25,\"shards\":\"1/1\",\"bytes\":3,"),
      std::string::npos)
      << log;
  EXPECT_NE(log.find("\"address\":\"127.0.0.1\""), std::string::npos) << log;
  EXPECT_EQ(log.find("secret"), std::string::npos);
}

TEST(Server, LogOfAHead_HasNoBytes) {
  Web web;
  web.site.Get("/", "HEAD");
  EXPECT_TRUE(Eventually([&] { return web.site.Log().ends_with("}\n"); }));
  EXPECT_NE(web.site.Log().find("\"route\":\"front\",\"status\":200,\"bytes\":0,"),
            std::string::npos)
      << web.site.Log();
}

TEST(Server, Hup_OpensTheLogAgain) {
  Web web;
  const std::string path = web.site.Files().Path() + "/log";
  web.site.Get("/");
  std::filesystem::rename(path, path + ".1");
  web.site.Program().Signal(SIGHUP);
  EXPECT_TRUE(Eventually([&] {
    web.site.Get("/");
    return !ReadFile(path).empty();
  }));
}

TEST(Server, Term_EndsBehindTheRunningRequests) {
  Web web;
  const Socket browser = web.site.Begin("/search?q=a");
  Socket connection = web.Accept();
  web.site.Program().Signal(SIGTERM);
  EXPECT_TRUE(Eventually([&] {  // no new request
    const Socket other(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_storage name = {};
    socklen_t size = sizeof name;
    getpeername(browser.Fd(), reinterpret_cast<sockaddr *>(&name), &size);
    return connect(other.Fd(), reinterpret_cast<const sockaddr *>(&name), size) != 0;
  }));
  connection.Send("<p>whole");
  connection.Close();
  const Answer answer = ReadAnswer(browser.ReadAll());
  EXPECT_TRUE(answer.whole);
  EXPECT_EQ(answer.body, "<p>whole");
  EXPECT_EQ(ExitStatus(web.site.Program().Wait()), 0);
}

TEST(Server, Term_DoesNotWaitBeyondTheDeadline) {
  Web web("deadline 300\n");
  const Socket browser = web.site.Begin("/search?q=a");
  const Socket connection = web.Accept();
  web.site.Program().Signal(SIGTERM);
  EXPECT_EQ(ExitStatus(web.site.Program().Wait()), 0);
}

TEST(Server, Term_DoesNotWaitForARequestThatIsNotWhole) {
  Web web("sender-time 3600\ndeadline 600000\n");
  const Socket idle = ConnectTo(web.site.Port()), half = ConnectTo(web.site.Port()),
               body = ConnectTo(web.site.Port());
  half.Send("GET /search?q=a HTTP/1.1\r\nHost:");
  body.Send("GET /search?q=a HTTP/1.1\r\nHost: x\r\nContent-Length: 5\r\n\r\nhe");
  web.site.Get("/");
  web.site.Program().Signal(SIGTERM);
  EXPECT_EQ(ExitStatus(web.site.Program().Wait()), 0);
}

TEST(Server, Term_DoesNotWaitForAReader) {
  Web web("reader-time 3600\ndeadline 300\n");
  std::filesystem::resize_file(web.site.Files().Write("web/static/large", ""), 64 << 20);
  const Socket browser = web.site.Begin("/static/large");
  EXPECT_TRUE(browser.Readable(kPatienceMs));
  web.site.Program().Signal(SIGTERM);
  EXPECT_EQ(ExitStatus(web.site.Program().Wait()), 0);
}

TEST(Server, RequestWhileItStops_Is503) {
  Web web;
  const Socket running = web.site.Begin("/search?q=a");
  const Socket connection = web.Accept();
  const Socket other = ConnectTo(web.site.Port());
  other.Send("GET /none HTTP/1.1\r\nHost: x\r\n\r\n");
  EXPECT_TRUE(Comes(other, "404 Not Found"));
  web.site.Program().Signal(SIGTERM);
  std::string bytes;
  EXPECT_TRUE(Eventually([&] {
    other.Send("GET / HTTP/1.1\r\nHost: x\r\n\r\n");
    char some[8192];
    const ssize_t got = recv(other.Fd(), some, sizeof some, MSG_DONTWAIT);
    if (got > 0) bytes.append(some, static_cast<std::size_t>(got));
    return bytes.find("HTTP/1.1 503") != std::string::npos;
  }));
  EXPECT_NE(bytes.find("This server is about to stop. Please try again in a moment."),
            std::string::npos);
  EXPECT_NE(bytes.find("\r\nConnection: close\r\n"), std::string::npos) << bytes;
}

// An address of this machine that is not of the loopback, or nothing.
std::string OuterAddress() {
  ifaddrs *all = nullptr;
  std::string found;
  EXPECT_EQ(getifaddrs(&all), 0);
  for (const ifaddrs *one = all; one != nullptr && found.empty(); one = one->ifa_next) {
    if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET) continue;
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(one->ifa_addr)->sin_addr, text,
              sizeof text);
    if (!std::string(text).starts_with("127.")) found = text;
  }
  freeifaddrs(all);
  return found;
}

bool Connects(const Socket &browser, const std::string &address, int port) {
  sockaddr_in to = {};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<std::uint16_t>(port));
  inet_pton(AF_INET, address.c_str(), &to.sin_addr);
  return connect(browser.Fd(), reinterpret_cast<const sockaddr *>(&to), sizeof to) == 0;
}

// A browser of that address.
Socket BeginFrom(const std::string &address, int port, const std::string &target) {
  Socket browser(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  EXPECT_TRUE(Connects(browser, address, port));
  if (!target.empty())
    browser.Send("GET " + target + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
  return browser;
}

TEST(Server, OneAddressIsListenedOnAlone) {
  const Site site(9, 9);
  const Socket other(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  EXPECT_FALSE(Connects(other, "127.0.0.2", site.Port()));
}

TEST(Server, AddressThatAsksTooOften_Is429) {
  const std::string address = OuterAddress();
  if (address.empty()) GTEST_SKIP() << "this machine has no address but the loopback";
  Web web("listen-address 0.0.0.0\nclient-rate 1\nclient-burst 1\n");
  const Socket first = BeginFrom(address, web.site.Port(), "/search?q=a");
  Socket connection = web.Accept();
  connection.Send("<p>");
  connection.Close();
  EXPECT_EQ(ReadAnswer(first.ReadAll()).status, 200);
  const Answer answer = ReadAnswer(BeginFrom(address, web.site.Port(), "/search?q=a").ReadAll());
  EXPECT_EQ(answer.status, 429);
  EXPECT_TRUE(answer.Has("You have asked very often within a short time. Please wait a moment."));
  EXPECT_NE(answer.headers.find("\r\nRetry-After: 5\r\n"), std::string::npos);
}

TEST(Server, AddressWithManyConnections_GetsNoMore) {
  const std::string address = OuterAddress();
  if (address.empty()) GTEST_SKIP() << "this machine has no address but the loopback";
  Web web("listen-address 0.0.0.0\nclient-connections 2\n");
  Socket one = BeginFrom(address, web.site.Port(), "");
  const Socket two = BeginFrom(address, web.site.Port(), "");
  EXPECT_EQ(BeginFrom(address, web.site.Port(), "").ReadAll(), "");
  std::vector<Socket> own;
  for (int i = 0; i < 5; ++i) own.push_back(ConnectTo(web.site.Port()));
  EXPECT_EQ(web.site.Get("/").status, 200);
  one.Close();
  EXPECT_TRUE(Eventually([&] {
    return ReadAnswer(BeginFrom(address, web.site.Port(), "/").ReadAll()).status == 200;
  }));
}

TEST(Server, AddressWithManyConnections_GetsMoreWithoutALimit) {
  const std::string address = OuterAddress();
  if (address.empty()) GTEST_SKIP() << "this machine has no address but the loopback";
  Web web("listen-address 0.0.0.0\nclient-connections 0\n");
  const Socket one = BeginFrom(address, web.site.Port(), "");
  EXPECT_EQ(ReadAnswer(BeginFrom(address, web.site.Port(), "/").ReadAll()).status, 200);
}

TEST(Server, SlowSender_IsCutOff) {
  Web web("sender-time 1\n");
  const Socket idle = ConnectTo(web.site.Port()), slow = ConnectTo(web.site.Port());
  EXPECT_TRUE(Eventually([&] {
    slow.Send("x");
    return slow.Readable(0);
  }));
  EXPECT_EQ(idle.ReadAll(), "");
}

TEST(Server, BrowserThatAsksForNothingMore_IsCutOff) {
  Web web("sender-time 1\n");
  const Socket browser = ConnectTo(web.site.Port());
  browser.Send("GET /none HTTP/1.1\r\nHost: x\r\n\r\n");
  EXPECT_TRUE(browser.ReadAll().starts_with("HTTP/1.1 404 "));
}

TEST(Server, BrowserThatIsServed_IsNotCutOffAsASender) {
  Web web("sender-time 1\n");
  const Socket browser = web.site.Begin("/search?q=a");
  Socket connection = web.Accept();
  EXPECT_EQ(ConnectTo(web.site.Port()).ReadAll(), "");  // it came later
  connection.Send("<p>");
  connection.Close();
  EXPECT_EQ(ReadAnswer(browser.ReadAll()).body, "<p>");
}

TEST(Server, BodyThatDoesNotCome_IsCutOff) {
  Web web("sender-time 1\nreader-time 3600\ndeadline 600000\n");
  const Socket browser = ConnectTo(web.site.Port());
  browser.Send("GET / HTTP/1.1\r\nHost: x\r\nContent-Length: 5\r\n\r\nhe");
  EXPECT_EQ(browser.ReadAll(), "");
}

TEST(Server, SlowReader_IsCutOff) {
  Web web("reader-time 1\ndeadline 100\n");
  const std::size_t size = 64 << 20;
  std::filesystem::resize_file(web.site.Files().Write("web/static/large", ""), size);
  const Socket browser = web.site.Begin("/static/large");
  EXPECT_TRUE(Eventually([&] { return web.site.Log().ends_with("}\n"); }));
  const Answer answer = ReadAnswer(browser.ReadAll());
  EXPECT_EQ(answer.status, 200);
  EXPECT_LT(answer.body.size(), size);
}

// The socket of a service manager, by the bytes of its name.
Socket ManagerAt(const std::string &name) {
  sockaddr_un own = {};
  own.sun_family = AF_UNIX;
  std::memcpy(own.sun_path, name.data(), name.size());
  Socket manager(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  EXPECT_EQ(bind(manager.Fd(), reinterpret_cast<const sockaddr *>(&own),
                 static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size())),
            0);
  return manager;
}

// environment is that name as the service manager writes it there.
void TellsTheServiceManager(const std::string &name, const std::string &environment) {
  const Socket manager = ManagerAt(name);
  setenv("NOTIFY_SOCKET", environment.c_str(), 1);
  Web web;
  unsetenv("NOTIFY_SOCKET");
  char text[64] = "";
  EXPECT_TRUE(manager.Readable(kPatienceMs));
  EXPECT_GT(recv(manager.Fd(), text, sizeof text - 1, 0), 0);
  EXPECT_STREQ(text, "READY=1");
  web.site.Program().Signal(SIGTERM);
  std::memset(text, 0, sizeof text);
  EXPECT_TRUE(manager.Readable(kPatienceMs));
  EXPECT_GT(recv(manager.Fd(), text, sizeof text - 1, 0), 0);
  EXPECT_STREQ(text, "STOPPING=1");
}

TEST(Server, Ready_IsToldToTheServiceManager) {
  const Folder folder;
  const std::string path = folder.Path() + "/notify";
  TellsTheServiceManager(path, path);
  const std::string longest = path + std::string(107 - path.size(), 'x');
  TellsTheServiceManager(longest, longest);
}

TEST(Server, Ready_IsToldToANameWithoutAFile) {
  const std::string name = "korvo-test-" + std::to_string(getpid());
  TellsTheServiceManager(std::string(1, '\0') + name, "@" + name);
}

TEST(Server, Ready_IsNotToldToANameThatIsTooLong) {
  const Folder folder;
  const std::string name = folder.Path() + "/" + std::string(107 - folder.Path().size(), 'x');
  const Socket manager = ManagerAt(name);
  for (const std::string &longer : {name, name + "x"}) {
    setenv("NOTIFY_SOCKET", longer.c_str(), 1);
    const Web web;
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(web.site.Get("/").status, 200);
    EXPECT_FALSE(manager.Readable(0));
  }
}
