// tests/fuzz/support/macros.h: the macro engine as a new connection finds it.
#ifndef TESTS_FUZZ_SUPPORT_MACROS_H
#define TESTS_FUZZ_SUPPORT_MACROS_H

#include <string_view>

// Empties the table and its code, and clears the registers.
void Fuzz_ResetMacros();

// Loads code; the handle.
int Fuzz_LoadMacro(std::string_view code);

// For Fuzz_OnMessage.  An undefined op-code repeats for ever, by intent: once its message came
// often enough the code of every macro becomes 0, the end.
void Fuzz_EndUndefined(const char *text);

// The two halves of Fuzz_ResetMacros.
void Fuzz_EmptyTable();
void Fuzz_ClearRegisters();

#endif
