#include "tools/macro/check.h"

#include <algorithm>
#include <utility>

#include "protocol/cmd_hdr.h"
#include "tools/common/tool.h"
#include "tools/macro/tally.h"
#include "tools/macro/witness.h"

namespace {

constexpr std::size_t kFindingsMost = 100;  // of a weight
constexpr std::size_t kPageMost = kMessageSize;

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
  const std::size_t most = fixed + Tally_Most(pass, kPageMost - std::min(fixed, kPageMost));
  if (most <= kPageMost) return;
  output.full = true;
  Pass_Find(pass, Fault::kOutput,
            Tool_Format("the output can reach %zu bytes, and a page takes 40960", most));
}

void AddFixed(Pass *pass, std::size_t size) {
  pass->output.fixed += size;
  pass->output.something |= size > 0;
  CheckOutput(pass);
}

void AddLeast(Pass *pass, std::size_t size) {
  pass->output.least += size;
  pass->ends |= pass->output.least > kPageMost;
}

void Text(Pass *pass) {
  AddFixed(pass, pass->at.text.size());
  AddLeast(pass, pass->at.text.size());
}

void FindHtml(Pass *pass) {
  if (!pass->has_markup || pass->documents.html) return;
  pass->has_markup = false;  // said once
  Pass_Find(
      pass, Fault::kHtml,
      "what a document holds stands on a page of HTML as it is; ask for documents with @SCRIPT=html");
}

// Adds the value of an inserted field; the others are counted where they are looked up.
void AddValue(Pass *pass, const Found &found, std::size_t most) {
  if (found.inserted)
    pass->output.fixed += std::min(std::max(most, pass->inserted), kValueMost + 1);
  CheckOutput(pass);
}

// The most bytes of the values that were looked up; one that is cut is found.
std::size_t MostOf(Pass *pass, const Found &found) {
  std::size_t most = 0;
  for (const std::size_t place : found.places)
    most = std::max(most, pass->documents.places[place].most);
  if (most > kValueMost)
    Pass_Find(pass, Fault::kValue,
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
  const Found found = Pass_LookUp(pass, true);
  if (found.places.empty() && !found.inserted) return;
  FindHtml(pass);
  if (Found_IsCertain(found)) pass->output.certain.insert(*found.places.begin());
  pass->output.something |=
      !found.may_miss && !found.inserted && Refer(*pass, found);  // three words are something
  AddValue(pass, found, MostOf(pass, found));
}

// The bytes of the shortest document.
std::size_t ShortestNow(const Pass &pass) {
  std::size_t size = 2;
  for (const Place &place : pass.documents.places)
    if (place.always) size += place.name.size() + 2;
  return size;
}

void Number(Pass *pass) {
  const Found found = Pass_LookUp(pass);
  if (found.places.empty() && !found.inserted) return;
  MostOf(pass, found);
  pass->output.fixed += 4;
  pass->output.something |= !found.may_miss;
  CheckOutput(pass);
  if (!found.may_miss) AddLeast(pass, 4);
}

void Document(Pass *pass) {
  FindHtml(pass);
  ++pass->output.copies;
  pass->output.fixed += LongestNow(*pass) - Documents_Longest(pass->documents);
  pass->output.something = true;
  CheckOutput(pass);
  AddLeast(pass, ShortestNow(*pass));
}

// A run that goes on has had three words in that place.
void Keep(Pass *pass, std::size_t number, std::size_t brings) {
  Place &place = pass->documents.places[number];
  pass->output.something |= pass->output.certain.contains(number);
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
    Pass_Find(
        pass, Fault::kWords,
        "a value of " + Pass_NameShown(Decode_Name(pass->at.text)) +
            " may have fewer than the three words of a document's name, which ends the page with an error line");
  return brings;
}

void FindFetchLacks(Pass *pass) {
  Pass_Find(pass, Fault::kFetchLacks,
            "a document may lack " + Pass_NameShown(Decode_Name(pass->at.text)) +
                ", and then the name of the macro is run as code");
}

bool IsFetched(const Pass &pass, const Found &found) {
  return std::includes(pass.fetched.begin(), pass.fetched.end(), found.places.begin(),
                       found.places.end());
}

void Fetch(Pass *pass) {
  const Found found = Pass_LookUp(pass);
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
    Pass_Find(
        pass, Fault::kFetchSlots,
        "each document of a page takes one of the 20 places for macros, and from the twentieth on that is logged");
  FindHtml(pass);
  AddFixed(pass, kFetchMost);
}

void Insert(Pass *pass) {
  const Found found = Pass_LookUp(pass);
  if (found.places.empty() && !found.inserted) return;
  Pass_Find(pass, Fault::kInsertLine, "an insert leaves a line in the log for each document");
  const std::size_t brings = Brings(pass, found);
  if (Found_IsCertain(found)) Keep(pass, *found.places.begin(), brings);
  pass->inserted += std::max<std::size_t>(brings, 1);
  const std::size_t longest = Documents_Longest(pass->documents) + pass->inserted;
  if (longest > kInsertMost)
    Pass_Find(
        pass, Fault::kInsertRoom,
        Tool_Format("a document with what is inserted can reach %zu bytes, and is cut at 39000",
                    longest));
}

void Push(Pass *pass) {
  if (pass->stack.size() < kMacroStack) return pass->stack.push_back(pass->cursor);
  Pass_Find(pass, Fault::kStackFull, "pushes an eleventh cursor, and the stack holds 10");
  pass->ends = true;
}

void Pop(Pass *pass) {
  if (pass->stack.empty()) {
    Pass_Find(pass, Fault::kStackEmpty, "pops a cursor off an empty stack");
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
  Pass_Find(
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
  const int op = pass->at.op;
  pass->output.is_moved |= op == kOpSeek || op == kOpPop || op == kOpRestore;
  switch (op) {
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
    case kOpFind: Pass_LookUp(pass); return;
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
    return Pass_Find(
        pass, Fault::kUndefined,
        Tool_Format("there is no op-code %d, and a run repeats it for ever", pass->at.op));
  if (decoding == Decoding::kCut && Decode_IsFetch(pass->at) && Pass_LookUp(pass).places.empty())
    return FindFetchLacks(pass);
  if (decoding == Decoding::kCut)
    return Pass_Find(pass, Fault::kCut, "an operand runs past the end of the macro");
  Pass_Find(pass, Fault::kBeyond, BeyondText(pass->at.op));
}

// The texts of the page: what else is written parts them.
std::string TextsIn(std::string_view code) {
  std::string texts;
  Instruction at;
  for (std::size_t i = 0; i < code.size(); i += at.size) {
    if (Decode_At(code, i, &at) != Decoding::kInstruction || at.op == kOpEnd) break;
    if (at.op == kOpText8 || at.op == kOpText32) texts += at.text;
    if (Decode_Writes(at.op)) texts += '\0';
  }
  return texts;
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

void Pass_Find(Pass *pass, Fault fault, std::string what) {
  const Finding finding = {pass->at.offset, fault, std::move(what)};
  std::size_t &count = Check_IsFault(finding) ? pass->faults : pass->costs;
  if (count++ < kFindingsMost) pass->findings.push_back(finding);
}

bool Check_HasMarkup(std::string_view text) {
  for (std::size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
    const char next = at + 1 < text.size() ? text[at + 1] : ' ';
    if (next == '/' || next == '!' || (next >= 'a' && next <= 'z') || (next >= 'A' && next <= 'Z'))
      return true;
  }
  return false;
}

std::vector<Finding> Check_Macro(std::string_view code, const Documents &documents, bool is_html) {
  Pass pass = {};
  pass.code = code;
  pass.documents = documents;
  for (std::size_t i = 0; i < documents.places.size(); ++i)
    pass.named[documents.places[i].name].push_back(i);
  pass.output.overall.times.resize(documents.places.size());
  pass.output.values[Spot{}] = pass.output.overall;
  pass.has_markup = is_html || Check_HasMarkup(TextsIn(code));
  Walk(&pass);
  if (!pass.ends && !pass.output.something)
    Pass_Find(
        &pass, Fault::kNothing,
        "nothing may be written for a document, which ends the page there without a line; begin with a text");
  Witness_Find(code, documents, &pass.findings);
  return pass.findings;
}
