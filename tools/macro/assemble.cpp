#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>

#include "tools/macro/asm.h"
#include "tools/macro/form.h"
#include "tools/macro/line.h"

namespace {

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
constexpr int kDepthMost = 16;  // files that include each other
constexpr std::uint32_t kTimesMost = 256;
constexpr std::size_t kShortText = 255;
constexpr std::size_t kShownLine = 1024;  // of a line with a fault
constexpr std::string_view kBlockEnd = "}}";

// A constant is a text or a number.
struct Constant {
  std::optional<std::string> text;
  std::uint32_t number = 0;
};

// A line that stands by itself, and where.
struct Row {
  std::string_view text;
  int line;
};

// What is being assembled: one file, and in it perhaps a pass over lines that are repeated.
struct File {
  std::string_view rest;
  const AsmSource *from;
  int line = 0;  // that was taken last
};

struct Repeat {
  std::string name;
  std::uint32_t pass = 0;
  bool is_found = false;  // this pass has come to its field
};

struct Assembly {
  const AsmLoad *load;
  AsmProgram *program;
  std::map<std::string, Constant, std::less<>> constants;
  std::vector<File> files;  // the last one includes nothing at the moment
  std::optional<Repeat> repeat;
  bool in_page = false;  // the instruction stands in {{!...}}
  AsmErrors faults;
  std::size_t right = 0;  // bytes of the lines before the first fault
};

void Add(AsmErrors *errors, const AsmError &error) {
  if (errors->first.size() < kAsmErrors)
    errors->first.push_back(error);
  else
    ++errors->more;
}

// Operands.

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

std::optional<std::uint32_t> TakeNumber(Assembly *assembly, Line *line, const Operand &operand) {
  const Line before = *line;
  const Constant *constant = TakeConstant(assembly, line, false);
  if (constant == nullptr) return Line_TakeNumber(line, operand.most, operand.expected);
  if (constant->number <= operand.most) return constant->number;
  *line = before;
  Line_Expected(line, operand.expected, std::to_string(constant->number));
  return std::nullopt;
}

std::optional<std::string> TakeText(Assembly *assembly, Line *line, std::string_view expected) {
  const Constant *constant = TakeConstant(assembly, line, true);
  return constant != nullptr ? constant->text : Line_TakeQuoted(line, expected);
}

void AssembleOperand(Assembly *assembly, Line *line, const Operand &operand) {
  std::string *code = &assembly->program->code;
  if (!operand.quoted) {
    const auto number = TakeNumber(assembly, line, operand);
    if (number) AddNumber(code, *number, operand.width);
    return;
  }
  const Line before = *line;
  const auto text = TakeText(assembly, line, operand.expected);
  if (!text) return;
  if (text->size() > operand.most) {
    line->rest = before.rest;
    return Line_Expected(line, operand.expected, std::to_string(text->size()) + " bytes");
  }
  AddNumber(code, static_cast<std::uint32_t>(text->size()), operand.width);
  *code += *text;
}

void AssembleBytes(Assembly *assembly, Line *line) {
  do {
    const auto value = Line_TakeNumber(line, 255, "a byte from 0 to 255 or 0x00 to 0xff");
    if (!value) return;
    AddNumber(&assembly->program->code, *value, 1);
    Line_SkipBlanks(line);
  } while (!Line_AtEnd(*line));
}

void ExpectEnd(Line *line) {
  if (line->wrong.empty() && !Line_AtEnd(*line)) Line_ExpectedHere(line, "the end of the line");
}

void AssembleForm(Assembly *assembly, Line *line, const Form &form) {
  AddNumber(&assembly->program->code, static_cast<std::uint32_t>(form.op), 1);
  for (const Operand *operand : form.operands) {
    if (operand == nullptr || !line->wrong.empty()) break;
    AssembleOperand(assembly, line, *operand);
    Line_SkipBlanks(line);
  }
  ExpectEnd(line);
}

// Pieces of a page.

void EmitValue(std::string *code, std::string_view name) {
  AddNumber(code, kOpValue8, 1);
  AddNumber(code, static_cast<std::uint32_t>(name.size()), 1);
  code->append(name);
}

void EmitValueSkip(std::string *code, std::uint32_t skip, std::string_view name) {
  AddNumber(code, kOpValueSkip, 1);
  AddNumber(code, skip, 1);
  AddNumber(code, static_cast<std::uint32_t>(name.size()), 1);
  code->append(name);
}

void EmitText(std::string *code, std::string_view text) {
  if (text.empty()) return;
  const bool is_short = text.size() <= kShortText;
  AddNumber(code, is_short ? kOpText8 : kOpText32, 1);
  AddNumber(code, static_cast<std::uint32_t>(text.size()), is_short ? 1 : 4);
  code->append(text);
}

// "item": the field that the lines are repeated for, in this pass the one behind that of the last.
void AssembleItem(Assembly *assembly, Line *line) {
  Repeat &repeat = *assembly->repeat;
  std::string *code = &assembly->program->code;
  if (repeat.pass == 0 || repeat.is_found)
    EmitValue(code, repeat.name);
  else
    EmitValueSkip(code, 1, repeat.name);
  repeat.is_found = true;
  ExpectEnd(line);
}

void AssembleConst(Assembly *assembly, Line *line) {
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
  ExpectEnd(line);
  if (!line->wrong.empty()) return;
  const auto [at, is_new] = assembly->constants.emplace(name, constant);
  if (is_new || (at->second.text == constant.text && at->second.number == constant.number)) return;
  line->rest = before.rest;
  Line_Expected(line, "a constant that has no other value yet", name);
}

// Lines.

std::string_view TakeRow(File *file) {
  const std::size_t size = std::min(file->rest.find('\n'), file->rest.size());
  const std::string_view row = file->rest.substr(0, size);
  file->rest.remove_prefix(std::min(size + 1, file->rest.size()));
  ++file->line;
  return row;
}

void Begin(Assembly *assembly, const AsmSource &source, const Row &row) {
  assembly->program->lines.push_back(
      {assembly->program->code.size(), row.line, source.name, row.text});
}

void End(Assembly *assembly, const AsmSource &source, const Row &row, const Line &line) {
  if (!line.wrong.empty())
    Add(&assembly->faults, {row.line, line.wrong, source.name, static_cast<int>(line.column),
                            std::string(row.text.substr(0, kShownLine))});
  if (assembly->faults.first.empty()) assembly->right = assembly->program->code.size();
}

bool IsFull(const Assembly &assembly) { return assembly.program->code.size() > kMacroLimit; }

void CheckSize(const Assembly &assembly, Line *line) {
  if (line->wrong.empty() && IsFull(assembly))
    Line_Expected(line, "a macro of at most 1048576 bytes",
                  std::to_string(assembly.program->code.size()) + " bytes");
}

void Open(Assembly *assembly, const AsmSource &source) {
  File file = {source.text, &source};
  if (file.rest.starts_with(kByteOrderMark)) file.rest.remove_prefix(kByteOrderMark.size());
  assembly->files.push_back(file);
}

// A name is looked for beside the file that it stands in.
void Include(Assembly *assembly, Line *line) {
  const Line before = *line;
  const auto name = Line_TakeQuoted(line, "the name of a file in quotes");
  Line_SkipBlanks(line);
  ExpectEnd(line);
  if (!line->wrong.empty()) return;
  const std::string &from = assembly->files.back().from->name;
  AsmSource source = {*name, ""};
  if (!source.name.starts_with('/')) source.name.insert(0, from.substr(0, from.rfind('/') + 1));
  line->rest = before.rest;
  if (assembly->files.size() == kDepthMost)
    return Line_Expected(line, "files that include each other at most 16 deep", *name);
  if (!*assembly->load || !(*assembly->load)(source.name, &source.text))
    return Line_Expected(line, "a file that can be read", source.name);
  assembly->program->sources.push_back(std::move(source));
  Open(assembly, assembly->program->sources.back());
}

void AssembleRow(Assembly *assembly, const Row &row);
void AssembleWord(Assembly *assembly, Line *line);

// An instruction in a page; the rest of the line is no part of it.
void AssembleInPage(Assembly *assembly, Line *line, std::string_view text) {
  const std::size_t end = static_cast<std::size_t>(text.data() + text.size() - line->whole.data());
  Line part = {line->whole.substr(0, end), text};
  Line_SkipBlanks(&part);
  assembly->in_page = true;
  AssembleWord(assembly, &part);
  assembly->in_page = false;
  line->wrong = part.wrong;
  line->column = part.column;
}

// One {{...}} of a page: the name of a field, "+COUNT" behind it for the one COUNT matches further,
// or an instruction behind "!".
void AssembleHole(Assembly *assembly, Line *line, std::string_view hole) {
  if (hole.starts_with('!')) return AssembleInPage(assembly, line, hole.substr(1));
  const std::size_t plus = hole.rfind('+');
  const std::string_view name = hole.substr(0, plus);
  std::string *code = &assembly->program->code;
  if (name.empty() || name.size() > kShortText) return Line_Expected(line, "{{NAME}}", line->rest);
  if (plus == std::string_view::npos) return EmitValue(code, name);
  Line count = {line->whole, hole.substr(plus + 1)};
  const auto skip = Line_TakeNumber(&count, 255, "a number of matches to skip, from 0 to 255");
  if (skip) return EmitValueSkip(code, *skip, name);
  Line_Expected(line, "{{NAME+COUNT}}, from 0 to 255", line->rest);
}

// A line of a page, its line end with it unless a backslash stands there.
void AssemblePageRow(Assembly *assembly, Line *line, std::string *text) {
  std::string_view row = line->whole;
  if (row.ends_with('\r')) row.remove_suffix(1);
  const bool goes_on = row.ends_with('\\');
  if (goes_on) row.remove_suffix(1);
  while (line->wrong.empty()) {
    const std::size_t open = row.find("{{");
    text->append(row.substr(0, open));
    if (open == std::string_view::npos) break;
    row.remove_prefix(open);
    line->rest = row;
    const std::size_t close = row.find(kBlockEnd);
    if (close == std::string_view::npos) return Line_Expected(line, "{{NAME}}", row);
    EmitText(&assembly->program->code, *text);
    text->clear();
    AssembleHole(assembly, line, row.substr(2, close - 2));
    row.remove_prefix(close + kBlockEnd.size());
  }
  if (!goes_on) *text += '\n';
}

std::string_view WordOf(std::string_view row) {
  Line line = Line_Of(row);
  return Line_TakeWord(&line);
}

// The lines up to the one that says end, each of which take is given.  False: there is no such
// line.
bool TakeUpTo(Assembly *assembly, std::string_view end,
              const std::function<void(const Row &)> &take) {
  while (!assembly->files.back().rest.empty()) {
    File &file = assembly->files.back();
    const std::string_view text = TakeRow(&file);
    if (WordOf(text) == end) return true;
    take({text, file.line});
  }
  return false;
}

void AssemblePage(Assembly *assembly, Line *line) {
  ExpectEnd(line);
  const AsmSource &source = *assembly->files.back().from;
  std::string text;
  const bool ended = TakeUpTo(assembly, "end-page", [&](const Row &row) {
    Line part = {row.text, row.text};
    if (IsFull(*assembly)) return;
    Begin(assembly, source, row);
    AssemblePageRow(assembly, &part, &text);
    CheckSize(*assembly, &part);
    End(assembly, source, row, part);
  });
  EmitText(&assembly->program->code, text);
  if (!ended && line->wrong.empty()) Line_Expected(line, "a line end-page below", {});
}

// Assembles the lines of the body as often as the field may come.
void AssembleBody(Assembly *assembly, const File &body, const std::string &name,
                  std::uint32_t times) {
  const File after = assembly->files.back();
  const std::size_t faults = assembly->faults.first.size();
  for (std::uint32_t pass = 0; pass < times && assembly->faults.first.size() == faults; ++pass) {
    assembly->repeat = {name, pass, false};
    assembly->files.back() = body;
    while (!assembly->files.back().rest.empty() && !IsFull(*assembly)) {
      const std::string_view text = TakeRow(&assembly->files.back());
      AssembleRow(assembly, {text, assembly->files.back().line});
    }
  }
  assembly->files.back() = after;
  assembly->repeat.reset();
}

void AssembleRepeat(Assembly *assembly, Line *line) {
  constexpr Operand kName = {true, 1, kShortText, "a name in quotes of at most 255 bytes"};
  constexpr Operand kTimes = {false, 1, kTimesMost, "how often at most, from 1 to 256"};
  const Line before = *line;
  const auto name = TakeText(assembly, line, kName.expected);
  Line_SkipBlanks(line);
  const std::uint32_t times = name ? TakeNumber(assembly, line, kTimes).value_or(0) : 0;
  Line_SkipBlanks(line);
  ExpectEnd(line);
  File body = assembly->files.back();
  std::size_t size = 0;
  const bool ended = TakeUpTo(assembly, "end-repeat", [&](const Row &row) {
    size = static_cast<std::size_t>(row.text.data() + row.text.size() + 1 - body.rest.data());
  });
  body.rest = body.rest.substr(0, size);
  if (!line->wrong.empty()) return;
  if (!ended) return Line_Expected(line, "a line end-repeat below", {});
  line->rest = before.rest;
  if (name->size() > kName.most)
    return Line_Expected(line, kName.expected, std::to_string(name->size()) + " bytes");
  if (times == 0) return Line_Expected(line, kTimes.expected, "0");
  AssembleBody(assembly, body, *name, times);
}

// One line: an instruction, or what is written out as some.
void AssembleWord(Assembly *assembly, Line *line) {
  const Line before = *line;
  const std::string_view word = Line_TakeWord(line);
  const bool is_repeated = assembly->repeat.has_value();
  Line_SkipBlanks(line);
  if (word == "byte") return AssembleBytes(assembly, line);
  const Form *form = Form_Of(word);
  if (form != nullptr) return AssembleForm(assembly, line, *form);
  if (word == "item" && is_repeated) return AssembleItem(assembly, line);
  if (word == "const") return AssembleConst(assembly, line);
  if (word == "page" && !assembly->in_page) return AssemblePage(assembly, line);
  if (word == "include" && !is_repeated && !assembly->in_page) return Include(assembly, line);
  if (word == "repeat" && !is_repeated && !assembly->in_page) return AssembleRepeat(assembly, line);
  line->rest = before.rest;
  if (word == "item") return Line_Expected(line, "an item between repeat and end-repeat", word);
  if (word == "if-field")
    return Line_Expected(
        line,
        "an instruction (whether a document has a field cannot be asked without a line in the log)",
        word);
  Line_Expected(line, "an instruction", word.empty() ? before.rest : word);
}

void AssembleRow(Assembly *assembly, const Row &row) {
  const AsmSource &source = *assembly->files.back().from;
  Line line = Line_Of(row.text);
  Begin(assembly, source, row);
  if (!Line_AtEnd(line)) AssembleWord(assembly, &line);
  CheckSize(*assembly, &line);
  End(assembly, source, row, line);
}

// Goes on behind a line with a fault, but not behind the one that makes the macro too large.
void AssembleFiles(Assembly *assembly) {
  while (!assembly->files.empty() && !IsFull(*assembly)) {
    if (assembly->files.back().rest.empty()) {
      assembly->files.pop_back();
      continue;
    }
    const std::string_view text = TakeRow(&assembly->files.back());
    AssembleRow(assembly, {text, assembly->files.back().line});
  }
}

// What a byte means can be told as far as every line is right.
void RefuseUndefined(const Assembly &assembly, const AsmProgram &program, AsmErrors *errors) {
  const std::string_view code = std::string_view(program.code).substr(0, assembly.right);
  for (const std::size_t offset : Asm_Undefined(code)) {
    const AsmLine *line = Asm_LineAt(program, offset);
    const std::string op = std::to_string(static_cast<unsigned char>(code[offset]));
    Add(errors, {line->line,
                 "expected an op-code that exists, found '" + op +
                     "', which a run repeats for ever; --allow-undefined takes it",
                 std::string(line->file), 1, std::string(line->text.substr(0, kShownLine))});
  }
}

}  // namespace

bool Asm_Assemble(const AsmLoad &load, bool allow_undefined, AsmProgram *program) {
  program->code.clear();
  program->lines.clear();
  program->errors = {};
  Assembly assembly = {&load, program, {}, {}, {}, false, {}, 0};
  Open(&assembly, program->sources.front());
  AssembleFiles(&assembly);
  if (!allow_undefined) RefuseUndefined(assembly, *program, &program->errors);
  for (const AsmError &fault : assembly.faults.first) Add(&program->errors, fault);
  program->errors.more += assembly.faults.more;
  return program->errors.first.empty();
}

bool Asm_Assemble(std::string_view source, bool allow_undefined, std::string *code,
                  AsmErrors *errors) {
  AsmProgram program;
  program.sources.push_back({"", std::string(source)});
  const bool is_right = Asm_Assemble({}, allow_undefined, &program);
  *code = program.code;
  *errors = program.errors;
  return is_right;
}

const AsmLine *Asm_LineAt(const AsmProgram &program, std::size_t offset) {
  const auto behind =
      std::upper_bound(program.lines.begin(), program.lines.end(), offset,
                       [](std::size_t at, const AsmLine &line) { return at < line.offset; });
  return behind == program.lines.begin() ? nullptr : &*(behind - 1);
}
