#include "tests/soak/footing.h"

#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "tests/system/harness.h"

namespace {

std::string Proc(pid_t pid) { return "/proc/" + std::to_string(pid); }

}  // namespace

std::map<int, std::string> Footing_Descriptors(pid_t pid) {
  std::map<int, std::string> descriptors;
  for (const auto &entry : std::filesystem::directory_iterator(Proc(pid) + "/fd")) {
    std::error_code gone;
    descriptors[std::stoi(entry.path().filename())] = std::filesystem::read_symlink(entry, gone);
  }
  return descriptors;
}

std::vector<pid_t> Footing_Children(pid_t pid) {
  std::istringstream list(ReadFile(Proc(pid) + "/task/" + std::to_string(pid) + "/children"));
  std::vector<pid_t> children;
  for (pid_t child = 0; list >> child;) children.push_back(child);
  return children;
}

// Counted page by page; the totals elsewhere in /proc are estimates.
long Footing_ResidentPages(pid_t pid) {
  const std::string text = ReadFile(Proc(pid) + "/smaps_rollup");
  const std::size_t at = text.find("\nRss:");
  if (at == std::string::npos) return -1;
  return std::stol(text.substr(at + 5)) * 1024 / sysconf(_SC_PAGESIZE);
}

bool Footing_IsZombie(pid_t pid) {
  const std::string stat = ReadFile(Proc(pid) + "/stat");
  const std::size_t at = stat.rfind(") ");
  return at != std::string::npos && stat[at + 2] == 'Z';
}
