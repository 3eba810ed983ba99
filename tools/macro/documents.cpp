#include "tools/macro/documents.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <set>

#include "debug/text.h"
#include "macro/ops.h"
#include "tools/macro/decode.h"

namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::size_t kWorkMost = 2000000;
constexpr std::size_t kFrameMost = 15000;  // names beyond leave no room for values

// What "#: field" says of one.
struct Told {
  Place place;
  std::size_t least = 1;
  std::size_t times = 1;
};

struct Reading {
  std::vector<Told> fields;
  bool script = false;  // the words of SCRIPT are known
  bool html = false;
  bool snippet = false;
  bool place = false;
  bool all = false;
  std::string wrong;
};

Told *FindOrAdd(Reading *reading, std::string_view name) {
  for (Told &field : reading->fields)
    if (field.place.name == name) return &field;
  reading->fields.push_back({});
  reading->fields.back().place.name = name;
  return &reading->fields.back();
}

std::optional<std::size_t> ToNumber(std::string_view text, std::size_t most) {
  std::size_t value = 0;
  const auto [stop, code] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (code != std::errc{} || stop != text.data() + text.size() || value > most) return std::nullopt;
  return value;
}

bool TakeTimes(Told *field, std::string_view text) {
  const std::size_t dash = text.find('-');
  if (dash == std::string_view::npos) return false;
  const auto least = ToNumber(text.substr(0, dash), 1000);
  const auto most = ToNumber(text.substr(dash + 1), 1000);
  if (!least || !most || *most == 0 || *least > *most) return false;
  field->least = *least;
  field->times = *most;
  return true;
}

bool TakeNumber(std::string_view word, std::string_view name, std::size_t *value) {
  if (!word.starts_with(name)) return false;
  const auto number = ToNumber(word.substr(name.size()), kDocumentMost);
  if (number) *value = *number;
  return number.has_value();
}

void TakeOption(Reading *reading, Told *field, std::string_view word) {
  constexpr std::string_view kTimes = "times=";
  if (word.starts_with(kTimes) && TakeTimes(field, word.substr(kTimes.size()))) return;
  if (TakeNumber(word, "most=", &field->place.most)) return;
  if (TakeNumber(word, "document=", &field->place.brings)) {
    field->place.refers = true;
    return;
  }
  reading->wrong.append("expected most=BYTES, times=LEAST-MOST or document=BYTES, found '");
  reading->wrong.append(word).append("'");
}

void TakeScript(Reading *reading, std::string_view words) {
  reading->script = true;
  for (std::string_view word = Text_Token(&words, kBlanks); !word.empty();
       word = Text_Token(&words, kBlanks)) {
    reading->html |= word == "html";
    reading->snippet |= word == "snippet";
    reading->place |= word == "place";
    reading->all |= word == "all";
  }
}

// What stands behind "#:".
void TakeTold(Reading *reading, std::string_view words) {
  const std::string_view kind = Text_Token(&words, kBlanks);
  if (kind == "script") return TakeScript(reading, words);
  const std::string_view name = kind == "field" ? Text_Token(&words, kBlanks) : "";
  if (name.empty()) {
    reading->wrong = "expected '#: script WORD...' or '#: field NAME ...'";
    return;
  }
  Told *field = FindOrAdd(reading, name);
  for (std::string_view word = Text_Token(&words, kBlanks); !word.empty() && reading->wrong.empty();
       word = Text_Token(&words, kBlanks))
    TakeOption(reading, field, word);
}

void TakeLine(Reading *reading, std::string_view line) {
  if (line.starts_with("#:")) return TakeTold(reading, line.substr(2));
  const std::string_view name = Text_Token(&line, kBlanks);
  if (name.empty() || name[0] == '#' || name[0] == '@') return;
  if (Text_Token(&line, kBlanks).empty()) {
    reading->wrong = "expected a line of a schema, NAME KIND";
    return;
  }
  FindOrAdd(reading, name);
}

void Add(Documents *documents, const Told &field, bool always) {
  for (std::size_t i = 0; i < field.times; ++i) {
    documents->places.push_back(field.place);
    documents->places.back().always = always && i < field.least;
  }
}

bool IsTaken(const Reading &reading, std::string_view name) {
  return (reading.snippet && name == "Snippet") ||
         (reading.place && (name == "SearchGroup" || name == "RecType" || name == "DocNum"));
}

void Fill(const Reading &reading, Documents *documents) {
  *documents = {};
  documents->given = true;
  documents->html = reading.html;
  for (const Told &field : reading.fields)
    if (!IsTaken(reading, field.place.name)) Add(documents, field, reading.all || !reading.script);
  const auto added = [&](const char *name, std::size_t most) {
    Told field;
    for (const Told &told : reading.fields)
      if (told.place.name == name) field = told;
    field.place.name = name;
    field.place.most = std::min(field.place.most, most);
    Add(documents, field, true);
  };
  if (reading.snippet) added("Snippet", kValueMost);
  if (!reading.place) return;
  added("SearchGroup", std::size_t{127} * 6);  // a header field, and each byte perhaps an entity
  added("RecType", std::size_t{127} * 6);
  added("DocNum", 11);
}

// The macro's own wishes: how often a field is to come, and which stands behind which.
struct Wish {
  std::string name;
  std::size_t times = 1;                 // at least
  std::vector<std::size_t> behind = {};  // the wishes that stand behind this one
};

struct Wishes {
  std::vector<Wish> list;  // in the order of their first look-up
  std::map<std::string, std::size_t, std::less<>> known;
  std::size_t frame = 0;         // bytes of the names
  std::size_t work = kWorkMost;  // that may still be spent on their order
  bool more = false;             // what else a document holds matters
};

bool Reaches(Wishes *wishes, std::size_t from, std::size_t to) {
  std::set<std::size_t> seen = {from};
  std::vector<std::size_t> left = {from};
  while (!left.empty()) {
    const std::size_t wish = left.back();
    left.pop_back();
    if (wish == to || wishes->work == 0) return true;
    --wishes->work;
    for (const std::size_t other : wishes->list[wish].behind)
      if (seen.insert(other).second) left.push_back(other);
  }
  return false;
}

// Where the cursor is: the start, or at an occurrence of a field.
struct Spot {
  bool start = true;
  std::size_t wish = 0;
  std::size_t number = 0;
};

// Puts the one behind the other, unless it stands in front of it already.
void PutBehind(Wishes *wishes, std::size_t front, std::size_t back) {
  std::vector<std::size_t> &behind = wishes->list[front].behind;
  wishes->work -= std::min(wishes->work, behind.size());
  if (wishes->work == 0 || std::find(behind.begin(), behind.end(), back) != behind.end()) return;
  if (!Reaches(wishes, back, front)) behind.push_back(back);
}

Spot Look(Wishes *wishes, const Spot &cursor, const std::string &name, std::size_t skip) {
  const auto [at, is_new] = wishes->known.emplace(name, wishes->list.size());
  if (is_new) {
    wishes->list.push_back({name});
    wishes->frame += name.size() + 2;
  }
  Spot found = {false, at->second, skip};
  if (!cursor.start && cursor.wish == found.wish)
    found.number += cursor.number;
  else if (!cursor.start)
    PutBehind(wishes, cursor.wish, found.wish);
  std::size_t &times = wishes->list[found.wish].times;
  times = std::max(times, found.number + 1);
  return found;
}

bool IsName(std::string_view name) {
  return !name.empty() && name.find_first_of("\t\n=") == std::string_view::npos;
}

// The cursor behind an instruction that looks nothing up.
void Move(const Instruction &at, Spot *cursor, std::vector<Spot> *stack,
          Spot (&registers)[kMacroRegisters]) {
  if (at.op == kOpSeek) *cursor = {};
  if (at.op == kOpPush) stack->push_back(*cursor);
  if (at.op == kOpPop && !stack->empty()) {
    *cursor = stack->back();
    stack->pop_back();
  }
  if (at.op == kOpSave) registers[at.number] = *cursor;
  if (at.op == kOpRestore) *cursor = registers[at.number];
}

Wishes WishesOf(std::string_view code) {
  Wishes wishes;
  Spot cursor;
  std::vector<Spot> stack;
  Spot registers[kMacroRegisters];
  Instruction at;
  for (std::size_t i = 0; i < code.size(); i += at.size) {
    const Decoding decoding = Decode_At(code, i, &at);
    const bool is_cut = decoding == Decoding::kCut && at.op == kOpFetch;  // behind its field
    if ((decoding != Decoding::kInstruction && !is_cut) || at.op == kOpEnd) break;
    if (at.op == kOpDocument || (at.op == kOpSeek && at.number > 0)) wishes.more = true;
    Move(at, &cursor, &stack, registers);
    const std::string name(Decode_Name(at.text));
    if (Decode_LooksUp(at.op) && IsName(name) &&
        (wishes.frame < kFrameMost || wishes.known.count(name) == 1))
      cursor = Look(&wishes, cursor, name, Decode_Skip(at));
  }
  return wishes;
}

// The wishes in an order that suits them, and of several the one that was named first.
std::vector<std::size_t> Ordered(const Wishes &wishes) {
  std::vector<std::size_t> waits(wishes.list.size()), order;
  for (const Wish &wish : wishes.list)
    for (const std::size_t other : wish.behind) ++waits[other];
  std::set<std::size_t> ready;
  for (std::size_t i = 0; i < waits.size(); ++i)
    if (waits[i] == 0) ready.insert(i);
  while (!ready.empty()) {
    const std::size_t next = *ready.begin();
    ready.erase(ready.begin());
    order.push_back(next);
    for (const std::size_t other : wishes.list[next].behind)
      if (--waits[other] == 0) ready.insert(other);
  }
  return order;
}

}  // namespace

bool Documents_Read(std::string_view text, Documents *documents, int *line, std::string *wrong) {
  Reading reading;
  for (*line = 1; !text.empty() && reading.wrong.empty(); ++*line) {
    const std::size_t size = std::min(text.find('\n'), text.size());
    TakeLine(&reading, text.substr(0, size));
    text.remove_prefix(std::min(size + 1, text.size()));
  }
  --*line;
  *wrong = reading.wrong;
  Fill(reading, documents);
  return wrong->empty();
}

Documents Documents_For(std::string_view code) {
  const Wishes wishes = WishesOf(code);
  Documents documents;
  std::size_t frame = 0;
  for (const std::size_t number : Ordered(wishes)) {
    const Wish &wish = wishes.list[number];
    for (std::size_t i = 0; i < wish.times && (i == 0 || frame < kFrameMost); ++i) {
      frame += wish.name.size() + 2;
      documents.places.push_back({});
      documents.places.back().name = wish.name;
    }
  }
  if (wishes.more) documents.places.push_back({"Other.fields", kDocumentMost, false, false, 0});
  return documents;
}

std::size_t Documents_Frame(const Documents &documents) {
  std::size_t frame = 2;  // the last tab and the newline
  for (const Place &place : documents.places) frame += place.name.size() + 2;
  return frame;
}

std::size_t Documents_Longest(const Documents &documents) {
  std::size_t size = Documents_Frame(documents);
  for (const Place &place : documents.places) size += place.most;
  return std::min(size, kDocumentMost);
}
