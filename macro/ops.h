// macro/ops.h: the instructions of a page macro.
//
// An instruction is one byte and its operands.  n:8 is a length of one byte and that many bytes,
// n:32 the same with a length of four bytes, little-endian; k, r are bytes.
#ifndef MACRO_OPS_H
#define MACRO_OPS_H

enum Op : int {
  kOpEnd = 0,          // -               stop
  kOpText32 = 1,       // n:32            the bytes to the output
  kOpValue32 = 2,      // name n:32       the field's value to the output
  kOpSeek = 3,         // offset of four  the cursor to that offset of the document
  kOpDocument = 7,     // -               the whole document, its tabs as line ends
  kOpPush = 8,         // -               the cursor onto the stack
  kOpPop = 9,          // -               the cursor off the stack
  kOpSave = 10,        // r               the cursor into a register
  kOpRestore = 11,     // r               the cursor out of a register
  kOpFind = 12,        // name n:8        the cursor to the field, if there is one
  kOpFetch = 13,       // name n:8, n:8   the document that the field's value names, to the output
  kOpInsert = 14,      // name n:8        the same, appended to the document
  kOpInsertSkip = 15,  // k, name n:8     the same, k matches further on
  kOpText8 = 65,       // n:8             the bytes to the output
  kOpValue8 = 66,      // name n:8        the field's value to the output
  kOpValueSkip = 67,   // k, name n:8     the same, k matches further on
  kOpNumber = 68,      // name n:8        the value as a number of four bytes, little-endian
};

inline constexpr int kMacroNameSize = 4095;  // the longest name or value that a run handles
inline constexpr int kMacroStack = 10;
inline constexpr int kMacroRegisters = 16;

#endif
