// The product's own table, compiled in here, so that it can be emptied: a process fills it once.
#include "macro/table.cpp"
#include "tests/fuzz/support/fuzz.h"
#include "tests/fuzz/support/macros.h"
#include "tests/fuzz/support/scratch.h"

namespace {

constexpr int kPatience = 20;

int undefined_messages = 0;

}  // namespace

void Fuzz_ResetMacros() {
  Fuzz_EmptyTable();
  Fuzz_ClearRegisters();
  undefined_messages = 0;
}

void Fuzz_EmptyTable() {
  for (Slot &slot : table.slots) Release(&slot);
  table.count = 0;
  table.near_used = 0;
}

void Fuzz_FillTable(int count) {
  const std::string name = Fuzz_ScratchDir() + "/filler";
  FUZZ_CHECK(Fuzz_WriteFile(name + ".mo", ""));
  for (int i = 0; i < count; ++i)
    FUZZ_CHECK(Macro_Open(name.c_str()) == (i < kMacroSlots ? i : -1));
}

int Fuzz_LoadMacro(std::string_view code) {
  const std::string name = Fuzz_ScratchDir() + "/page";
  FUZZ_CHECK(Fuzz_WriteFile(name + ".mo", code));
  const int expected = table.count < kMacroSlots ? table.count : -1;
  const int handle = Macro_Open(name.c_str());
  FUZZ_CHECK(handle == expected);
  if (handle < 0) return handle;
  int size = 0;
  const unsigned char *loaded = Macro_Code(handle, &size);
  FUZZ_CHECK(std::string_view(reinterpret_cast<const char *>(loaded),
                              static_cast<std::size_t>(size)) == code);
  return handle;
}

void Fuzz_EndUndefined(const char *text) {
  if (!Fuzz_Words(text).starts_with("\n[undefined op-code = ")) return;
  if (++undefined_messages < kPatience) return;
  for (const Slot &slot : table.slots)
    if (slot.size > 0) std::memset(slot.code, 0, static_cast<std::size_t>(slot.size));
}
