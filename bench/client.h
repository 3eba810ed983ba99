// bench/client.h: clients that send one request a connection and check every byte of the answer.
#ifndef BENCH_CLIENT_H
#define BENCH_CLIENT_H

#include <cstdint>
#include <string>
#include <vector>

#include "bench/rows.h"

// What the connections of one measurement met.
struct Outcome {
  std::vector<std::int64_t> latencies;  // nanoseconds from connect to the end of the answer, sorted
  long queued = 0;                      // answered, after they met the full queue
  long unanswered = 0;                  // met it and were given up at the end
  long wrong = 0;                       // refused, reset, or answered with other bytes
  std::string complaint;                // about the first wrong one
};

// Keeps `clients` connections busy for that long, one request each.
Outcome Client_Closed(int port, const Exchange &exchange, int clients, std::int64_t nanoseconds);

// Opens `clients` connections at once, one request each, and gives up after that long.
Outcome Client_Burst(int port, const Exchange &exchange, int clients, std::int64_t nanoseconds);

// Whether a connection has met the full listen queue: the kernel has had to send
// a segment again, and nothing else loses segments on the loopback.
bool Client_MetFullQueue(int sock);

// The nearest-rank percentile of sorted values; 0 when there are none.
std::int64_t Client_Percentile(const std::vector<std::int64_t> &sorted, double percent);

#endif
