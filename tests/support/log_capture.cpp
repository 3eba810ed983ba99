#include "tests/support/log_capture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <regex>

#include "debug/log.h"

FdCapture::FdCapture(int fd) : fd_(fd), saved_(dup(fd)), file_(memfd_create("capture", MFD_CLOEXEC)) {
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
  static const std::regex kHeader("-{63}\nPID: [0-9]+, TIME: [^\n]{24}\n");
  return std::regex_replace(log, kHeader, "");
}
