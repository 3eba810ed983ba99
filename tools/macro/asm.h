// tools/macro/asm.h: page macros between their byte code and a text that people write.
//
// The text has an instruction a line: a mnemonic, operands, and perhaps a comment from ";" on.
// "byte" stands for bytes of any meaning.  Assembling what was disassembled gives the same bytes,
// whatever they are.
#ifndef TOOLS_MACRO_ASM_H
#define TOOLS_MACRO_ASM_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::size_t kMacroLimit = 1 << 20;  // bytes of a macro; a page is at most 40960
inline constexpr std::size_t kSourceLimit = 128 * kMacroLimit;  // no macro disassembles to more

struct AsmError {
  int line;          // from 1
  std::string text;  // what was expected, and what stood there
};

struct AsmErrors {
  std::vector<AsmError> first;  // in the order of the lines, at most kAsmErrors
  std::size_t more = 0;         // that were found besides
};

inline constexpr std::size_t kAsmErrors = 20;

// False: what is wrong is in *errors.  Op-codes that do not exist are, unless they are allowed.  A
// byte-order mark in front is no part of the source.
bool Asm_Assemble(std::string_view source, bool allow_undefined, std::string *code,
                  AsmErrors *errors);

// A line an instruction, each with its offset, by which the log of the service names an instruction
// that failed.  Op-codes that do not exist, operands that end a run, and bytes that never run are
// shown as bytes.
std::string Asm_Disassemble(std::string_view code);

// The offsets of the op-codes that do not exist, as the listing names them: bytes that are operands
// or stand behind the end are none.
std::vector<std::size_t> Asm_Undefined(std::string_view code);

#endif
