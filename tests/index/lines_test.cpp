#include "index/lines.h"

#include <gtest/gtest.h>

#include "tests/index/reading.h"

namespace {

// Every line in brackets, and what else came; the same for every cutting of the input.
std::string Tell(const std::string &text, std::size_t most, std::size_t piece) {
  Lines lines = LinesOf(text, piece);
  std::string told;
  std::string_view line;
  for (;;) {
    const LineResult result = Lines_Next(&lines, most, &line);
    if (result == LineResult::kEnd) return told + " " + std::to_string(lines.number);
    told += result == LineResult::kLine ? "[" + std::string(line) + "]" : "!";
  }
}

}  // namespace

TEST(Lines, Next_IsTheSameForEveryCuttingOfTheInput) {
  for (const std::size_t piece : {1u, 2u, 3u, 5u, 100u}) {
    EXPECT_EQ(Tell("a\n\nbc\r\nd", 5, piece), "[a][][bc\r][d] 4") << piece;
    EXPECT_EQ(Tell("12345\n123456\n1\n1234567890", 5, piece), "[12345]![1]! 4") << piece;
    EXPECT_EQ(Tell("\xef\xbb\xbfx\n\xef\xbb\xbfy\n", 5, piece), "[x][\xef\xbb\xbfy] 2") << piece;
    EXPECT_EQ(Tell("", 5, piece), " 0") << piece;
    EXPECT_EQ(Tell(std::string("\0\n", 2), 5, piece), std::string("[\0] 1", 5)) << piece;
  }
}

TEST(Lines, Next_KeepsNoMoreThanALineThatIsTooLong) {
  std::size_t given = 0;
  Lines lines = {[&given](char *bytes, std::size_t size) {
    if (given >= (256u << 20)) return std::ptrdiff_t{0};
    std::fill_n(bytes, size, 'x');
    given += size;
    return static_cast<std::ptrdiff_t>(size);
  }};
  std::string_view line;
  EXPECT_EQ(Lines_Next(&lines, 1 << 20, &line), LineResult::kTooLong);
  EXPECT_LE(given, 2u << 20);
  EXPECT_EQ(Lines_Next(&lines, 1 << 20, &line), LineResult::kEnd);
  EXPECT_LE(lines.buffer.capacity(), 8u << 20);
}

TEST(Lines, Next_FailsWithItsInput) {
  int calls = 0;
  Lines lines = {[&calls](char *bytes, std::size_t) {
    *bytes = 'x';
    return std::ptrdiff_t{++calls == 2 ? -1 : 1};
  }};
  std::string_view line;
  EXPECT_EQ(Lines_Next(&lines, 2, &line), LineResult::kFailed);
  EXPECT_EQ(Lines_Next(&lines, 2, &line), LineResult::kTooLong);
  calls = 1;
  EXPECT_EQ(Lines_Next(&lines, 2, &line), LineResult::kFailed);
}
