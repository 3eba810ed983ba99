// bench/statistics.h: what a handful of measurements says.
#ifndef BENCH_STATISTICS_H
#define BENCH_STATISTICS_H

#include <string>
#include <vector>

// The value below which that share of the values lies, between neighbours in proportion; 0 when
// there are none.
double Statistics_Quantile(std::vector<double> values, double share);

// The median, and the quartiles behind it.
std::string Statistics_WithQuartiles(const std::vector<double> &values, int digits);

#endif
