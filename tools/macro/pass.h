// tools/macro/pass.h: one pass over the code of a macro, for every document at once.
#ifndef TOOLS_MACRO_PASS_H
#define TOOLS_MACRO_PASS_H

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "macro/ops.h"
#include "tools/macro/check.h"
#include "tools/macro/decode.h"

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

// How often each place is written, at most, and bytes that all this comes to, whatever the room.
struct Tally {
  std::vector<std::size_t> times;
  std::size_t bytes = 0;
};

struct Output {
  std::size_t least = 0;          // bytes that every run writes
  std::size_t fixed = 0;          // bytes whatever the document, at most
  std::size_t copies = 0;         // of the whole document
  std::map<Spot, Tally> values;   // by the spot that a run has come to
  Tally overall;                  // of all runs, as far as it can be one place alone
  std::size_t several = 0;        // bytes of values that may be those of several places
  bool merged = false;            // there are too many spots to tell them apart
  bool is_moved = false;          // a run is not where its look-ups led
  std::size_t work = 0;           // of telling them apart
  bool is_new = true;             // what comes next is not counted from these
  std::size_t most = 0;           // that they came to
  std::set<std::size_t> certain;  // those that every run has written
  bool something = false;         // for every document
  bool full = false;              // found already
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

// What a look-up finds, for every document at once.
struct Found {
  std::set<std::size_t> places;
  bool may_miss = false;
  bool inserted = false;  // perhaps a field of what was inserted
};

// One place, whatever the document.
inline bool Found_IsCertain(const Found &found) {
  return !found.may_miss && !found.inserted && found.places.size() == 1;
}

inline std::size_t Pass_Count(const Pass &pass) { return pass.documents.places.size(); }

// Notes what the instruction may come to; the first of each weight are enough to go on with.
void Pass_Find(Pass *pass, Fault fault, std::string what);

// Moves the cursor as a look-up does, and says what it may find, and perhaps writes.
Found Pass_LookUp(Pass *pass, bool is_written = false);

// A name in quotes, as far as a line has room.
std::string Pass_NameShown(std::string_view name);

#endif
