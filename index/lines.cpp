#include "index/lines.h"

namespace {

constexpr std::size_t kBlock = 65536;
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

std::string_view Held(const Lines &lines) {
  return std::string_view(lines.buffer).substr(lines.begin, lines.end - lines.begin);
}

// Reads behind what is held; the result is that of read.
std::ptrdiff_t ReadMore(Lines *lines) {
  if (lines->begin == lines->end) lines->begin = lines->end = 0;
  if (lines->buffer.size() - lines->end < kBlock && lines->begin > 0) {
    lines->buffer.erase(0, lines->begin);
    lines->end -= lines->begin;
    lines->begin = 0;
  }
  if (lines->buffer.size() - lines->end < kBlock)
    lines->buffer.resize(2 * lines->buffer.size() + kBlock);
  const std::ptrdiff_t got = lines->read(lines->buffer.data() + lines->end, kBlock);
  if (got > 0) lines->end += static_cast<std::size_t>(got);
  return got;
}

// Drops what is left of a line that was too long.
LineResult SkipLine(Lines *lines) {
  for (;;) {
    const std::size_t newline = Held(*lines).find('\n');
    if (newline != std::string_view::npos) {
      lines->begin += newline + 1;
      lines->in_long_line = false;
      return LineResult::kLine;
    }
    lines->begin = lines->end;
    const std::ptrdiff_t got = ReadMore(lines);
    if (got <= 0) return got < 0 ? LineResult::kFailed : LineResult::kEnd;
  }
}

LineResult Take(Lines *lines, std::size_t size, std::size_t newline, std::string_view *line) {
  *line = Held(*lines).substr(0, size);
  lines->begin += size + newline;
  ++lines->number;
  if (lines->number == 1 && line->starts_with(kByteOrderMark))
    line->remove_prefix(kByteOrderMark.size());
  return LineResult::kLine;
}

}  // namespace

LineResult Lines_Next(Lines *lines, std::size_t most, std::string_view *line) {
  if (lines->in_long_line) {
    const LineResult skipped = SkipLine(lines);
    if (skipped != LineResult::kLine) return skipped;
  }
  for (std::size_t seen = 0;;) {
    const std::string_view held = Held(*lines);
    const std::size_t newline = held.find('\n', seen);
    if (newline == std::string_view::npos ? held.size() > most : newline > most) {
      lines->in_long_line = true;
      ++lines->number;
      return LineResult::kTooLong;
    }
    if (newline != std::string_view::npos) return Take(lines, newline, 1, line);
    seen = held.size();
    const std::ptrdiff_t got = ReadMore(lines);
    if (got < 0) return LineResult::kFailed;
    if (got == 0) return seen == 0 ? LineResult::kEnd : Take(lines, seen, 0, line);
  }
}
