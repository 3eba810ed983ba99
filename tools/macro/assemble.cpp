#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>

#include "tools/macro/asm.h"
#include "tools/macro/form.h"

namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::string_view kWordEnds = " \t\r;\"";
constexpr std::string_view kEscapes = "one of \\n \\t \\r \\\" \\\\ \\xHH";
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
constexpr std::size_t kQuoteSize = 40;  // of what an error shows from the source

// What is left of one line, and what is wrong with it.
struct Line {
  std::string_view rest;
  std::string wrong;  // empty: nothing
};

void SkipBlanks(Line *line) {
  line->rest.remove_prefix(std::min(line->rest.find_first_not_of(kBlanks), line->rest.size()));
}

bool AtEnd(const Line &line) { return line.rest.empty() || line.rest[0] == ';'; }

std::string_view TakeWord(Line *line) {
  const std::string_view word = line->rest.substr(0, line->rest.find_first_of(kWordEnds));
  line->rest.remove_prefix(word.size());
  return word;
}

void Expected(Line *line, std::string_view what, std::string_view found) {
  line->wrong.append("expected ").append(what).append(", found ");
  if (found.empty())
    line->wrong += "the end of the line";
  else
    line->wrong.append("'").append(found.substr(0, kQuoteSize)).append("'");
}

void ExpectedHere(Line *line, std::string_view what) {
  Expected(line, what, AtEnd(*line) ? std::string_view{} : line->rest);
}

std::optional<std::uint32_t> ToNumber(std::string_view word, int base) {
  std::uint32_t value = 0;
  const char *end = word.data() + word.size();
  const auto [stop, code] = std::from_chars(word.data(), end, value, base);
  if (code != std::errc{} || stop != end) return std::nullopt;
  return value;
}

std::optional<std::uint32_t> TakeNumber(Line *line, std::uint32_t most, std::string_view expected) {
  const std::string_view before = line->rest;
  const std::string_view word = TakeWord(line);
  const bool hex = word.starts_with("0x");
  const auto value = ToNumber(word.substr(hex ? 2 : 0), hex ? 16 : 10);
  if (value && *value <= most) return value;
  line->rest = before;
  ExpectedHere(line, expected);
  return std::nullopt;
}

// The byte that an escape stands for; rest is what follows the backslash.
std::optional<char> TakeEscape(std::string_view *rest) {
  constexpr std::string_view kLetters = "ntr\"\\";
  constexpr std::string_view kBytes = "\n\t\r\"\\";
  if (rest->empty()) return std::nullopt;
  const std::size_t letter = kLetters.find((*rest)[0]);
  if (letter != std::string_view::npos) {
    rest->remove_prefix(1);
    return kBytes[letter];
  }
  if ((*rest)[0] != 'x' || rest->size() < 3) return std::nullopt;
  const auto value = ToNumber(rest->substr(1, 2), 16);
  if (!value) return std::nullopt;
  rest->remove_prefix(3);
  return static_cast<char>(*value);
}

std::optional<std::string> TakeQuoted(Line *line, std::string_view expected) {
  if (!line->rest.starts_with('"')) {
    ExpectedHere(line, expected);
    return std::nullopt;
  }
  std::string_view rest = line->rest.substr(1);
  std::string text;
  while (!rest.empty() && rest[0] != '"') {
    const char c = rest[0];
    rest.remove_prefix(1);
    if (c != '\\') {
      text += c;
      continue;
    }
    const auto byte = TakeEscape(&rest);
    if (!byte) {
      Expected(line, kEscapes, std::string("\\").append(rest));
      return std::nullopt;
    }
    text += *byte;
  }
  if (rest.empty()) {
    Expected(line, "a quote at the end of the text", {});
    return std::nullopt;
  }
  line->rest = rest.substr(1);
  return text;
}

void AddNumber(std::string *code, std::uint32_t value, int width) {
  for (int i = 0; i < width; ++i) *code += static_cast<char>(value >> (8 * i) & 0xff);
}

void AssembleOperand(Line *line, const Operand &operand, std::string *code) {
  if (!operand.quoted) {
    const auto number = TakeNumber(line, operand.most, operand.expected);
    if (number) AddNumber(code, *number, operand.width);
    return;
  }
  const auto text = TakeQuoted(line, operand.expected);
  if (!text) return;
  if (text->size() > operand.most)
    return Expected(line, operand.expected, std::to_string(text->size()) + " bytes");
  AddNumber(code, static_cast<std::uint32_t>(text->size()), operand.width);
  *code += *text;
}

void AssembleBytes(Line *line, std::string *code) {
  do {
    const auto value = TakeNumber(line, 255, "a byte from 0 to 255 or 0x00 to 0xff");
    if (!value) return;
    AddNumber(code, *value, 1);
    SkipBlanks(line);
  } while (!AtEnd(*line));
}

void AssembleInstruction(Line *line, std::string *code) {
  const std::string_view before = line->rest;
  const std::string_view word = TakeWord(line);
  SkipBlanks(line);
  if (word == "byte") return AssembleBytes(line, code);
  const Form *form = Form_Of(word);
  if (form == nullptr) return Expected(line, "an instruction", word.empty() ? before : word);
  AddNumber(code, static_cast<std::uint32_t>(form->op), 1);
  for (const Operand *operand : form->operands) {
    if (operand == nullptr || !line->wrong.empty()) break;
    AssembleOperand(line, *operand, code);
    SkipBlanks(line);
  }
  if (line->wrong.empty() && !AtEnd(*line)) ExpectedHere(line, "the end of the line");
}

void Add(AsmErrors *errors, const AsmError &error) {
  if (errors->first.size() < kAsmErrors)
    errors->first.push_back(error);
  else
    ++errors->more;
}

// Where the code of a line begins.
struct Start {
  std::size_t offset;
  int line;
};

// What the lines of a source give.
struct Assembly {
  std::string *code;
  std::vector<Start> starts;  // of the lines before the first fault
  std::size_t right = 0;      // bytes of their code
  AsmErrors faults;
};

Line TakeLine(std::string_view *source) {
  const std::size_t size = std::min(source->find('\n'), source->size());
  Line line = {source->substr(0, size), {}};
  source->remove_prefix(std::min(size + 1, source->size()));
  SkipBlanks(&line);
  return line;
}

// Goes on behind a line with a fault, but not behind the one that makes the macro too large.
void AssembleLines(std::string_view source, Assembly *assembly) {
  std::string *code = assembly->code;
  for (int number = 1; !source.empty() && code->size() <= kMacroLimit; ++number) {
    const std::size_t offset = code->size();
    Line line = TakeLine(&source);
    if (!AtEnd(line)) AssembleInstruction(&line, code);
    if (line.wrong.empty() && code->size() > kMacroLimit)
      Expected(&line, "a macro of at most 1048576 bytes", std::to_string(code->size()) + " bytes");
    if (!line.wrong.empty()) Add(&assembly->faults, {number, line.wrong});
    if (!assembly->faults.first.empty() || code->size() == offset) continue;
    assembly->starts.push_back({offset, number});
    assembly->right = code->size();
  }
}

// What a byte means can be told as far as every line is right.
void RefuseUndefined(const Assembly &assembly, AsmErrors *errors) {
  const std::string_view code = std::string_view(*assembly.code).substr(0, assembly.right);
  auto start = assembly.starts.begin();
  for (const std::size_t offset : Asm_Undefined(code)) {
    while (start + 1 != assembly.starts.end() && start[1].offset <= offset) ++start;
    const std::string op = std::to_string(static_cast<unsigned char>(code[offset]));
    Add(errors, {start->line, "expected an op-code that exists, found '" + op +
                                  "', which a run repeats for ever; --allow-undefined takes it"});
  }
}

}  // namespace

bool Asm_Assemble(std::string_view source, bool allow_undefined, std::string *code,
                  AsmErrors *errors) {
  code->clear();
  *errors = {};
  if (source.starts_with(kByteOrderMark)) source.remove_prefix(kByteOrderMark.size());
  Assembly assembly = {code, {}, 0, {}};
  AssembleLines(source, &assembly);
  if (!allow_undefined) RefuseUndefined(assembly, errors);
  for (const AsmError &fault : assembly.faults.first) Add(errors, fault);
  errors->more += assembly.faults.more;
  return errors->first.empty();
}
