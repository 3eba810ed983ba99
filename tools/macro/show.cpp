#include <algorithm>
#include <charconv>

#include "tools/macro/check.h"

namespace {

constexpr std::size_t kRunMost = 1 << 20;  // of one byte
constexpr std::size_t kShortRun = 16;      // stands as it is

std::string Escaped(char c) {
  constexpr char kDigits[] = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(c);
  switch (c) {
    case '\t': return "\\t";
    case '\n': return "\\n";
    case '\\': return "\\\\";
    default: break;
  }
  if (c >= ' ' && c <= '~') return std::string(1, c);
  return {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
}

// What stands between two brackets of *rest, as a number; false: it is none.
bool TakeRun(std::string_view *rest, std::size_t *count) {
  const std::size_t end = rest->find('}');
  if (end == std::string_view::npos) return false;
  const auto [stop, code] = std::from_chars(rest->data(), rest->data() + end, *count);
  if (code != std::errc{} || stop != rest->data() + end || *count == 0 || *count > kRunMost)
    return false;
  rest->remove_prefix(end + 1);
  return true;
}

bool TakeHex(std::string_view *rest, std::string *document) {
  unsigned value = 0;
  if (rest->size() < 2) return false;
  const auto [stop, code] = std::from_chars(rest->data(), rest->data() + 2, value, 16);
  if (code != std::errc{} || stop != rest->data() + 2) return false;
  rest->remove_prefix(2);
  *document += static_cast<char>(value);
  return true;
}

// What a backslash in front of *rest stands for.
bool TakeEscape(std::string_view *rest, std::string *document) {
  if (rest->empty()) return false;
  const char c = rest->front();
  rest->remove_prefix(1);
  switch (c) {
    case 't': *document += '\t'; return true;
    case 'n': *document += '\n'; return true;
    case '\\': *document += '\\'; return true;
    case 'x': return TakeHex(rest, document);
    case '{': break;
    default: return false;
  }
  std::size_t count = 0;
  if (document->empty() || !TakeRun(rest, &count)) return false;
  document->append(count - 1, document->back());
  return true;
}

}  // namespace

std::string Check_Show(std::string_view document) {
  std::string line;
  while (!document.empty()) {
    const std::size_t run = std::min(document.find_first_not_of(document[0]), document.size());
    const std::string byte = Escaped(document[0]);
    if (run > kShortRun)
      line += byte + "\\{" + std::to_string(run) + "}";
    else
      for (std::size_t i = 0; i < run; ++i) line += byte;
    document.remove_prefix(run);
  }
  return line;
}

bool Check_Unshow(std::string_view line, std::string *document) {
  document->clear();
  while (!line.empty()) {
    const char c = line[0];
    line.remove_prefix(1);
    if (c != '\\')
      *document += c;
    else if (!TakeEscape(&line, document))
      return false;
  }
  return true;
}
