#include "tools/macro/decode.h"

#include "tools/macro/form.h"

namespace {

// What is left of the code behind the op-code.
struct Rest {
  std::string_view bytes;
  bool cut = false;
  bool beyond = false;
};

std::string_view Take(Rest *rest, std::size_t count) {
  if (rest->cut || count > rest->bytes.size()) {
    rest->cut = true;
    return {};
  }
  const std::string_view taken = rest->bytes.substr(0, count);
  rest->bytes.remove_prefix(count);
  return taken;
}

std::uint32_t TakeNumber(Rest *rest, const Operand &operand) {
  std::uint32_t value = 0;
  int shift = 0;
  for (const char byte : Take(rest, static_cast<std::size_t>(operand.width))) {
    value |= std::uint32_t{static_cast<unsigned char>(byte)} << shift;
    shift += 8;
  }
  if (value > operand.most) rest->beyond = true;
  return value;
}

void TakeOperand(Rest *rest, const Operand &operand, Instruction *found, bool *has_text) {
  const std::uint32_t number = TakeNumber(rest, operand);
  if (!operand.quoted) {
    found->number = number;
    return;
  }
  (*has_text ? found->second : found->text) = Take(rest, number);
  *has_text = true;
}

}  // namespace

Decoding Decode_At(std::string_view code, std::size_t offset, Instruction *found) {
  *found = {};
  found->offset = offset;
  found->size = 1;
  found->op = static_cast<unsigned char>(code[offset]);
  const Form *form = Form_Of(static_cast<unsigned char>(found->op));
  if (form == nullptr) return Decoding::kUndefined;
  Rest rest = {code.substr(offset + 1)};
  bool has_text = false;
  for (const Operand *operand : form->operands)
    if (operand != nullptr) TakeOperand(&rest, *operand, found, &has_text);
  found->size = rest.cut ? code.size() - offset : code.size() - offset - rest.bytes.size();
  if (rest.cut) return Decoding::kCut;
  return rest.beyond ? Decoding::kBeyond : Decoding::kInstruction;
}

std::string_view Decode_Name(std::string_view name) {
  name = name.substr(0, name.find('\0'));
  if (name.starts_with('\t')) name.remove_prefix(1);
  return name;
}

std::string_view Decode_Field(std::string_view name) { return name.substr(0, name.find('=')); }

std::string Decode_Begin(std::string_view name) {
  const std::string_view field = Decode_Field(name);
  if (field.size() == name.size()) return "";
  std::string begin(name.substr(field.size() + 1));
  begin += '=';
  return begin.substr(0, begin.find('\t'));
}

bool Decode_LooksUp(int op) {
  switch (op) {
    case kOpValue8:
    case kOpValue32:
    case kOpValueSkip:
    case kOpNumber:
    case kOpFind:
    case kOpFetch:
    case kOpInsert:
    case kOpInsertSkip: return true;
    default: return false;
  }
}

std::size_t Decode_Skip(const Instruction &at) {
  return at.op == kOpValueSkip || at.op == kOpInsertSkip ? at.number : 0;
}

bool Decode_Writes(int op) {
  switch (op) {
    case kOpValue8:
    case kOpValue32:
    case kOpValueSkip:
    case kOpNumber:
    case kOpDocument:
    case kOpFetch: return true;
    default: return false;
  }
}

bool Decode_IsFetch(const Instruction &at) {
  return at.op == kOpFetch && at.text.data() != nullptr;  // an empty name has a place, too
}
