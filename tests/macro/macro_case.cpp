#include "tests/macro/macro_case.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "debug/log.h"
#include "tests/support/loopback.h"

namespace {

// The failures of this case up to now; those from before a fork are not the child's.
int Failures() {
  return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

}  // namespace

void RunInChild(const std::function<void()> &body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    Debug_Level = kWarning;
    const int before = Failures();
    body();
    std::exit(Failures() > before ? 1 : 0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "see above for what failed in the child";
}

std::string WriteMacro(const std::string &name, const std::string &code) {
  static const TempDir dir;
  const std::string path = dir.Path() + "/" + name;
  std::ofstream(path + ".mo", std::ios::binary) << code;
  return path;
}
