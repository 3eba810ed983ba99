#include "tools/macro/draft.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <set>

#include "macro/ops.h"
#include "tools/macro/decode.h"
#include "tools/macro/model.h"

namespace {

constexpr std::size_t kPlacesMost = 500;  // for which each is left out once
constexpr std::size_t kPlainMost = 64;    // names that a fetch or an insert looks up
constexpr std::string_view kReference = "Group Type 1";
constexpr std::string_view kShortReference = "G T 1";

struct Drafts {
  const Documents *documents;
  std::vector<Draft> list;
};

// The three words of a document's name, as a place has room for them.
std::string_view ReferenceFor(const Place &place) {
  if (!place.refers) return "";
  return place.most < kReference.size() ? kShortReference : kReference;
}

std::size_t SizeOf(const Documents &documents, const Draft &draft) {
  std::size_t size = 2;
  for (std::size_t i = 0; i < draft.has.size(); ++i)
    if (draft.has[i]) size += documents.places[i].name.size() + 2 + draft.values[i].size();
  return size;
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
    drafts->list.push_back(Draft_Ample(documents, 1));
    for (std::size_t i = 0; i < documents.places.size(); ++i)
      if (documents.places[i].name == place.name &&
          (!documents.given || !documents.places[i].always))
        drafts->list.back().has[i] = false;
  }
}

// How often each place is written, as a run over a document of all of them shows it.
std::vector<std::size_t> Weights(std::string_view code, const Documents &documents) {
  std::vector<std::size_t> starts, weights(documents.places.size());
  const Draft ample = Draft_Ample(documents, 1);
  std::size_t start = 0;
  for (std::size_t i = 0; i < weights.size(); ++i) {
    starts.push_back(start);
    start += documents.places[i].name.size() + 2 + ample.values[i].size();
  }
  const ModelRun run = Model_Run(code, Draft_Written(documents, ample), "");
  for (std::size_t i = 0; i < weights.size(); ++i) {
    const auto written = run.values.find(starts[i]);
    if (written != run.values.end()) weights[i] = written->second;
  }
  return weights;
}

// What is written most often is longest; whatever is never written fills up what is left of fits
// bytes, or is left out where a document may lack it.
Draft Longest(const Documents &documents, const std::vector<std::size_t> &weights, bool fill,
              std::size_t fits) {
  Draft draft = Draft_Ample(documents, 0);
  std::vector<std::size_t> order(weights.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return weights[a] > weights[b]; });
  for (std::size_t i = 0; i < weights.size(); ++i)
    if (!documents.places[i].always && weights[i] == 0) draft.has[i] = fill;
  for (const std::size_t i : order) {
    const std::size_t size = SizeOf(documents, draft);
    if (draft.has[i] && size < fits)
      draft.values[i] = Draft_Value(documents.places[i], draft.values[i].size() + fits - size);
  }
  return draft;
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
      const Draft longest = Longest(*drafts->documents, weights, fill, fits);
      drafts->list.push_back(longest);  // every fetch fails
      for (const bool is_short : {false, true}) {
        drafts->list.push_back(longest);
        drafts->list.back().fetched =
            Draft_Named(*drafts->documents, Draft_Names(code), 0, is_short);
      }
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
      Draft draft = Draft_Ample(documents, 0);
      // From behind, so that those in front stay short.
      for (std::size_t i = stop; i-- > 0;) {
        Draft front = draft;
        for (std::size_t k = stop; k < front.has.size(); ++k) front.has[k] = false;
        const std::size_t size = SizeOf(documents, front);
        if (size < offset + 3)
          draft.values[i] =
              Draft_Value(documents.places[i], draft.values[i].size() + offset + 3 - size);
      }
      drafts->list.push_back(draft);
    }
}

Draft WithValues(const Documents &documents, std::string_view value) {
  Draft draft = Draft_Ample(documents, 1);
  for (std::size_t i = 0; i < draft.values.size(); ++i)
    draft.values[i] =
        std::string(documents.places[i].begins).append(value).substr(0, documents.places[i].most);
  return draft;
}

// Where nobody has said that values name documents: all but those of one name do.
void AddPlain(Drafts *drafts) {
  std::set<std::string> names;
  for (const Place &place : drafts->documents->places)
    if (!place.told && names.size() < kPlainMost) names.insert(place.name);
  for (const std::string &name : names) {
    Documents documents = *drafts->documents;
    for (Place &place : documents.places) place.refers &= place.told || place.name != name;
    drafts->list.push_back(Draft_Ample(documents, 1));
  }
}

}  // namespace

std::string Draft_Value(const Place &place, std::size_t size) {
  std::string value = place.begins;
  value += ReferenceFor(place);
  size = std::min(size, place.most);
  if (value.size() < size) value.resize(size, place.refers ? ' ' : 'x');
  return value;
}

Draft Draft_Ample(const Documents &documents, std::size_t size) {
  Draft draft;
  for (const Place &place : documents.places) {
    draft.has.push_back(true);
    draft.values.push_back(Draft_Value(place, size));
  }
  return draft;
}

std::string Draft_Written(const Documents &documents, const Draft &draft) {
  std::string text;
  for (std::size_t i = 0; i < draft.has.size(); ++i)
    if (draft.has[i])
      text.append("\t").append(documents.places[i].name).append("=").append(draft.values[i]);
  return text.append("\t\n");
}

std::vector<std::string> Draft_Names(std::string_view code) {
  std::vector<std::string> names;
  std::map<std::string_view, std::size_t> known;
  Instruction at;
  for (std::size_t i = 0; i < code.size(); i += at.size) {
    if (Decode_At(code, i, &at) != Decoding::kInstruction || at.op == kOpEnd) break;
    if (!Decode_LooksUp(at.op)) continue;
    const std::string_view name = Decode_Name(at.text);
    std::size_t &times = known[name];
    for (; times < Decode_Skip(at) + 1; ++times) names.emplace_back(name);
  }
  return names;
}

std::string Draft_Named(const Documents &documents, const std::vector<std::string> &names,
                        std::size_t first, bool is_short) {
  std::size_t brings = 0;
  for (const Place &place : documents.places) brings = std::max(brings, place.brings);
  const std::string values[] = {std::string(kValueMost + 1, 'x'), std::string(kReference), "x", ""};
  std::string text;
  for (std::size_t i = 0; i < names.size() && text.size() < brings; ++i)
    text.append("\t")
        .append(names[(first + i) % names.size()])
        .append("=")
        .append(values[first / names.size() % std::size(values)]);
  text.resize(is_short ? std::min(text.size(), brings) : brings, 'x');
  return text;
}

Documents Draft_Referring(std::string_view code, Documents documents) {
  std::set<std::string_view> names;
  Instruction at;
  for (std::size_t i = 0; i < code.size(); i += at.size) {
    const bool is_cut = Decode_At(code, i, &at) != Decoding::kInstruction;
    if (at.op == kOpFetch || at.op == kOpInsert || at.op == kOpInsertSkip)
      names.insert(Decode_Field(Decode_Name(at.text)));
    if (is_cut || at.op == kOpEnd) break;
  }
  for (Place &place : documents.places)
    if (names.contains(place.name) && place.most >= kReferenceLeast && !place.refers) {
      place.refers = true;
      place.told = false;
      place.brings = kDocumentMost;  // nobody has said less
    }
  return documents;
}

bool Draft_Begin(std::string_view code, std::size_t turn, Documents *documents) {
  std::map<std::string_view, std::vector<std::string_view>> begins;
  Instruction at;
  for (std::size_t i = 0; i < code.size(); i += at.size) {
    const bool is_cut = Decode_At(code, i, &at) != Decoding::kInstruction;
    const std::string_view name = Decode_Name(at.text);
    if (Decode_LooksUp(at.op) && name.find('=') != std::string_view::npos)
      begins[Decode_Field(name)].push_back(name);
    if (is_cut || at.op == kOpEnd) break;
  }
  for (std::size_t i = 0; i < documents->places.size(); ++i) {
    Place &place = documents->places[i];
    const auto wanted = begins.find(place.name);
    const bool is_last =
        i + 1 == documents->places.size() || documents->places[i + 1].name != place.name;
    if (wanted == begins.end() || (turn % 2 == 1 && is_last)) continue;
    const std::string_view name = wanted->second[turn / 2 % wanted->second.size()];
    const std::string begin = Decode_Begin(name);
    const bool is_whole = name.find('\t') != std::string_view::npos;
    const std::size_t least = begin.size() + (place.refers ? kReferenceLeast : 0);
    if (least > place.most || (is_whole && place.refers)) continue;
    place.begins = begin;
    if (is_whole) place.most = begin.size();
  }
  return !begins.empty();
}

std::vector<Draft> Draft_Simple(std::string_view code, const Documents &documents) {
  std::vector<Draft> drafts;
  drafts.push_back(Draft_Ample(documents, 1));
  drafts.push_back(WithValues(documents, "<b>&"));
  for (const bool is_short : {false, true}) {
    const std::vector<std::string> names = Draft_Names(code);
    drafts.push_back(Draft_Ample(documents, 1));
    drafts.back().fetched =
        Draft_Named(documents, names, is_short ? 2 * names.size() : 0, is_short);
  }
  drafts.push_back(WithValues(documents, "x"));
  drafts.push_back(Draft_Ample(documents, 0));
  drafts.push_back(Draft_Ample(documents, 0));
  LeaveOut(documents, "", &drafts.back());
  return drafts;
}

std::vector<Draft> Draft_Aimed(std::string_view code, const Documents &documents,
                               const std::vector<Finding> &findings) {
  Drafts drafts = {&documents, {}};
  AddLacking(&drafts);
  AddLongest(code, findings, &drafts);
  AddSought(code, &drafts);
  AddPlain(&drafts);
  drafts.list.push_back(WithValues(documents, std::string(kValueMost + 1, 'x')));
  return drafts.list;
}
