#include "web/door.h"

#include <algorithm>
#include <chrono>

namespace {

constexpr std::size_t kMostAddresses = 10000;  // that are remembered

template <typename List>
void Remove(List *list, const Exchange *exchange) {
  list->erase(std::remove(list->begin(), list->end(), exchange), list->end());
}

double Left(const Rates &rates, const Rates::Bucket &bucket, WebTime now) {
  const double seconds = std::chrono::duration<double>(now - bucket.at).count();
  return std::min(rates.burst, bucket.left + seconds * rates.rate);
}

// Those that have not asked for long are as good as unknown.
void Forget(Rates *rates, WebTime now) {
  std::erase_if(rates->buckets, [rates, now](const auto &entry) {
    return Left(*rates, entry.second, now) >= rates->burst;
  });
}

}  // namespace

bool Door_Enter(Door *door, Exchange *exchange) {
  const bool idle = door->waiting.empty() && door->asking.size() < door->connections;
  if (!idle && door->waiting.size() >= door->most_waiting) return false;
  door->waiting.push_back(exchange);
  return true;
}

void Door_Leave(Door *door, Exchange *exchange) {
  Exchange_Close(exchange);
  Remove(&door->waiting, exchange);
  Remove(&door->asking, exchange);
}

void Door_Turn(Door *door, WebTime now) {
  for (Exchange *exchange : door->asking)
    if (exchange->stage != Stage::kOver && exchange->deadline <= now)
      Exchange_End(exchange, Trouble::kTooLate);
  std::erase_if(door->asking, [](const Exchange *exchange) { return exchange->fd < 0; });
  std::erase_if(door->waiting, [now](Exchange *exchange) {
    if (exchange->deadline > now) return false;
    Exchange_End(exchange, Trouble::kBusy);
    return true;
  });
  while (door->asking.size() < door->connections && !door->waiting.empty()) {
    Exchange *next = door->waiting.front();
    door->waiting.pop_front();
    if (Exchange_Open(next, door->daemon)) door->asking.push_back(next);
  }
}

bool Rates_IsFree(const std::string &address) { return address.starts_with("127."); }

bool Rates_Take(Rates *rates, const std::string &address, WebTime now) {
  if (rates->rate <= 0 || Rates_IsFree(address)) return true;
  if (rates->buckets.size() >= kMostAddresses) Forget(rates, now);
  Rates::Bucket &bucket =
      rates->buckets.try_emplace(address, Rates::Bucket{rates->burst, now}).first->second;
  bucket = {Left(*rates, bucket, now), now};
  if (bucket.left < 1) return false;
  bucket.left -= 1;
  return true;
}
