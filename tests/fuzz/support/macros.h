// tests/fuzz/support/macros.h: the macro engine as a new connection finds it.
#ifndef TESTS_FUZZ_SUPPORT_MACROS_H
#define TESTS_FUZZ_SUPPORT_MACROS_H

#include <string_view>

// Empties the table and its code, and clears the registers.
void Fuzz_ResetMacros();

// Opens count macros without code; those for which there is no slot must be refused.
void Fuzz_FillTable(int count);

// Loads code; the handle, or -1 when the table is full.
int Fuzz_LoadMacro(std::string_view code);

// For Fuzz_OnMessage.  An undefined op-code repeats for ever, by intent: once its message came
// often enough the code of every macro becomes 0, the end.
void Fuzz_EndUndefined(const char *text);

// The two halves of Fuzz_ResetMacros.
void Fuzz_EmptyTable();
void Fuzz_ClearRegisters();

#endif
