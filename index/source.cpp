#include "index/source.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr std::size_t kBlock = 65536;

bool IsStopped(const Source &source) { return source.stop != nullptr && *source.stop != 0; }

// Waits for bytes.  The signals are held back until it waits, so that none comes between the look
// at what it sets and the wait.
bool Await(const Source &source) {
  sigset_t all, before;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &before);
  pollfd bytes = {source.fd, POLLIN, 0};
  const bool awaited = !IsStopped(source) && ppoll(&bytes, 1, nullptr, &before) >= 0;
  sigprocmask(SIG_SETMASK, &before, nullptr);
  if (!awaited) errno = EINTR;
  return awaited;
}

std::ptrdiff_t ReadBytes(Source *source, char *bytes, std::size_t size) {
  const ssize_t got = Await(*source) ? read(source->fd, bytes, size) : -1;
  if (got < 0)
    source->error = std::strerror(errno);
  else
    source->taken += got;
  return got;
}

std::ptrdiff_t Refuse(Source *source, const char *what) {
  const auto at = source->taken - static_cast<std::int64_t>(source->left.size());
  source->error = std::string("the ") + source->unpacker->Name() + " data " + what + " at byte " +
                  std::to_string(at);
  return -1;
}

}  // namespace

std::ptrdiff_t Source_Read(Source *source, char *bytes, std::size_t size) {
  if (source->unpacker == nullptr) return ReadBytes(source, bytes, size);
  while (!IsStopped(*source)) {
    if (source->left.empty()) {
      source->packed.resize(kBlock);
      const std::ptrdiff_t got = ReadBytes(source, source->packed.data(), kBlock);
      if (got < 0) return got;
      source->left = std::string_view(source->packed).substr(0, static_cast<std::size_t>(got));
    }
    const bool ended = source->left.empty();
    std::size_t written = 0;
    const UnpackResult result = source->unpacker->Step(&source->left, bytes, size, &written);
    if (result == UnpackResult::kBroken) return Refuse(source, "are damaged");
    if (result == UnpackResult::kMemory) return Refuse(source, "need too much memory");
    if (written > 0) return static_cast<std::ptrdiff_t>(written);
    if (ended) return result == UnpackResult::kWhole ? 0 : Refuse(source, "end too early,");
  }
  source->error = std::strerror(EINTR);
  return -1;
}
