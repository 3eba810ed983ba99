#include "tests/commmgr/handler_case.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <utility>

#include "debug/log.h"
#include "tests/support/log_capture.h"

namespace {

int NextDescriptor() {
  const Fd next(dup(STDERR_FILENO));
  return next;
}

std::string Shown(const std::vector<Line> &lines, int level, int sock) {
  std::string text;
  for (const Line &line : lines)
    if (line.level >= level) text += line.text;
  const std::string mark = "<sock>";
  for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark))
    text.replace(at, mark.size(), Num(sock));
  return text;
}

std::string ReadLine(int fd) {
  std::string line;
  while (line.empty() || line.back() != '\n') {
    const std::string byte = ReadBytes(fd, 1);
    if (byte.empty()) break;
    line += byte;
  }
  return line;
}

void List(char type, const std::string &id, int port, INIT_CHILDINFO *record) {
  id.copy(record->ID, sizeof record->ID - 1);
  record->Type = type;
  record->ClientAddr = Loopback(port);
  INIT_CHILDINFO **list = type == 'D' ? &DocMgrList : &SearchMgrList;
  record->Next = std::exchange(*list, record);
}

}  // namespace

void ExpectLog(const std::vector<Line> &lines, const std::function<void()> &action) {
  for (int level = kInfo; level <= kOff; ++level) {
    int sock = -1;
    const Output output = Capture(level, [&] {
      sock = NextDescriptor();
      action();
    });
    EXPECT_EQ(output.log, Shown(lines, level, sock)) << "at level " << level;
  }
}

Line Displayed(const std::string &message) {
  CmdHdr hdr = {};
  return {kStatus,
          Capture(kStatus, [&] { Util_Display(&hdr, Util_IntCmdHdr(&hdr, message.c_str())); }).log};
}

void Client::Refuse() {
  signal(SIGPIPE, SIG_IGN);
  shutdown(near, SHUT_WR);
}

std::string Client::Received() {
  shutdown(near, SHUT_WR);
  std::string text;
  for (std::string more = ReadBytes(far, 4096); !more.empty(); more = ReadBytes(far, 4096))
    text += more;
  return text;
}

Line SendRefused(const Client &client) {
  return {kWarning, "[SOCK: SendTCP] Error 32 (0x20) from send().  Unable to send on socket " +
                        Num(client.near) + ".\n"};
}

Manager::Manager(char type, const std::string &id, std::string answer)
    : answer_(std::move(answer)) {
  List(type, id, port_, &record_);
  thread_ = std::thread([this] { Serve(); });
  ready_.wait();
}

Manager::~Manager() {
  shutdown(listener_, SHUT_RDWR);  // ends the accept
  thread_.join();
  for (const int connection : connections_) close(connection);
}

void Manager::Serve() {
  // The first allocation of a thread opens a file for a moment, which a case must not meet.
  requests_.reserve(16);
  ready_.count_down();
  for (;;) {
    const int connection = accept(listener_, nullptr, nullptr);
    if (connection < 0) return;
    const std::string request = ReadLine(connection);
    {
      const std::lock_guard<std::mutex> held(lock_);
      requests_.push_back(request);
      connections_.push_back(connection);
    }
    if (!answer_.empty()) SendAll(connection, answer_);
    shutdown(connection, SHUT_WR);
  }
}

std::vector<std::string> Manager::Requests() {
  const std::lock_guard<std::mutex> held(lock_);
  return requests_;
}

bool Manager::SeesEnd() {
  const std::lock_guard<std::mutex> held(lock_);
  if (connections_.empty()) return false;
  pollfd waiting = {connections_.back(), POLLIN, 0};
  char byte = 0;
  return poll(&waiting, 1, 5000) == 1 && recv(waiting.fd, &byte, 1, MSG_DONTWAIT) == 0;
}

GoneManager::GoneManager(char type, const std::string &id) { List(type, id, FreePort(), &record_); }

std::string GoneManager::Where() const { return "127.0.0.1:" + Num(record_.ClientAddr.Port); }

void WriteFile(const std::string &name, const std::string &bytes) {
  std::ofstream(name, std::ios::binary) << bytes;
}
