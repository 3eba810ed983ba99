#include "tests/soak/form.h"

#include <cstdio>
#include <cstdlib>

namespace {

std::uint64_t ChooseSeed() {
  const char *given = std::getenv("KORVO_SOAK_SEED");
  const std::uint64_t seed =
      given != nullptr ? std::strtoull(given, nullptr, 10) : std::random_device()();
  std::printf("KORVO_SOAK_SEED=%llu repeats this run\n", static_cast<unsigned long long>(seed));
  std::fflush(stdout);  // also for who has to end a run that hangs
  return seed;
}

}  // namespace

int Form_Minutes() {
  const char *given = std::getenv("KORVO_SOAK_MINUTES");
  return given != nullptr ? static_cast<int>(std::strtol(given, nullptr, 10)) : 0;
}

std::uint64_t Form_Seed() {
  static const std::uint64_t seed = ChooseSeed();
  return seed;
}

Random Form_Random(std::uint64_t number) {
  std::seed_seq sequence = {Form_Seed(), number};
  return Random(sequence);
}

int Between(Random &random, int low, int high) {
  return low + static_cast<int>(random() % static_cast<unsigned>(high - low + 1));
}

bool OneIn(Random &random, int count) { return Between(random, 1, count) == 1; }
