// The search for a pair, held against a plain one, and the split.
//
// Parts: text; tag; occurrence, one byte; capacity of the pair, two; sizes of name and value, two
// each; delimiter, one.
#include <cstring>
#include <optional>

#include "protocol/pair.h"
#include "tests/fuzz/support/fuzz.h"

namespace {

constexpr std::size_t kLongestTag = 254;  // with a tab and "=" it fills the pattern

// The wanted pair; none where there is none that is ended.
std::optional<std::string> Expected(const std::string &text, const std::string &tag,
                                    int occurrence) {
  const std::string pattern = "\t" + tag + "=";
  std::size_t from = 0;
  for (int i = 0; i < occurrence; ++i) {
    from = text.find(pattern, from);
    if (from == std::string::npos) return std::nullopt;
    ++from;
  }
  const std::size_t end = text.find_first_of("\t\n\r", from);
  if (end == std::string::npos) return std::nullopt;
  return text.substr(from, end - from);
}

std::string Search(const std::string &whole, const std::string &tag_text, int occurrence,
                   int capacity) {
  const Bytes text = Fuzz_Terminated(whole);
  const Bytes tag = Fuzz_Terminated(tag_text);
  Bytes out(static_cast<std::size_t>(capacity) + 1, '\x55');
  int length = capacity;
  const int result = Util_Search4Pair(text.data(), out.data(), &length, tag.data(), occurrence);

  std::optional<std::string> expected;
  if (occurrence > 0 && tag_text.size() <= kLongestTag)
    expected = Expected(whole, tag_text, occurrence);
  const bool found = expected.has_value() && expected->size() <= static_cast<std::size_t>(capacity);
  FUZZ_CHECK(result == (found ? 1 : 0));
  if (!found) {
    FUZZ_CHECK(length == capacity);
    return "";
  }
  FUZZ_CHECK(length == static_cast<int>(expected->size()));
  FUZZ_CHECK(out[expected->size()] == '\0');
  FUZZ_CHECK(*expected == out.data());
  return *expected;
}

std::string Split(std::string_view whole, std::size_t name_size, std::size_t value_size,
                  char delimiter) {
  const Bytes pair(whole.begin(), whole.end());
  Bytes name(name_size, '\x55');
  Bytes value(value_size, '\x55');
  const int result = Util_SplitInto({pair.data(), pair.size()}, name.data(), name_size,
                                    value.data(), value_size, delimiter);
  const std::size_t at = whole.find(delimiter);
  if (at == std::string_view::npos) {
    FUZZ_CHECK(result == 0);
    return "";
  }
  const std::string_view before = whole.substr(0, at).substr(0, name_size - 1);
  const std::string_view behind = whole.substr(at + 1).substr(0, value_size - 1);
  FUZZ_CHECK(result == (before.size() + 1 + behind.size() == whole.size() ? 1 : 0));
  FUZZ_CHECK(std::memcmp(name.data(), before.data(), before.size()) == 0);
  FUZZ_CHECK(std::memcmp(value.data(), behind.data(), behind.size()) == 0);
  FUZZ_CHECK(name[before.size()] == '\0' && value[behind.size()] == '\0');  // also of a cut one
  return std::string(before) + '\0' + std::string(behind);
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  const std::string text = Fuzz_UpToNul(input[0].Whole());
  const std::string tag = Fuzz_UpToNul(input[1].Whole());
  const std::string numbers = input[2].Whole();
  const int occurrence = Fuzz_Number(numbers, 0, 1, 1) % 128;
  const int capacity = Fuzz_Number(numbers, 1, 2, 256);
  const auto name_size = static_cast<std::size_t>(Fuzz_Number(numbers, 3, 2, 64)) + 1;
  const auto value_size = static_cast<std::size_t>(Fuzz_Number(numbers, 5, 2, 256)) + 1;
  const char delimiter = numbers.size() > 7 ? numbers[7] : '=';

  const std::string pair = Search(text, tag, occurrence, capacity);
  return pair + '\n' + Split(pair, name_size, value_size, delimiter) + '\n' +
         Split(input[0].Whole(), name_size, value_size, delimiter);
}
