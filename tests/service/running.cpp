#include "tests/service/running.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>

namespace {

sockaddr_in Loopback(int port) {
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<std::uint16_t>(port));
  return addr;
}

Socket BoundTo(int type, int port) {
  Socket sock(socket(AF_INET, type | SOCK_CLOEXEC, 0));
  const sockaddr_in addr = Loopback(port);
  if (bind(sock.Fd(), reinterpret_cast<const sockaddr *>(&addr), sizeof addr) != 0) sock.Close();
  return sock;
}

// An abstract name is exclusive and goes with the process.
bool Claim(int port) {
  sockaddr_un name = {};
  name.sun_family = AF_UNIX;
  const std::string text = "korvo-service-test-port-" + std::to_string(port);
  std::memcpy(name.sun_path + 1, text.data(), text.size());
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (bind(fd, reinterpret_cast<const sockaddr *>(&name), size) == 0) return true;  // held open
  close(fd);
  return false;
}

}  // namespace

const char *const kPackages =
    "Package: bash\nVersion: 5.2\nSection: shells\nDescription: GNU Bourne Again shell\n An interpreter.\n"
    "\n"
    "Package: zsh\nVersion: 5.9\nSection: shells\nDescription: shell, a shell among the shells: shell\n"
    "\n"
    "Package: nano\nVersion: 7.2\nSection: editors\nDescription: small editor\n"
    "\n"
    "Package: libnano-dev\nVersion: 7.2\nSection: libdevel\nDescription: C++ headers of the editor\n";

int TakePort() {
  constexpr int kFirst = 15000, kCount = 5000;
  static int next = static_cast<int>(getpid()) * 13 % kCount;
  for (int tried = 0; tried < kCount; ++tried) {
    next = (next + 1) % kCount;
    const int port = kFirst + next;
    if (Claim(port) && BoundTo(SOCK_STREAM, port).Fd() >= 0 && BoundTo(SOCK_DGRAM, port).Fd() >= 0)
      return port;
  }
  ADD_FAILURE() << "no free port";
  return 0;
}

Finished RunIndexer(const std::vector<std::string> &arguments,
                    const std::function<void()> &prepare) {
  const Folder folder;
  std::vector<std::string> argv = {KORVO_INDEX};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  Process indexer(argv, folder.Path(), prepare);
  const int status = ExitStatus(indexer.Wait());
  return {status, indexer.Output(), indexer.RawLog()};
}

std::string BuildIndex(const Folder &folder, const std::string &name,
                       const std::string &documents) {
  const std::string database = folder.Path() + "/" + name;
  const Finished indexer = RunIndexer({database, folder.Write(name + ".txt", documents)});
  EXPECT_EQ(indexer.status, 0) << indexer.errors;
  return database;
}

void Layout::Write(const Folder &folder, char type, const std::string &database) const {
  folder.Write("korvo.conf", "web1 C 127.0.0.1 9 " + std::to_string(parent_port) + " -\ngrp1 " +
                                 type + " 127.0.0.1 " + std::to_string(client_port) + " " +
                                 std::to_string(admin_port) + " web1\n");
  // The location that this manager must not look at is a wrong one.
  const std::string search = type == 'S' ? database : "/dev/null",
                    doc = type == 'D' ? database : "/dev/null";
  folder.Write("korvo.db", "grp1 packages " + search + " " + doc + "\n");
}

Running::Running(char type, const std::string &database)
    : parent_(BoundTo(SOCK_DGRAM, ports_.parent_port)) {
  ports_.Write(folder_, type, database);
  const char *program = type == 'S' ? KORVO_SEARCHMGR : KORVO_DOCMGR;
  program_ = std::make_unique<Process>(std::vector<std::string>{program, "grp1", folder_.Path()},
                                       folder_.Path());
  announcement_ = Receive();
}

std::string Running::Exchange(const std::string &command) const {
  const Socket client = ConnectTo(ports_.client_port);
  client.Send(command);
  return client.ReadAll();
}

void Running::Send(const std::string &datagram) const {
  const sockaddr_in addr = Loopback(ports_.admin_port);
  sendto(parent_.Fd(), datagram.data(), datagram.size(), 0,
         reinterpret_cast<const sockaddr *>(&addr), sizeof addr);
}

std::string Running::Receive() const {
  if (!parent_.Readable(kPatienceMs)) {
    ADD_FAILURE() << "no datagram came: " << program_->RawLog();
    return {};
  }
  char datagram[4096];
  const ssize_t length = recv(parent_.Fd(), datagram, sizeof datagram, 0);
  return std::string(datagram, length > 0 ? static_cast<std::size_t>(length) : 0);
}

void Running::Ping() {
  const std::string number = std::to_string(++sequence_);
  Send("\t@COMMAND=PING\t@SEQNUM=" + number + "\n");
  EXPECT_EQ(Receive(), "\t@COMMAND=PONG\t@SEQNUM=" + number + "\n");
}
