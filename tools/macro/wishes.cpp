#include <algorithm>
#include <map>
#include <set>

#include "macro/ops.h"
#include "tools/macro/decode.h"
#include "tools/macro/documents.h"

namespace {

constexpr std::size_t kWorkMost = 2000000;
constexpr std::size_t kFrameMost = 15000;  // names beyond leave no room for values

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
        (wishes.frame < kFrameMost || wishes.known.contains(name)))
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
