#include "tools/macro/line.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::string_view kWordEnds = " \t\r;\"";
constexpr std::string_view kEscapes = "one of \\n \\t \\r \\\" \\\\ \\xHH";
constexpr std::size_t kQuoteSize = 40;  // of what an error shows from the source

std::optional<std::uint32_t> ToNumber(std::string_view word, int base) {
  std::uint32_t value = 0;
  const char *end = word.data() + word.size();
  const auto [stop, code] = std::from_chars(word.data(), end, value, base);
  if (code != std::errc{} || stop != end) return std::nullopt;
  return value;
}

// The byte that an escape stands for; rest is what follows the backslash.
std::optional<char> TakeEscape(std::string_view *rest) {
  constexpr std::string_view kLetters = "ntr\"\\";
  constexpr std::string_view kBytes = "\n\t\r\"\\";
  if (rest->empty()) return std::nullopt;
  const std::size_t letter = kLetters.find((*rest)[0]);
  if (letter != std::string_view::npos) {
    rest->remove_prefix(1);
    return kBytes[letter];
  }
  if ((*rest)[0] != 'x' || rest->size() < 3) return std::nullopt;
  const auto value = ToNumber(rest->substr(1, 2), 16);
  if (!value) return std::nullopt;
  rest->remove_prefix(3);
  return static_cast<char>(*value);
}

}  // namespace

Line Line_Of(std::string_view text) {
  Line line = {text, text};
  Line_SkipBlanks(&line);
  return line;
}

void Line_SkipBlanks(Line *line) {
  line->rest.remove_prefix(std::min(line->rest.find_first_not_of(kBlanks), line->rest.size()));
}

bool Line_AtEnd(const Line &line) { return line.rest.empty() || line.rest[0] == ';'; }

std::string_view Line_TakeWord(Line *line) {
  const std::string_view word = line->rest.substr(0, line->rest.find_first_of(kWordEnds));
  line->rest.remove_prefix(word.size());
  return word;
}

void Line_Expected(Line *line, std::string_view what, std::string_view found) {
  line->column = line->whole.size() - line->rest.size() + 1;
  line->wrong.append("expected ").append(what).append(", found ");
  if (found.empty())
    line->wrong += "the end of the line";
  else
    line->wrong.append("'").append(found.substr(0, kQuoteSize)).append("'");
}

void Line_ExpectedHere(Line *line, std::string_view what) {
  Line_Expected(line, what, Line_AtEnd(*line) ? std::string_view{} : line->rest);
}

std::optional<std::uint32_t> Line_TakeNumber(Line *line, std::uint32_t most,
                                             std::string_view expected) {
  const std::string_view before = line->rest;
  const std::string_view word = Line_TakeWord(line);
  const bool hex = word.starts_with("0x");
  const auto value = ToNumber(word.substr(hex ? 2 : 0), hex ? 16 : 10);
  if (value && *value <= most) return value;
  line->rest = before;
  Line_ExpectedHere(line, expected);
  return std::nullopt;
}

std::optional<std::string> Line_TakeQuoted(Line *line, std::string_view expected) {
  if (!line->rest.starts_with('"')) {
    Line_ExpectedHere(line, expected);
    return std::nullopt;
  }
  std::string_view rest = line->rest.substr(1);
  std::string text;
  while (!rest.empty() && rest[0] != '"') {
    const char c = rest[0];
    rest.remove_prefix(1);
    if (c != '\\') {
      text += c;
      continue;
    }
    const auto byte = TakeEscape(&rest);
    if (!byte) {
      line->rest = line->rest.substr(line->rest.size() - rest.size() - 1);
      Line_Expected(line, kEscapes, std::string("\\").append(rest));
      return std::nullopt;
    }
    text += *byte;
  }
  if (rest.empty()) {
    line->rest = rest;
    Line_Expected(line, "a quote at the end of the text", {});
    return std::nullopt;
  }
  line->rest = rest.substr(1);
  return text;
}
