// tools/macro/assembly.h: what is being assembled, and its parts: operands and instructions, blocks
// of lines, and the files that they stand in.
#ifndef TOOLS_MACRO_ASSEMBLY_H
#define TOOLS_MACRO_ASSEMBLY_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/macro/asm.h"
#include "tools/macro/form.h"
#include "tools/macro/line.h"

// A constant is a text or a number.
struct Constant {
  std::optional<std::string> text;
  std::uint32_t number = 0;
};

// A line that stands by itself, and where.
struct Row {
  std::string_view text;
  int line;
  const AsmSource *file;
};

// A file that is being read, in it perhaps a pass over lines that are repeated.
struct SourceFile {
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
  std::vector<SourceFile> files;  // the last one includes nothing at the moment
  std::optional<Repeat> repeat;
  bool in_page = false;  // the instruction stands in {{!...}}
  AsmErrors faults;
  std::size_t right = 0;  // bytes of the lines before the first fault
};

// Operands and instructions: what stands behind the word of a line.
std::optional<std::string> Assembly_TakeText(Assembly *assembly, Line *line,
                                             std::string_view expected);
std::optional<std::uint32_t> Assembly_TakeNumber(Assembly *assembly, Line *line,
                                                 const Operand &operand);
void Assembly_Form(Assembly *assembly, Line *line, const Form &form);
void Assembly_Bytes(Assembly *assembly, Line *line);
void Assembly_Const(Assembly *assembly, Line *line);

// Code that no line spells out.
void Assembly_EmitText(std::string *code, std::string_view text);
void Assembly_EmitValue(std::string *code, std::string_view name);
void Assembly_EmitValueSkip(std::string *code, std::uint32_t skip, std::string_view name);

// Blocks: what stands behind the word of their first line, and the lines up to their last.
void Assembly_Page(Assembly *assembly, Line *line);
void Assembly_Repeat(Assembly *assembly, Line *line);
void Assembly_Item(Assembly *assembly, Line *line);  // in a repeat

// Lines.  A word is an instruction, or what is written out as some.
void Assembly_Word(Assembly *assembly, Line *line);
void Assembly_Row(Assembly *assembly, const Row &row);
Row Assembly_TakeRow(Assembly *assembly);  // of the file that is being read
void Assembly_ExpectEnd(Line *line);

// Around the code of a row.
void Assembly_Begin(Assembly *assembly, const Row &row);
void Assembly_End(Assembly *assembly, const Row &row, Line *line);

// Behind a row without code, which stands in the program once however often it is repeated.
void Assembly_Forget(Assembly *assembly, const Row &row);

// More than a macro may have: the rest of the source is left.
bool Assembly_IsFull(const Assembly &assembly);

#endif
