// tools/macro/decode.h: one instruction out of the byte code.
#ifndef TOOLS_MACRO_DECODE_H
#define TOOLS_MACRO_DECODE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

struct Instruction {
  std::size_t offset = 0;
  std::size_t size = 0;
  int op = 0;
  std::uint32_t number = 0;      // matches to skip, a register, or an offset
  std::string_view text = {};    // a text or a name, as it stands in the code
  std::string_view second = {};  // the macro of a fetch
};

enum class Decoding {
  kInstruction,
  kUndefined,  // an op-code that does not exist
  kCut,        // an operand runs past the end of the code
  kBeyond,     // an operand is larger than a run takes
};

// Fills *found with what stands at the offset, which lies inside of the code: op-code and size, and
// the operands of an instruction.
Decoding Decode_At(std::string_view code, std::size_t offset, Instruction *found);

// The name that a run looks for: of a name with a zero byte the bytes before it, and without a tab
// in front, which a look-up puts there itself.
std::string_view Decode_Name(std::string_view name);

// The field that a name can find: what stands before the first "=" in it.  And how the value of
// that field begins then; it is the whole value where a tab stands behind that.
std::string_view Decode_Field(std::string_view name);
std::string Decode_Begin(std::string_view name);

// Whether the instruction looks a field up, and the matches that it skips then.
bool Decode_LooksUp(int op);
std::size_t Decode_Skip(const Instruction &at);

// Whether it writes what a document holds.
bool Decode_Writes(int op);

// Whether it is a fetch whose field is named, also where its macro is cut: that is taken only where
// the field is found.
bool Decode_IsFetch(const Instruction &at);

#endif
