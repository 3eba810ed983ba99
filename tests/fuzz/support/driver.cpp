#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "debug/log.h"
#include "tests/fuzz/support/fuzz.h"

void (*Fuzz_OnMessage)(const char *text) = nullptr;

namespace {

constexpr std::size_t kLargestPart = 65536;
constexpr std::size_t kRepeat = 64;

constexpr std::uint8_t kPartEnds = 0xfc;
constexpr std::uint8_t kLiteral = 0xfd;
constexpr std::uint8_t kRepeated = 0xfe;
constexpr std::uint8_t kSegmentEnds = 0xff;

const Part kNoPart = {{""}};

void Repeat(std::string *segment, std::size_t times) {
  if (!segment->empty()) segment->append(times, segment->back());
}

Input Decode(const std::uint8_t *data, std::size_t size) {
  Input input = {{kNoPart}};
  std::size_t used = 0;  // of the part
  for (std::size_t i = 0; i < size && used < kLargestPart; ++i) {
    std::string &segment = input.parts.back().segments.back();
    const std::size_t before = segment.size();
    const bool has_operand = i + 1 < size;
    if (data[i] == kPartEnds) {
      input.parts.push_back(kNoPart);
      used = 0;
      continue;
    }
    if (data[i] == kSegmentEnds) {
      input.parts.back().segments.emplace_back();
      continue;
    }
    if (data[i] == kRepeated && has_operand)
      Repeat(&segment, kRepeat * data[++i]);
    else if (data[i] == kLiteral && has_operand)
      segment.push_back(static_cast<char>(data[++i]));
    else
      segment.push_back(static_cast<char>(data[i]));
    used += segment.size() - before;
  }
  return input;
}

// The log's destination: drops the text, once it is seen to be one.
int Sink(const char *text, int len) {
  FUZZ_CHECK(len > 0 && len <= kLogTextSize + 1);
  FUZZ_CHECK(std::strlen(text) == static_cast<std::size_t>(len) - 1);
  if (Fuzz_OnMessage != nullptr) Fuzz_OnMessage(text);
  return 1;
}

}  // namespace

std::string Part::Whole() const {
  std::string whole;
  for (const std::string &segment : segments) whole += segment;
  return whole;
}

const Part &Input::operator[](std::size_t index) const {
  return index < parts.size() ? parts[index] : kNoPart;
}

std::string_view Fuzz_Words(const char *text) {
  std::string_view words = text;
  if (!words.starts_with("------")) return words;  // a message that goes on with the one before
  words.remove_prefix(std::min(words.find('\n'), words.size() - 1) + 1);
  words.remove_prefix(std::min(words.find('\n'), words.size() - 1) + 1);
  return words;
}

int Fuzz_Number(std::string_view text, std::size_t offset, std::size_t size, int fallback) {
  if (text.size() < offset + size) return fallback;
  std::uint32_t value = 0;
  for (std::size_t i = size; i > 0; --i)
    value = value << 8 | static_cast<std::uint8_t>(text[offset + i - 1]);
  return static_cast<int>(value);
}

Bytes Fuzz_Terminated(std::string_view text) {
  Bytes bytes(text.size() + 1);
  std::copy(text.begin(), text.end(), bytes.begin());
  return bytes;
}

std::string Fuzz_UpToNul(std::string_view text) {
  return std::string(text.substr(0, text.find('\0')));
}

void Fuzz_Fail(const char *what, const char *file, int line) {
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, what);
  std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::signal(SIGPIPE, SIG_IGN);
  Debug_SetSend(Sink);
  const Input input = Decode(data, size);
  SetLevel(kInfo);  // every text is made
  const std::string shown = Fuzz_Run(input);
  SetLevel(kWarning);
  FUZZ_CHECK(Fuzz_Run(input) == shown);
  if (std::getenv("KORVO_FUZZ_SHOW") != nullptr) {
    std::fwrite(shown.data(), 1, shown.size(), stdout);
    std::fputc('\n', stdout);
  }
  return 0;
}
