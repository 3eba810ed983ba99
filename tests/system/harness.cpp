#include "tests/system/harness.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/close_range.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "tests/support/log_capture.h"

namespace {

constexpr int kLeaveMs = 5000;  // for a process that is asked to end

sockaddr_in Loopback(int port) {
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<std::uint16_t>(port));
  return addr;
}

bool BindTo(int fd, int port) {
  const sockaddr_in addr = Loopback(port);
  return bind(fd, reinterpret_cast<const sockaddr *>(&addr), sizeof addr) == 0;
}

bool IsFree(int port) {
  const Socket tcp(socket(AF_INET, SOCK_STREAM, 0));
  const Socket udp(socket(AF_INET, SOCK_DGRAM, 0));
  return BindTo(tcp.Fd(), port) && BindTo(udp.Fd(), port);
}

std::map<int, Socket> claims;

// An abstract name is exclusive and goes with the process.
bool Claim(int port) {
  sockaddr_un name = {};
  name.sun_family = AF_UNIX;
  const std::string text = "korvo-test-port-" + std::to_string(port);
  std::memcpy(name.sun_path + 1, text.data(), text.size());
  Socket claim(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
  if (bind(claim.Fd(), reinterpret_cast<const sockaddr *>(&name), size) != 0) return false;
  claims.emplace(port, std::move(claim));
  return true;
}

std::string ReadSome(int fd, std::size_t most) {
  pollfd ready = {fd, POLLIN, 0};
  if (poll(&ready, 1, kPatienceMs) <= 0) {
    ADD_FAILURE() << "nothing came";
    return {};
  }
  std::string bytes(most, '\0');
  const ssize_t got = recv(fd, bytes.data(), most, 0);
  bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return bytes;
}

}  // namespace

int ReservePort() {
  constexpr int kFirst = 20000, kCount = 12000;
  static int next = static_cast<int>(getpid()) * 13 % kCount;
  for (int tried = 0; tried < kCount; ++tried) {
    next = (next + 1) % kCount;
    if (!Claim(kFirst + next)) continue;
    if (IsFree(kFirst + next)) return kFirst + next;
    ReleasePort(kFirst + next);
  }
  ADD_FAILURE() << "no free port";
  return 0;
}

void ReleasePort(int port) { claims.erase(port); }

Socket &Socket::operator=(Socket &&other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

void Socket::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

void Socket::Reset() {
  const linger now = {1, 0};
  setsockopt(fd_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  Close();
}

void Socket::Send(const std::string &bytes) const {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return;
    sent += static_cast<std::size_t>(count);
  }
}

std::string Socket::ReadLine() const {
  std::string line;
  while (line.empty() || line.back() != '\n') {
    const std::string byte = ReadSome(fd_, 1);
    if (byte.empty()) break;
    line += byte;
  }
  return line;
}

std::string Socket::ReadAll() const {
  std::string all;
  for (;;) {
    const std::string some = ReadSome(fd_, 65536);
    if (some.empty()) return all;
    all += some;
  }
}

bool Socket::Readable(int patience_ms) const {
  pollfd ready = {fd_, POLLIN, 0};
  return poll(&ready, 1, patience_ms) > 0;
}

Socket ConnectTo(int port) {
  Socket sock(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in addr = Loopback(port);
  EXPECT_EQ(0, connect(sock.Fd(), reinterpret_cast<const sockaddr *>(&addr), sizeof addr));
  return sock;
}

Manager::Manager()
    : port_(ReservePort()), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  EXPECT_TRUE(BindTo(listener_.Fd(), port_));
  EXPECT_EQ(0, listen(listener_.Fd(), 100));
}

Socket Manager::Accept() const {
  if (!listener_.Readable(kPatienceMs)) {
    ADD_FAILURE() << "nobody connected";
    return Socket();
  }
  return Socket(accept4(listener_.Fd(), nullptr, nullptr, SOCK_CLOEXEC));
}

bool Manager::Called() const { return listener_.Readable(0); }

Folder::Folder() {
  char path[] = "/tmp/korvo-XXXXXX";
  path_ = mkdtemp(path);
}

Folder::~Folder() { std::filesystem::remove_all(path_); }

std::string Folder::Write(const std::string &name, const std::string &bytes) const {
  std::string path = path_ + "/" + name;
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

std::string ReadFile(const std::string &path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

bool Eventually(const std::function<bool()> &condition, int patience_ms) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience_ms);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

Process::Process(const std::vector<std::string> &argv, const std::string &folder,
                 const std::function<void()> &prepare)
    : folder_(folder) {
  std::vector<char *> args;
  for (const std::string &arg : argv) args.push_back(const_cast<char *>(arg.c_str()));
  args.push_back(nullptr);
  const std::string out = folder_ + "/stdout", log = folder_ + "/stderr";
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  pid_ = fork();
  if (pid_ != 0) return;
  dup2(open("/dev/null", O_RDONLY), 0);
  dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600), 1);
  dup2(open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600), 2);
  close_range(3, ~0U,
              CLOSE_RANGE_CLOEXEC);  // what the runner left open would move the numbers in the log
  if (chdir(folder_.c_str()) != 0) _exit(126);
  if (prepare) prepare();
  // Behind a change of the user, which takes it back: a test that is killed leaves no daemon
  // behind, whose log could fill the disk.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  execv(args[0], args.data());
  _exit(127);
}

// As an operator ends it and its group, so that each process leaves by its own way; what stays is
// killed.
Process::~Process() {
  if (kill(-pid_, SIGTERM) != 0 && !Ended()) kill(pid_, SIGTERM);
  const auto all_left = [this] { return Ended() && ReapGroup(nullptr); };
  if (!Eventually(all_left, kLeaveMs)) {
    kill(-pid_, SIGKILL);
    if (!ended_) kill(pid_, SIGKILL);
  }
  Wait();
  WaitForGroup();
}

bool Process::ReapGroup(std::vector<int> *statuses) const {
  int status = 0;
  pid_t pid = 0;
  while ((pid = waitpid(-pid_, &status, WNOHANG)) > 0)
    if (statuses != nullptr) statuses->push_back(status);
  return pid < 0;
}

std::vector<int> Process::WaitForGroup() const {
  std::vector<int> statuses;
  EXPECT_TRUE(Eventually([&] { return ReapGroup(&statuses); }))
      << "a process of the group does not end";
  return statuses;
}

int Process::Wait() {
  if (!Eventually([this] { return Ended(); })) {
    ADD_FAILURE() << "the process does not end";
    kill(pid_, SIGKILL);
    waitpid(pid_, &status_, 0);
    ended_ = true;
  }
  return status_;
}

bool Process::Ended() {
  if (!ended_) ended_ = waitpid(pid_, &status_, WNOHANG) == pid_;
  return ended_;
}

void Process::Signal(int number) const { kill(pid_, number); }
std::string Process::Output() const { return ReadFile(folder_ + "/stdout"); }
std::string Process::RawLog() const { return ReadFile(folder_ + "/stderr"); }
std::string Process::Log() const { return StripHeaders(RawLog()); }

bool Process::WaitForLog(const std::string &text) const {
  return Eventually([&] { return Log().find(text) != std::string::npos; });
}

std::string Announcement(char type, const std::string &id, int port) {
  return "\t@COMMAND=STARTUPANNOUNCEMENT\tID=" + id + "\tTYPE=" + type +
         "\tIP=127.0.0.1\tCLIENTPORT=" + std::to_string(port) + "\tADMINPORT=9\n";
}

int ExitStatus(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

Daemon::Daemon(const std::string &program, const std::function<void()> &prepare)
    : client_port_(ReservePort()),
      admin_port_(ReservePort()),
      own_port_(ReservePort()),
      admin_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  EXPECT_TRUE(BindTo(admin_.Fd(), own_port_));
  folder_.Write("korvo.conf", "web1 C 127.0.0.1 " + std::to_string(client_port_) + " " +
                                  std::to_string(admin_port_) + " -\n");
  program_ = std::make_unique<Process>(std::vector<std::string>{program, "web1", folder_.Path()},
                                       folder_.Path(), prepare);
  AwaitStart();
}

// Not by the log, which a test may have led elsewhere.  What is sent too early is lost.
void Daemon::AwaitStart() {
  EXPECT_TRUE(Eventually([this] {
    Send("\t@COMMAND=PING\t@SEQNUM=0\n");
    return Answers(20);
  }));
  Send("\t@COMMAND=PING\t@SEQNUM=1\n");
  std::string answer;
  do answer = Receive();
  while (answer == "\t@COMMAND=PONG\t@SEQNUM=0\n");
  EXPECT_EQ("\t@COMMAND=PONG\t@SEQNUM=1\n", answer);
}

Daemon::~Daemon() {
  program_.reset();
  for (const int port : {client_port_, admin_port_, own_port_}) ReleasePort(port);
}

void Daemon::Send(const std::string &datagram) const {
  const sockaddr_in addr = Loopback(admin_port_);
  sendto(admin_.Fd(), datagram.data(), datagram.size(), 0,
         reinterpret_cast<const sockaddr *>(&addr), sizeof addr);
}

std::string Daemon::Receive() const { return ReadSome(admin_.Fd(), 65536); }
bool Daemon::Answers(int patience_ms) const { return admin_.Readable(patience_ms); }

std::string Daemon::Ask(const std::string &datagram) const {
  Send(datagram);
  return Receive();
}

void Daemon::Ping() {
  const std::string number = std::to_string(++sequence_ + 1000000);
  EXPECT_EQ("\t@COMMAND=PONG\t@SEQNUM=" + number + "\n",
            Ask("\t@COMMAND=PING\t@SEQNUM=" + number + "\n"));
}

void Daemon::SetLevel(const std::string &word) {
  Send("\t@COMMAND=SETDEBUGLEVEL\tDEBUGLEVEL=" + word + "\n");
  Ping();
}

void Daemon::Announce(char type, const std::string &id, const Manager &manager) {
  Send(Announcement(type, id, manager.Port()));
  Ping();
}

std::string Daemon::Exchange(const std::string &command) const {
  const Socket client = Client();
  client.Send(command);
  return client.ReadAll();
}

std::string TextOp(const std::string &text) {
  return std::string("\x41") + static_cast<char>(text.size()) + text;
}
std::string ValueOp(const std::string &name) {
  return std::string("\x42") + static_cast<char>(name.size()) + name;
}
std::string EndOp() { return std::string(1, '\0'); }
