#include "tools/macro/model.h"

#include <algorithm>
#include <vector>

#include "debug/text.h"
#include "macro/ops.h"
#include "protocol/cmd_hdr.h"
#include "tools/macro/decode.h"

namespace {

constexpr std::size_t kNone = std::string_view::npos;

// A look-up that is logged is one, for whatever reason.
unsigned BitOf(Fault fault) {
  const bool looks_up = fault >= Fault::kUnknown && fault <= Fault::kOrder;
  return 1U << static_cast<unsigned>(looks_up ? Fault::kOrder : fault);
}

// The run as far as it has come.
struct Model {
  std::string document;
  const std::string *fetched;
  Instruction at = {};
  std::size_t cursor = 0;
  std::vector<std::size_t> stack = {};
  std::size_t registers[kMacroRegisters] = {};
  bool written[kMacroRegisters] = {};
  std::size_t output = 0;
  bool ends = false;
  ModelRun run = {};
};

void See(Model *model, Fault fault) { model->run.seen[model->at.offset] |= BitOf(fault); }

void Fail(Model *model, Fault fault) {
  See(model, fault);
  model->ends = true;
}

void Emit(Model *model, std::size_t size) {
  if (size > kMessageSize - model->output) return Fail(model, Fault::kOutput);
  model->output += size;
}

// Where the field begins; kNone: it is not found.
std::size_t LookUp(Model *model) {
  const std::string_view name = Decode_Name(model->at.text);
  std::string pattern = "\t";
  pattern.append(name).append("=");
  std::size_t at = kNone;
  if (pattern.size() <= kPatternMost) {
    at = model->document.find(pattern, model->cursor);
    if (at == kNone) {
      See(model, Fault::kOrder);
      at = model->document.find(pattern);
    }
  }
  for (std::size_t skip = Decode_Skip(model->at); at != kNone && skip > 0; --skip)
    at = model->document.find(pattern, at + 1);
  if (at == kNone)
    See(model, Fault::kLacks);
  else
    model->cursor = at;
  return at;
}

std::string_view ValueAt(const Model &model, std::size_t at) {
  const std::string_view rest =
      std::string_view(model.document).substr(model.document.find('=', at) + 1);
  return rest.substr(0, rest.find('\t'));
}

// The value of a look-up; false: there is none.
bool TakeValue(Model *model, std::string_view *value) {
  const std::size_t at = LookUp(model);
  if (at == kNone) return false;
  *value = ValueAt(*model, at);
  if (value->size() > kValueMost) See(model, Fault::kValue);
  return true;
}

void Value(Model *model) {
  std::string_view value;
  if (!TakeValue(model, &value)) return;
  if (value.find('<') != kNone) See(model, Fault::kHtml);
  if (!value.empty()) ++model->run.values[model->cursor];
  Emit(model, std::min(value.size(), kValueMost + 1));
}

// Whether a value has the three words of a document's name.
bool IsReference(std::string_view value) {
  int words = 0;
  while (words < 3 && !Text_Token(&value, ", |").empty()) ++words;
  return words == 3;
}

void Fetch(Model *model) {
  std::string_view value;
  if (!TakeValue(model, &value)) return Fail(model, Fault::kFetchLacks);
  if (!IsReference(value)) return Fail(model, Fault::kWords);
  See(model, Fault::kHtml);
  // One that fails writes the whole buffer.
  Emit(model, model->fetched->empty() ? kFetchMost : std::min(model->fetched->size(), kFetchMost));
  if (!model->ends) See(model, Fault::kFetchSlots);  // and the page goes on
}

void Insert(Model *model) {
  std::string_view value;
  if (!TakeValue(model, &value)) return;
  See(model, Fault::kInsertLine);
  if (!IsReference(value)) return Fail(model, Fault::kWords);
  const std::size_t size = model->document.size();
  const std::size_t room = kInsertMost - std::min(kInsertMost, size);
  if (model->fetched->size() > room) See(model, Fault::kInsertRoom);
  model->document += model->fetched->substr(0, room);
}

void Restore(Model *model) {
  if (!model->written[model->at.number]) See(model, Fault::kRegister);
  model->cursor = model->registers[model->at.number];
}

void Step(Model *model) {
  switch (model->at.op) {
    case kOpText8:
    case kOpText32: return Emit(model, model->at.text.size());
    case kOpValue8:
    case kOpValue32:
    case kOpValueSkip: return Value(model);
    case kOpNumber:
      if (std::string_view value; TakeValue(model, &value)) Emit(model, 4);
      return;
    case kOpSeek:
      if (model->at.number < model->document.size()) model->cursor = model->at.number;
      return;
    case kOpDocument:
      if (model->document.find('<') != kNone) See(model, Fault::kHtml);
      return Emit(model, model->document.size());
    case kOpPush:
      if (model->stack.size() == kMacroStack) return Fail(model, Fault::kStackFull);
      return model->stack.push_back(model->cursor);
    case kOpPop:
      if (model->stack.empty()) return Fail(model, Fault::kStackEmpty);
      model->cursor = model->stack.back();
      return model->stack.pop_back();
    case kOpSave:
      model->registers[model->at.number] = model->cursor;
      model->written[model->at.number] = true;
      return;
    case kOpRestore: return Restore(model);
    case kOpFind: LookUp(model); return;
    case kOpEnd: return;
    case kOpFetch: return Fetch(model);
    default: return Insert(model);
  }
}

Fault FaultOf(Decoding decoding) {
  if (decoding == Decoding::kUndefined) return Fault::kUndefined;
  return decoding == Decoding::kCut ? Fault::kCut : Fault::kBeyond;
}

// What stands at the offset; whatever is no instruction ends the run.
void StepAt(std::string_view code, std::size_t offset, Model *model) {
  const Decoding decoding = Decode_At(code, offset, &model->at);
  model->run.reached = offset;
  if (decoding == Decoding::kInstruction)
    Step(model);
  else if (decoding == Decoding::kCut && Decode_IsFetch(model->at) && LookUp(model) == kNone)
    Fail(model, Fault::kFetchLacks);
  else
    Fail(model, FaultOf(decoding));
}

}  // namespace

ModelRun Model_Run(std::string_view code, const std::string &document, const std::string &fetched) {
  Model model = {document, &fetched};
  bool is_over = false;
  for (std::size_t i = 0; i < code.size() && !is_over; i += model.at.size) {
    StepAt(code, i, &model);
    is_over = model.ends || model.at.op == kOpEnd;
  }
  if (!model.ends && model.output == 0) See(&model, Fault::kNothing);
  model.run.output = model.output;
  return model.run;
}

bool Model_Shows(const ModelRun &run, const Finding &finding) {
  const auto at = run.seen.find(finding.offset);
  return at != run.seen.end() && (at->second & BitOf(finding.fault)) != 0;
}
