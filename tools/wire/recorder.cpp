#include "tools/wire/recorder.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <list>
#include <mutex>
#include <thread>
#include <utility>

#include "tools/common/tool.h"
#include "tools/wire/lines.h"
#include "tools/wire/program.h"
#include "tools/wire/transcript.h"

namespace {

constexpr std::size_t kWaiting = std::size_t{2} * kTranscriptSize;  // bytes

std::mutex mutex;  // of what waits
std::condition_variable added;
std::list<Exchange> waiting;
std::size_t waiting_bytes = 0;
std::string place;
void (*lose_recording)(const std::string &path, const char *why) = nullptr;

std::string PathOf(const Exchange &exchange) {
  return place + Tool_Format("/%06d.transcript", exchange.number);
}

void Write(const Exchange &exchange) {
  const std::string path = PathOf(exchange);
  if (Exchange_IsTooLong(exchange)) return lose_recording(path, "it has more than 67108864 bytes");
  // Whoever finds a recording finds the whole of it.
  const std::string begun = path + ".part";
  if (Program_WriteFile(begun, exchange.transcript) && rename(begun.c_str(), path.c_str()) == 0)
    return;
  const int err = errno;
  unlink(begun.c_str());
  lose_recording(path, std::strerror(err));
}

void WriteAll() {
  for (;;) {
    std::unique_lock<std::mutex> lock(mutex);
    added.wait(lock, [] { return !waiting.empty(); });
    const Exchange exchange = std::move(waiting.front());
    waiting.pop_front();
    lock.unlock();
    Write(exchange);
    Lines_Add(Exchange_Json(exchange));
    lock.lock();
    waiting_bytes -= exchange.transcript.size();
  }
}

}  // namespace

void Recorder_Start(const std::string &folder,
                    void (*lose)(const std::string &path, const char *why)) {
  place = folder;
  lose_recording = lose;
  std::thread(WriteAll).detach();
}

void Recorder_Add(Exchange &&exchange) {
  std::unique_lock<std::mutex> lock(mutex);
  const bool fits = waiting_bytes + exchange.transcript.size() <= kWaiting;
  if (fits) {
    waiting_bytes += exchange.transcript.size();
    waiting.push_back(std::move(exchange));
    lock.unlock();
    return added.notify_one();
  }
  lock.unlock();
  lose_recording(PathOf(exchange), "more than 134217728 bytes wait");
  Lines_Add(Exchange_Json(exchange));
}

int Recorder_HighestNumber(const std::string &folder) {
  int highest = 0;
  std::error_code ignored;
  for (const auto &entry : std::filesystem::directory_iterator(folder, ignored)) {
    const std::string name = entry.path().stem();
    int number = 0;
    const auto [stop, code] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (entry.path().extension() == ".transcript" && code == std::errc{} &&
        stop == name.data() + name.size())
      highest = std::max(highest, number);
  }
  return highest;
}
