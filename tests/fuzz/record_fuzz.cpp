// Framed reads: where a message ends does not depend on where the segments do.
//
// Parts: the stream; the capacity, two bytes.
#include <algorithm>

#include "net/sock.h"
#include "protocol/record.h"
#include "tests/fuzz/support/wire.h"

namespace {

constexpr int kRecords = 100;  // more show nothing new

// A message as it must be read: a line, or less at the end of the stream, or what fills the buffer.
int Expect(std::string_view stream, std::size_t capacity, std::string_view *message) {
  const std::size_t end = stream.find('\n');
  *message = stream.substr(0, end == std::string_view::npos ? end : end + 1);
  if (message->size() > capacity || (end == std::string_view::npos && message->size() == capacity))
    return kRecordFailed;
  return end == std::string_view::npos ? kRecordOver : kRecordRead;
}

void CheckRecord(const Bytes &buf, int length, int capacity, const char *rest) {
  FUZZ_CHECK(length > 0 && length <= capacity);
  FUZZ_CHECK(buf[static_cast<std::size_t>(length)] == '\0');
  FUZZ_CHECK(buf[static_cast<std::size_t>(length) - 1] == '\n');
  FUZZ_CHECK(rest == nullptr || (rest >= buf.data() && rest < buf.data() + length));
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  const std::string whole = input[0].Whole();
  const bool has_nul = whole.find('\0') != std::string::npos;
  const int capacity = std::max(Fuzz_Number(input[1].Whole(), 0, 2, kMessageSize), 1);
  Wire wire(input[0]);
  Bytes buf(static_cast<std::size_t>(capacity) + 1, '\x55');

  std::string_view left = whole;
  std::string shown;
  for (int i = 0; i < kRecords; ++i) {
    CmdHdr hdr = {};
    char *rest = nullptr;
    int length = capacity;
    const int result = Util_ReadInt(wire.Socket(), buf.data(), &length, &hdr, &rest);
    shown += std::to_string(result);

    std::string_view message;
    const int expected = Expect(left, static_cast<std::size_t>(capacity), &message);
    if (!has_nul) FUZZ_CHECK(result == expected);
    if (result != kRecordRead) break;

    CheckRecord(buf, length, capacity, rest);
    if (!has_nul) FUZZ_CHECK(static_cast<std::size_t>(length) == message.size());
    const std::string_view got(buf.data(), static_cast<std::size_t>(length));
    FUZZ_CHECK(left.starts_with(got));
    left.remove_prefix(got.size());
    shown += std::string(hdr.Command) + (rest != nullptr ? rest : "");
  }
  return shown;
}
