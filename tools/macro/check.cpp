#include "tools/macro/check.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "macro/ops.h"
#include "protocol/cmd_hdr.h"
#include "tools/common/tool.h"
#include "tools/macro/decode.h"
#include "tools/macro/witness.h"

namespace {

constexpr std::size_t kFindingsMost = 100;  // of a weight
constexpr std::size_t kPageMost = kMessageSize;

// Where the cursor may stand: on a place, which the document has then, or behind the place before
// it and in front of it.  The number of places stands for what is behind all of them.
struct Spot {
  std::size_t place = 0;
  bool on = false;
  bool operator<(const Spot &other) const {
    return place != other.place ? place < other.place : !on && other.on;
  }
};
using Spots = std::set<Spot>;

struct Register {
  bool written = false;
  Spots cursor = {Spot{}};
};

struct Output {
  std::size_t least = 0;            // bytes of texts
  std::size_t fixed = 0;            // bytes whatever the document, at most
  std::size_t copies = 0;           // of the whole document
  std::vector<std::size_t> values;  // how often each place is written
  std::set<std::size_t> certain;    // those that every run has written
  bool something = false;           // for every document
  bool full = false;                // found already
};

struct Pass {
  std::string_view code;
  Documents documents;            // whatever a run that comes so far may have
  std::set<std::size_t> fetched;  // places that a fetch has found
  std::map<std::string, std::vector<std::size_t>, std::less<>> named;  // the places of a name
  Instruction at;
  Spots cursor = {Spot{}};
  std::vector<Spots> stack;
  Register registers[kMacroRegisters];
  Output output;
  std::size_t inserted = 0;  // bytes, at most
  bool has_markup = false;
  bool ends = false;  // for certain
  std::vector<Finding> findings;
  std::size_t faults = 0;
  std::size_t costs = 0;
};

// The first of each weight are enough to go on with.
void Find(Pass *pass, Fault fault, std::string what) {
  const Finding finding = {pass->at.offset, fault, std::move(what)};
  std::size_t &count = Check_IsFault(finding) ? pass->faults : pass->costs;
  if (count++ < kFindingsMost) pass->findings.push_back(finding);
}

std::size_t Count(const Pass &pass) { return pass.documents.places.size(); }

// The most that the values add, where a document has only so much room: what is written most often
// takes it first.
std::size_t MostOfValues(const Pass &pass) {
  const std::vector<Place> &places = pass.documents.places;
  std::vector<std::pair<std::size_t, std::size_t>> pieces;  // how often, and bytes
  std::size_t frame = 2;
  for (std::size_t i = 0; i < places.size(); ++i) {
    pieces.emplace_back(pass.output.values[i], std::min(places[i].most, kValueMost + 1));
    if (places[i].always) frame += places[i].name.size() + 2;
  }
  std::sort(pieces.rbegin(), pieces.rend());
  std::size_t room = kDocumentMost - std::min(frame, kDocumentMost), most = 0;
  for (const auto &[times, bytes] : pieces) {
    const std::size_t size = std::min(bytes, room);
    most += times * size;
    room -= size;
  }
  return most;
}

// The most bytes of a document, with what was inserted so far: an insert adds up to its limit
// alone.
std::size_t LongestNow(const Pass &pass) {
  const std::size_t longest = Documents_Longest(pass.documents);
  return std::max(longest, std::min(longest + pass.inserted, kInsertMost));
}

// Looks whether the page can still hold what was added.
void CheckOutput(Pass *pass) {
  Output &output = pass->output;
  if (output.full) return;
  const std::size_t fixed = output.fixed + output.copies * Documents_Longest(pass->documents);
  std::size_t most = fixed;
  for (std::size_t i = 0; i < Count(*pass); ++i)
    most += output.values[i] * std::min(pass->documents.places[i].most, kValueMost + 1);
  if (most > kPageMost) most = fixed + MostOfValues(*pass);
  if (most <= kPageMost) return;
  output.full = true;
  Find(pass, Fault::kOutput,
       Tool_Format("the output can reach %zu bytes, and a page takes 40960", most));
}

void AddFixed(Pass *pass, std::size_t size) {
  pass->output.fixed += size;
  pass->output.something |= size > 0;
  CheckOutput(pass);
}

void Text(Pass *pass) {
  pass->output.least += pass->at.text.size();
  AddFixed(pass, pass->at.text.size());
  pass->ends |= pass->output.least > kPageMost;
}

// The field of a look-up.
struct Wanted {
  std::string_view name;
  std::size_t skip;
  const std::vector<std::size_t> *places;  // null: no document has it
};

// What a look-up finds, for every document at once.
struct Found {
  std::set<std::size_t> places;
  bool may_miss = false;
  bool inserted = false;  // perhaps a field of what was inserted
};

bool IsCertain(const Found &found) {
  return !found.may_miss && !found.inserted && found.places.size() == 1;
}

// The place skip matches behind the first one at or behind the spot: of those that a document may
// have, or of those that it has.  The number of places if there is none.
std::size_t PlaceFrom(const Pass &pass, const Wanted &wanted, Spot from, bool has) {
  std::size_t skip = wanted.skip;
  auto at = std::lower_bound(wanted.places->begin(), wanted.places->end(), from.place);
  for (; at != wanted.places->end(); ++at) {
    const bool is_there = pass.documents.places[*at].always || (from.on && from.place == *at);
    if ((is_there || !has) && skip-- == 0) return *at;
  }
  return Count(pass);
}

std::string NameShown(std::string_view name) {
  return Tool_Format("'%s'", Check_Show(name.substr(0, 64)).c_str());
}

void FindMissing(Pass *pass, const Wanted &wanted) {
  const std::string shown = NameShown(wanted.name);
  if (wanted.skip > 0)
    Find(
        pass, Fault::kLacks,
        Tool_Format("there may be fewer than %zu of %s from there on, and each time that is logged",
                    wanted.skip + 1, shown.c_str()));
  else if (PlaceFrom(*pass, wanted, {}, true) < Count(*pass))
    Find(
        pass, Fault::kOrder,
        "looks for " + shown +
            " where the cursor may stand behind it, and each time that is logged and the document read again");
  else
    Find(pass, Fault::kLacks, "a document may lack " + shown + ", and each time that is logged");
}

void AddPlaces(const Wanted &wanted, std::size_t first, std::size_t last, Found *found) {
  auto at = std::lower_bound(wanted.places->begin(), wanted.places->end(), first);
  for (; at != wanted.places->end() && *at <= last; ++at) found->places.insert(*at);
}

// Where a look-up that does not go forward to its field in every document may come to.
void LookAround(const Pass &pass, const Wanted &wanted, Spot from, Found *found) {
  const std::size_t count = Count(pass), back = wanted.places->back();
  const Wanted first = {wanted.name, 0, wanted.places};
  AddPlaces(wanted, PlaceFrom(pass, wanted, from, false), back, found);
  // Further matches are not looked for around the end.
  found->may_miss |= wanted.skip > 0 && PlaceFrom(pass, first, from, false) < count;
  if (PlaceFrom(pass, first, from, true) < count) return;
  const std::size_t last = PlaceFrom(pass, wanted, {}, true);
  AddPlaces(wanted, PlaceFrom(pass, wanted, {}, false), std::min(last, back), found);
  found->may_miss |= last == count;
}

void FindUnknown(Pass *pass, std::string_view name) {
  if (name.size() + 2 > kPatternMost)
    return Find(pass, Fault::kUnknown,
                "a name of more than 1022 bytes is never found, and each time that is logged");
  Find(pass, Fault::kUnknown,
       "no document has " + NameShown(name) + ", and each time that is logged");
}

Wanted WantedOf(const Pass &pass) {
  const std::string_view name = Decode_Name(pass.at.text);
  const auto known = pass.named.find(name);
  const bool is_known = known != pass.named.end() && name.size() + 2 <= kPatternMost;
  return {name, Decode_Skip(pass.at), is_known ? &known->second : nullptr};
}

// Moves the cursor as a look-up does, and says what it may find.
Found LookUp(Pass *pass) {
  const Wanted wanted = WantedOf(*pass);
  if (wanted.places == nullptr) {
    FindUnknown(pass, wanted.name);
    // What was inserted may have the name.
    const bool is_inserted = pass->inserted > 0;
    if (is_inserted) pass->cursor.insert({Count(*pass), false});
    return {{}, true, is_inserted};
  }
  Found found;
  Spots cursor;
  bool is_sure = true;
  for (const Spot &spot : pass->cursor) {
    Found here;
    const std::size_t has = PlaceFrom(*pass, wanted, spot, true);
    if (has < Count(*pass)) {
      AddPlaces(wanted, PlaceFrom(*pass, wanted, spot, false), has, &here);
    } else {
      LookAround(*pass, wanted, spot, &here);
      if (is_sure) FindMissing(pass, wanted);
      is_sure = false;
      // What was inserted may have the name, and not as often.
      found.inserted |= pass->inserted > 0;
      here.may_miss |= pass->inserted > 0 && wanted.skip > 0;
    }
    if (here.may_miss) cursor.insert(spot);
    found.may_miss |= here.may_miss;
    found.places.insert(here.places.begin(), here.places.end());
  }
  for (const std::size_t place : found.places) cursor.insert({place, true});
  if (found.inserted) cursor.insert({Count(*pass), false});
  pass->cursor = cursor;
  return found;
}

void FindHtml(Pass *pass) {
  if (!pass->has_markup || pass->documents.html) return;
  pass->has_markup = false;  // said once
  Find(
      pass, Fault::kHtml,
      "what a document holds stands on a page of HTML as it is; ask for documents with @SCRIPT=html");
}

// Adds the value of the field that was looked up.
void AddValue(Pass *pass, const Found &found, std::size_t most) {
  if (found.inserted)
    pass->output.fixed +=
        std::min(std::max(most, pass->inserted), kValueMost + 1);  // of an inserted one
  else if (found.places.size() == 1)
    ++pass->output.values[*found.places.begin()];
  else
    pass->output.fixed += std::min(most, kValueMost + 1);
  CheckOutput(pass);
}

// The most bytes of the values that were looked up; one that is cut is found.
std::size_t MostOf(Pass *pass, const Found &found) {
  std::size_t most = 0;
  for (const std::size_t place : found.places)
    most = std::max(most, pass->documents.places[place].most);
  if (most > kValueMost)
    Find(pass, Fault::kValue,
         Tool_Format(
             "a value can have %zu bytes; more than 4095 are cut at 4096, and that is logged",
             most));
  return most;
}

bool Refer(const Pass &pass, const Found &found) {
  return std::all_of(found.places.begin(), found.places.end(),
                     [&](std::size_t place) { return pass.documents.places[place].refers; });
}

void Value(Pass *pass) {
  const Found found = LookUp(pass);
  if (found.places.empty() && !found.inserted) return;
  FindHtml(pass);
  if (IsCertain(found)) pass->output.certain.insert(*found.places.begin());
  pass->output.something |=
      !found.may_miss && !found.inserted && Refer(*pass, found);  // three words are something
  AddValue(pass, found, MostOf(pass, found));
}

void Number(Pass *pass) {
  const Found found = LookUp(pass);
  if (found.places.empty() && !found.inserted) return;
  MostOf(pass, found);
  pass->output.fixed += 4;
  pass->output.something |= !found.may_miss;
  CheckOutput(pass);
}

void Document(Pass *pass) {
  FindHtml(pass);
  ++pass->output.copies;
  pass->output.fixed += LongestNow(*pass) - Documents_Longest(pass->documents);
  pass->output.something = true;
  CheckOutput(pass);
}

// A run that goes on has had three words in that place.
void Keep(Pass *pass, std::size_t number, std::size_t brings) {
  Place &place = pass->documents.places[number];
  pass->output.something |= pass->output.certain.count(number) > 0;
  place.refers = true;
  place.brings = brings;
}

// The most that a document brings which a value names that was looked up.
std::size_t Brings(Pass *pass, const Found &found) {
  MostOf(pass, found);
  std::size_t brings = 0;
  for (const std::size_t number : found.places) {
    const Place &place = pass->documents.places[number];
    brings = std::max(brings, place.refers ? place.brings : kDocumentMost);  // nobody has said less
  }
  if (!Refer(*pass, found) || found.inserted)
    Find(
        pass, Fault::kWords,
        "a value of " + NameShown(Decode_Name(pass->at.text)) +
            " may have fewer than the three words of a document's name, which ends the page with an error line");
  return brings;
}

void FindFetchLacks(Pass *pass) {
  Find(pass, Fault::kFetchLacks,
       "a document may lack " + NameShown(Decode_Name(pass->at.text)) +
           ", and then the name of the macro is run as code");
}

bool IsFetched(const Pass &pass, const Found &found) {
  return std::includes(pass.fetched.begin(), pass.fetched.end(), found.places.begin(),
                       found.places.end());
}

void Fetch(Pass *pass) {
  const Found found = LookUp(pass);
  const bool is_told = pass->documents.given || IsFetched(*pass, found);
  if (found.may_miss || !is_told) FindFetchLacks(pass);
  if (found.places.empty() && !found.inserted) {
    pass->ends = true;
    return;
  }
  const bool refers = Refer(*pass, found);
  const std::size_t brings = Brings(pass, found);
  if (!found.inserted && found.places.size() == 1) {  // a run that goes on has found it
    const std::size_t number = *found.places.begin();
    pass->fetched.insert(number);
    pass->documents.places[number].always = true;
    Keep(pass, number, brings);
  }
  if (refers)  // otherwise the page does not come so far
    Find(
        pass, Fault::kFetchSlots,
        "each document of a page takes one of the 20 places for macros, and from the twentieth on that is logged");
  FindHtml(pass);
  AddFixed(pass, kFetchMost);
}

void Insert(Pass *pass) {
  const Found found = LookUp(pass);
  if (found.places.empty() && !found.inserted) return;
  Find(pass, Fault::kInsertLine, "an insert leaves a line in the log for each document");
  const std::size_t brings = Brings(pass, found);
  if (IsCertain(found)) Keep(pass, *found.places.begin(), brings);
  pass->inserted += std::max<std::size_t>(brings, 1);
  const std::size_t longest = Documents_Longest(pass->documents) + pass->inserted;
  if (longest > kInsertMost)
    Find(pass, Fault::kInsertRoom,
         Tool_Format("a document with what is inserted can reach %zu bytes, and is cut at 39000",
                     longest));
}

void Push(Pass *pass) {
  if (pass->stack.size() < kMacroStack) return pass->stack.push_back(pass->cursor);
  Find(pass, Fault::kStackFull, "pushes an eleventh cursor, and the stack holds 10");
  pass->ends = true;
}

void Pop(Pass *pass) {
  if (pass->stack.empty()) {
    Find(pass, Fault::kStackEmpty, "pops a cursor off an empty stack");
    pass->ends = true;
    return;
  }
  pass->cursor = pass->stack.back();
  pass->stack.pop_back();
}

void Restore(Pass *pass) {
  const Register &from = pass->registers[pass->at.number];
  pass->cursor = from.cursor;  // of one that is not written, the start
  if (from.written) return;
  Find(
      pass, Fault::kRegister,
      Tool_Format(
          "reads register %d before it is written: the first document of a page has nothing there, and a later one a place of the one before",
          static_cast<int>(pass->at.number)));
}

// Where an offset leads depends on the values.
void Seek(Pass *pass) {
  const std::size_t offset = pass->at.number;
  const std::vector<Place> &places = pass->documents.places;
  Spots spots;
  if (offset == 0) spots.insert(Spot{});
  std::size_t shortest = 0, longest = 0;  // where the place that is looked at can begin
  for (std::size_t i = 0; i < places.size() && offset > 0; ++i) {
    const std::size_t frame = places[i].name.size() + 2;
    const bool can_be_behind = shortest < offset;
    longest += frame + places[i].most;
    if (can_be_behind && longest >= offset) spots.insert({i + 1, false});
    shortest += places[i].always ? frame : 0;
  }
  const std::size_t most = Documents_Longest(pass->documents) + pass->inserted;
  if (offset >= most) spots.clear();
  // Also the end, with what was inserted; and a document that is too short leaves it where it was.
  if (offset < most && offset > 0) spots.insert({places.size(), false});
  if (offset >= shortest + 2) spots.insert(pass->cursor.begin(), pass->cursor.end());
  if (!spots.empty()) pass->cursor = spots;
}

void Step(Pass *pass) {
  switch (pass->at.op) {
    case kOpText8:
    case kOpText32: return Text(pass);
    case kOpValue8:
    case kOpValue32:
    case kOpValueSkip: return Value(pass);
    case kOpNumber: return Number(pass);
    case kOpSeek: return Seek(pass);
    case kOpDocument: return Document(pass);
    case kOpPush: return Push(pass);
    case kOpPop: return Pop(pass);
    case kOpSave: pass->registers[pass->at.number] = {true, pass->cursor}; return;
    case kOpRestore: return Restore(pass);
    case kOpFind: LookUp(pass); return;
    case kOpFetch: return Fetch(pass);
    default: return Insert(pass);
  }
}

const char *BeyondText(int op) {
  switch (op) {
    case kOpText32: return "a text is longer than 40960 bytes, which a page takes";
    case kOpValue32: return "a name is longer than 4095 bytes";
    default: return "there are the registers 0 to 15";
  }
}

// What stands there is an instruction, or the run does not come further.
void Refuse(Pass *pass, Decoding decoding) {
  pass->ends = true;
  if (decoding == Decoding::kUndefined)
    return Find(pass, Fault::kUndefined,
                Tool_Format("there is no op-code %d, and a run repeats it for ever", pass->at.op));
  if (decoding == Decoding::kCut && Decode_IsFetch(pass->at) && LookUp(pass).places.empty())
    return FindFetchLacks(pass);
  if (decoding == Decoding::kCut)
    return Find(pass, Fault::kCut, "an operand runs past the end of the macro");
  Find(pass, Fault::kBeyond, BeyondText(pass->at.op));
}

// Whether a text begins a tag, which only HTML has.
bool HasMarkup(std::string_view text) {
  for (std::size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
    const char next = at + 1 < text.size() ? text[at + 1] : ' ';
    if (next == '/' || next == '!' || (next >= 'a' && next <= 'z') || (next >= 'A' && next <= 'Z'))
      return true;
  }
  return false;
}

bool CodeHasMarkup(std::string_view code) {
  Instruction at;
  for (std::size_t i = 0; i < code.size(); i += at.size) {
    if (Decode_At(code, i, &at) != Decoding::kInstruction || at.op == kOpEnd) return false;
    if ((at.op == kOpText8 || at.op == kOpText32) && HasMarkup(at.text)) return true;
  }
  return false;
}

void Walk(Pass *pass) {
  for (std::size_t i = 0; i < pass->code.size() && !pass->ends; i += pass->at.size) {
    const Decoding decoding = Decode_At(pass->code, i, &pass->at);
    if (decoding != Decoding::kInstruction) return Refuse(pass, decoding);
    if (pass->at.op == kOpEnd) return;
    Step(pass);
  }
}

}  // namespace

std::vector<Finding> Check_Macro(std::string_view code, const Documents &documents) {
  Pass pass = {};
  pass.code = code;
  pass.documents = documents;
  for (std::size_t i = 0; i < documents.places.size(); ++i)
    pass.named[documents.places[i].name].push_back(i);
  pass.output.values.resize(documents.places.size());
  pass.has_markup = CodeHasMarkup(code);
  Walk(&pass);
  if (!pass.ends && !pass.output.something)
    Find(
        &pass, Fault::kNothing,
        "nothing may be written for a document, which ends the page there without a line; begin with a text");
  Witness_Find(code, documents, &pass.findings);
  return pass.findings;
}
