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
  long queued = 0;      // answered, but the kernel had to send a segment again: the queue was full
  long unanswered = 0;  // still not connected when the measurement ended: the same, worse
  long wrong = 0;       // refused, reset, or answered with other bytes
  std::string complaint;  // about the first wrong one
};

// Keeps `clients` connections busy, one request each, for that long; then lets those that are
// connected end.
Outcome Client_Closed(int port, const Exchange &exchange, int clients, std::int64_t nanoseconds);

// Opens `clients` connections at once, one request each, and gives up those that are not connected
// after that long.
Outcome Client_Burst(int port, const Exchange &exchange, int clients, std::int64_t nanoseconds);

// The nearest-rank percentile of sorted values; 0 when there are none.
std::int64_t Client_Percentile(const std::vector<std::int64_t> &sorted, double percent);

#endif
