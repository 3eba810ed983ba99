// tools/macro/asm.h: page macros between their byte code and a text that people write.
//
// The text has an instruction a line: a mnemonic, operands, and perhaps a comment from ";" on.
// "byte" stands for bytes that are no instruction.  Assembling what was disassembled gives the same
// bytes, whatever they are.
#ifndef TOOLS_MACRO_ASM_H
#define TOOLS_MACRO_ASM_H

#include <cstddef>
#include <string>
#include <string_view>

inline constexpr std::size_t kMacroLimit = 1 << 20;  // bytes of a macro; a page is at most 40960
inline constexpr std::size_t kSourceLimit = 128 * kMacroLimit;  // no macro disassembles to more

struct AsmError {
  int line;          // from 1
  std::string text;  // what was expected, and what stood there
};

// False: the first line that is wrong is in *error.
bool Asm_Assemble(std::string_view source, std::string *code, AsmError *error);

// A line an instruction, each with its offset, by which the log of the service names an instruction
// that failed.  Op-codes that do not exist, operands that end a run, and bytes that never run are
// shown as bytes.
std::string Asm_Disassemble(std::string_view code);

#endif
