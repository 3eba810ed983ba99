#include "tools/macro/form.h"

#include "protocol/cmd_hdr.h"

namespace {

constexpr Operand kText8 = {true, 1, 255,
                            "a text in quotes of at most 255 bytes (text32 takes longer ones)"};
constexpr Operand kText32 = {true, 4, kMessageSize,
                             "a text in quotes of at most 40960 bytes, which a page takes"};
constexpr Operand kName8 = {true, 1, 255, "a name in quotes of at most 255 bytes"};
constexpr Operand kName32 = {true, 4, kMacroNameSize, "a name in quotes of at most 4095 bytes"};
constexpr Operand kSkip = {false, 1, 255, "a number of matches to skip, from 0 to 255"};
constexpr Operand kRegister = {false, 1, kMacroRegisters - 1, "a register from 0 to 15"};
constexpr Operand kOffset = {false, 4, UINT32_MAX, "an offset from 0 to 4294967295"};

constexpr Form kForms[] = {
    {"end", kOpEnd, {}},
    {"text", kOpText8, {&kText8}},
    {"text32", kOpText32, {&kText32}},
    {"value", kOpValue8, {&kName8}},
    {"value32", kOpValue32, {&kName32}},
    {"value-skip", kOpValueSkip, {&kSkip, &kName8}},
    {"number", kOpNumber, {&kName8}},
    {"document", kOpDocument, {}},
    {"find", kOpFind, {&kName8}},
    {"seek", kOpSeek, {&kOffset}},
    {"push", kOpPush, {}},
    {"pop", kOpPop, {}},
    {"save", kOpSave, {&kRegister}},
    {"restore", kOpRestore, {&kRegister}},
    {"fetch", kOpFetch, {&kName8, &kName8}},
    {"insert", kOpInsert, {&kName8}},
    {"insert-skip", kOpInsertSkip, {&kSkip, &kName8}},
};

}  // namespace

const Form *Form_Of(std::string_view mnemonic) {
  for (const Form &form : kForms)
    if (form.mnemonic == mnemonic) return &form;
  return nullptr;
}

const Form *Form_Of(unsigned char op) {
  for (const Form &form : kForms)
    if (form.op == op) return &form;
  return nullptr;
}
