// index/lines.h: the lines of an input, with a bound.
#ifndef INDEX_LINES_H
#define INDEX_LINES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

enum class LineResult {
  kLine,
  kEnd,
  kTooLong,  // the next call goes on behind that line
  kFailed,   // the input cannot be read
};

struct Lines {
  // Gives at most size of the next bytes and their number: 0 at the end, below 0 when they cannot
  // be read.
  std::function<std::ptrdiff_t(char *bytes, std::size_t size)> read;
  std::int64_t number = 0;  // of the last line, from 1

  std::string buffer = {};         // what was read;
  std::size_t begin = 0, end = 0;  // of it, what no line has taken yet
  bool in_long_line = false;       // that is the rest of a line that was too long
};

// The next line, without its newline; a last one need not have any.  It has at most that many bytes
// and lasts until the next call.  A byte order mark at the start of the input is left out.
LineResult Lines_Next(Lines *lines, std::size_t most, std::string_view *line);

#endif
