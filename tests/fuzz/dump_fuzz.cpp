// The dump, held against a plain one.
//
// Parts: the bytes; a title.
#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "debug/log.h"
#include "tests/fuzz/support/fuzz.h"

namespace {

constexpr std::size_t kLongestDump = 4096;  // of a command; more only takes time

std::string logged;

void Collect(const char *text) { logged += Fuzz_Words(text); }

std::string Title(const Bytes &bytes, std::uint32_t address, const char *title) {
  if (title == nullptr) {
    char line[64];
    std::snprintf(line, sizeof line, "HEXDUMP @ %08x for %zu bytes\n", address, bytes.size());
    return line;
  }
  return std::string("HEXDUMP of ") + title + "\n";
}

std::string Line(std::string hex, const std::string &chars) {
  hex.resize(std::max<std::size_t>(hex.size(), 47), ' ');
  return hex + chars + "\n";
}

std::string Dump(const Bytes &bytes, std::uint32_t address) {
  std::string text, hex, chars;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i % 4 == 0) hex += ' ';
    if (i % 16 == 0) {
      text += Line(hex, chars);
      char place[16];
      std::snprintf(place, sizeof place, "%08x: ", address + static_cast<std::uint32_t>(i));
      hex = place;
      chars.clear();
    }
    char digits[16];
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(int{bytes[i]}));
    hex += digits;
    chars += ' ';
    if (bytes[i] != '\0') chars += bytes[i];
  }
  return bytes.empty() ? "" : text + Line(hex, chars);
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  const std::string whole = input[0].Whole().substr(0, kLongestDump);
  const Bytes bytes(whole.begin(), whole.end());
  const bool titled = input.parts.size() > 1;
  const Bytes title = Fuzz_Terminated(Fuzz_UpToNul(input[1].Whole()));
  const char *shown_title = titled ? title.data() : nullptr;
  const auto address = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(bytes.data()));

  logged.clear();
  Fuzz_OnMessage = Collect;
  HEXDUMP(nullptr, kInfo, bytes.data(), static_cast<int>(bytes.size()), shown_title);
  Fuzz_OnMessage = nullptr;

  if (Debug_Level > kInfo) {
    FUZZ_CHECK(logged.empty());
    return whole;
  }
  const std::string dump = Dump(bytes, address);
  FUZZ_CHECK(logged.ends_with(dump));
  const std::string first = logged.substr(0, logged.size() - dump.size());
  const std::string expected = Title(bytes, address, shown_title);
  if (first != expected) {  // cut, and its line ended
    FUZZ_CHECK(first.size() < expected.size() && first.ends_with('\n'));
    FUZZ_CHECK(expected.starts_with(first.substr(0, first.size() - 1)));
  }
  return whole;
}
