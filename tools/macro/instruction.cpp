#include "tools/macro/assembly.h"

namespace {

constexpr std::size_t kShortText = 255;

void AddNumber(std::string *code, std::uint32_t value, int width) {
  for (int i = 0; i < width; ++i) *code += static_cast<char>(value >> (8 * i) & 0xff);
}

// The constant that stands there as an operand, behind it; null: none does.
const Constant *TakeConstant(Assembly *assembly, Line *line, bool is_text) {
  Line ahead = *line;
  const auto found = assembly->constants.find(Line_TakeWord(&ahead));
  if (found == assembly->constants.end() || found->second.text.has_value() != is_text)
    return nullptr;
  *line = ahead;
  return &found->second;
}

void TakeOperand(Assembly *assembly, Line *line, const Operand &operand) {
  std::string *code = &assembly->program->code;
  if (!operand.quoted) {
    const auto number = Assembly_TakeNumber(assembly, line, operand);
    if (number) AddNumber(code, *number, operand.width);
    return;
  }
  const Line before = *line;
  const auto text = Assembly_TakeText(assembly, line, operand.expected);
  if (!text) return;
  if (text->size() > operand.most) {
    line->rest = before.rest;
    return Line_Expected(line, operand.expected, std::to_string(text->size()) + " bytes");
  }
  AddNumber(code, static_cast<std::uint32_t>(text->size()), operand.width);
  *code += *text;
}

}  // namespace

std::optional<std::uint32_t> Assembly_TakeNumber(Assembly *assembly, Line *line,
                                                 const Operand &operand) {
  const Line before = *line;
  const Constant *constant = TakeConstant(assembly, line, false);
  if (constant == nullptr) return Line_TakeNumber(line, operand.most, operand.expected);
  if (constant->number <= operand.most) return constant->number;
  *line = before;
  Line_Expected(line, operand.expected, std::to_string(constant->number));
  return std::nullopt;
}

std::optional<std::string> Assembly_TakeText(Assembly *assembly, Line *line,
                                             std::string_view expected) {
  const Constant *constant = TakeConstant(assembly, line, true);
  return constant != nullptr ? constant->text : Line_TakeQuoted(line, expected);
}

void Assembly_Form(Assembly *assembly, Line *line, const Form &form) {
  AddNumber(&assembly->program->code, static_cast<std::uint32_t>(form.op), 1);
  for (const Operand *operand : form.operands) {
    if (operand == nullptr || !line->wrong.empty()) break;
    TakeOperand(assembly, line, *operand);
    Line_SkipBlanks(line);
  }
  Assembly_ExpectEnd(line);
}

void Assembly_Bytes(Assembly *assembly, Line *line) {
  do {
    const auto value = Line_TakeNumber(line, 255, "a byte from 0 to 255 or 0x00 to 0xff");
    if (!value) return;
    AddNumber(&assembly->program->code, *value, 1);
    Line_SkipBlanks(line);
  } while (!Line_AtEnd(*line));
}

void Assembly_Const(Assembly *assembly, Line *line) {
  constexpr std::string_view kFirst = "ABCDEFGHIJKLMNOPQRSTUVWXYZ_";
  const Line before = *line;
  const std::string name(Line_TakeWord(line));
  if (name.empty() || kFirst.find(name[0]) == std::string_view::npos) {
    line->rest = before.rest;
    return Line_ExpectedHere(line, "the name of a constant, with a capital in front");
  }
  Line_SkipBlanks(line);
  Constant constant;
  constexpr const char *kValue = "a text in quotes or a number";
  if (line->rest.starts_with('"')) {
    constant.text = Line_TakeQuoted(line, kValue);
  } else {
    const auto number = Line_TakeNumber(line, UINT32_MAX, kValue);
    if (number) constant.number = *number;
  }
  Line_SkipBlanks(line);
  Assembly_ExpectEnd(line);
  if (!line->wrong.empty()) return;
  const auto [at, is_new] = assembly->constants.emplace(name, constant);
  if (is_new || (at->second.text == constant.text && at->second.number == constant.number)) return;
  line->rest = before.rest;
  Line_Expected(line, "a constant that has no other value yet", name);
}

void Assembly_EmitText(std::string *code, std::string_view text) {
  if (text.empty()) return;
  const bool is_short = text.size() <= kShortText;
  AddNumber(code, is_short ? kOpText8 : kOpText32, 1);
  AddNumber(code, static_cast<std::uint32_t>(text.size()), is_short ? 1 : 4);
  code->append(text);
}

void Assembly_EmitValue(std::string *code, std::string_view name) {
  AddNumber(code, kOpValue8, 1);
  AddNumber(code, static_cast<std::uint32_t>(name.size()), 1);
  code->append(name);
}

void Assembly_EmitValueSkip(std::string *code, std::uint32_t skip, std::string_view name) {
  AddNumber(code, kOpValueSkip, 1);
  AddNumber(code, skip, 1);
  AddNumber(code, static_cast<std::uint32_t>(name.size()), 1);
  code->append(name);
}
