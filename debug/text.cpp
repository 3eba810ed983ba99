#include "debug/text.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

// Digits of a long, and its sign.
constexpr std::size_t kDecimalSize = 20;

std::string_view Decimal(long value, char (&out)[kDecimalSize]) {
  const char *end = std::to_chars(out, out + sizeof out, value).ptr;
  return {out, static_cast<std::size_t>(end - out)};
}

bool Take(std::string_view *rest, std::string_view prefix) {
  if (!rest->starts_with(prefix)) return false;
  rest->remove_prefix(prefix.size());
  return true;
}

// Formats what has the bare conversions %s, %d and %ld alone; *fits as Text_FormatTo's result.
// False: there is another.
[[gnu::format(printf, 3, 0)]] bool FormatPlain(char *dst, std::size_t size, const char *format,
                                               va_list args, bool *fits) {
  std::string_view rest(format);
  std::size_t used = 0;
  const auto append = [&](std::string_view text) {
    const std::size_t count = text.copy(dst + used, size - 1 - used);
    used += count;
    *fits = *fits && count == text.size();
  };
  char digits[kDecimalSize];
  while (!rest.empty()) {
    if (Take(&rest, "%s")) {
      append(va_arg(args, const char *));
    } else if (Take(&rest, "%d")) {
      append(Decimal(va_arg(args, int), digits));
    } else if (Take(&rest, "%ld")) {
      append(Decimal(va_arg(args, long), digits));
    } else if (rest.front() == '%') {
      return false;
    } else {
      const std::size_t plain = std::min(rest.find('%'), rest.size());
      append(rest.substr(0, plain));
      rest.remove_prefix(plain);
    }
  }
  dst[used] = '\0';
  return true;
}

}  // namespace

bool Text_CopyTo(char *dst, std::size_t size, std::string_view src) {
  const std::size_t count = src.copy(dst, size - 1);
  dst[count] = '\0';
  return count == src.size();
}

bool Text_FormatTo(char *dst, std::size_t size, const char *format, ...) {
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  bool fits = true;
  if (!FormatPlain(dst, size, format, args, &fits)) {
    const int wanted = std::vsnprintf(dst, size, format, again);
    fits = wanted >= 0 && static_cast<std::size_t>(wanted) < size;
  }
  va_end(again);
  va_end(args);
  return fits;
}

int Text_Length(const char *text) {
  return text != nullptr ? static_cast<int>(std::strlen(text)) : 0;
}

std::int32_t Text_ToInt32(std::string_view text) {
  const std::size_t blanks = text.find_first_not_of(" \t\n\v\f\r");
  text.remove_prefix(std::min(blanks, text.size()));
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  std::int64_t value = 0;
  for (const char digit : text) {
    if (digit < '0' || digit > '9') break;
    value = std::min<std::int64_t>(10 * value + (digit - '0'), std::int64_t{INT32_MAX} + 1);
  }
  return static_cast<std::int32_t>(negative ? -value : std::min<std::int64_t>(value, INT32_MAX));
}

std::int16_t Text_ToPort(std::string_view text) {
  return static_cast<std::int16_t>(Text_ToInt32(text));
}

std::string_view Text_Token(std::string_view *rest, std::string_view separators) {
  const std::size_t begin = std::min(rest->find_first_not_of(separators), rest->size());
  rest->remove_prefix(begin);
  const std::size_t end = std::min(rest->find_first_of(separators), rest->size());
  const std::string_view token = rest->substr(0, end);
  rest->remove_prefix(end);
  return token;
}
