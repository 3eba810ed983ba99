#include "tools/macro/witness.h"

#include <algorithm>
#include <random>

#include "macro/ops.h"
#include "protocol/cmd_hdr.h"
#include "tools/macro/decode.h"
#include "tools/macro/draft.h"
#include "tools/macro/model.h"

namespace {

constexpr std::uint32_t kChances = 100;
constexpr std::size_t kTurnsMost = 6;
constexpr std::size_t kWorkMost = 300000000;  // instructions times bytes of documents

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
  draft->values[number] = Draft_Value(place, sizes[(*random)() % 4]);
  *left -= std::min(*left, draft->values[number].size());
}

// What was looked for, and what has come furthest so far.
struct Search {
  std::string_view code;
  const Documents *documents;
  std::vector<Finding> *findings;
  std::vector<std::string> names;
  std::size_t instructions;
  std::size_t work;  // that is left
  Draft best = {};
  std::pair<std::size_t, std::size_t> reached = {};  // an instruction, and bytes of output
};

// One more, by chance: which number it is decides.  Every other one is a little different from the
// best.
Draft Chance(const Search &search, std::uint32_t number) {
  const Documents &documents = *search.documents;
  std::minstd_rand random(number);
  const bool is_new = number % 2 == 0 || search.best.has.empty();
  Draft draft = is_new ? Draft_Ample(documents, 0) : search.best;
  std::size_t left = kDocumentMost - std::min(kDocumentMost, Documents_Frame(documents));
  for (std::size_t i = 0; i < draft.has.size(); ++i)
    if (is_new || random() % draft.has.size() < 2) Redraw(documents, i, &random, &left, &draft);
  if (is_new || random() % 4 == 0) {
    draft.fetched.clear();
    const bool is_short = random() % 2 == 0;
    if (random() % 3 > 0) draft.fetched = Draft_Named(documents, search.names, random(), is_short);
  }
  return draft;
}

bool IsAllShown(const std::vector<Finding> &findings) {
  return std::all_of(findings.begin(), findings.end(), [](const Finding &f) { return f.shown; });
}

// Tries a document, as long as there is time.
void Try(const Draft &draft, Search *search) {
  if (search->work == 0 || IsAllShown(*search->findings)) return;
  const Witness witness = {Draft_Written(*search->documents, draft), 1, draft.fetched};
  if (witness.document.size() > kMessageSize) return;
  const std::size_t steps = search->instructions * (witness.document.size() / 64 + 1);
  search->work -= std::min(search->work, steps);
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

// The drafts, and then some by chance; returns what is left of the work.
std::size_t Look(std::string_view code, const Documents &documents, std::vector<Finding> *findings,
                 std::size_t work) {
  Search search = {code, &documents, findings, Draft_Names(code), InstructionsIn(code), work};
  for (const Draft &draft : Draft_Simple(code, documents)) Try(draft, &search);
  if (IsAllShown(*findings)) return search.work;
  for (const Draft &draft : Draft_Aimed(code, documents, *findings)) Try(draft, &search);
  for (std::uint32_t number = 1; number <= kChances && !IsAllShown(*findings); ++number)
    Try(Chance(search, number), &search);
  return search.work;
}

}  // namespace

void Witness_Find(std::string_view code, const Documents &documents,
                  std::vector<Finding> *findings) {
  if (findings->empty()) return;
  std::size_t left = Look(code, documents, findings, kWorkMost);
  // Behind a fetch or an insert a run comes alone where the value names a document.
  const Documents referring = Draft_Referring(code, documents);
  const auto is_told = [](const Place &place) { return place.told; };
  const bool refers_more = !std::all_of(referring.places.begin(), referring.places.end(), is_told);
  if (refers_more) left = Look(code, referring, findings, left);
  for (std::size_t turn = 0; turn < kTurnsMost && !IsAllShown(*findings); ++turn)
    for (Documents begun : {documents, referring})
      if (Draft_Begin(code, turn, &begun)) left = Look(code, begun, findings, left);
}
