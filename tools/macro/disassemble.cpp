#include <algorithm>
#include <cstdint>
#include <optional>

#include "tools/macro/asm.h"
#include "tools/macro/form.h"

namespace {

constexpr std::size_t kCommentColumn = 32;
constexpr std::size_t kBytesPerLine = 16;

unsigned char ByteOf(char c) { return static_cast<unsigned char>(c); }

std::string Hex(char c) {
  constexpr char kDigits[] = "0123456789abcdef";
  return {kDigits[ByteOf(c) >> 4], kDigits[ByteOf(c) & 15]};
}

std::string Escaped(char c) {
  switch (c) {
    case '\n': return "\\n";
    case '\t': return "\\t";
    case '\r': return "\\r";
    case '"': return "\\\"";
    case '\\': return "\\\\";
    default: return c >= ' ' && c <= '~' ? std::string(1, c) : "\\x" + Hex(c);
  }
}

std::string Quoted(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) out += Escaped(c);
  return out += '"';
}

// One line of the listing.
void AddLine(std::string *out, std::string text, std::size_t offset, std::string_view note) {
  text.resize(std::max(text.size() + 1, kCommentColumn), ' ');
  out->append(text).append("; ").append(std::to_string(offset));
  if (!note.empty()) out->append(": ").append(note);
  *out += '\n';
}

void AddBytes(std::string *out, std::string_view bytes, std::size_t offset, std::string_view note) {
  for (std::size_t at = 0; at < bytes.size(); at += kBytesPerLine) {
    std::string text = "byte";
    for (const char c : bytes.substr(at, kBytesPerLine)) text += " 0x" + Hex(c);
    AddLine(out, text, offset + at, note);
    note = {};
  }
}

struct Decoded {
  std::string text;  // the instruction, written out
  std::size_t size;  // its bytes
  bool beyond;       // an operand is larger than a run takes
};

std::optional<std::uint32_t> NumberAt(std::string_view code, std::size_t at, int width) {
  if (code.size() - at < static_cast<std::size_t>(width)) return std::nullopt;
  std::uint32_t value = 0;
  for (int i = 0; i < width; ++i)
    value |= std::uint32_t{ByteOf(code[at + static_cast<std::size_t>(i)])} << (8 * i);
  return value;
}

// Nothing: an operand runs past the end of the code.
std::optional<Decoded> Decode(const Form &form, std::string_view code) {
  Decoded decoded = {std::string(form.mnemonic), 1, false};
  for (const Operand *operand : form.operands) {
    if (operand == nullptr) break;
    const auto number = NumberAt(code, decoded.size, operand->width);
    if (!number) return std::nullopt;
    decoded.size += static_cast<std::size_t>(operand->width);
    decoded.beyond |= *number > operand->most;
    if (!operand->quoted) {
      decoded.text += ' ' + std::to_string(*number);
      continue;
    }
    if (*number > code.size() - decoded.size) return std::nullopt;
    decoded.text += ' ' + Quoted(code.substr(decoded.size, *number));
    decoded.size += *number;
  }
  return decoded;
}

std::string UndefinedNote(unsigned char op) {
  return "undefined op-code " + std::to_string(op) + ", which a run repeats for ever";
}

// Adds what stands at the start of code, which is at the offset, and returns its size.
std::size_t AddInstruction(std::string *out, std::string_view code, std::size_t offset) {
  const unsigned char op = ByteOf(code[0]);
  const Form *form = Form_Of(op);
  if (form == nullptr) {
    AddBytes(out, code.substr(0, 1), offset, UndefinedNote(op));
    return 1;
  }
  const auto decoded = Decode(*form, code);
  if (!decoded) {
    AddBytes(out, code, offset, "malformed, an operand runs past the end");
    return code.size();
  }
  if (decoded->beyond) {
    const std::string note = std::string("malformed, expected ") + form->operands[0]->expected;
    AddBytes(out, code.substr(0, decoded->size), offset, note);
  } else {
    AddLine(out, decoded->text, offset, {});
  }
  return decoded->size;
}

}  // namespace

std::string Asm_Disassemble(std::string_view code) {
  std::string out;
  std::size_t at = 0;
  while (at < code.size()) {
    const bool end = code[at] == kOpEnd;
    at += AddInstruction(&out, code.substr(at), at);
    if (end) break;
  }
  AddBytes(&out, code.substr(at), at, "behind the end, never run");
  return out;
}

std::vector<std::size_t> Asm_Undefined(std::string_view code) {
  std::vector<std::size_t> offsets;
  std::string unused;
  for (std::size_t at = 0; at < code.size() && code[at] != kOpEnd; unused.clear()) {
    if (Form_Of(ByteOf(code[at])) == nullptr) offsets.push_back(at);
    at += AddInstruction(&unused, code.substr(at), at);
  }
  return offsets;
}
