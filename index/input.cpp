#include "index/input.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr std::size_t kBlock = 65536;

bool IsStopped(const Input &input) { return input.stop != nullptr && *input.stop != 0; }

// Waits for bytes.  The signals are held back until it waits, so that none comes between the look
// at what it sets and the wait.
bool Await(const Input &input) {
  sigset_t all, before;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &before);
  pollfd bytes = {input.fd, POLLIN, 0};
  const bool awaited = !IsStopped(input) && ppoll(&bytes, 1, nullptr, &before) >= 0;
  sigprocmask(SIG_SETMASK, &before, nullptr);
  if (!awaited) errno = EINTR;
  return awaited;
}

std::ptrdiff_t ReadBytes(Input *input, char *bytes, std::size_t size) {
  const ssize_t got = Await(*input) ? read(input->fd, bytes, size) : -1;
  if (got < 0)
    input->error = std::strerror(errno);
  else
    input->taken += got;
  return got;
}

std::ptrdiff_t Refuse(Input *input, const char *what) {
  const auto at = input->taken - static_cast<std::int64_t>(input->left.size());
  input->error = std::string("the ") + input->unpacker->Name() + " data " + what + " at byte " +
                 std::to_string(at);
  return -1;
}

}  // namespace

std::ptrdiff_t Input_Read(Input *input, char *bytes, std::size_t size) {
  if (input->unpacker == nullptr) return ReadBytes(input, bytes, size);
  while (!IsStopped(*input)) {
    if (input->left.empty()) {
      input->packed.resize(kBlock);
      const std::ptrdiff_t got = ReadBytes(input, input->packed.data(), kBlock);
      if (got < 0) return got;
      input->left = std::string_view(input->packed).substr(0, static_cast<std::size_t>(got));
    }
    const bool ended = input->left.empty();
    std::size_t written = 0;
    const UnpackResult result = input->unpacker->Step(&input->left, bytes, size, &written);
    if (result == UnpackResult::kBroken) return Refuse(input, "are damaged");
    if (result == UnpackResult::kMemory) return Refuse(input, "need too much memory");
    if (written > 0) return static_cast<std::ptrdiff_t>(written);
    if (ended) return result == UnpackResult::kWhole ? 0 : Refuse(input, "end too early,");
  }
  input->error = std::strerror(EINTR);
  return -1;
}
