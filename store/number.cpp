// The numbers that a text names.
#include <charconv>
#include <chrono>
#include <cmath>

#include "store/schema.h"

namespace {

// Takes exactly count digits off the text.  False: there are others.
bool TakeDigits(std::string_view *text, std::size_t count, int *value) {
  if (text->size() < count) return false;
  const char *begin = text->data(), *end = begin + count;
  if (*begin < '0' || *begin > '9') return false;
  const auto [stop, code] = std::from_chars(begin, end, *value);
  if (code != std::errc{} || stop != end) return false;
  text->remove_prefix(count);
  return true;
}

bool TakeByte(std::string_view *text, char byte) {
  if (text->empty() || text->front() != byte) return false;
  text->remove_prefix(1);
  return true;
}

// Seconds east of Greenwich: nothing, "Z", or "+01:00".  False: something else stands there.
bool TakeOffset(std::string_view text, int *seconds) {
  *seconds = 0;
  if (text.empty() || text == "Z") return true;
  const bool west = TakeByte(&text, '-');
  if (!west && !TakeByte(&text, '+')) return false;
  int hours = 0, minutes = 0;
  if (!TakeDigits(&text, 2, &hours)) return false;
  TakeByte(&text, ':');
  if (!TakeDigits(&text, 2, &minutes) || !text.empty() || hours > 14 || minutes > 59) return false;
  *seconds = (west ? -1 : 1) * (hours * 3600 + minutes * 60);
  return true;
}

// "12:30", "12:30:05", with an offset behind it, as seconds of the day, and how many it spans.
bool ReadTime(std::string_view text, int *seconds, int *span) {
  int hour = 0, minute = 0, second = 0, offset = 0;
  *span = 60;
  if (!TakeDigits(&text, 2, &hour) || !TakeByte(&text, ':') || !TakeDigits(&text, 2, &minute))
    return false;
  if (TakeByte(&text, ':')) {
    if (!TakeDigits(&text, 2, &second)) return false;
    *span = 1;
    if (TakeByte(&text, '.'))  // parts of a second say nothing here
      while (!text.empty() && text.front() >= '0' && text.front() <= '9') text.remove_prefix(1);
  }
  if (!TakeOffset(text, &offset) || hour > 23 || minute > 59 || second > 60) return false;
  *seconds = hour * 3600 + minute * 60 + second - offset;
  return true;
}

double SecondsOf(std::chrono::year_month_day day) {
  return static_cast<double>(std::chrono::sys_days(day).time_since_epoch().count()) * 86400;
}

bool ReadDate(std::string_view text, bool end, double *number) {
  using namespace std::chrono;
  int y = 0, m = 1, d = 1, in_day = 0, span = 86400;
  if (!TakeDigits(&text, 4, &y)) return false;
  const bool has_month = TakeByte(&text, '-');
  if (has_month && !TakeDigits(&text, 2, &m)) return false;
  const bool has_day = has_month && TakeByte(&text, '-');
  if (has_day && !TakeDigits(&text, 2, &d)) return false;
  const bool has_time = has_day && !text.empty();
  if (has_time && !TakeByte(&text, 'T') && !TakeByte(&text, ' ')) return false;
  if (has_time && !ReadTime(text, &in_day, &span)) return false;
  if (!has_time && !text.empty()) return false;

  const year_month_day first{year(y), month(static_cast<unsigned>(m)),
                             day(static_cast<unsigned>(d))};
  if (!first.ok()) return false;
  *number = SecondsOf(first) + in_day;
  if (!end) return true;
  if (!has_month)
    *number = SecondsOf(first + years(1)) - 1;
  else if (!has_day)
    *number = SecondsOf(first + months(1)) - 1;
  else
    *number += span - 1;
  return true;
}

}  // namespace

bool Schema_Number(FieldKind kind, std::string_view text, bool end, double *number) {
  if (kind == FieldKind::kDate) return ReadDate(text, end, number);
  const char *stop_at = text.data() + text.size();
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  const auto [stop, code] = std::from_chars(text.data(), stop_at, *number);
  return code == std::errc{} && stop == stop_at && !text.empty() && std::isfinite(*number);
}
