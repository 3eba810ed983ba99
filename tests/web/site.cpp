#include "tests/web/site.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>

namespace {

// The chunks, joined; *whole: the last one is there.
std::string Joined(const std::string &bytes, bool *whole) {
  std::string body;
  for (std::size_t at = 0;;) {
    const std::size_t line = bytes.find("\r\n", at);
    if (line == std::string::npos) return body;
    const std::size_t size = std::stoul(bytes.substr(at, line - at), nullptr, 16);
    if (size == 0) {
      *whole = true;
      return body;
    }
    body.append(bytes, line + 2, size);
    at = line + 2 + size + 2;
    if (bytes.size() < at) return body;
  }
}

}  // namespace

Answer ReadAnswer(const std::string &bytes) {
  Answer answer;
  const std::size_t end = bytes.find("\r\n\r\n");
  if (end == std::string::npos || !bytes.starts_with("HTTP/1.1 ")) return answer;
  answer.status = std::stoi(bytes.substr(9, 3));
  answer.headers = bytes.substr(0, end + 2);
  answer.body = bytes.substr(end + 4);
  const std::size_t length = answer.headers.find("\r\nContent-Length: ");
  if (answer.headers.find("\r\nTransfer-Encoding: chunked\r\n") != std::string::npos)
    answer.body = Joined(answer.body, &answer.whole);
  else if (length != std::string::npos)
    answer.whole = answer.body.size() == std::stoul(answer.headers.substr(length + 18));
  return answer;
}

Site::Site(int daemon_port, int admin_port, const std::string &lines,
           const std::function<void()> &prepare)
    : port_(ReservePort()) {
  std::filesystem::copy(KORVO_PAGES, folder_.Path() + "/web",
                        std::filesystem::copy_options::recursive);
  const std::string web = folder_.Path() + "/web";
  folder_.Write("korvo-web.conf", "listen-port " + std::to_string(port_) + "\ndaemon-port " +
                                      std::to_string(daemon_port) + "\ndaemon-admin-port " +
                                      std::to_string(admin_port) + "\nmacro-directory " + web +
                                      "\nstatic-directory " + web + "/static\nfront-page " + web +
                                      "/front.html\ntexts " + web + "/texts.en\nlog " +
                                      folder_.Path() +
                                      "/log\ngroup grp1 results document Library\n" + lines);
  Start(prepare);
}

void Site::Start(const std::function<void()> &prepare) {
  program_ = std::make_unique<Process>(
      std::vector<std::string>{KORVO_WEB, folder_.Path() + "/korvo-web.conf"}, folder_.Path(),
      prepare);
  EXPECT_TRUE(Eventually([this] { return Listens(); })) << program_->RawLog();
}

void Site::Restart() {
  program_.reset();
  Start({});
}

Site::~Site() {
  program_.reset();
  ReleasePort(port_);
}

bool Site::Listens() const {
  const Socket probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in to = {};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<std::uint16_t>(port_));
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return connect(probe.Fd(), reinterpret_cast<const sockaddr *>(&to), sizeof to) == 0;
}

Socket Site::Begin(const std::string &target, const std::string &method) const {
  Socket browser = ConnectTo(port_);
  browser.Send(method + " " + target +
               " HTTP/1.1\r\nHost: search.example\r\nConnection: close\r\n\r\n");
  return browser;
}

Answer Site::Get(const std::string &target, const std::string &method) const {
  return ReadAnswer(Begin(target, method).ReadAll());
}
