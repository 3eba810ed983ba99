#include "tools/query/answer.h"

#include <algorithm>

namespace {

constexpr std::string_view kErrorLine = "\t@COMMAND=ERROR\t";

// A control character of one byte, or the second byte of one of those that UTF-8 writes in two.
bool IsControl(unsigned char c, unsigned char before) {
  if (c < 0x20) return c != '\t' && c != '\n';
  return c == 0x7f || (c >= 0x80 && c < 0xa0 && before == 0xc2);
}

}  // namespace

void Answer_Add(Answer *answer, std::string_view bytes) {
  if (bytes.empty()) return;
  answer->size += bytes.size();
  answer->last = bytes.back();
  answer->unfinished += bytes;
  answer->error |= answer->unfinished.find(kErrorLine) != std::string::npos;
  const std::size_t kept = std::min(answer->unfinished.size(), kErrorLine.size() - 1);
  answer->unfinished.erase(0, answer->unfinished.size() - kept);
}

std::string Answer_Readable(std::string_view bytes, char last) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (IsControl(byte, static_cast<unsigned char>(last)))
      out.append("\\x").append({kDigits[byte >> 4], kDigits[byte & 15]});
    else
      out += c;
    last = c;
  }
  return out;
}
