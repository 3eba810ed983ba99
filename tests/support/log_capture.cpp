#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "debug/log.h"

FdCapture::FdCapture(int fd)
    : fd_(fd), saved_(dup(fd)), file_(memfd_create("capture", MFD_CLOEXEC)) {
  std::fflush(nullptr);
  dup2(file_, fd_);
}

FdCapture::~FdCapture() {
  std::fflush(nullptr);
  dup2(saved_, fd_);
  close(saved_);
  close(file_);
}

std::string FdCapture::Text() const {
  std::fflush(nullptr);
  std::string text;
  char buf[65536];
  for (off_t at = 0;; at += static_cast<off_t>(sizeof buf)) {
    const ssize_t got = pread(file_, buf, sizeof buf, at);
    if (got <= 0) break;
    text.append(buf, static_cast<std::size_t>(got));
    if (got < static_cast<ssize_t>(sizeof buf)) break;
  }
  return text;
}

void FdCapture::Clear() {
  std::fflush(nullptr);
  if (ftruncate(file_, 0) == 0) lseek(file_, 0, SEEK_SET);
}

LogCapture::LogCapture(int level) : capture_(STDERR_FILENO), level_before_(Debug_Level) {
  Debug_Level = level;
}

LogCapture::~LogCapture() { Debug_Level = level_before_; }

std::string LogCapture::Messages() const { return StripHeaders(Raw()); }

std::string StripHeaders(const std::string &log) {
  // Two lines that follow each other; a regular expression takes minutes over the log of a storm.
  const std::string begin = std::string(63, '-') + "\nPID: ";
  std::string messages;
  std::size_t at = 0;
  for (std::size_t header = log.find(begin); header != std::string::npos;
       header = log.find(begin, at)) {
    messages.append(log, at, header - at);
    const std::size_t end = log.find('\n', header + begin.size());
    at = end == std::string::npos ? log.size() : end + 1;
  }
  return messages.append(log, at);
}

Output Capture(int level, const std::function<void()> &action) {
  const FdCapture out(STDOUT_FILENO);
  const LogCapture log(level);
  action();
  return {log.Messages(), StripHeaders(out.Text())};
}

std::string MessagesAt(int level, const std::function<void()> &action) {
  const std::string messages = Capture(level, action).log;
  EXPECT_EQ(Capture(level + 1, action).log, "") << "shows above level " << level;
  return messages;
}
