// The reader of one command: lines, overlong lines, NULs, and clients that leave.
#include <optional>

#include "core/loop.h"
#include "tests/fuzz/support/wire.h"

namespace {

std::optional<std::string> command;
int handed_listener = 0;

void Handle(int listener, int, const char *text) {
  FUZZ_CHECK(!command.has_value());
  handed_listener = listener;
  command = text;  // the reader's own array: the sanitizer sees a missing end
}

// The first line that fits, behind those that do not; empty where the stream ends first.
std::string_view Expect(std::string_view stream) {
  bool overlong = false;
  for (;;) {
    const std::size_t end = stream.substr(0, kCommandSize).find('\n');
    if (end == std::string_view::npos) {
      if (stream.size() < kCommandSize) return {};
      stream.remove_prefix(kCommandSize);
      overlong = true;
      continue;
    }
    const std::string_view line = stream.substr(0, end + 1);
    if (!overlong) return line;
    stream.remove_prefix(line.size());
    overlong = false;
  }
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  const std::string whole = input[0].Whole();
  const bool has_nul = whole.find('\0') != std::string::npos;
  Wire wire(input[0]);
  command.reset();
  MainCore_TCPRead(-1, wire.Socket(), Handle);
  if (!command.has_value()) {
    FUZZ_CHECK(wire.IsReset() && wire.Socket() < 0);  // it alone ends without a command
    return "reset";
  }
  FUZZ_CHECK(handed_listener == -1);
  FUZZ_CHECK(command->size() <= kCommandSize);
  FUZZ_CHECK(whole.find(*command) != std::string::npos);
  if (!has_nul) {
    const std::string_view expected = Expect(whole);
    FUZZ_CHECK(*command == expected);
    if (!expected.empty()) {  // not a byte behind the line is taken
      const std::string left = wire.NotTaken();
      FUZZ_CHECK(std::string_view(whole).ends_with(std::string(expected) + left));
    }
  }
  return *command;
}
