// tests/support/syscall_seams.h: system calls that a test watches, makes fail, or interrupts.
//
// A test program that lists test_seams under NEEDS is linked with --wrap for the calls below.  They
// pass through unless a Seams object lives; one does at a time.  It watches the test itself as
// well, so take ports and sockets before it, and captures, which close what they opened, before a
// Fail of close().
#ifndef TESTS_SUPPORT_SYSCALL_SEAMS_H
#define TESTS_SUPPORT_SYSCALL_SEAMS_H

#include <functional>
#include <string>
#include <vector>

enum class Call {
  kSocket,
  kSetsockopt,
  kGetsockopt,
  kIoctl,
  kBind,
  kListen,
  kAccept,
  kConnect,
  kSend,
  kRecv,
  kSendto,
  kRecvfrom,
  kShutdown,
  kClose,
  kRead,
  kFork,
  kSleep,  // recorded, and returns at once while a Seams object lives
  kFopen,
  kInetAddr,  // fails with 0
  kInetNtoa,  // fails with an empty text
  kCount
};

inline constexpr int kEveryTime = 1 << 30;

class Seams {
 public:
  Seams();
  ~Seams();
  Seams(const Seams &) = delete;
  Seams &operator=(const Seams &) = delete;

  // The nth call from now on, and the times - 1 after it, fail with this errno and do nothing.
  Seams &Fail(Call call, int error, int nth = 1, int times = 1);

  // Runs action right before the nth call from now on.  Calls made by the action are not watched.
  Seams &Before(Call call, int nth, std::function<void()> action);

  int Count(Call call) const { return counts_[static_cast<int>(call)]; }

  // A line a call with its arguments, descriptors and close() left out: "socket(2, 1,
  // 6)\nconnect(16)\n".
  const std::string &Trace() const { return trace_; }

  // What the last successful socket() or accept() returned; -1 before the first.
  int LastSocket() const { return last_socket_; }

  // For the wrappers.  Records the call; true: it shall fail, errno is set.
  bool Enter(Call call, const std::string &line);
  void NoteSocket(int fd) { last_socket_ = fd >= 0 ? fd : last_socket_; }

 private:
  struct Failure {
    Call call;
    int error, first, last;
  };
  struct Action {
    Call call;
    int at;
    std::function<void()> run;
  };
  int counts_[static_cast<int>(Call::kCount)] = {};
  std::vector<Failure> failures_;
  std::vector<Action> actions_;
  std::string trace_;
  int last_socket_ = -1;
};

#endif
