// tools/macro/line.h: one line of a source, word by word.
#ifndef TOOLS_MACRO_LINE_H
#define TOOLS_MACRO_LINE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What is left of one line, and what is wrong with it.
struct Line {
  std::string_view whole;
  std::string_view rest;
  std::string wrong = {};  // empty: nothing
  std::size_t column = 1;  // of what is wrong
};

Line Line_Of(std::string_view text);

// At the end, or at a comment.
bool Line_AtEnd(const Line &line);

void Line_SkipBlanks(Line *line);
std::string_view Line_TakeWord(Line *line);

// Say that it is wrong: what was expected, and what was found, or what stands at the rest.
void Line_Expected(Line *line, std::string_view what, std::string_view found);
void Line_ExpectedHere(Line *line, std::string_view what);

// Nothing: the line is wrong, and says where.
std::optional<std::uint32_t> Line_TakeNumber(Line *line, std::uint32_t most,
                                             std::string_view expected);
std::optional<std::string> Line_TakeQuoted(Line *line, std::string_view expected);

#endif
