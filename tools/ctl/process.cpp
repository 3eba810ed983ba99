#include "tools/ctl/process.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>

#include "debug/text.h"
#include "tools/common/tool.h"

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kVersionMark = "@(#)korvo ";  // core/banner.cpp has it
constexpr unsigned kListening = 10;                      // states of /proc/net/tcp
constexpr unsigned kEstablished = 1;
constexpr unsigned kCloseWait = 8;

// A line of /proc/net/udp or tcp.
struct NetSocket {
  unsigned state;
  unsigned long inode;
};

// The sockets at that address of this machine; its IP is shown as it lies in memory.
// A unit may hide /proc/net, but not what belongs to its processes.
std::vector<NetSocket> SocketsAt(const char *path, const ConfLine &line, std::int16_t port) {
  const std::string wanted =
      Tool_Format("%08X:%04X", inet_addr(line.config.IP), static_cast<unsigned>(port));
  std::vector<NetSocket> sockets;
  std::ifstream file(path);
  for (std::string text; std::getline(file, text);) {
    std::istringstream words(text);
    std::string slot, local, remote, state, queues, timer, retransmits, user, timeout, inode;
    words >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> user >>
        timeout >> inode;
    if (local == wanted)
      sockets.push_back({static_cast<unsigned>(std::strtoul(state.c_str(), nullptr, 16)),
                         std::strtoul(inode.c_str(), nullptr, 10)});
  }
  return sockets;
}

bool HasSocket(const std::string &pid, unsigned long inode) {
  const std::string wanted = Tool_Format("socket:[%lu]", inode);
  std::error_code error;  // of another user, or gone: it has none
  for (fs::directory_iterator fd("/proc/" + pid + "/fd", error), end; !error && fd != end;
       fd.increment(error)) {
    std::error_code closed;
    if (fs::read_symlink(fd->path(), closed) == wanted) return true;
  }
  return false;
}

std::vector<std::string> AllPids() {
  std::vector<std::string> pids;
  std::error_code error;
  for (fs::directory_iterator process("/proc", error), end; !error && process != end;
       process.increment(error)) {
    const std::string name = process->path().filename().string();
    if (name[0] >= '1' && name[0] <= '9') pids.push_back(name);
  }
  return pids;
}

double SecondsSinceBoot() {
  timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// False: it is gone.
bool ReadInfo(const std::string &pid, ProcessInfo *info) {
  std::ifstream file("/proc/" + pid + "/stat");
  std::string text;
  std::getline(file, text);
  const std::size_t name_end = text.rfind(')');  // a name may hold anything
  if (name_end == std::string::npos) return false;
  std::istringstream words(text.substr(name_end + 1));
  std::vector<std::string> fields;  // from the third on
  for (std::string word; words >> word;) fields.push_back(word);
  if (fields.size() < 22 || fields[0][0] == 'Z') return false;
  info->pid = static_cast<pid_t>(std::strtol(pid.c_str(), nullptr, 10));
  info->group = static_cast<pid_t>(std::strtol(fields[2].c_str(), nullptr, 10));
  const double ticks = static_cast<double>(std::strtoull(fields[19].c_str(), nullptr, 10));
  info->age = SecondsSinceBoot() - ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
  info->resident = std::strtoll(fields[21].c_str(), nullptr, 10) * sysconf(_SC_PAGESIZE);
  return true;
}

}  // namespace

unsigned long Process_Socket(const ConfLine &line) {
  for (const NetSocket &socket : SocketsAt("/proc/self/net/udp", line, line.config.AdminPort))
    if (socket.inode != 0) return socket.inode;
  return 0;
}

Connections Process_Connections(const ConfLine &line) {
  Connections connections = {};
  for (const NetSocket &socket : SocketsAt("/proc/self/net/tcp", line, line.config.ClientPort)) {
    if (socket.state == kListening) continue;
    // Without a number it belongs to nobody: nobody has accepted it yet, or it has been closed.
    if (socket.inode != 0) ++connections.in_hand;
    if (socket.inode == 0 && (socket.state == kEstablished || socket.state == kCloseWait))
      ++connections.waiting;
  }
  return connections;
}

pid_t Process_Main(const ConfLine &line) {
  const unsigned long inode = Process_Socket(line);
  if (inode == 0) return 0;
  ProcessInfo info = {};
  for (const std::string &pid : AllPids())
    if (HasSocket(pid, inode) && ReadInfo(pid, &info)) return info.pid;
  return 0;
}

std::string Process_Name(pid_t pid) {
  std::ifstream file(Tool_Format("/proc/%d/comm", static_cast<int>(pid)));
  std::string name;
  std::getline(file, name);
  return name;
}

std::string Process_Version(pid_t pid) {
  std::ifstream file(Tool_Format("/proc/%d/exe", static_cast<int>(pid)), std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  const std::string bytes = text.str();
  const std::size_t at = bytes.find(kVersionMark);
  if (at == std::string::npos) return "";
  const std::size_t begin = at + kVersionMark.size();
  return bytes.substr(begin, bytes.find('\n', begin) - begin);
}

bool Process_IsReplaced(pid_t pid) {
  std::error_code error;
  const std::string file =
      fs::read_symlink(Tool_Format("/proc/%d/exe", static_cast<int>(pid)), error).string();
  return file.ends_with(" (deleted)");
}

std::string Process_LogFile(pid_t pid) {
  const std::string place = Tool_Format("/proc/%d/fd/2", static_cast<int>(pid));
  std::error_code error;
  if (!fs::is_regular_file(place, error)) return "";
  // One that was deleted has no name, but is there.
  const std::string path = fs::read_symlink(place, error).string();
  return fs::exists(path, error) ? path : place;
}

std::string Process_Unit(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/cgroup");
  std::string unit;
  for (std::string text; std::getline(file, text);) {
    const std::size_t end = text.rfind(".service");
    const std::size_t begin = text.rfind("/korvo-", end);
    if (end != std::string::npos && begin != std::string::npos)
      unit = text.substr(begin + 1, end + 7 - begin);
  }
  return unit;
}

std::vector<ProcessInfo> Process_Group(pid_t main) {
  std::vector<ProcessInfo> group;
  for (const std::string &pid : AllPids()) {
    ProcessInfo info = {};
    if (ReadInfo(pid, &info) && (info.group == main || info.pid == main)) group.push_back(info);
  }
  std::stable_partition(group.begin(), group.end(),
                        [main](const ProcessInfo &info) { return info.pid == main; });
  return group;
}
