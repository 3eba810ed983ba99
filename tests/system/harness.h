// tests/system/harness.h: the real daemon, and what stands around it, over real sockets on
// 127.0.0.1.
//
// Everything waits for a condition and gives up, failing the test, after kPatienceMs.
#ifndef TESTS_SYSTEM_HARNESS_H
#define TESTS_SYSTEM_HARNESS_H

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

inline constexpr int kPatienceMs = 60000;

// A port from 1 to 32767 that is free for TCP and UDP and that no other test of this machine gets,
// until it is released or the program ends.
int ReservePort();
void ReleasePort(int port);

// A connected or listening socket, closed at the end.
class Socket {
 public:
  Socket() = default;
  explicit Socket(int fd) : fd_(fd) {}
  Socket(Socket &&other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  Socket &operator=(Socket &&other) noexcept;
  ~Socket() { Close(); }

  int Fd() const { return fd_; }
  void Close();
  void Reset();  // closes with a reset instead of an end
  void Send(const std::string &bytes) const;
  std::string ReadLine() const;  // up to and including a newline, or what came before the end
  std::string ReadAll() const;   // to the end of the stream
  bool Readable(int patience_ms) const;  // bytes, or the end

 private:
  int fd_ = -1;
};

Socket ConnectTo(int port);

// A back-end manager that the test plays.
class Manager {
 public:
  Manager();
  ~Manager() { ReleasePort(port_); }
  int Port() const { return port_; }
  int Fd() const { return listener_.Fd(); }
  Socket Accept() const;
  bool Called() const;  // somebody waits to be accepted now

 private:
  int port_;
  Socket listener_;
};

// A temporary directory with files in it; removed at the end.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;
  const std::string &Path() const { return path_; }
  std::string Write(const std::string &name, const std::string &bytes) const;  // its path

 private:
  std::string path_;
};

std::string ReadFile(const std::string &path);

// Asks until it is so; false after that time.
bool Eventually(const std::function<bool()> &condition, int patience_ms = kPatienceMs);

// A running program with its standard output and error in files.
class Process {
 public:
  // prepare runs in the child before the program; its standard descriptors are set by then.
  Process(const std::vector<std::string> &argv, const std::string &folder,
          const std::function<void()> &prepare = {});
  ~Process();
  Process(const Process &) = delete;
  Process &operator=(const Process &) = delete;

  pid_t Pid() const { return pid_; }
  int Wait();  // the status of waitpid; the exit status is in its second byte
  bool Ended();
  // Waits for every process of its group that is left; their statuses.  This process inherits the
  // orphans.
  std::vector<int> WaitForGroup() const;
  void Signal(int number) const;
  std::string Output() const;  // standard output so far
  std::string RawLog() const;  // standard error so far
  std::string Log() const;     // its messages, without separators and time headers
  bool WaitForLog(const std::string &text) const;

 private:
  bool ReapGroup(std::vector<int> *statuses) const;  // true: nobody is left of it

  std::string folder_;
  pid_t pid_ = -1;
  bool ended_ = false;
  int status_ = 0;
};

// What a manager sends to announce itself.
std::string Announcement(char type, const std::string &id, int port);

// The exit status of a process that ended by itself; -1 for one that a signal ended.
int ExitStatus(int status);

// A Communications Manager that answers.
class Daemon {
 public:
  // prepare as for Process.
  explicit Daemon(const std::string &program = KORVO_COMMMGR,
                  const std::function<void()> &prepare = {});
  ~Daemon();
  Daemon(const Daemon &) = delete;
  Daemon &operator=(const Daemon &) = delete;

  const Folder &Files() const { return folder_; }
  Process &Program() { return *program_; }
  int ClientPort() const { return client_port_; }
  int AdminPort() const { return admin_port_; }
  std::string Log() const { return program_->Log(); }

  void Send(const std::string &datagram) const;  // to the admin port
  std::string Receive() const;                   // the next answer to it
  bool Answers(int patience_ms) const;
  std::string Ask(const std::string &datagram) const;
  void Ping();  // waits for the answer, so that everything sent before it has been carried out
  void SetLevel(const std::string &word);
  void Announce(char type, const std::string &id, const Manager &manager);

  Socket Client() const { return ConnectTo(client_port_); }
  // Sends a command and reads the whole answer.
  std::string Exchange(const std::string &command) const;

 private:
  void AwaitStart();

  Folder folder_;
  int client_port_;
  int admin_port_;
  int own_port_;
  Socket admin_;
  int sequence_ = 0;
  std::unique_ptr<Process> program_;
};

// Bytes of a macro: op 65 with a text, op 66 with a name, and the end.
std::string TextOp(const std::string &text);
std::string ValueOp(const std::string &name);
std::string EndOp();

#endif
