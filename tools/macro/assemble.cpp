#include <algorithm>

#include "tools/macro/assembly.h"

namespace {

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
constexpr std::size_t kDepthMost = 16;      // files that include each other
constexpr std::size_t kIncludesMost = 256;  // in all
constexpr std::size_t kShown = 100;         // of a line with a fault

void Add(AsmErrors *errors, const AsmError &error) {
  if (errors->first.size() < kAsmErrors)
    errors->first.push_back(error);
  else
    ++errors->more;
}

void Open(Assembly *assembly, const AsmSource &source) {
  SourceFile file = {source.text, &source};
  if (file.rest.starts_with(kByteOrderMark)) file.rest.remove_prefix(kByteOrderMark.size());
  assembly->files.push_back(file);
}

// A name is looked for beside the file that it stands in.
void Include(Assembly *assembly, Line *line) {
  const Line before = *line;
  const auto name = Line_TakeQuoted(line, "the name of a file in quotes");
  Line_SkipBlanks(line);
  Assembly_ExpectEnd(line);
  if (!line->wrong.empty()) return;
  const std::string &from = assembly->files.back().from->name;
  AsmSource source = {*name, ""};
  if (!source.name.starts_with('/')) source.name.insert(0, from.substr(0, from.rfind('/') + 1));
  line->rest = before.rest;
  if (assembly->files.size() == kDepthMost)
    return Line_Expected(line, "files that include each other at most 16 deep", *name);
  if (assembly->program->sources.size() > kIncludesMost)
    return Line_Expected(line, "at most 256 included files", *name);
  if (!*assembly->load || !(*assembly->load)(source.name, &source.text))
    return Line_Expected(line, "a file that can be read", source.name);
  assembly->program->sources.push_back(std::move(source));
  Open(assembly, assembly->program->sources.back());
}

// Goes on behind a line with a fault, but not behind the one that makes the macro too large.
void AssembleFiles(Assembly *assembly) {
  while (!assembly->files.empty() && !Assembly_IsFull(*assembly)) {
    if (assembly->files.back().rest.empty()) {
      assembly->files.pop_back();
      continue;
    }
    Assembly_Row(assembly, Assembly_TakeRow(assembly));
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
                 std::string(line->file), 1, std::string(line->text.substr(0, kShown))});
  }
}

AsmError ErrorAt(const Row &row, const Line &line) {
  const std::size_t column = line.column - 1;
  const std::size_t from = column < kShown ? 0 : column - kShown / 2;
  return {row.line,
          line.wrong,
          row.file->name,
          static_cast<int>(line.column),
          std::string(row.text.substr(from, kShown)),
          column - from};
}

}  // namespace

bool Assembly_IsFull(const Assembly &assembly) {
  return assembly.program->code.size() > kMacroLimit;
}

void Assembly_ExpectEnd(Line *line) {
  if (line->wrong.empty() && !Line_AtEnd(*line)) Line_ExpectedHere(line, "the end of the line");
}

Row Assembly_TakeRow(Assembly *assembly) {
  SourceFile &file = assembly->files.back();
  const std::size_t size = std::min(file.rest.find('\n'), file.rest.size());
  const std::string_view text = file.rest.substr(0, size);
  file.rest.remove_prefix(std::min(size + 1, file.rest.size()));
  return {text, ++file.line, file.from};
}

void Assembly_Begin(Assembly *assembly, const Row &row) {
  assembly->program->lines.push_back(
      {assembly->program->code.size(), row.line, row.file->name, row.text});
}

void Assembly_End(Assembly *assembly, const Row &row, Line *line) {
  AsmProgram *program = assembly->program;
  if (line->wrong.empty() && Assembly_IsFull(*assembly))
    Line_Expected(line, "a macro of at most 1048576 bytes",
                  std::to_string(program->code.size()) + " bytes");
  if (!line->wrong.empty()) Add(&assembly->faults, ErrorAt(row, *line));
  if (assembly->faults.first.empty()) assembly->right = program->code.size();
}

void Assembly_Forget(Assembly *assembly, const Row &row) {
  AsmProgram *program = assembly->program;
  const bool comes_again = assembly->repeat.has_value() && assembly->repeat->pass > 0;
  const AsmLine &last = program->lines.back();
  if (comes_again && last.text.data() == row.text.data() && last.offset == program->code.size())
    program->lines.pop_back();
}

void Assembly_Word(Assembly *assembly, Line *line) {
  const Line before = *line;
  const std::string_view word = Line_TakeWord(line);
  const bool is_repeated = assembly->repeat.has_value();
  Line_SkipBlanks(line);
  if (word == "byte") return Assembly_Bytes(assembly, line);
  const Form *form = Form_Of(word);
  if (form != nullptr) return Assembly_Form(assembly, line, *form);
  if (word == "item" && is_repeated) return Assembly_Item(assembly, line);
  if (word == "const") return Assembly_Const(assembly, line);
  if (word == "page" && !assembly->in_page) return Assembly_Page(assembly, line);
  if (word == "include" && !is_repeated && !assembly->in_page) return Include(assembly, line);
  if (word == "repeat" && !is_repeated && !assembly->in_page)
    return Assembly_Repeat(assembly, line);
  line->rest = before.rest;
  if (word == "item") return Line_Expected(line, "an item between repeat and end-repeat", word);
  if (word == "if-field")
    return Line_Expected(
        line,
        "an instruction (whether a document has a field cannot be asked without a line in the log)",
        word);
  Line_Expected(line, "an instruction", word.empty() ? before.rest : word);
}

void Assembly_Row(Assembly *assembly, const Row &row) {
  Line line = Line_Of(row.text);
  Assembly_Begin(assembly, row);
  if (!Line_AtEnd(line)) Assembly_Word(assembly, &line);
  Assembly_End(assembly, row, &line);
  Assembly_Forget(assembly, row);
}

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
