#include <algorithm>

#include "tools/macro/asm.h"
#include "tools/macro/decode.h"
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

std::string Written(const Form &form, const Instruction &at) {
  std::string line(form.mnemonic);
  std::string_view text = at.text;
  for (const Operand *operand : form.operands) {
    if (operand == nullptr) break;
    line += ' ' + (operand->quoted ? Quoted(text) : std::to_string(at.number));
    if (operand->quoted) text = at.second;
  }
  return line;
}

std::string UndefinedNote(unsigned char op) {
  return "undefined op-code " + std::to_string(op) + ", which a run repeats for ever";
}

// Adds what stands at the offset, and returns its size.
std::size_t AddInstruction(std::string *out, std::string_view code, std::size_t offset) {
  Instruction at;
  const Decoding decoding = Decode_At(code, offset, &at);
  const std::string_view bytes = code.substr(offset, at.size);
  const auto op = static_cast<unsigned char>(at.op);
  switch (decoding) {
    case Decoding::kUndefined: AddBytes(out, bytes, offset, UndefinedNote(op)); break;
    case Decoding::kCut:
      AddBytes(out, bytes, offset, "malformed, an operand runs past the end");
      break;
    case Decoding::kBeyond:
      AddBytes(out, bytes, offset,
               std::string("malformed, expected ") + Form_Of(op)->operands[0]->expected);
      break;
    case Decoding::kInstruction: AddLine(out, Written(*Form_Of(op), at), offset, {}); break;
  }
  return at.size;
}

}  // namespace

std::string Asm_Disassemble(std::string_view code) {
  std::string out;
  std::size_t at = 0;
  while (at < code.size()) {
    const bool end = code[at] == kOpEnd;
    at += AddInstruction(&out, code, at);
    if (end) break;
  }
  AddBytes(&out, code.substr(at), at, "behind the end, never run");
  return out;
}

std::vector<std::size_t> Asm_Undefined(std::string_view code) {
  std::vector<std::size_t> offsets;
  Instruction at;
  for (std::size_t i = 0; i < code.size() && code[i] != kOpEnd; i += at.size)
    if (Decode_At(code, i, &at) == Decoding::kUndefined) offsets.push_back(i);
  return offsets;
}
