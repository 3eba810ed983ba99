#include "web/lines.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace {

constexpr const char *kBlanks = " \t\r";

}  // namespace

std::string_view Lines_Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view Lines_Word(std::string_view *text) {
  const std::string_view word = text->substr(0, text->find_first_of(kBlanks));
  *text = Lines_Trim(text->substr(word.size()));
  return word;
}

bool Lines_Read(const std::string &path, const LineFn &take, std::string *wrong) {
  std::ifstream file(path, std::ios::binary);
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    std::string_view value = Lines_Trim(line);
    if (value.empty() || value[0] == '#') continue;
    const std::string_view name = Lines_Word(&value);
    const std::string reason = take(name, value);
    if (reason.empty()) continue;
    *wrong =
        std::string(path).append(":").append(std::to_string(number)).append(": ").append(reason);
    return false;
  }
  if (file.eof()) return true;
  *wrong = path + ": cannot be read: " + std::strerror(errno);
  return false;
}
