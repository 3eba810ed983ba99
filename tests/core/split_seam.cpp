// What no input reaches: a pair that fits its buffer has pieces that fit theirs.
#include "protocol/pair.h"
#include "tests/core/core_seams.h"

bool fail_split = false;

int RealSplit(std::string_view, char *, std::size_t, char *, std::size_t,
              char) __asm__("__real_" SPLIT);
int WrapSplit(std::string_view, char *, std::size_t, char *, std::size_t,
              char) __asm__("__wrap_" SPLIT);

int WrapSplit(std::string_view pair, char *name, std::size_t name_size, char *value,
              std::size_t value_size, char delimiter) {
  return fail_split ? 0 : RealSplit(pair, name, name_size, value, value_size, delimiter);
}
