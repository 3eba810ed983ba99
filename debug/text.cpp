#include "debug/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

bool Text_CopyTo(char *dst, std::size_t size, std::string_view src) {
  const std::size_t count = src.copy(dst, size - 1);
  dst[count] = '\0';
  return count == src.size();
}

bool Text_FormatTo(char *dst, std::size_t size, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int wanted = std::vsnprintf(dst, size, format, args);
  va_end(args);
  return wanted >= 0 && static_cast<std::size_t>(wanted) < size;
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
