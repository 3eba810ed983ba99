#include <algorithm>

#include "tools/common/tool.h"
#include "tools/macro/tally.h"

namespace {

// The field of a look-up.
struct Wanted {
  std::string_view name;
  std::size_t skip;
  const std::vector<std::size_t> *places;  // null: no document has it
};

// The place skip matches behind the first one at or behind the spot: of those that a document may
// have, or of those that it has.  The number of places if there is none.
std::size_t PlaceFrom(const Pass &pass, const Wanted &wanted, Spot from, bool has) {
  std::size_t skip = wanted.skip;
  auto at = std::lower_bound(wanted.places->begin(), wanted.places->end(), from.place);
  for (; at != wanted.places->end(); ++at) {
    const bool is_there = pass.documents.places[*at].always || (from.on && from.place == *at);
    if ((is_there || !has) && skip-- == 0) return *at;
  }
  return Pass_Count(pass);
}

void FindMissing(Pass *pass, const Wanted &wanted) {
  const std::string shown = Pass_NameShown(wanted.name);
  if (wanted.skip > 0)
    Pass_Find(
        pass, Fault::kLacks,
        Tool_Format("there may be fewer than %zu of %s from there on, and each time that is logged",
                    wanted.skip + 1, shown.c_str()));
  else if (PlaceFrom(*pass, wanted, {}, true) < Pass_Count(*pass))
    Pass_Find(
        pass, Fault::kOrder,
        "looks for " + shown +
            " where the cursor may stand behind it, and each time that is logged and the document read again");
  else
    Pass_Find(pass, Fault::kLacks,
              "a document may lack " + shown + ", and each time that is logged");
}

void AddPlaces(const Wanted &wanted, std::size_t first, std::size_t last, Found *found) {
  auto at = std::lower_bound(wanted.places->begin(), wanted.places->end(), first);
  for (; at != wanted.places->end() && *at <= last; ++at) found->places.insert(*at);
}

// Where a look-up that does not go forward to its field in every document may come to.
void LookAround(const Pass &pass, const Wanted &wanted, Spot from, Found *found) {
  const std::size_t count = Pass_Count(pass), back = wanted.places->back();
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
    return Pass_Find(pass, Fault::kUnknown,
                     "a name of more than 1022 bytes is never found, and each time that is logged");
  Pass_Find(pass, Fault::kUnknown,
            "no document has " + Pass_NameShown(name) + ", and each time that is logged");
}

// A name that holds "=": where a value begins with what stands behind it, the field in front of it
// is found.  It may be any of that name, or none.
Found LookUpBegun(Pass *pass, std::string_view name, bool is_written) {
  Found found;
  const auto known = pass->named.find(Decode_Field(name));
  const std::size_t skip = Decode_Skip(pass->at);
  if (known != pass->named.end() && name.size() + 2 <= kPatternMost) {
    std::size_t skips = 0;
    for (const std::size_t place : known->second)
      if (pass->documents.places[place].most >= Decode_Begin(name).size() && skips++ >= skip)
        found.places.insert(place);
  }
  found.may_miss = true;
  found.inserted = pass->inserted > 0;  // what was inserted may have the name
  if (found.places.empty())
    FindUnknown(pass, name);
  else
    Pass_Find(pass, Fault::kLacks,
              "a document may lack " + Pass_NameShown(name) + ", and each time that is logged");
  std::vector<Move> moves;
  for (const Spot &spot : pass->cursor) moves.push_back({spot, found});
  Tally_Move(pass, moves, is_written && !found.inserted);
  for (const std::size_t place : found.places) pass->cursor.insert({place, true});
  if (found.inserted) pass->cursor.insert({Pass_Count(*pass), false});
  return found;
}

Wanted WantedOf(const Pass &pass) {
  const std::string_view name = Decode_Name(pass.at.text);
  const auto known = pass.named.find(name);
  const bool is_known = known != pass.named.end() && name.size() + 2 <= kPatternMost;
  return {name, Decode_Skip(pass.at), is_known ? &known->second : nullptr};
}

}  // namespace

std::string Pass_NameShown(std::string_view name) {
  return Tool_Format("'%s'", Check_Show(name.substr(0, 64)).c_str());
}

Found Pass_LookUp(Pass *pass, bool is_written) {
  const Wanted wanted = WantedOf(*pass);
  if (wanted.places == nullptr) return LookUpBegun(pass, wanted.name, is_written);
  Found found;
  Spots cursor;
  std::vector<Move> moves;
  bool is_sure = true;
  for (const Spot &spot : pass->cursor) {
    Found here;
    const std::size_t has = PlaceFrom(*pass, wanted, spot, true);
    if (has < Pass_Count(*pass)) {
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
    moves.push_back({spot, here});
  }
  Tally_Move(pass, moves, is_written && !found.inserted);
  for (const std::size_t place : found.places) cursor.insert({place, true});
  if (found.inserted) cursor.insert({Pass_Count(*pass), false});
  pass->cursor = cursor;
  return found;
}
