#include "tests/index/reading.h"

#include <algorithm>
#include <memory>

Lines LinesOf(std::string text, std::size_t piece) {
  const auto left = std::make_shared<std::string>(std::move(text));
  const auto at = std::make_shared<std::size_t>(0);
  return {[left, at, piece](char *bytes, std::size_t size) {
    const std::size_t count = std::min({size, piece, left->size() - *at});
    std::copy_n(left->data() + *at, count, bytes);
    *at += count;
    return static_cast<std::ptrdiff_t>(count);
  }};
}

ReadOutcome ReadNth(Format format, const std::string &text, int count) {
  Reader reader = {format, LinesOf(text, text.size() > 100000 ? 65536 : 7)};
  Fields fields;
  ReadOutcome outcome = {};
  for (int i = 0; i < count; ++i) outcome.result = Reader_Next(&reader, &fields);
  outcome.line = reader.line;
  outcome.expected = reader.expected;
  for (const Field &field : fields) outcome.fields += field.name + "=[" + field.value + "]";
  return outcome;
}

std::string FaultOf(Format format, const std::string &text, int count) {
  const ReadOutcome outcome = ReadNth(format, text, count);
  return std::to_string(outcome.line) + ": " + outcome.expected;
}
