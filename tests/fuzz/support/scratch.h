// tests/fuzz/support/scratch.h: files that a target gives to the program.
#ifndef TESTS_FUZZ_SUPPORT_SCRATCH_H
#define TESTS_FUZZ_SUPPORT_SCRATCH_H

#include <string>
#include <string_view>

// A directory of this process, in memory where the machine has that; removed at its end.
const std::string &Fuzz_ScratchDir();

// Writes the file.  False: the name cannot be one.
bool Fuzz_WriteFile(const std::string &path, std::string_view contents);

#endif
