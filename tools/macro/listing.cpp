#include <algorithm>
#include <cstdio>

#include "tools/macro/asm.h"

namespace {

constexpr std::size_t kBytesPerRow = 8;

// "  OFFSET  BYTES" in columns; without bytes, blanks.
std::string Bytes(std::size_t offset, std::string_view bytes) {
  char number[24] = "";
  if (!bytes.empty()) std::snprintf(number, sizeof number, "%zu", offset);
  std::string row(8 - std::min<std::size_t>(std::char_traits<char>::length(number), 8), ' ');
  row.append(number).append("  ");
  for (const char c : bytes) {
    char hex[8];
    std::snprintf(hex, sizeof hex, "%02x ", static_cast<unsigned>(static_cast<unsigned char>(c)));
    row += hex;
  }
  row.resize(10 + 3 * kBytesPerRow, ' ');
  return row;
}

}  // namespace

std::string Asm_Listing(const AsmProgram &program) {
  const std::string_view code = program.code;
  std::string out;
  for (std::size_t i = 0; i < program.lines.size(); ++i) {
    const AsmLine &line = program.lines[i];
    const std::size_t end =
        i + 1 < program.lines.size() ? program.lines[i + 1].offset : code.size();
    std::string_view bytes = code.substr(line.offset, end - line.offset);
    if (i == 0 || program.lines[i - 1].file.data() != line.file.data())
      out.append("; ").append(line.file).append("\n");
    std::string_view text = line.text;
    if (text.ends_with('\r')) text.remove_suffix(1);
    std::size_t offset = line.offset;
    char number[16];
    std::snprintf(number, sizeof number, "%5d  ", line.line);
    out.append(Bytes(offset, bytes.substr(0, kBytesPerRow)))
        .append(number)
        .append(text)
        .append("\n");
    while (bytes.size() > kBytesPerRow) {
      bytes.remove_prefix(kBytesPerRow);
      offset += kBytesPerRow;
      std::string row = Bytes(offset, bytes.substr(0, kBytesPerRow));
      row.resize(row.find_last_not_of(' ') + 1);
      out.append(row).append("\n");
    }
  }
  return out;
}
