#include "store/shard.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <mutex>
#include <string_view>
#include <thread>
#include <vector>

#include "debug/log.h"
#include "store/peer.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kConnectLimit(1000);
constexpr milliseconds kRetryAfter(1000);
constexpr milliseconds kRetryWait(20);  // for an engine that is tried again
constexpr milliseconds kLeastPatience(50), kMostPatience(10000);
constexpr int kSpareDescriptors = 8;  // for the files of a database, which are opened as needed

milliseconds Left(ShardClock::time_point end) {
  return std::max(std::chrono::duration_cast<milliseconds>(end - ShardClock::now()),
                  milliseconds(0));
}

// How long one answer of an engine may take, so that one that hangs leaves time for the others.
milliseconds PatienceFor(const ShardRequest &request) {
  const auto all = std::chrono::duration_cast<milliseconds>(request.end - request.begin);
  return std::clamp(all * 2 / 5, kLeastPatience, kMostPatience);
}

bool IsRemote(const Shard &shard) { return shard.location.empty(); }

void CloseGreeting(Shard *shard) {
  if (shard->greeting >= 0) close(shard->greeting);
  shard->greeting = -1;
}

// The log is made for one thread.
std::mutex log_lock;

void Report(Shard *shard, const std::string &reason) {
  const std::lock_guard hold(log_lock);
  DPRINTF(nullptr, shard->failed ? kStatus : kWarning, "[Shard: Open] Unable to read '%s': %s\n",
          shard->name.c_str(), reason.c_str());
  shard->failed = true;
}

void PutOff(Shard *shard, const std::string &reason) {
  CloseGreeting(shard);
  shard->database.reset();
  if (IsRemote(*shard)) shard->retry = ShardClock::now() + kRetryAfter;
  Report(shard, reason);
}

// The edge of Xapian: runs what may throw; an empty text, or what went wrong.
template <typename Action>
std::string Try(const Action &action) {
  try {
    action();
    return {};
  } catch (const Xapian::Error &error) {
    return error.get_description();
  } catch (const std::exception &error) {
    return error.what();
  }
}

void OpenNow(Shard *shard, milliseconds patience) {
  shard->state = Location_State(shard->location);
  shard->revision = {};
  Xapian::Database database =
      IsRemote(*shard) ? Xapian::Remote::open(
                             shard->host, shard->port, static_cast<useconds_t>(patience.count()),
                             static_cast<useconds_t>(std::min(patience, kConnectLimit).count()))
                       : Xapian::Database(shard->location);
  shard->schema = Schema_Of(database);
  shard->database = database;
}

// Opens what answers; one that is written to meanwhile as often as there is time.
void Open(Shard *shard, const ShardRequest &request) {
  const milliseconds patience = PatienceFor(request);
  const std::string wrong = Try([&] {
    for (;;) try {
        return OpenNow(shard, patience);
      } catch (const Xapian::DatabaseModifiedError &) {
        if (ShardClock::now() >= request.end) throw;
      }
  });
  if (!wrong.empty()) return PutOff(shard, wrong);
  shard->patience = patience;
  shard->opened = ShardClock::now();
  const std::lock_guard hold(log_lock);
  if (shard->failed)
    DPRINTF(nullptr, kWarning, "[Shard: Open] '%s' is back\n", shard->name.c_str());
  shard->failed = false;
}

// Whether the connection waits for answers about as long as this request can.
bool Fits(const Shard &shard, const ShardRequest &request) {
  const milliseconds wanted = PatienceFor(request);
  return shard.patience <= wanted * 5 / 4 && shard.patience >= wanted / 2;
}

// Whether nobody has committed to a database here since the last request: to look at the database
// itself costs as much as to fetch a document.
bool IsUnchanged(Shard *shard) {
  if (IsRemote(*shard)) return false;
  const LocationState before = shard->revision;
  shard->revision = Location_Revision(shard->location);
  return before.inode != 0 && before == shard->revision;
}

// Closes an open shard that is not what it was, or not what this request needs.
void CloseChanged(Shard *shard, const ShardRequest &request) {
  if ((shard->unchanged = IsUnchanged(shard))) return;
  if (IsRemote(*shard) ? !Fits(*shard, request) : shard->state != Location_State(shard->location))
    shard->database.reset();
}

// Looks at an open shard anew.  False: its engine hangs.
bool Refresh(Shard *shard) {
  if (shard->unchanged) return true;
  shard->doubted = false;
  try {
    if (shard->database->reopen()) shard->schema = Schema_Of(*shard->database);
  } catch (const Xapian::NetworkTimeoutError &error) {
    PutOff(shard, error.get_description());
    return false;
  } catch (const std::exception &) {
    shard->database.reset();
  } catch (const Xapian::Error &) {
    shard->database.reset();  // started again, or written anew: opening it says what is wrong
  }
  return true;
}

// Does something with all shards at the same time, so that those that hang or are slow cost
// together what one of them does.
template <typename Action>
void Together(std::span<Shard *const> shards, const Action &action) {
  if (shards.size() == 1) return action(shards.front());
  std::vector<std::jthread> threads;  // joined at the end of the scope, however it is left
  for (Shard *shard : shards) threads.emplace_back([shard, &action] { action(shard); });
}

void RefreshTogether(std::span<Shard *const> shards) {
  Together(shards, [](Shard *shard) {
    if (shard->database) Refresh(shard);
  });
}

void RefreshAll(std::span<Shard *const> shards) {
  for (std::size_t i = 0; i < shards.size(); ++i) {
    if (!shards[i]->database) continue;
    if (shards[i]->doubted) return RefreshTogether(shards.subspan(i));
    if (!Refresh(shards[i])) return RefreshTogether(shards.subspan(i + 1));
  }
}

bool IsSpare(int fd) {
  rlimit most = {};
  return getrlimit(RLIMIT_NOFILE, &most) == 0 &&
         static_cast<rlim_t>(fd) + kSpareDescriptors >= most.rlim_cur;
}

// Begins a connection to an engine without waiting for it.
void Call(Shard *shard) {
  shard->begun = ShardClock::now();
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(shard->port));
  if (inet_pton(AF_INET, shard->host.c_str(), &address.sin_addr) != 1)
    return PutOff(shard, "its address is '" + shard->host + "'");
  shard->greeting = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (IsSpare(shard->greeting)) return PutOff(shard, "no descriptor is left for it");
  const bool begun = shard->greeting >= 0 &&
                     (connect(shard->greeting, reinterpret_cast<const sockaddr *>(&address),
                              sizeof address) == 0 ||
                      errno == EINPROGRESS);
  if (!begun) PutOff(shard, "errno = " + std::to_string(errno));
}

// Whether bytes of an engine are there.
bool IsGreeted(Shard *shard) {
  char byte = 0;
  const ssize_t got = recv(shard->greeting, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  if (got > 0) return true;
  if (got == 0)
    PutOff(shard, "it closes the connection");
  else if (errno != EAGAIN)
    PutOff(shard, "errno = " + std::to_string(errno));
  return false;
}

// An engine that is called, and how long it is waited for.
struct Called {
  Shard *shard;
  ShardClock::time_point until;
};

ShardClock::time_point LastOf(const std::vector<Called> &called) {
  ShardClock::time_point last;
  for (const Called &one : called) last = std::max(last, one.until);
  return last;
}

// Those that greet in time.
std::vector<Shard *> Await(std::vector<Called> called) {
  std::vector<Shard *> greeted;
  std::vector<pollfd> ready;
  while (!called.empty() && ShardClock::now() < LastOf(called)) {
    ready.clear();
    for (const Called &one : called) ready.push_back({one.shard->greeting, POLLIN, 0});
    poll(ready.data(), ready.size(), static_cast<int>(Left(LastOf(called)).count()) + 1);
    std::erase_if(called, [&](const Called &one) {
      if (!IsGreeted(one.shard)) return one.shard->greeting < 0;
      CloseGreeting(one.shard);
      greeted.push_back(one.shard);
      return true;
    });
  }
  return greeted;
}

// An engine that has failed lately keeps nobody waiting: it is looked at again by the next request.
void OpenRemote(std::span<Shard *const> shards, const ShardRequest &request) {
  const auto now = ShardClock::now();
  std::vector<Called> called;
  for (Shard *shard : shards) {
    if (!IsRemote(*shard) || shard->database || now < shard->retry) continue;
    if (shard->greeting < 0) Call(shard);
    const milliseconds limit =
        shard->failed ? kRetryWait : std::min(kConnectLimit, Left(request.end) / 3);
    if (shard->greeting >= 0) called.push_back({shard, now + limit});
  }
  Together(Await(called), [&request](Shard *shard) { Open(shard, request); });
  for (const Called &one : called)
    if (one.shard->greeting >= 0 && !IsGreeted(one.shard) && one.shard->greeting >= 0 &&
        (!one.shard->failed || ShardClock::now() >= one.shard->begun + kConnectLimit))
      PutOff(one.shard, "it does not answer");
}

bool Is(const Xapian::Error &error, std::string_view type) { return error.get_type() == type; }

// What was asked cannot be done, at this database or at any other.
bool IsOfRequest(const Xapian::Error &error) {
  return Is(error, "UnimplementedError") || Is(error, "InvalidArgumentError") ||
         Is(error, "InvalidOperationError");
}

bool IsTimeout(const Xapian::Error &error) { return Is(error, "NetworkTimeoutError"); }

// An end in the middle of an answer does not say whose it is.
Shard *Ended(std::span<Shard *const> shards) {
  for (Shard *shard : shards)
    if (IsRemote(*shard) && shard->database && !Peer_IsUp(shard->host.c_str(), shard->port))
      return shard;
  return nullptr;
}

}  // namespace

int Shard_Ready(std::span<Shard *const> shards, const ShardRequest &request) {
  for (Shard *shard : shards)
    if (shard->database) CloseChanged(shard, request);
  RefreshAll(shards);
  for (Shard *shard : shards)
    if (!IsRemote(*shard) && !shard->database && ShardClock::now() >= shard->retry)
      Open(shard, request);
  OpenRemote(shards, request);
  return static_cast<int>(std::count_if(shards.begin(), shards.end(), [](const Shard *shard) {
    return shard->database.has_value();
  }));
}

void Shard_Fail(std::span<Shard *const> shards, Shard *failed, const Xapian::Error &error,
                const ShardRequest &request) {
  if (failed->opened < request.begin && !IsTimeout(error)) return failed->database.reset();
  PutOff(failed, error.get_description());
  failed->retry = ShardClock::now() + kRetryAfter;
  if (!IsTimeout(error)) return;
  for (Shard *shard : shards) shard->doubted = IsRemote(*shard);
}

Shard *Shard_OfError(std::span<Shard *const> shards, const Xapian::Error &error) {
  if (IsOfRequest(error)) return nullptr;
  const std::string &context = error.get_context();
  Shard *local = nullptr;
  int locals = 0;
  for (Shard *shard : shards) {
    if (!shard->database) continue;
    if (!IsRemote(*shard)) {
      local = shard;
      ++locals;
    } else if (context == "remote:tcp(" + shard->host + ":" + std::to_string(shard->port) + ")") {
      return shard;
    }
  }
  if (!context.empty()) return nullptr;
  if (Is(error, "NetworkError")) return Ended(shards);
  return locals == 1 ? local : nullptr;
}
