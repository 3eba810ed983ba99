#include "index/progress.h"

#include <cmath>

#include "debug/text.h"

namespace {

constexpr double kMegabyte = 1e6;
constexpr double kLongest = 360000;  // seconds that are shown

// Nothing where the rest cannot be told.
std::string TimeLeft(const Progress &progress, double rate) {
  const auto rest = static_cast<double>(progress.total - progress.done);
  if (rate <= 0 || rest < 0 || !(rest / rate < kLongest)) return {};
  const auto seconds = static_cast<int>(std::lround(rest / rate));
  char text[64];
  (void)Text_FormatTo(text, sizeof text, ", %d:%02d left", seconds / 60, seconds % 60);
  return text;
}

}  // namespace

std::string Progress_Text(const Progress &progress) {
  const auto done = static_cast<double>(progress.done);
  const double rate = progress.seconds > 0 ? done / progress.seconds : 0;
  char text[160];
  if (progress.total == 0) {
    (void)Text_FormatTo(text, sizeof text, "%.1f MB, %lld documents, %.1f MB/s", done / kMegabyte,
                        static_cast<long long>(progress.documents), rate / kMegabyte);
    return text;
  }
  (void)Text_FormatTo(text, sizeof text, "%.1f of %.1f MB, %lld documents, %.1f MB/s",
                      done / kMegabyte, static_cast<double>(progress.total) / kMegabyte,
                      static_cast<long long>(progress.documents), rate / kMegabyte);
  return text + TimeLeft(progress, rate);
}
