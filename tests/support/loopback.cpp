#include "tests/support/loopback.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

// Those from 10000 on are claimed by the tests of whole programs.
constexpr int kFirstPort = 4000;
constexpr int kPorts = 6000;
constexpr int kPortsOfAProcess = 16;

sockaddr_in NetworkAddr(int port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

bool Bind(int fd, int port) {
  const sockaddr_in address = NetworkAddr(port);
  return bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

int MustBind(int fd, int port) {
  if (!Bind(fd, port)) ADD_FAILURE() << "bind to " << port << ": errno " << errno;
  return fd;
}

}  // namespace

int FreePort() {
  static int tried = 0;
  for (int i = 0; i < kPorts; ++i) {
    const int port =
        kFirstPort + (static_cast<int>(getpid()) % kPorts * kPortsOfAProcess + tried++) % kPorts;
    const Fd tcp(socket(AF_INET, SOCK_STREAM, 0));
    const Fd udp(socket(AF_INET, SOCK_DGRAM, 0));
    if (Bind(tcp, port) && Bind(udp, port)) return port;
  }
  ADD_FAILURE() << "no free port";
  return -1;
}

SockAddr AddrOf(const char *ip, int port) {
  SockAddr addr = {};
  std::string(ip).copy(addr.IP, sizeof addr.IP - 1);
  addr.Port = static_cast<std::int16_t>(port);
  return addr;
}

void Await(const std::function<bool()> &condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    ASSERT_LT(std::chrono::steady_clock::now(), end) << "the condition never held";
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

int OpenDescriptors() {
  int count = 0;
  for (int fd = 0; fd < 1024; ++fd) count += IsOpen(fd) ? 1 : 0;
  return count;
}

void Fd::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

int ListenOn(int port) {
  const int fd = MustBind(socket(AF_INET, SOCK_STREAM, 0), port);
  EXPECT_EQ(listen(fd, 5), 0);
  return fd;
}

int ConnectFrom(int own_port, int port) {
  const int fd = MustBind(socket(AF_INET, SOCK_STREAM, 0), own_port);
  const sockaddr_in address = NetworkAddr(port);
  EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
  return fd;
}

int BindUDP(int port) { return MustBind(socket(AF_INET, SOCK_DGRAM, 0), port); }

int PortOf(int fd) {
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size), 0);
  return ntohs(address.sin_port);
}

TcpPair::TcpPair() {
  const Fd listener(ListenOn(0));
  *near.Place() = ConnectFrom(0, PortOf(listener));
  *far.Place() = accept(listener, nullptr, nullptr);
}

void SendAll(int fd, const std::string &bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    ASSERT_GT(count, 0);
    sent += static_cast<std::size_t>(count);
  }
}

std::string ReadBytes(int fd, std::size_t count) {
  std::string text(count, '\0');
  const ssize_t got = recv(fd, text.data(), count, MSG_WAITALL);
  text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return text;
}

void Reset(Fd *fd) {
  const linger at_once = {1, 0};
  EXPECT_EQ(setsockopt(*fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once), 0);
  fd->Close();
}

TempDir::TempDir() : before_(std::filesystem::current_path()) {
  std::string pattern = std::filesystem::temp_directory_path() / "korvo-test-XXXXXX";
  EXPECT_NE(mkdtemp(pattern.data()), nullptr);
  path_ = pattern;
  std::filesystem::current_path(path_);
}

TempDir::~TempDir() {
  std::filesystem::current_path(before_);
  std::filesystem::remove_all(path_);
}

std::string FileText(const std::string &path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}
