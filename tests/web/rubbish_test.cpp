// What nobody should send, from both sides: the server goes on serving.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <atomic>
#include <thread>

#include "tests/web/site.h"

namespace {

const std::string kRequest =
    "GET /search?q=a%20b&Title=c HTTP/1.1\r\nHost: search.example\r\nAccept: text/html\r\n\r\n";

class Rubbish : public testing::Test {
 protected:
  ~Rubbish() override {
    EXPECT_EQ(site_.Get("/").status, 200);
    EXPECT_FALSE(site_.Program().Ended());
  }

  // The first status of the answer to these bytes; 0: the connection was closed without one.
  int Status(const std::string &bytes) const {
    const Socket browser = ConnectTo(site_.Port());
    browser.Send(bytes);
    shutdown(browser.Fd(), SHUT_WR);
    return ReadAnswer(browser.ReadAll()).status;
  }

  // The page to a search whose daemon says that.
  Answer Told(const std::string &bytes) {
    const Socket browser = site_.Begin("/search?q=a");
    Socket connection = daemon_.Accept();
    connection.ReadLine();
    std::thread sender([&] {
      connection.Send(bytes);
      connection.Close();
    });
    const Answer answer = ReadAnswer(browser.ReadAll());
    sender.join();
    return answer;
  }

  // The most memory that the program has had.
  int MostKilobytes() {
    const std::string status =
        ReadFile("/proc/" + std::to_string(site_.Program().Pid()) + "/status");
    return std::stoi(status.substr(status.find("VmHWM:") + 6));
  }

  Manager daemon_;
  Site site_{daemon_.Port(), 9, "sender-time 1\ndeadline 600000\n"};
};

}  // namespace

TEST_F(Rubbish, RequestsThatAreCutAtEveryByte_GetNoPage) {
  std::vector<Socket> browsers;
  for (std::size_t size = 0; size < kRequest.size(); ++size) {
    browsers.push_back(ConnectTo(site_.Port()));
    browsers.back().Send(kRequest.substr(0, size));
  }
  for (const Socket &browser : browsers) EXPECT_NE(ReadAnswer(browser.ReadAll()).status, 200);
  EXPECT_FALSE(daemon_.Called());
}

TEST_F(Rubbish, HeadersThatAreTooLarge) {
  const std::string line = "GET / HTTP/1.1\r\nHost: x\r\n";
  EXPECT_NE(Status(line + "X: " + std::string(1 << 20, 'x') + "\r\n\r\n"), 200);
  std::string many = line;
  for (int i = 0; i < 10000; ++i) many += "X-" + std::to_string(i) + ": y\r\n";
  EXPECT_NE(Status(many + "\r\n"), 200);
  EXPECT_NE(Status("GET /?" + std::string(1 << 20, 'x') + " HTTP/1.1\r\nHost: x\r\n\r\n"), 200);
}

TEST_F(Rubbish, EveryByteInEveryPlace) {
  for (int byte = 0; byte < 256; ++byte) {
    std::string request = kRequest;
    request[static_cast<std::size_t>(byte) % request.size()] = static_cast<char>(byte);
    const Socket browser = ConnectTo(site_.Port());
    browser.Send(request);
  }
}

TEST_F(Rubbish, EveryByteInAParameter_IsOnePlainLineAndOnePage) {
  site_.Files().Write("web/results.tail", "");
  site_.Files().Write("web/document.tail", "");
  for (int byte = 0; byte < 256 && !HasFailure(); ++byte) {  // each may have to be waited for
    char escape[8];
    std::snprintf(escape, sizeof escape, "%%%02x", static_cast<unsigned>(byte));
    const std::string e = escape;
    for (const std::string &target : {"/search?group=grp1&q=a" + e + "@b&page=" + e + "&sort=" + e +
                                          "&type=" + e + "&Title=a" + e + "@b&" + e + "=c",
                                      "/doc/grp1/1?type=" + e}) {
      const Socket browser = site_.Begin(target);
      Socket connection = daemon_.Accept();
      const std::string line = connection.ReadLine();
      EXPECT_TRUE(line.starts_with("\t@COMMAND=") && line.ends_with("\n")) << target;
      EXPECT_EQ(line.find_first_of(std::string("\r\0\x1b\x7f", 4)), std::string::npos) << target;
      std::size_t fields = 0;
      for (std::size_t at = 0; (at = line.find("\t@", at)) != std::string::npos; ++at) ++fields;
      EXPECT_LE(fields, 9u) << line;
      EXPECT_EQ(line.find("\t@MACROFILE=", line.find("\t@MACROFILE=") + 1), std::string::npos);
      connection.Send("<p><!--korvo:query--></p>");
      connection.Close();
      const Answer answer = ReadAnswer(browser.ReadAll());
      EXPECT_EQ(answer.status, 200) << target;
      EXPECT_TRUE(answer.body.starts_with("<p>") && answer.body.ends_with("</p>")) << answer.body;
      EXPECT_EQ(answer.body.find_first_of(std::string("\t\n\r\0\"'", 6)), std::string::npos);
      EXPECT_EQ(answer.body.find('<', 1), answer.body.size() - 4) << answer.body;
    }
    EXPECT_EQ(site_.Get("/search?q=a&group=" + e).status, 404) << byte;
    EXPECT_EQ(site_.Get("/doc/x" + e + "/" + e).status, 404) << byte;
    EXPECT_EQ(site_.Get("/static/" + e + "x").status, 404) << byte;
  }
  EXPECT_EQ(site_.Get("/search?group=%&q=%zz&%=%4").status, 404);
}

TEST_F(Rubbish, NoHttpAtAll) {
  for (const std::string &bytes :
       {std::string("\r\n\r\n"), std::string("\0\0\0", 3), std::string("GET\r\n\r\n"),
        std::string("GET / HTTP/9.9\r\n\r\n"), std::string(5000, '\n')})
    EXPECT_NE(Status(bytes), 200);
}

TEST_F(Rubbish, BodyOfARequest_IsNotRead) {
  EXPECT_EQ(Status("GET / HTTP/1.1\r\nHost: x\r\nContent-Length: 5\r\n\r\nhello"), 200);
  EXPECT_NE(Status("GET / HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"), 200);
}

TEST_F(Rubbish, DaemonThatSendsEveryByte) {
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  const Answer answer = Told("<p>" + every + every + "</p>");
  EXPECT_EQ(answer.status, 200);
  EXPECT_TRUE(answer.whole);
}

TEST_F(Rubbish, DaemonThatSendsALot) {
  site_.Files().Write("web/results.tail", "");
  Told("<p>");
  const int before = MostKilobytes();
  const std::string page = "<p>" + std::string(24 << 20, 'x');
  const Answer answer = Told(page);
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body.size(), page.size());
  EXPECT_LT(MostKilobytes() - before, 8192);
}

TEST_F(Rubbish, DaemonThatSendsAnErrorWithoutEnd_HoldsNobodyUp) {
  const Socket browser = site_.Begin("/search?q=a");
  Socket connection = daemon_.Accept();
  connection.ReadLine();
  connection.Send("<p>\t@COMMAND=ERROR\t");
  std::atomic<std::size_t> sent = 0;
  const auto send_on = [&connection, &sent] {
    const std::string some(1 << 20, 'x');
    for (ssize_t got; (got = send(connection.Fd(), some.data(), some.size(), MSG_NOSIGNAL)) > 0;)
      sent += static_cast<std::size_t>(got);
  };
  std::thread one(send_on), other(send_on);
  EXPECT_TRUE(Eventually([&] { return sent > 1 << 24; }));
  const std::size_t before = sent;
  EXPECT_EQ(site_.Get("/").status, 200);
  EXPECT_LT(sent - before, 256u << 20) << "bytes before somebody else was served";
  shutdown(connection.Fd(), SHUT_RDWR);
  one.join();
  other.join();
}

TEST_F(Rubbish, DaemonThatSendsAByteAtATime) {
  const Socket browser = site_.Begin("/search?q=a");
  Socket connection = daemon_.Accept();
  connection.ReadLine();
  for (const char c : std::string("<p><!--korvo:query--></p>\t@COMMAND=ERROR\tsecret\n")) {
    connection.Send(std::string(1, c));
    std::this_thread::yield();
  }
  connection.Close();
  const Answer answer = ReadAnswer(browser.ReadAll());
  EXPECT_TRUE(answer.body.starts_with("<p>a</p>")) << answer.body;
  EXPECT_FALSE(answer.Has("secret"));
}

TEST_F(Rubbish, ThousandBrowsersThatSayNothing) {
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  std::vector<Socket> browsers;
  for (int i = 0; i < 1000; ++i) browsers.push_back(ConnectTo(site_.Port()));
  EXPECT_EQ(site_.Get("/").status, 200);
}
