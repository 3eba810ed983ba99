// bench/player.h: plays managers that know every answer beforehand.
#ifndef BENCH_PLAYER_H
#define BENCH_PLAYER_H

#include <string>
#include <unordered_map>
#include <vector>

// By request, byte for byte.
using Answers = std::unordered_map<std::string, std::string>;

// Answers on these ports, and closes first, so that the ports in TIME_WAIT are its own.  A request
// that is not known is reported and gets no answer.  The file `ready` says that it listens.
[[noreturn]] void Player_Run(const std::vector<int> &ports, const Answers &answers,
                             const std::string &ready);

#endif
