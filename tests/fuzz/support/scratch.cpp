#include "tests/fuzz/support/scratch.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "debug/fd_guard.h"
#include "tests/fuzz/support/fuzz.h"

namespace {

struct Directory {
  Directory() {
    const char *parent = std::getenv("TMPDIR");
    if (parent == nullptr) parent = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    path = std::string(parent) + "/korvo-fuzz-XXXXXX";
    FUZZ_CHECK(mkdtemp(path.data()) != nullptr);
  }
  ~Directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }

  std::string path;
};

}  // namespace

const std::string &Fuzz_ScratchDir() {
  static const Directory directory;
  return directory.path;
}

bool Fuzz_WriteFile(const std::string &path, std::string_view contents) {
  const FdGuard file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
  if (file.Get() < 0) return false;
  FUZZ_CHECK(write(file.Get(), contents.data(), contents.size()) ==
             static_cast<ssize_t>(contents.size()));
  return true;
}
