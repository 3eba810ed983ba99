#include "debug/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
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

std::int32_t Text_ToInt32(const char *text) {
  const long long value = std::strtoll(text, nullptr, 10);  // saturates far outside of 32 bits
  return static_cast<std::int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

std::int16_t Text_ToPort(const char *text) { return static_cast<std::int16_t>(Text_ToInt32(text)); }

std::string_view Text_Token(std::string_view *rest, std::string_view separators) {
  const std::size_t begin = std::min(rest->find_first_not_of(separators), rest->size());
  rest->remove_prefix(begin);
  const std::size_t end = std::min(rest->find_first_of(separators), rest->size());
  const std::string_view token = rest->substr(0, end);
  rest->remove_prefix(end);
  return token;
}
