// tests/support/log_capture.h: what a piece of code wrote to the log or to standard output.
#ifndef TESTS_SUPPORT_LOG_CAPTURE_H
#define TESTS_SUPPORT_LOG_CAPTURE_H

#include <functional>
#include <string>

// Redirects one descriptor into memory for as long as it lives.
class FdCapture {
 public:
  explicit FdCapture(int fd);
  ~FdCapture();
  FdCapture(const FdCapture &) = delete;
  FdCapture &operator=(const FdCapture &) = delete;

  std::string Text() const;  // everything so far
  void Clear();

 private:
  int fd_;
  int saved_;
  int file_;
};

// The log as written to standard error, at the given level, which is restored at the end together
// with what went before.  Messages() leaves out the separator and time header of each message.
class LogCapture {
 public:
  explicit LogCapture(int level = 103);
  ~LogCapture();

  std::string Raw() const { return capture_.Text(); }
  std::string Messages() const;
  void Clear() { capture_.Clear(); }

 private:
  FdCapture capture_;
  int level_before_;
};

// The messages in a log: its text without separators and time headers.
std::string StripHeaders(const std::string &log);

// What an action wrote at the given level of the log, headers left out.  Expect nothing inside of
// the action: the report would be captured too.
struct Output {
  std::string log;  // standard error
  std::string out;  // standard output
};
Output Capture(int level, const std::function<void()> &action);

// The messages of an action, all of which have this level: it is run a second time one level
// higher, where the test fails if anything shows.
std::string MessagesAt(int level, const std::function<void()> &action);

#endif
