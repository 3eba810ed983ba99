#include "tools/ctl/told.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <sstream>

#include "debug/fd_guard.h"
#include "tools/common/tool.h"
#include "tools/ctl/process.h"

namespace {

constexpr std::size_t kMostBytes = 1048576;  // of a file; whoever writes more is not this tool

// Another user may own the folder: no link is followed, and nothing is waited for.
std::string Read(int folder, const std::string &name) {
  const FdGuard file(
      openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  std::string text;
  char buffer[4096];
  for (ssize_t got; file.Get() >= 0 && text.size() < kMostBytes &&
                    (got = read(file.Get(), buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(got));
  return text;
}

std::vector<std::string> NamesIn(const std::string &text, unsigned long socket) {
  std::vector<std::string> names;
  std::istringstream lines(text);
  unsigned long of = 0;
  for (std::string name; lines >> of >> name;)
    if (of == socket) names.push_back(name);
  return names;
}

// In the place of the old one, so that nobody reads a half.
void Write(int folder, const std::string &name, const std::string &text) {
  const std::string fresh = Tool_Format(".%d", static_cast<int>(getpid()));
  const FdGuard file(
      openat(folder, fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (file.Get() < 0) return;
  const bool is_whole = Tool_Write(file.Get(), text) == 0;
  if (!is_whole || renameat(folder, fresh.c_str(), folder, name.c_str()) != 0)
    unlinkat(folder, fresh.c_str(), 0);
}

}  // namespace

int Told_Lock(const std::string &folder, std::chrono::nanoseconds time) {
  using Clock = std::chrono::steady_clock;
  constexpr timespec kPause = {0, 20000000};
  const Clock::time_point end = Clock::now() + time;
  const int place = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  while (place >= 0 && flock(place, LOCK_EX | LOCK_NB) != 0 && Clock::now() < end)
    nanosleep(&kPause, nullptr);
  return place;
}

void Told_Keep(const std::string &folder, const ConfLine &parent, const ConfLine &child) {
  const unsigned long socket = Process_Socket(parent);
  const std::string name = Conf_Name(parent);
  if (socket == 0 || name.find('/') != std::string::npos) return;
  const FdGuard place(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (place.Get() < 0) return;
  std::vector<std::string> names = NamesIn(Read(place.Get(), name), socket);
  if (std::count(names.begin(), names.end(), Conf_Name(child)) == 1) return;
  names.push_back(Conf_Name(child));
  std::string text;
  for (const std::string &one : names) text += std::to_string(socket) + " " + one + "\n";
  Write(place.Get(), name, text);
}

std::vector<std::string> Told_List(const std::string &folder, const ConfLine &parent) {
  const FdGuard place(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const unsigned long socket = Process_Socket(parent);
  if (socket == 0 || place.Get() < 0) return {};
  return NamesIn(Read(place.Get(), Conf_Name(parent)), socket);
}
