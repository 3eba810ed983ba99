#include "bench/statistics.h"

#include <algorithm>
#include <cstdio>

double Statistics_Quantile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const double place = share * static_cast<double>(values.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, values.size() - 1);
  return values[below] + (place - static_cast<double>(below)) * (values[above] - values[below]);
}

std::string Statistics_WithQuartiles(const std::vector<double> &values, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f (%.*f to %.*f)", digits, Statistics_Quantile(values, 0.5),
                digits, Statistics_Quantile(values, 0.25), digits,
                Statistics_Quantile(values, 0.75));
  return text;
}
