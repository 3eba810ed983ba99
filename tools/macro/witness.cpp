#include "tools/macro/witness.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <set>
#include <unordered_map>

#include "debug/text.h"
#include "macro/ops.h"
#include "protocol/cmd_hdr.h"
#include "tools/macro/decode.h"

namespace {

constexpr std::size_t kFetchMost = 32768;
constexpr std::size_t kInsertMost = 39000;
constexpr std::size_t kPatternMost = 1024;
constexpr std::uint32_t kChances = 100;
constexpr std::size_t kPlacesMost = 500;      // for which each is left out once
constexpr std::size_t kWorkMost = 300000000;  // bytes of code times bytes of documents
constexpr std::size_t kNone = std::string_view::npos;
constexpr std::string_view kReference = "Group Type 1";

// What one run over one document comes to: of an instruction, the faults that it shows.
using Seen = std::unordered_map<std::size_t, unsigned>;

// A look-up that is logged is one, for whatever reason.
unsigned BitOf(Fault fault) {
  const bool looks_up = fault >= Fault::kUnknown && fault <= Fault::kOrder;
  return 1U << static_cast<unsigned>(looks_up ? Fault::kOrder : fault);
}

bool IsSeen(const Seen &seen, const Finding &finding) {
  const auto at = seen.find(finding.offset);
  return at != seen.end() && (at->second & BitOf(finding.fault)) != 0;
}

// The run: what the service does, less what it sends.
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
  Seen seen = {};
};

void See(Model *model, Fault fault) { model->seen[model->at.offset] |= BitOf(fault); }

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
  const bool skips = model->at.op == kOpValueSkip || model->at.op == kOpInsertSkip;
  std::size_t at = kNone;
  if (pattern.size() <= kPatternMost) {
    at = model->document.find(pattern, model->cursor);
    if (at == kNone) {
      See(model, Fault::kOrder);
      at = model->document.find(pattern);
    }
  }
  for (std::size_t skip = skips ? model->at.number : 0; at != kNone && skip > 0; --skip)
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
    case kOpFetch: return Fetch(model);
    default: return Insert(model);
  }
}

Fault FaultOf(Decoding decoding) {
  if (decoding == Decoding::kUndefined) return Fault::kUndefined;
  return decoding == Decoding::kCut ? Fault::kCut : Fault::kBeyond;
}

Seen Run(std::string_view code, const Witness &witness) {
  Model model = {witness.document, &witness.fetched};
  for (std::size_t i = 0; i < code.size() && !model.ends; i += model.at.size) {
    const Decoding decoding = Decode_At(code, i, &model.at);
    const bool is_fetch = model.at.op == kOpFetch && !model.at.text.empty();
    if (decoding == Decoding::kCut && is_fetch && LookUp(&model) == kNone)
      Fail(&model, Fault::kFetchLacks);
    else if (decoding != Decoding::kInstruction)
      Fail(&model, FaultOf(decoding));
    else if (model.at.op == kOpEnd)
      break;
    else
      Step(&model);
  }
  if (!model.ends && model.output == 0) See(&model, Fault::kNothing);
  return model.seen;
}

// The documents that are tried: for each place the value, or that it is left out.
struct Draft {
  std::vector<bool> has;
  std::vector<std::string> values;
  std::string fetched;
};

struct Drafts {
  const Documents *documents;
  std::vector<Draft> list;
};

// A value of so many bytes, as far as the place has them and a reference needs no more.
std::string Filled(const Place &place, std::size_t size) {
  std::string value(place.refers ? kReference : "");
  size = std::min(size, place.most);
  if (value.size() < size) value.resize(size, place.refers ? ' ' : 'x');
  return value;
}

Draft Ample(const Documents &documents, std::size_t size) {
  Draft draft;
  for (const Place &place : documents.places) {
    draft.has.push_back(true);
    draft.values.push_back(Filled(place, size));
  }
  return draft;
}

std::string Written(const Documents &documents, const Draft &draft) {
  std::string text;
  for (std::size_t i = 0; i < draft.has.size(); ++i)
    if (draft.has[i])
      text.append("\t").append(documents.places[i].name).append("=").append(draft.values[i]);
  return text.append("\t\n");
}

// Without every occurrence of that name that may be missing.
void LeaveOut(const Documents &documents, std::string_view name, Draft *draft) {
  for (std::size_t i = 0; i < documents.places.size(); ++i)
    if (!documents.places[i].always && (name.empty() || documents.places[i].name == name))
      draft->has[i] = false;
}

// For each name a document without it: what a document may lack, and what nobody has said that it
// has.
void AddLacking(Drafts *drafts) {
  const Documents &documents = *drafts->documents;
  if (documents.places.size() > kPlacesMost) return;
  std::set<std::string> names;
  for (const Place &place : documents.places) {
    if ((place.always && documents.given) || !names.insert(place.name).second) continue;
    drafts->list.push_back(Ample(documents, 1));
    for (std::size_t i = 0; i < documents.places.size(); ++i)
      if (documents.places[i].name == place.name &&
          (!documents.given || !documents.places[i].always))
        drafts->list.back().has[i] = false;
  }
}

// How often each place is written, as a run over a document of all of them shows it.
std::vector<std::size_t> Weights(std::string_view code, const Documents &documents) {
  std::vector<std::size_t> starts, weights(documents.places.size());
  const Draft ample = Ample(documents, 1);
  std::size_t start = 0;
  for (std::size_t i = 0; i < weights.size(); ++i) {
    starts.push_back(start);
    start += documents.places[i].name.size() + 2 + ample.values[i].size();
  }
  const std::string none;
  Model model = {Written(documents, ample), &none};
  for (std::size_t i = 0; i < code.size() && !model.ends; i += model.at.size) {
    if (Decode_At(code, i, &model.at) != Decoding::kInstruction || model.at.op == kOpEnd) break;
    const std::size_t before = model.output;
    Step(&model);
    const bool is_value =
        model.at.op == kOpValue8 || model.at.op == kOpValue32 || model.at.op == kOpValueSkip;
    if (!is_value || model.output == before) continue;
    const auto at = std::lower_bound(starts.begin(), starts.end(), model.cursor);
    if (at != starts.end() && *at == model.cursor)
      ++weights[static_cast<std::size_t>(at - starts.begin())];
  }
  return weights;
}

// What is written most often is longest; whatever is never written fills up what is left of fits
// bytes, or is left out where a document may lack it.
Draft Longest(const Documents &documents, const std::vector<std::size_t> &weights, bool fill,
              std::size_t fits) {
  Draft draft = Ample(documents, 0);
  std::vector<std::size_t> order(weights.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return weights[a] > weights[b]; });
  for (std::size_t i = 0; i < weights.size(); ++i)
    if (!documents.places[i].always && weights[i] == 0) draft.has[i] = fill;
  for (const std::size_t i : order) {
    const std::size_t size = Written(documents, draft).size();
    if (draft.has[i] && size < fits)
      draft.values[i] = Filled(documents.places[i], draft.values[i].size() + fits - size);
  }
  return draft;
}

// The names that are looked up, each once.
std::vector<std::string> NamesIn(std::string_view code) {
  std::vector<std::string> names;
  std::set<std::string> known;
  Instruction at;
  for (std::size_t i = 0; i < code.size(); i += at.size) {
    if (Decode_At(code, i, &at) != Decoding::kInstruction || at.op == kOpEnd) break;
    const std::string name(Decode_Name(at.text));
    if (Decode_LooksUp(at.op) && known.insert(name).second) names.push_back(name);
  }
  return names;
}

// A document to be inserted, as large as one of this kind brings: the names from that one on, with
// values that fill a page.
std::string Inserted(const Documents &documents, const std::vector<std::string> &names,
                     std::size_t first) {
  std::size_t brings = 0;
  for (const Place &place : documents.places) brings = std::max(brings, place.brings);
  std::string text;
  for (std::size_t i = 0; i < names.size() && text.size() < brings; ++i)
    text.append("\t")
        .append(names[(first + i) % names.size()])
        .append("=")
        .append(kValueMost + 1, 'x');
  text.resize(brings, 'x');
  return text;
}

void AddLongest(std::string_view code, const std::vector<Finding> &findings, Drafts *drafts) {
  // Up to the instruction that finds the page full.
  for (const Finding &finding : findings) {
    Instruction at;
    if (finding.fault != Fault::kOutput) continue;
    Decode_At(code, finding.offset, &at);
    code = code.substr(0, finding.offset + at.size);
  }
  const std::vector<std::size_t> weights = Weights(code, *drafts->documents);
  for (const std::size_t fits : {kDocumentMost, kInsertMost})
    for (const bool fill : {false, true}) {
      drafts->list.push_back(Longest(*drafts->documents, weights, fill, fits));
      drafts->list.push_back(drafts->list.back());  // every fetch fails
      drafts->list.back().fetched = Inserted(*drafts->documents, NamesIn(code), 0);
    }
}

// The place after which an offset comes to stand, each in turn.
void AddSought(std::string_view code, Drafts *drafts) {
  const Documents &documents = *drafts->documents;
  std::set<std::size_t> offsets;
  Instruction at;
  for (std::size_t i = 0; i < code.size() && offsets.size() < 8; i += at.size) {
    if (Decode_At(code, i, &at) != Decoding::kInstruction || at.op == kOpEnd) break;
    if (at.op == kOpSeek && at.number > 0 && at.number < kDocumentMost) offsets.insert(at.number);
  }
  for (const std::size_t offset : offsets)
    for (std::size_t stop = 0; stop <= std::min<std::size_t>(documents.places.size(), 64); ++stop) {
      Draft draft = Ample(documents, 0);
      // From behind, so that those in front stay short.
      for (std::size_t i = stop; i-- > 0;) {
        Draft front = draft;
        for (std::size_t k = stop; k < front.has.size(); ++k) front.has[k] = false;
        const std::size_t size = Written(documents, front).size();
        if (size < offset + 3)
          draft.values[i] = Filled(documents.places[i], draft.values[i].size() + offset + 3 - size);
      }
      drafts->list.push_back(draft);
    }
}

Draft WithValues(const Documents &documents, std::string_view value) {
  Draft draft = Ample(documents, 1);
  for (std::size_t i = 0; i < draft.values.size(); ++i)
    draft.values[i] = value.substr(0, documents.places[i].most);
  return draft;
}

Drafts DraftsFor(std::string_view code, const Documents &documents,
                 const std::vector<Finding> &findings) {
  Drafts drafts = {&documents, {}};
  drafts.list.push_back(Ample(documents, 1));
  drafts.list.push_back(WithValues(documents, "<b>&"));
  drafts.list.push_back(Ample(documents, 1));
  drafts.list.back().fetched = Inserted(documents, NamesIn(code), 0);
  drafts.list.push_back(WithValues(documents, "x"));
  drafts.list.push_back(Ample(documents, 0));
  drafts.list.push_back(Ample(documents, 0));
  LeaveOut(documents, "", &drafts.list.back());
  AddLacking(&drafts);
  AddLongest(code, findings, &drafts);
  AddSought(code, &drafts);
  drafts.list.push_back(WithValues(documents, std::string(kValueMost + 1, 'x')));
  return drafts;
}

// One more, by chance: which number it is decides.
Draft Chance(const Documents &documents, const std::vector<std::string> &names,
             std::uint32_t number) {
  std::minstd_rand random(number);
  Draft draft = Ample(documents, 0);
  std::size_t left = kDocumentMost - std::min(kDocumentMost, Documents_Frame(documents));
  for (std::size_t i = 0; i < draft.has.size(); ++i) {
    const Place &place = documents.places[i];
    const bool follows = i > 0 && documents.places[i - 1].name == place.name;
    draft.has[i] = place.always || ((!follows || draft.has[i - 1]) && random() % 4 > 0);
    const std::size_t most = std::min(place.most, left);
    const std::size_t sizes[] = {0, 1, most, random() % (most + 1)};
    draft.values[i] = Filled(place, sizes[random() % 4]);
    left -= std::min(left, draft.values[i].size());
  }
  if (random() % 2 == 0) draft.fetched = Inserted(documents, names, random());
  return draft;
}

bool IsAllShown(const std::vector<Finding> &findings) {
  return std::all_of(findings.begin(), findings.end(), [](const Finding &f) { return f.shown; });
}

// Tries a document, as long as there is time; *work is what is left of it.
void Try(std::string_view code, const Documents &documents, const Draft &draft,
         std::vector<Finding> *findings, std::size_t *work) {
  if (*work == 0 || IsAllShown(*findings)) return;
  const Witness witness = {Written(documents, draft), 1, draft.fetched};
  if (witness.document.size() > kMessageSize) return;
  const std::size_t steps = code.size() * (witness.document.size() / 64 + 1);
  *work -= std::min(*work, steps);
  const Seen seen = Run(code, witness);
  for (Finding &finding : *findings) {
    if (finding.shown || !IsSeen(seen, finding)) continue;
    finding.shown = true;
    finding.witness = witness;
    if (finding.fault == Fault::kFetchSlots) finding.witness.times = 20;
  }
}

}  // namespace

void Witness_Find(std::string_view code, const Documents &documents,
                  std::vector<Finding> *findings) {
  if (findings->empty()) return;
  std::size_t work = kWorkMost;
  for (const Draft &draft : DraftsFor(code, documents, *findings).list)
    Try(code, documents, draft, findings, &work);
  const std::vector<std::string> names = NamesIn(code);
  for (std::uint32_t number = 1; number <= kChances && !IsAllShown(*findings); ++number)
    Try(code, documents, Chance(documents, names, number), findings, &work);
}
