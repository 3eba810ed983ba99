#include "tools/macro/witness.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <random>
#include <set>

#include "macro/ops.h"
#include "protocol/cmd_hdr.h"
#include "tools/macro/decode.h"
#include "tools/macro/model.h"

namespace {

constexpr std::uint32_t kChances = 100;
constexpr std::size_t kPlacesMost = 500;      // for which each is left out once
constexpr std::size_t kPlainMost = 64;        // names that a fetch or an insert looks up
constexpr std::size_t kWorkMost = 300000000;  // instructions times bytes of documents
constexpr std::string_view kReference = "Group Type 1";
constexpr std::string_view kShortReference = "G T 1";

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

// The three words of a document's name, as a place has room for them.
std::string_view ReferenceFor(const Place &place) {
  if (!place.refers) return "";
  return place.most < kReference.size() ? kShortReference : kReference;
}

// A value of so many bytes, as far as the place has them and a reference needs no more.
std::string Filled(const Place &place, std::size_t size) {
  std::string value(ReferenceFor(place));
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
  const ModelRun run = Model_Run(code, Written(documents, ample), "");
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

// The names that are looked up, each as often as a look-up wants it.
std::vector<std::string> NamesIn(std::string_view code) {
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

// A document that a value names: the names from that one on, with values that fill a page, or short
// ones, and then as large as one of this kind brings, or no larger.
std::string Named(const Documents &documents, const std::vector<std::string> &names,
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
        drafts->list.back().fetched = Named(*drafts->documents, NamesIn(code), 0, is_short);
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

// Where nobody has said that values name documents: all but those of one name do.
void AddPlain(Drafts *drafts) {
  std::set<std::string> names;
  for (const Place &place : drafts->documents->places)
    if (!place.told && names.size() < kPlainMost) names.insert(place.name);
  for (const std::string &name : names) {
    Documents documents = *drafts->documents;
    for (Place &place : documents.places) place.refers &= place.told || place.name != name;
    drafts->list.push_back(Ample(documents, 1));
  }
}

Drafts DraftsFor(std::string_view code, const Documents &documents,
                 const std::vector<Finding> &findings) {
  Drafts drafts = {&documents, {}};
  drafts.list.push_back(Ample(documents, 1));
  drafts.list.push_back(WithValues(documents, "<b>&"));
  for (const bool is_short : {false, true}) {
    const std::vector<std::string> names = NamesIn(code);
    drafts.list.push_back(Ample(documents, 1));
    drafts.list.back().fetched = Named(documents, names, is_short ? 2 * names.size() : 0, is_short);
  }
  drafts.list.push_back(WithValues(documents, "x"));
  drafts.list.push_back(Ample(documents, 0));
  drafts.list.push_back(Ample(documents, 0));
  LeaveOut(documents, "", &drafts.list.back());
  AddLacking(&drafts);
  AddLongest(code, findings, &drafts);
  AddSought(code, &drafts);
  AddPlain(&drafts);
  drafts.list.push_back(WithValues(documents, std::string(kValueMost + 1, 'x')));
  return drafts;
}

// One place, by chance, as long as there are bytes left; what names a document does not always.
void Redraw(const Documents &documents, std::size_t number, std::minstd_rand *random,
            std::size_t *left, Draft *draft) {
  Place place = documents.places[number];
  if (!place.told) place.refers = place.refers && (*random)() % 4 > 0;
  const bool follows = number > 0 && documents.places[number - 1].name == place.name;
  const bool may_be_there = !follows || draft->has[number - 1];
  draft->has[number] = place.always || (may_be_there && (*random)() % 4 > 0);
  const std::size_t most = std::min(place.most, *left);
  const std::size_t sizes[] = {0, 1, most, (*random)() % (most + 1)};
  draft->values[number] = Filled(place, sizes[(*random)() % 4]);
  *left -= std::min(*left, draft->values[number].size());
}

// What was looked for, and what has come furthest so far.
struct Search {
  std::string_view code;
  const Documents *documents;
  std::vector<Finding> *findings;
  std::vector<std::string> names;
  std::size_t instructions;
  std::size_t *work;  // that is left
  Draft best = {};
  std::pair<std::size_t, std::size_t> reached = {};  // an instruction, and bytes of output
};

// One more, by chance: which number it is decides.  Every other one is a little different from the
// best.
Draft Chance(const Search &search, std::uint32_t number) {
  const Documents &documents = *search.documents;
  std::minstd_rand random(number);
  const bool is_new = number % 2 == 0 || search.best.has.empty();
  Draft draft = is_new ? Ample(documents, 0) : search.best;
  std::size_t left = kDocumentMost - std::min(kDocumentMost, Documents_Frame(documents));
  for (std::size_t i = 0; i < draft.has.size(); ++i)
    if (is_new || random() % draft.has.size() < 2) Redraw(documents, i, &random, &left, &draft);
  if (is_new || random() % 4 == 0) {
    draft.fetched.clear();
    const bool is_short = random() % 2 == 0;
    if (random() % 3 > 0) draft.fetched = Named(documents, search.names, random(), is_short);
  }
  return draft;
}

bool IsAllShown(const std::vector<Finding> &findings) {
  return std::all_of(findings.begin(), findings.end(), [](const Finding &f) { return f.shown; });
}

// Tries a document, as long as there is time.
void Try(const Draft &draft, Search *search) {
  if (*search->work == 0 || IsAllShown(*search->findings)) return;
  const Witness witness = {Written(*search->documents, draft), 1, draft.fetched};
  if (witness.document.size() > kMessageSize) return;
  const std::size_t steps = search->instructions * (witness.document.size() / 64 + 1);
  *search->work -= std::min(*search->work, steps);
  const ModelRun run = Model_Run(search->code, witness.document, witness.fetched);
  for (Finding &finding : *search->findings) {
    if (finding.shown || !Model_Shows(run, finding)) continue;
    finding.shown = true;
    finding.witness = witness;
    if (finding.fault == Fault::kFetchSlots) finding.witness.times = 20;
  }
  const std::pair<std::size_t, std::size_t> reached = {run.reached, run.output};
  if (reached < search->reached) return;
  search->reached = reached;
  search->best = draft;
}

std::size_t InstructionsIn(std::string_view code) {
  std::size_t count = 1;
  Instruction at;
  for (std::size_t i = 0; i < code.size() && code[i] != kOpEnd; i += at.size, ++count)
    if (Decode_At(code, i, &at) != Decoding::kInstruction) break;
  return count;
}

// The drafts, and then some by chance.
void Look(std::string_view code, const Documents &documents, std::vector<Finding> *findings,
          std::size_t *work) {
  Search search = {code, &documents, findings, NamesIn(code), InstructionsIn(code), work};
  for (const Draft &draft : DraftsFor(code, documents, *findings).list) Try(draft, &search);
  for (std::uint32_t number = 1; number <= kChances && !IsAllShown(*findings); ++number)
    Try(Chance(search, number), &search);
}

// The same documents, each field of a fetch or an insert naming another.
Documents Referring(std::string_view code, Documents documents) {
  std::set<std::string_view> names;
  Instruction at;
  for (std::size_t i = 0; i < code.size(); i += at.size) {
    const bool is_cut = Decode_At(code, i, &at) != Decoding::kInstruction;
    if (at.op == kOpFetch || at.op == kOpInsert || at.op == kOpInsertSkip)
      names.insert(Decode_Name(at.text));
    if (is_cut || at.op == kOpEnd) break;
  }
  for (Place &place : documents.places)
    if (names.count(place.name) == 1 && place.most >= kReferenceLeast && !place.refers) {
      place.refers = true;
      place.told = false;
      place.brings = kDocumentMost;  // nobody has said less
    }
  return documents;
}

}  // namespace

void Witness_Find(std::string_view code, const Documents &documents,
                  std::vector<Finding> *findings) {
  if (findings->empty()) return;
  std::size_t work = kWorkMost;
  Look(code, documents, findings, &work);
  // Behind a fetch or an insert a run comes alone where the value names a document.
  const Documents referring = Referring(code, documents);
  Look(code, referring, findings, &work);
}
