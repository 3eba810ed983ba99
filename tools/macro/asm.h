// tools/macro/asm.h: page macros between their byte code and a text that people write.
//
// The text has an instruction a line: a mnemonic, operands, and perhaps a comment from ";" on.
// "byte" stands for bytes of any meaning.  Assembling what was disassembled gives the same bytes,
// whatever they are.  What else a source can hold, constants, other files, repeated lines and pages
// with values in them, is written out as such instructions.
#ifndef TOOLS_MACRO_ASM_H
#define TOOLS_MACRO_ASM_H

#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::size_t kMacroLimit = 1 << 20;  // bytes of a macro; a page is at most 40960
inline constexpr std::size_t kSourceLimit = 128 * kMacroLimit;  // no macro disassembles to more

struct AsmError {
  int line;          // from 1
  std::string text;  // what was expected, and what stood there
  std::string file = {};
  int column = 1;           // of its bytes, from 1
  std::string source = {};  // what stands around the column
  std::size_t mark = 0;     // the column in that, from 0
};

struct AsmErrors {
  std::vector<AsmError> first;  // in the order of the lines, at most kAsmErrors
  std::size_t more = 0;         // that were found besides
};

inline constexpr std::size_t kAsmErrors = 20;

// A line of a source, and where its code begins.
struct AsmLine {
  std::size_t offset;
  int line;               // from 1
  std::string_view file;  // the name and the text lie in sources
  std::string_view text;
};

struct AsmSource {
  std::string name;
  std::string text;
};

struct AsmProgram {
  std::string code;
  std::vector<AsmLine> lines;  // in the order of the code; a repeated one stands here again
  AsmErrors errors;
  std::deque<AsmSource> sources;  // the first one, and those that it includes
};

// Reads a file that is included; false: it cannot be read.
using AsmLoad = std::function<bool(const std::string &path, std::string *text)>;

// Assembles program->sources[0] and what it includes.  False: what is wrong is in program->errors.
// Op-codes that do not exist are, unless they are allowed.  A byte-order mark in front is no part
// of a source.
bool Asm_Assemble(const AsmLoad &load, bool allow_undefined, AsmProgram *program);

// The same for a text alone, which includes nothing.
bool Asm_Assemble(std::string_view source, bool allow_undefined, std::string *code,
                  AsmErrors *errors);

// The line whose code the offset lies in; null: none.
const AsmLine *Asm_LineAt(const AsmProgram &program, std::size_t offset);

// The lines of a program with the offsets and bytes of their code beside them.
std::string Asm_Listing(const AsmProgram &program);

// A line an instruction, each with its offset, by which the log of the service names an instruction
// that failed.  Op-codes that do not exist, operands that end a run, and bytes that never run are
// shown as bytes.
std::string Asm_Disassemble(std::string_view code);

// The offsets of the op-codes that do not exist, as the listing names them: bytes that are operands
// or stand behind the end are none.
std::vector<std::size_t> Asm_Undefined(std::string_view code);

#endif
