#include "tools/ctl/entries.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "debug/fd_guard.h"
#include "debug/text.h"
#include "tools/ctl/run.h"

namespace {

constexpr std::string_view kProcess = "PID: ";
constexpr off_t kTail = 262144;  // bytes

// Only of a file: what else a process writes to cannot be read again.
std::string TailOfFile(const std::string &path) {
  const FdGuard guard(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat file = {};
  if (guard.Get() < 0 || fstat(guard.Get(), &file) != 0 || !S_ISREG(file.st_mode)) return "";
  std::string text(kTail, '\0');
  const off_t begin = file.st_size > kTail ? file.st_size - kTail : 0;
  const ssize_t got = pread(guard.Get(), text.data(), text.size(), begin);
  text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return text;
}

}  // namespace

Entry Entries_Of(std::string_view text) {
  Entry entry = {"", std::string(text), 0};
  if (!text.starts_with(kEntrySeparator)) return entry;
  const std::string_view behind = text.substr(kEntrySeparator.size());
  const std::size_t end = behind.find('\n');
  if (!behind.starts_with(kProcess) || end == std::string_view::npos) return entry;
  entry.pid = Text_ToInt32(behind.substr(kProcess.size()));
  entry.header = text.substr(0, kEntrySeparator.size() + end + 1);
  entry.body = text.substr(kEntrySeparator.size() + end + 1);
  return entry;
}

std::vector<Entry> Entries_All(std::string_view log) {
  std::vector<Entry> entries;
  for (std::size_t begin = log.find(kEntrySeparator); begin != std::string_view::npos;) {
    const std::size_t end = log.find(kEntrySeparator, begin + 1);
    entries.push_back(Entries_Of(log.substr(begin, end - begin)));
    begin = end;
  }
  return entries;
}

std::string Entries_Tail(pid_t pid, const std::string &unit) {
  std::string text;
  if (pid > 0) text = TailOfFile("/proc/" + std::to_string(pid) + "/fd/2");
  if (text.empty() && !unit.empty())
    Run_Output({"journalctl", "--quiet", "--output=cat", "--lines=2000", "--unit=" + unit}, &text);
  return text;
}
