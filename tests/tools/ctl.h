// tests/tools/ctl.h: what korvoctl speaks to.
#ifndef TESTS_TOOLS_CTL_H
#define TESTS_TOOLS_CTL_H

#include <netinet/in.h>

#include <map>
#include <memory>
#include <string>

#include "tests/tools/run.h"

sockaddr_in Loopback(int port);

// An admin port that the test plays.
class Admin {
 public:
  Admin();
  int Port() const { return port_; }
  int Fd() const { return sock_.Fd(); }

  std::string Receive();
  int SenderPort() const { return ntohs(sender_.sin_port); }
  void Reply(const std::string &text) const;
  std::string Announced();  // answers pings until something else comes, which it gives

 private:
  int port_;
  Socket sock_;
  sockaddr_in sender_ = {};
};

// A terminal that a tool writes to.
class Terminal {
 public:
  Terminal();
  void TakeErrors() const;    // before a tool starts
  std::string Shown() const;  // so far

 private:
  Socket master_, slave_;
  mutable std::string shown_;
};

std::string Pong(const std::string &number);
std::string NumberIn(const std::string &ping);

// A folder with a korvo.conf of programs on 127.0.0.1.  The daemon plays each type: it answers a
// PING and knows its children.  At the client port of another type nobody is.
class Site {
 public:
  // Adds a line; its number.
  int Line(const std::string &id, char type, const std::string &parent);
  void Text(const std::string &line);  // as it stands
  void Start(int line);
  void End(int line) { lines_.at(line).program.reset(); }

  int ClientPort(int line) const { return lines_.at(line).client_port; }
  int AdminPort(int line) const { return lines_.at(line).admin_port; }
  Process &Program(int line) { return *lines_.at(line).program; }
  std::string Place(int line) const;  // "ID:TYPE at 127.0.0.1/PORT"
  const std::string &Path() const { return folder_.Path(); }
  const Folder &Files() const { return folder_; }

  // The command with --dir behind it.
  Arguments Ctl(const Arguments &words) const;
  Outcome Run(const Arguments &words) const { return RunTool(Ctl(words)); }

 private:
  struct Program_ {
    std::string id;
    char type;
    int client_port, admin_port;
    std::unique_ptr<Folder> folder;
    std::unique_ptr<Process> program;
  };
  Folder folder_;
  std::string conf_;
  int count_ = 0;
  std::map<int, Program_> lines_;
};

#endif
