// A source of any bytes is assembled or its faults are named, and any bytes are taken apart into a
// source that makes the same bytes.
//
// Parts: the source; the files "1" to "9", which it may include.
#include <algorithm>

#include "tests/fuzz/support/fuzz.h"
#include "tools/macro/asm.h"

namespace {

constexpr std::size_t kLookedAt = 1 << 12;  // bytes of code; more only take time

void CheckSame(const std::string &code) {
  std::string again;
  AsmErrors errors;
  FUZZ_CHECK(Asm_Assemble(Asm_Disassemble(code), true, &again, &errors));
  FUZZ_CHECK(again == code);
}

void CheckLines(const AsmProgram &program) {
  std::size_t before = 0;
  for (const AsmLine &line : program.lines) {
    FUZZ_CHECK(line.line >= 1 && line.offset >= before && line.offset <= program.code.size());
    before = line.offset;
  }
  FUZZ_CHECK(program.code.empty() || program.lines.front().offset == 0);
  const std::string listing = Asm_Listing(program);
  FUZZ_CHECK(static_cast<std::size_t>(std::count(listing.begin(), listing.end(), '\n')) >=
             program.lines.size());
}

std::string CheckErrors(const AsmErrors &errors) {
  std::string shown;
  FUZZ_CHECK(!errors.first.empty() && errors.first.size() <= kAsmErrors);
  FUZZ_CHECK(errors.more == 0 || errors.first.size() == kAsmErrors);
  for (const AsmError &error : errors.first) {
    FUZZ_CHECK(error.line >= 1 && error.column >= 1);
    FUZZ_CHECK(error.text.starts_with("expected "));
    FUZZ_CHECK(error.mark <= error.source.size() && error.source.size() <= 100);
    shown += error.file + ':' + std::to_string(error.line) + ':' + std::to_string(error.column) +
             ": " + error.text + '\n';
  }
  return shown;
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  const auto load = [&](const std::string &path, std::string *text) {
    if (path.size() != 1 || path[0] < '1' || path[0] > '9') return false;
    *text = input[static_cast<std::size_t>(path[0] - '0')].Whole();
    return true;
  };
  AsmProgram program;
  program.sources.push_back({"", input[0].Whole()});
  CheckSame(program.sources.front().text.substr(0, kLookedAt));
  const bool is_right = Asm_Assemble(load, true, &program);
  FUZZ_CHECK(is_right == program.errors.first.empty());
  if (!is_right) return CheckErrors(program.errors);
  FUZZ_CHECK(program.code.size() <= kMacroLimit);
  if (program.code.size() > kLookedAt) return program.code;
  CheckLines(program);
  CheckSame(program.code);
  return program.code;
}
