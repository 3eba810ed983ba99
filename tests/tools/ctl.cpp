#include "tests/tools/ctl.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

sockaddr_in Loopback(int port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

Admin::Admin() : port_(ReservePort()), sock_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_in address = Loopback(port_);
  EXPECT_EQ(0, bind(sock_.Fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address));
}

std::string Admin::Receive() {
  char buffer[5000];
  socklen_t size = sizeof sender_;
  if (!sock_.Readable(kPatienceMs)) return "nothing came";
  const ssize_t got =
      recvfrom(sock_.Fd(), buffer, sizeof buffer, 0, reinterpret_cast<sockaddr *>(&sender_), &size);
  return std::string(buffer, got > 0 ? static_cast<std::size_t>(got) : 0);
}

void Admin::Reply(const std::string &text) const {
  sendto(sock_.Fd(), text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&sender_),
         sizeof sender_);
}

std::string Admin::Announced() {
  for (;;) {
    const std::string text = Receive();
    if (!text.starts_with("\t@COMMAND=PING\t")) return text;
    Reply(Pong(NumberIn(text)));
  }
}

Terminal::Terminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
  EXPECT_EQ(0, grantpt(master_.Fd()) + unlockpt(master_.Fd()));
  slave_ = Socket(open(ptsname(master_.Fd()), O_RDWR | O_NOCTTY | O_CLOEXEC));
  EXPECT_GE(slave_.Fd(), 0);
}

void Terminal::TakeErrors() const { dup2(slave_.Fd(), STDERR_FILENO); }

std::string Terminal::Shown() const {
  char buffer[4096];
  while (master_.Readable(0)) {
    const ssize_t got = read(master_.Fd(), buffer, sizeof buffer);
    if (got <= 0) break;
    shown_.append(buffer, static_cast<std::size_t>(got));
  }
  return shown_;
}

std::string Pong(const std::string &number) { return "\t@COMMAND=PONG\t@SEQNUM=" + number + "\n"; }

std::string NumberIn(const std::string &ping) {
  const std::string before = "\t@COMMAND=PING\t@SEQNUM=";
  EXPECT_TRUE(ping.starts_with(before) && ping.ends_with("\n")) << ping;
  if (ping.size() <= before.size()) return "";
  const std::string number = ping.substr(before.size(), ping.size() - before.size() - 1);
  EXPECT_EQ(std::string::npos, number.find_first_not_of("0123456789")) << ping;
  return number;
}

int Site::Line(const std::string &id, char type, const std::string &parent) {
  Program_ line = {id, type, ReservePort(), ReservePort(), std::make_unique<Folder>(), nullptr};
  Text(id + " " + type + " 127.0.0.1 " + std::to_string(line.client_port) + " " +
       std::to_string(line.admin_port) + " " + parent);
  const int played = type == 'C' ? line.client_port : ReservePort();
  line.folder->Write("korvo.conf", "play C 127.0.0.1 " + std::to_string(played) + " " +
                                       std::to_string(line.admin_port) + " -\n");
  lines_.emplace(count_, std::move(line));
  return count_;
}

void Site::Text(const std::string &line) {
  conf_ += line + "\n";
  ++count_;
  folder_.Write("korvo.conf", conf_);
}

void Site::Start(int line) {
  Program_ &one = lines_.at(line);
  one.program = std::make_unique<Process>(Arguments{KORVO_COMMMGR, "play", one.folder->Path()},
                                          one.folder->Path());
  const std::string port = std::to_string(one.admin_port);
  EXPECT_TRUE(Eventually([&] {
    return RunTool({KORVOCTL, "ping", "--port", port, "--timeout", "1"}).status == 0;
  })) << one.program->RawLog();
}

std::string Site::Place(int line) const {
  const Program_ &one = lines_.at(line);
  return one.id + ":" + one.type + " at 127.0.0.1/" + std::to_string(one.admin_port);
}

Arguments Site::Ctl(const Arguments &words) const {
  Arguments argv = {KORVOCTL};
  argv.insert(argv.end(), words.begin(), words.end());
  argv.insert(argv.end(), {"--dir", folder_.Path()});
  return argv;
}
