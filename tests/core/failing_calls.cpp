// Linked into a daemon.  KORVO_FAIL holds words call:nth:errno or call:nth:errno:times, and
// KORVO_LEVEL the debug level before start-up sets its own.
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "debug/log.h"
#include "tests/core/core_seams.h"
#include "tests/support/syscall_seams.h"

namespace {

Seams *seams = nullptr;

struct Name {
  const char *name;
  Call call;
};
constexpr Name kNames[] = {
    {"socket", Call::kSocket},     {"setsockopt", Call::kSetsockopt}, {"bind", Call::kBind},
    {"listen", Call::kListen},     {"accept", Call::kAccept},         {"fork", Call::kFork},
    {"recvfrom", Call::kRecvfrom}, {"inet_addr", Call::kInetAddr},    {"fopen", Call::kFopen},
    {"sendto", Call::kSendto},
};

struct SeamName {
  const char *name;
  Seam *seam;
};
const SeamName kSeamNames[] = {{"epoll_create1", &epoll_create_seam},
                               {"epoll_ctl", &epoll_ctl_seam},
                               {"getppid", &getppid_seam},
                               {"open", &open_seam},
                               {"select", &select_seam},
                               {"setpgid", &setpgid_seam},
                               {"sysv_signal", &signal_seam}};

void Arm(const std::string &name, int nth, int error, int times) {
  for (const Name &known : kNames) {
    if (known.name != name) continue;
    seams->Fail(known.call, error, nth, times);
    return;
  }
  for (const SeamName &known : kSeamNames) {
    if (known.name != name) continue;
    known.seam->ask = [=](int now) { return now >= nth && now < nth + times ? error : 0; };
    return;
  }
  std::fprintf(stderr, "no call %s to fail\n", name.c_str());
  std::abort();
}

[[maybe_unused]] const bool armed = [] {
  if (const char *level = std::getenv("KORVO_LEVEL")) Debug_Level = std::atoi(level);
  const char *calls = std::getenv("KORVO_FAIL");
  if (calls == nullptr) return false;
  seams = new Seams;
  std::istringstream words(calls);
  std::string name;
  while (std::getline(words >> std::ws, name, ':')) {
    int nth = 0, error = 0, times = 1;
    char colon = 0;
    words >> nth >> colon >> error;
    if (words.peek() == ':') words >> colon >> times;
    Arm(name, nth, error, times);
  }
  return true;
}();

}  // namespace
