// tests/web/site.h: korvo-web, and the browsers before it.
#ifndef TESTS_WEB_SITE_H
#define TESTS_WEB_SITE_H

#include <functional>
#include <memory>
#include <string>

#include "tests/system/harness.h"

// An answer of HTTP.
struct Answer {
  int status = 0;
  std::string headers;  // with the status line
  std::string body;     // its chunks joined
  bool whole = false;   // it came to its end

  bool Has(const std::string &text) const { return body.find(text) != std::string::npos; }
};

Answer ReadAnswer(const std::string &bytes);

// The program in a folder of its own, before a daemon on these ports.
class Site {
 public:
  // lines go to its configuration, behind those that lead it to its files.
  // prepare as for Process.
  Site(int daemon_port, int admin_port, const std::string &lines = "",
       const std::function<void()> &prepare = {});
  ~Site();

  int Port() const { return port_; }
  bool Listens() const;
  void Restart();
  Process &Program() { return *program_; }
  const Folder &Files() const { return folder_; }
  std::string Log() const { return ReadFile(folder_.Path() + "/log"); }

  // A request that the connection is closed behind.
  Socket Begin(const std::string &target, const std::string &method = "GET") const;
  Answer Get(const std::string &target, const std::string &method = "GET") const;

 private:
  void Start(const std::function<void()> &prepare);

  Folder folder_;
  int port_;
  std::unique_ptr<Process> program_;
};

#endif
