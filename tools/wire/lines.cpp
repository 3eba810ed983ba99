#include "tools/wire/lines.h"

#include <unistd.h>

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>

#include "tools/common/tool.h"

namespace {

constexpr std::size_t kWaiting = 1 << 20;  // bytes

std::mutex mutex;  // of the text
std::condition_variable added;
std::string text;  // that waits
void (*lose_lines)(const char *why) = nullptr;

void WriteAll() {
  for (;;) {
    std::unique_lock<std::mutex> lock(mutex);
    added.wait(lock, [] { return !text.empty(); });
    const std::string taken = std::exchange(text, std::string());
    lock.unlock();
    const int err = Tool_Write(STDOUT_FILENO, taken);
    if (err != 0) lose_lines(std::strerror(err));
  }
}

}  // namespace

void Lines_Start(void (*lose)(const char *why)) {
  lose_lines = lose;
  std::thread(WriteAll).detach();
}

void Lines_Add(const std::string &line) {
  std::unique_lock<std::mutex> lock(mutex);
  const bool fits = text.size() + line.size() <= kWaiting;
  if (fits) text += line;
  lock.unlock();
  fits ? added.notify_one() : lose_lines("nobody reads it");
}
