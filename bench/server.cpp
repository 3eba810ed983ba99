#include "bench/server.h"

#include <unistd.h>

#include <fstream>

namespace {

std::string ProcFile(int pid, const char *name) {
  return "/proc/" + std::to_string(pid) + "/" + name;
}

// The number behind a key at the start of a line; -1: no such line.
double ReadKey(const std::string &file, const std::string &key) {
  std::ifstream lines(file);
  for (std::string word; lines >> word;) {
    double value = 0;
    if (word == key && lines >> value) return value;
  }
  return -1;
}

}  // namespace

double Server_Cpu(const std::string &group) {
  const double microseconds = ReadKey(group + "/cpu.stat", "usage_usec");  // version 2
  if (microseconds >= 0) return microseconds;
  double nanoseconds = -1;  // version 1
  if (std::ifstream(group + "/cpuacct.usage") >> nanoseconds) return nanoseconds / 1000;
  return -1;
}

Memory Server_Memory(int pid) {
  Memory memory;
  memory.resident = static_cast<long>(ReadKey(ProcFile(pid, "smaps_rollup"), "Rss:"));
  memory.private_dirty =
      static_cast<long>(ReadKey(ProcFile(pid, "smaps_rollup"), "Private_Dirty:"));
  memory.peak = static_cast<long>(ReadKey(ProcFile(pid, "status"), "VmHWM:"));
  return memory;
}

int Server_AwaitChild(int pid) {
  const std::string list = ProcFile(pid, "task/") + std::to_string(pid) + "/children";
  for (int i = 0; i < 200; ++i) {
    int child = 0;
    if (std::ifstream(list) >> child) return child;
    usleep(10'000);
  }
  return 0;
}

int Server_ReadPid(const std::string &file) {
  int pid = 0;
  return std::ifstream(file) >> pid ? pid : 0;
}
