#include <algorithm>
#include <functional>

#include "protocol/cmd_hdr.h"
#include "tools/macro/assembly.h"

namespace {

constexpr std::uint32_t kTimesMost = 256;
constexpr std::size_t kShortText = 255;
constexpr std::string_view kBlockEnd = "}}";

// An instruction in a page; the rest of the line is no part of it.
void InPage(Assembly *assembly, Line *line, std::string_view text) {
  const std::size_t end = static_cast<std::size_t>(text.data() + text.size() - line->whole.data());
  Line part = {line->whole.substr(0, end), text};
  Line_SkipBlanks(&part);
  assembly->in_page = true;
  Assembly_Word(assembly, &part);
  assembly->in_page = false;
  line->wrong = part.wrong;
  line->column = part.column;
}

// One {{...}} of a page: the name of a field, "+COUNT" behind it for the one COUNT matches further,
// or an instruction behind "!".
void Hole(Assembly *assembly, Line *line, std::string_view hole) {
  if (hole.starts_with('!')) return InPage(assembly, line, hole.substr(1));
  const std::size_t plus = hole.rfind('+');
  const std::string_view name = hole.substr(0, plus);
  std::string *code = &assembly->program->code;
  if (name.empty() || name.size() > kShortText) return Line_Expected(line, "{{NAME}}", line->rest);
  if (plus == std::string_view::npos) return Assembly_EmitValue(code, name);
  Line count = {line->whole, hole.substr(plus + 1)};
  const auto skip = Line_TakeNumber(&count, 255, "a number of matches to skip, from 0 to 255");
  if (skip) return Assembly_EmitValueSkip(code, *skip, name);
  Line_Expected(line, "{{NAME+COUNT}}, from 0 to 255", line->rest);
}

// Writes the text between two values out.
void Flush(Assembly *assembly, Line *line, std::string *text) {
  if (text->size() > kMessageSize)
    Line_Expected(line, "a text between values of at most 40960 bytes, which a page takes",
                  std::to_string(text->size()) + " bytes");
  else
    Assembly_EmitText(&assembly->program->code, *text);
  text->clear();
}

// A line of a page, its line end with it unless a backslash stands there.
void PageRow(Assembly *assembly, Line *line, std::string *text) {
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
    Flush(assembly, line, text);
    Hole(assembly, line, row.substr(2, close - 2));
    row.remove_prefix(close + kBlockEnd.size());
  }
  if (!goes_on) *text += '\n';
}

// The lines up to the one that says end, each of which take is given; what stands behind that word
// is wrong.  False: there is no such line.
bool TakeUpTo(Assembly *assembly, std::string_view end,
              const std::function<void(const Row &)> &take) {
  while (!assembly->files.back().rest.empty()) {
    const Row row = Assembly_TakeRow(assembly);
    Line line = Line_Of(row.text);
    if (Line_TakeWord(&line) != end) {
      take(row);
      continue;
    }
    Line_SkipBlanks(&line);
    Assembly_ExpectEnd(&line);
    if (!line.wrong.empty()) Assembly_End(assembly, row, &line);
    return true;
  }
  return false;
}

// Assembles the lines of the body as often as the field may come.
void Body(Assembly *assembly, const SourceFile &body, const std::string &name,
          std::uint32_t times) {
  const SourceFile after = assembly->files.back();
  const auto faults = [&] { return assembly->faults.first.size() + assembly->faults.more; };
  const std::size_t before = faults();
  for (std::uint32_t pass = 0; pass < times && faults() == before; ++pass) {
    assembly->repeat = {name, pass, false};
    assembly->files.back() = body;
    while (!assembly->files.back().rest.empty() && !Assembly_IsFull(*assembly)) {
      Assembly_Row(assembly, Assembly_TakeRow(assembly));
    }
  }
  assembly->files.back() = after;
  assembly->repeat.reset();
}

}  // namespace

void Assembly_Page(Assembly *assembly, Line *line) {
  Assembly_ExpectEnd(line);
  std::string text;
  const bool ended = TakeUpTo(assembly, "end-page", [&](const Row &row) {
    Line part = {row.text, row.text};
    if (Assembly_IsFull(*assembly)) return;
    Assembly_Begin(assembly, row);
    PageRow(assembly, &part, &text);
    Assembly_End(assembly, row, &part);
    if (text.empty()) Assembly_Forget(assembly, row);
  });
  if (line->wrong.empty()) Flush(assembly, line, &text);
  if (!ended && line->wrong.empty()) Line_Expected(line, "a line end-page below", {});
}

void Assembly_Repeat(Assembly *assembly, Line *line) {
  constexpr Operand kName = {true, 1, kShortText, "a name in quotes of at most 255 bytes"};
  constexpr Operand kTimes = {false, 1, kTimesMost, "how often at most, from 1 to 256"};
  const Line before = *line;
  const auto name = Assembly_TakeText(assembly, line, kName.expected);
  Line_SkipBlanks(line);
  const std::uint32_t times = name ? Assembly_TakeNumber(assembly, line, kTimes).value_or(0) : 0;
  Line_SkipBlanks(line);
  Assembly_ExpectEnd(line);
  SourceFile body = assembly->files.back();
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
  Body(assembly, body, *name, times);
}

// "item": the field that the lines are repeated for, in this pass the one behind that of the last.
void Assembly_Item(Assembly *assembly, Line *line) {
  Repeat &repeat = *assembly->repeat;
  std::string *code = &assembly->program->code;
  if (repeat.pass == 0 || repeat.is_found)
    Assembly_EmitValue(code, repeat.name);
  else
    Assembly_EmitValueSkip(code, 1, repeat.name);
  repeat.is_found = true;
  Assembly_ExpectEnd(line);
}
