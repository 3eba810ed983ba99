// The product's own interpreter, compiled in here: its registers outlive a run, and each input is
// to begin with clear ones.
#include <algorithm>

#include "macro/exec.cpp"
#include "tests/fuzz/support/macros.h"

void Fuzz_ClearRegisters() {
  std::fill(std::begin(engine.registers), std::end(engine.registers), 0);
}
