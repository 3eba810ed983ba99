// web/journal.h: a line of JSON a request, and the measures.
#ifndef WEB_JOURNAL_H
#define WEB_JOURNAL_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "web/asked.h"
#include "web/clock.h"
#include "web/filter.h"
#include "web/trouble.h"

// A request that is over.
struct VisitRecord {
  const Asked *asked;
  std::string address;
  int status;  // 0: the browser left before there was one
  std::vector<Trouble> troubles;
  const PageFacts *facts;
  std::uint64_t bytes;    // of the page
  double first_ms, ms;    // to its first byte, below 0 without one; in all
  bool fallback = false;  // the front page of the file could not be read
};

struct Journal {
  int fd = -1;
  std::string path;  // "-" is standard error
  bool queries = true;
  bool is_failing = false;  // the last line was not written
};

// Opens the file, or opens it again.  False: errno says why, and the old one stays.
bool Journal_Open(Journal *journal);
// Says on standard error when a line is the first that cannot be written.
void Journal_Write(Journal *journal, const VisitRecord &finished);

// The line for a request at that time, newline included.
std::string Journal_Line(const VisitRecord &finished, bool queries, std::int64_t milliseconds);

inline constexpr std::array<double, 13> kMeasureBounds = {
    0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1, 2.5, 5, 10};

struct Histogram {
  std::array<std::uint64_t, kMeasureBounds.size() + 1> counts;  // the last one above all bounds
  double sum;
};

struct Measures {
  std::array<std::uint64_t, kRoutes> requests;  // by route
  std::array<std::uint64_t, kTroubles> troubles;
  Histogram first, last;  // seconds, of searches and documents
};

void Measures_Add(Measures *measures, const VisitRecord &finished);

// As Prometheus reads it.
std::string Measures_Text(const Measures &measures, std::size_t in_flight, std::size_t waiting);

#endif
