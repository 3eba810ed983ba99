// bench/report.h: from measurements to tables that can be read, and pasted into a page of Markdown.
#ifndef BENCH_REPORT_H
#define BENCH_REPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "bench/client.h"

enum Side { kFloor, kDaemon, kSides };
inline constexpr const char *kSideNames[kSides] = {"floor", "daemon"};

// One measurement of one side.  Times in microseconds.
struct Sample {
  double p50 = 0;
  double rate = 0;        // requests a second
  double cpu = -1;        // of the server and its children, a request; below 0: not known
  double queued = 0;      // share of the connections that met a full listen queue
  double unanswered = 0;  // and were not answered in time
};

// What was measured in the same place, side by side, a sample a round.
struct Series {
  std::string label;
  int clients = 0;
  std::vector<Sample> samples[kSides];
  std::vector<std::int64_t> latencies[kSides];  // of all rounds
};

// Adds what one round of a side gave, in how many seconds; cpu: of all its requests, in
// microseconds, below 0 when it is not known.
void Report_Add(Series *series, Side side, const Outcome &outcome, double seconds, double cpu);

void Report_ClosedHead();
void Report_Closed(const Series &series);
void Report_BurstHead();
void Report_Burst(const Series &series);

#endif
