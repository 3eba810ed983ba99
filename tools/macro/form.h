// tools/macro/form.h: the written form of every instruction, for both directions.
#ifndef TOOLS_MACRO_FORM_H
#define TOOLS_MACRO_FORM_H

#include <cstdint>
#include <string_view>

#include "macro/ops.h"

struct Operand {
  bool quoted;         // a length and that many bytes; otherwise a number
  int width;           // bytes of the length or of the number, little-endian
  std::uint32_t most;  // the largest length or number that a run takes
  const char *expected;
};

struct Form {
  std::string_view mnemonic;
  Op op;
  const Operand *operands[2];  // null: no more
};

// Null: there is no such mnemonic, or op-code.
const Form *Form_Of(std::string_view mnemonic);
const Form *Form_Of(unsigned char op);

#endif
