#include "store/field.h"

#include <algorithm>

namespace {

// A prefix and the longest word that is indexed, 64 bytes, stay far below the longest term.
constexpr std::size_t kNameSize = 64;

// Not <cctype>: names are ASCII in every locale.
bool IsLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

bool IsNameCharacter(char c) {
  return IsLetter(c) || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
}

}  // namespace

bool Field_IsName(std::string_view name) {
  return !name.empty() && name.size() <= kNameSize && IsLetter(name.front()) &&
         std::all_of(name.begin(), name.end(), IsNameCharacter);
}

std::string Field_Prefix(std::string_view name) {
  std::string prefix = "X";  // the letter of prefixes that Xapian gives no meaning
  for (const char c : name) prefix += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return prefix + ':';
}

void Field_MakeLine(std::string *value, std::size_t from) {
  for (std::size_t i = from; i < value->size(); ++i) {
    const auto byte = static_cast<unsigned char>((*value)[i]);
    if (byte < 0x20 || byte == 0x7f) (*value)[i] = ' ';
  }
}

std::string_view Field_Cut(std::string_view text, std::size_t size) {
  if (text.size() <= size) return text;
  constexpr int kContinuations = 3;  // the most that a character has
  for (int i = 0; i < kContinuations && size > 0 && (text[size] & 0xC0) == 0x80; ++i) --size;
  return text.substr(0, size);
}
