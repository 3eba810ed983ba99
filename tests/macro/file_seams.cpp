#include "tests/macro/file_seams.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

namespace {

// Neither made nor destroyed at run time: calls come before the other static objects are there and
// after they are gone.
union Lasting {
  FileSeams seams = {};
  constexpr Lasting() {}
  ~Lasting() {}
};
constinit Lasting lasting;

bool Fails(int *error) {
  if (*error == 0) return false;
  errno = std::exchange(*error, 0);
  return true;
}

std::string Redirected(const std::string &path) {
  const std::string &from = file_seams.from;
  if (from.empty() || path.compare(0, from.size(), from) != 0) return path;
  return file_seams.to + path.substr(from.size());
}

}  // namespace

FileSeams &file_seams = lasting.seams;

// The linker sends every call of the program through __wrap_NAME; __real_NAME is the call itself.
extern "C" {

void *__real_malloc(std::size_t);
void *__wrap_malloc(std::size_t size) {
  file_seams.malloc_size = size;
  return Fails(&file_seams.fail_malloc) ? nullptr : __real_malloc(size);
}

void *__real_calloc(std::size_t, std::size_t);
void *__wrap_calloc(std::size_t count, std::size_t size) {
  return Fails(&file_seams.fail_calloc) ? nullptr : __real_calloc(count, size);
}

int __real_stat(const char *, struct stat *);
int __wrap_stat(const char *path, struct stat *status) {
  return Fails(&file_seams.fail_stat) ? -1 : __real_stat(Redirected(path).c_str(), status);
}

int __real_open(const char *, int, ...);
int __wrap_open(const char *path, int flags, ...) {
  file_seams.opened = path;
  return Fails(&file_seams.fail_open) ? -1 : __real_open(Redirected(path).c_str(), flags, 0600);
}

}  // extern "C"
