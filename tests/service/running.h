// tests/service/running.h: the real indexer and the real managers, and the parent that they
// announce to.
#ifndef TESTS_SERVICE_RUNNING_H
#define TESTS_SERVICE_RUNNING_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/system/harness.h"

// A port from 15000 to 19999 that is free and that no other process of these tests gets.
int TakePort();

struct Finished {
  int status;
  std::string output, errors;
};

// Runs korvo-index in a folder of its own to its end.
Finished RunIndexer(const std::vector<std::string> &arguments,
                    const std::function<void()> &prepare = {});

// Stores documents in folder/name and returns that path.
std::string BuildIndex(const Folder &folder, const std::string &name, const std::string &documents);

// Four packages, numbers 1 to 4.
extern const char *const kPackages;

// The configuration of a Communications Manager "web1" on the given admin port and of one manager
// "grp1" of the given type, whose database is named "packages".
struct Layout {
  int parent_port = TakePort();
  int client_port = TakePort();
  int admin_port = TakePort();

  void Write(const Folder &folder, char type, const std::string &database) const;
};

// A manager that runs.  The test is its parent.
class Running {
 public:
  Running(char type, const std::string &database);  // returns when it has announced itself

  Process &Program() { return *program_; }
  const Layout &Ports() const { return ports_; }
  const std::string &Announcement() const { return announcement_; }

  std::string Exchange(
      const std::string &command) const;         // the whole answer, to the end of the stream
  void Send(const std::string &datagram) const;  // from the parent's admin port
  std::string Receive() const;
  void Ping();  // waits for the answer, so that everything sent before it has been carried out

 private:
  Folder folder_;
  Layout ports_;
  Socket parent_;
  std::unique_ptr<Process> program_;
  std::string announcement_;
  int sequence_ = 0;
};

#endif
