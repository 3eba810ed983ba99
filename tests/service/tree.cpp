#include "tests/service/tree.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <filesystem>
#include <sstream>

namespace {

const char *ProgramOf(char type) {
  switch (type) {
    case 'C': return KORVO_COMMMGR;
    case 'S': return KORVO_SEARCHMGR;
    case 'D': return KORVO_DOCMGR;
    default: return KORVO_ENGINE;
  }
}

// The processes of an engine's connections are Xapian's, and a signal is their end: that of the
// group, or that of a main process which was gone before.
bool IsServersEnd(char type, int status) {
  return type == 'E' && WIFSIGNALED(status) &&
         (WTERMSIG(status) == SIGUSR1 || WTERMSIG(status) == SIGTERM);
}

}  // namespace

sockaddr_in LoopbackAddress(int port) {
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<std::uint16_t>(port));
  return addr;
}

std::size_t Descriptors(pid_t pid) {
  std::error_code error;
  std::filesystem::directory_iterator all("/proc/" + std::to_string(pid) + "/fd", error);
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

Tree::Tree() : admin_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_in own = LoopbackAddress(TakePort());
  EXPECT_EQ(bind(admin_.Fd(), reinterpret_cast<const sockaddr *>(&own), sizeof own), 0);
}

// Children before their parents.
Tree::~Tree() {
  for (auto key = order_.rbegin(); key != order_.rend(); ++key) nodes_[*key].process.reset();
}

void Tree::Line(char type, const std::string &id, const std::string &parent) {
  nodes_[{type, id}] = {parent, TakePort(), TakePort(), std::make_unique<Folder>(), nullptr};
  order_.emplace_back(type, id);
  WriteFiles();
}

void Tree::Database(const std::string &id, const std::string &search, const std::string &doc) {
  databases_ += id + " " + id + "db " + search + " " + doc + "\n";
  WriteFiles();
}

void Tree::WriteFiles() const {
  std::string lines;
  for (const Key &key : order_) {
    const Node &node = nodes_.at(key);
    lines += key.second + " " + key.first + " 127.0.0.1 " + std::to_string(node.client_port) + " " +
             std::to_string(node.admin_port) + " " + node.parent + "\n";
  }
  folder_.Write("korvo.conf", lines);
  folder_.Write("korvo.db", "# ID DBNAME SEARCHLOC DOCLOC\n" + databases_);
}

Process &Tree::Start(char type, const std::string &id, const std::function<void()> &prepare) {
  Node &node = nodes_.at({type, id});
  node.process = std::make_unique<Process>(
      std::vector<std::string>{ProgramOf(type), id, folder_.Path()}, node.folder->Path(), prepare);
  Ping(type, id);
  for (const char parent : type == 'E' ? std::string("SD") : std::string("C"))
    if (const auto found = nodes_.find({parent, node.parent});
        found != nodes_.end() && found->second.process)
      Ping(parent, node.parent);
  return *node.process;
}

Process &Tree::Program(char type, const std::string &id) { return *At(type, id).process; }

void Tree::End(char type, const std::string &id) { nodes_.at({type, id}).process.reset(); }

void Tree::Shutdown() {
  for (auto key = order_.rbegin(); key != order_.rend(); ++key) {
    std::unique_ptr<Process> &program = nodes_[*key].process;
    if (!program) continue;
    Send(key->first, key->second, "\t@COMMAND=SHUTDOWN\n");
    EXPECT_EQ(ExitStatus(program->Wait()), 0) << key->second;
    for (const int status : program->WaitForGroup())
      EXPECT_TRUE(ExitStatus(status) == 0 || IsServersEnd(key->first, status))
          << key->second << " " << status;
    program.reset();
  }
}

void Tree::Kill(char type, const std::string &id) {
  kill(-At(type, id).process->Pid(), SIGKILL);
  End(type, id);
}

int Tree::Port(char type, const std::string &id) const { return At(type, id).client_port; }

int Tree::AdminPort(char type, const std::string &id) const { return At(type, id).admin_port; }

std::string Tree::Exchange(char type, const std::string &id, const std::string &line) const {
  const Socket client = ConnectTo(Port(type, id));
  client.Send(line);
  return client.ReadAll();
}

void Tree::Send(char type, const std::string &id, const std::string &datagram) const {
  const sockaddr_in addr = LoopbackAddress(At(type, id).admin_port);
  sendto(admin_.Fd(), datagram.data(), datagram.size(), 0,
         reinterpret_cast<const sockaddr *>(&addr), sizeof addr);
}

void Tree::Ping(char type, const std::string &id) {
  const std::string number = std::to_string(++sequence_);
  const bool answered = Eventually([&] {
    Send(type, id, "\t@COMMAND=PING\t@SEQNUM=" + number + "\n");
    while (admin_.Readable(20)) {
      char datagram[4096];
      const ssize_t length = recv(admin_.Fd(), datagram, sizeof datagram, 0);
      if (std::string(datagram, length > 0 ? static_cast<std::size_t>(length) : 0) ==
          "\t@COMMAND=PONG\t@SEQNUM=" + number + "\n")
        return true;
    }
    return false;
  });
  EXPECT_TRUE(answered) << type << " " << id << ": " << At(type, id).process->RawLog();
}

std::vector<pid_t> Tree::Workers(char type, const std::string &id) const {
  const std::string pid = std::to_string(At(type, id).process->Pid());
  std::istringstream in(ReadFile("/proc/" + pid + "/task/" + pid + "/children"));
  std::vector<pid_t> pids;
  for (pid_t child = 0; in >> child;) pids.push_back(child);
  return pids;
}

std::vector<std::string> Tree::ExchangeAll(char type, const std::string &id,
                                           const std::vector<std::string> &lines) const {
  std::vector<Socket> clients;
  for (const std::string &line : lines) {
    clients.push_back(ConnectTo(Port(type, id)));
    clients.back().Send(line);
    shutdown(clients.back().Fd(), SHUT_WR);
  }
  std::vector<std::string> answers;
  for (const Socket &client : clients) answers.push_back(client.ReadAll());
  return answers;
}
