#include "macro/exec.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "debug/log.h"
#include "debug/signal_hold.h"
#include "debug/text.h"
#include "macro/cursor.h"
#include "macro/ops.h"
#include "macro/table.h"

namespace {

constexpr int kFetchSize = 32768;      // of a document that op 13 fetches
constexpr int kDocumentLimit = 39000;  // of a document with what was inserted into it

struct Run {
  Macro_FetchFn fetch;  // set once
  // Kept: registers outlive a run, so a macro can find what an earlier document of the page left.
  int registers[kMacroRegisters];
  const unsigned char *code;
  int code_size;
  int at;     // of the next byte of code
  int op;     // the instruction that runs
  int op_at;  // its offset
  char *output;
  int capacity;
  int count;  // bytes written
  int room;   // bytes free behind the document
  int stack[kMacroStack];
  int depth;
  bool failed;                    // ends the run
  char name[kMacroNameSize + 2];  // a page alone: what is used of it is touched
  CmdHdr hdr;                     // of the fetch
};

// One run at a time; the source of documents and the registers stay for the next.
Run engine;

// Ends the run; said once.
void Fail(Run *run, const char *reason) {
  if (run->failed) return;
  run->failed = true;
  DPRINTF(nullptr, kWarning, "[Macro: Exec] op-code %d at offset %d: %s\n", run->op, run->op_at,
          reason);
}

// Operands.  Once the code has run out they fail the run and give nothing.

std::string_view TakeBytes(Run *run, std::uint32_t count) {
  if (run->failed || count > static_cast<std::uint32_t>(run->code_size - run->at)) {
    Fail(run, "operand runs past the end of the macro");
    return {};
  }
  const std::string_view bytes(reinterpret_cast<const char *>(run->code + run->at), count);
  run->at += static_cast<int>(count);
  return bytes;
}

unsigned TakeByte(Run *run) {
  const std::string_view bytes = TakeBytes(run, 1);
  return bytes.empty() ? 0 : static_cast<unsigned char>(bytes[0]);
}

std::uint32_t TakeLE32(Run *run) {
  std::uint32_t value = 0;
  int shift = 0;
  for (const char byte : TakeBytes(run, 4)) {
    value |= std::uint32_t{static_cast<unsigned char>(byte)} << shift;
    shift += 8;
  }
  return value;
}

// A name of count bytes, terminated, in run->name.
void TakeName(Run *run, std::uint32_t count) {
  if (count > kMacroNameSize) return Fail(run, "name is longer than 4095");
  (void)Text_Copy(run->name, TakeBytes(run, count));
}

int TakeRegister(Run *run) {
  const unsigned number = TakeByte(run);
  if (number < kMacroRegisters) return static_cast<int>(number);
  Fail(run, "there are 16 registers");
  return 0;
}

std::size_t Room(const Run &run) { return static_cast<std::size_t>(run.capacity - run.count); }

void Emit(Run *run, std::string_view bytes) {
  if (run->failed) return;
  if (bytes.size() > Room(*run)) return Fail(run, "output is full");
  std::memcpy(run->output + run->count, bytes.data(), bytes.size());
  run->count += static_cast<int>(bytes.size());
}

void EmitDocument(Run *run) {
  Macro_Remeasure();
  const auto length = static_cast<std::size_t>(Macro_Length());
  if (length > Room(*run)) return Fail(run, "output is full");
  const char *from = Macro_Document();
  char *to = run->output + run->count;
  for (std::size_t i = 0; i < length; ++i) to[i] = from[i] == '\t' ? '\n' : from[i];
  run->count += static_cast<int>(length);
}

// The value of a field replaces the name in run->name.  A value that is too long is cut to 4096
// characters, and is not terminated by whoever cut it.
void ReadValue(Run *run, const char *field) {
  int size = kMacroNameSize + 1;
  if (Macro_GetTerms(field, run->name, &size) == nullptr) run->name[size] = '\0';
}

// The same for the field of that name.  False: there is no such field.
bool TakeValue(Run *run, int skip) {
  const char *field = Macro_FindField(run->name, skip);
  if (field != nullptr) ReadValue(run, field);
  return field != nullptr;
}

void EmitValue(Run *run, int skip) {
  if (run->failed) return;
  const char *field = Macro_FindField(run->name, skip);
  if (field != nullptr) Emit(run, Macro_Terms(field, kMacroNameSize + 1));
}

void EmitNumber(Run *run) {
  if (run->failed || !TakeValue(run, 0)) return;
  const auto number = static_cast<std::uint32_t>(Text_ToInt32(run->name));
  char bytes[4];
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<char>(number >> (8 * i) & 0xff);
  Emit(run, {bytes, sizeof bytes});
}

void Push(Run *run) {
  if (run->depth == kMacroStack) return Fail(run, "stack of 10 is full");
  run->stack[run->depth++] = Macro_Cursor();
}

void Pop(Run *run) {
  if (run->depth == 0) return Fail(run, "stack is empty");
  Macro_SetCursor(run->stack[--run->depth]);
}

// Fills the header of a fetch from "group type number".  False: a piece is missing, which ends the
// run.
bool FillRequest(Run *run, std::string_view value) {
  constexpr std::string_view kBetween = ", |";
  run->hdr = {};
  (void)Text_Copy(run->hdr.Command, "GETDOC");
  const std::string_view group = Text_Token(&value, kBetween);
  const std::string_view type = Text_Token(&value, kBetween);
  const std::string_view number = Text_Token(&value, kBetween);
  if (number.empty()) {
    run->failed = true;  // without a line: whoever asked for the document says that it failed
    return false;
  }
  constexpr std::size_t kNone = std::string_view::npos;
  if (group.find_first_of("\t\r\n") != kNone || type.find_first_of("\t\r\n") != kNone) {
    Fail(run, "a line end in the words of a fetch would end its request");
    return false;
  }
  const bool group_fits = Text_Copy(run->hdr.SearchGroup, group);
  const bool type_fits = Text_Copy(run->hdr.RecType, type);
  if (!group_fits || !type_fits)
    DPRINTF(nullptr, kWarning, "[Macro: Exec] Fetch of '%s' '%s' is cut\n", run->hdr.SearchGroup,
            run->hdr.RecType);
  run->hdr.DocNum = Text_ToInt32(number);
  return true;
}

int Fetch(Run *run, int macro, char *out, int *len) {
  return run->fetch != nullptr ? run->fetch(macro, &run->hdr, out, len, 0) : 0;
}

// Cleared, for all of it is emitted when the fetch fails.
char *AllocateFetch() {
  const SignalHold hold;
  return static_cast<char *>(std::calloc(kFetchSize + 1, 1));
}

void FreeFetch(char *buffer) {
  const SignalHold hold;
  std::free(buffer);
}

// Op 13.  Kept: a missing field leaves the name of the macro to be run as code, and a fetch that
// fails emits the whole cleared buffer.
void FetchToOutput(Run *run) {
  TakeName(run, TakeByte(run));
  if (run->failed) return;
  const char *field = Macro_FindField(run->name, 0);
  if (field == nullptr) return;
  TakeName(run, TakeByte(run));
  if (run->failed) return;
  const int macro = Macro_Open(run->name);
  ReadValue(run, field);
  if (!FillRequest(run, run->name)) return;
  char *buffer = AllocateFetch();
  if (buffer == nullptr) return Fail(run, "no memory for a fetch");
  int len = kFetchSize;
  Fetch(run, macro, buffer, &len);
  Emit(run, {buffer, static_cast<std::size_t>(len)});
  FreeFetch(buffer);
}

// Ops 14 and 15.
void FetchIntoDocument(Run *run, int skip) {
  TakeName(run, TakeByte(run));
  if (run->failed || !TakeValue(run, skip)) return;
  DPRINTF(nullptr, kWarning, "[Macro: Exec] FOLE_INSERT %s\n", run->name);
  if (!FillRequest(run, run->name)) return;
  const int before = Macro_Length();
  int len = std::max(0, std::min(kDocumentLimit - before, run->room));
  Fetch(run, 0, Macro_Document() + before, &len);
  Macro_Remeasure();
  run->room -= Macro_Length() - before;
}

void Undefined(const Run *run) {
  // Kept: the same byte is read again, until a signal ends the process.
  DPRINTF(nullptr, kWarning, "\n[undefined op-code = %u]\n", static_cast<unsigned>(run->op));
}

// The byte at the instruction pointer; the end of the code stops like op-code 0.
int NextOp(const Run &run) { return run.at < run.code_size ? int{run.code[run.at]} : kOpEnd; }

void Step(Run *run) {
  run->op_at = run->at++;
  switch (run->op) {
    case kOpText32: return Emit(run, TakeBytes(run, TakeLE32(run)));
    case kOpText8: return Emit(run, TakeBytes(run, TakeByte(run)));
    case kOpValue32: TakeName(run, TakeLE32(run)); return EmitValue(run, 0);
    case kOpValue8: TakeName(run, TakeByte(run)); return EmitValue(run, 0);
    case kOpValueSkip: {
      const int skip = static_cast<int>(TakeByte(run));
      TakeName(run, TakeByte(run));
      return EmitValue(run, skip);
    }
    case kOpNumber: TakeName(run, TakeByte(run)); return EmitNumber(run);
    case kOpSeek: {
      const auto offset = static_cast<std::int32_t>(TakeLE32(run));
      if (!run->failed) Macro_Seek(offset);
      return;
    }
    case kOpDocument: return EmitDocument(run);
    case kOpPush: return Push(run);
    case kOpPop: return Pop(run);
    case kOpSave: {
      const int number = TakeRegister(run);
      if (!run->failed) run->registers[number] = Macro_Cursor();
      return;
    }
    case kOpRestore: {
      const int number = TakeRegister(run);
      if (!run->failed) Macro_SetCursor(run->registers[number]);
      return;
    }
    case kOpFind:
      TakeName(run, TakeByte(run));
      if (!run->failed) Macro_FindField(run->name, 0);
      return;
    case kOpFetch: return FetchToOutput(run);
    case kOpInsert: return FetchIntoDocument(run, 0);
    case kOpInsertSkip: return FetchIntoDocument(run, static_cast<int>(TakeByte(run)));
    default: run->at = run->op_at; return Undefined(run);
  }
}

}  // namespace

void Macro_SetFetch(Macro_FetchFn fetch) { engine.fetch = fetch; }

int Macro_Exec(int handle, char *document, char *output, int *len, int room) {
  Run &run = engine;
  run.code = Macro_Code(handle, &run.code_size);
  run.at = run.op = run.op_at = run.count = run.depth = 0;
  run.output = output;
  run.capacity = std::max(*len, 0);
  run.room = room;
  run.failed = false;
  Macro_SetInput(document);
  if (run.code == nullptr) Fail(&run, "macro is not open");

  while (!run.failed && (run.op = NextOp(run)) != kOpEnd) Step(&run);
  if (run.failed) return -1;
  DPRINTF(nullptr, kStatus, "[Macro: Exec] done\n");
  *len = run.count;
  return 1;
}
