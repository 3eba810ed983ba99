// tests/service/tree.h: a tree of real programs on 127.0.0.1, as korvo.conf describes it.
#ifndef TESTS_SERVICE_TREE_H
#define TESTS_SERVICE_TREE_H

#include <netinet/in.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/service/running.h"

sockaddr_in LoopbackAddress(int port);

// Descriptors that a process has open.
std::size_t Descriptors(pid_t pid);

class Tree {
 public:
  Tree();
  ~Tree();

  // A line of korvo.conf; each gets ports of its own.
  void Line(char type, const std::string &id, const std::string &parent);
  // A line of korvo.db; "-" is no database.
  void Database(const std::string &id, const std::string &search, const std::string &doc);

  // Starts the program of a line and waits until it answers a PING and, if that runs, its parents
  // have carried out its announcement.  prepare as for Process.
  Process &Start(char type, const std::string &id, const std::function<void()> &prepare = {});
  Process &Program(char type, const std::string &id);
  void End(char type, const std::string &id);   // SIGTERM, and its group is gone
  void Shutdown();  // all, by SHUTDOWN: each ends with 0 and leaves no process behind
  void Kill(char type, const std::string &id);  // the whole group

  int Port(char type, const std::string &id) const;  // client port
  int AdminPort(char type, const std::string &id) const;
  std::string Exchange(char type, const std::string &id, const std::string &line) const;
  void Send(char type, const std::string &id, const std::string &datagram) const;
  void Ping(char type, const std::string &id);
  std::vector<pid_t> Workers(char type, const std::string &id) const;
  // All at once; the answers in the order of the lines, whole however their connections ended.
  std::vector<std::string> ExchangeAll(char type, const std::string &id,
                                       const std::vector<std::string> &lines) const;
  const Folder &Files() const { return folder_; }

 private:
  struct Node {
    std::string parent;
    int client_port, admin_port;
    std::unique_ptr<Folder> folder;  // of its output
    std::unique_ptr<Process> process;
  };
  using Key = std::pair<char, std::string>;

  void WriteFiles() const;
  const Node &At(char type, const std::string &id) const { return nodes_.at({type, id}); }

  Folder folder_;
  std::map<Key, Node> nodes_;
  std::vector<Key> order_;
  std::string databases_;
  Socket admin_;
  int sequence_ = 0;
};

#endif
