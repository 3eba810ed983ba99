// index/progress.h: how far a run is.
#ifndef INDEX_PROGRESS_H
#define INDEX_PROGRESS_H

#include <cstdint>
#include <string>

struct Progress {
  std::int64_t total;  // bytes of all inputs; 0: nobody knows
  std::int64_t done;   // bytes
  std::int64_t documents;
  double seconds;  // since the start
};

// "12.3 of 45.6 MB, 7890 documents, 1.2 MB/s, 0:28 left", or what is known of it.
std::string Progress_Text(const Progress &progress);

#endif
