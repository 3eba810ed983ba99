#include "tools/wire/header.h"

namespace {

constexpr std::string_view kSeparators = "\t\r\n";
constexpr std::size_t kTokenSize = 1024;  // the longest token, and
constexpr std::size_t kNameSize = 128;    // the longest name, that do not end the header

}  // namespace

bool Header_Take(std::string_view *rest, HeaderField *field) {
  if (!rest->starts_with("\t@") && !rest->starts_with("\r@")) return false;
  const std::size_t end = rest->find_first_of(kSeparators, 1);
  if (end == std::string_view::npos || end - 1 > kTokenSize) return false;
  const std::string_view pair = rest->substr(2, end - 2);
  const std::size_t equals = pair.find('=');
  if (equals == std::string_view::npos || equals > kNameSize) return false;
  if (pair.substr(0, equals) == "OPER") return false;
  *field = {pair.substr(0, equals), pair.substr(equals + 1)};
  rest->remove_prefix(end);
  return true;
}

bool Header_Find(std::string_view line, std::string_view name, std::string_view *value) {
  bool found = false;
  for (HeaderField field; Header_Take(&line, &field);) {
    if (field.name != name) continue;
    *value = field.value;
    found = true;
  }
  return found;
}
