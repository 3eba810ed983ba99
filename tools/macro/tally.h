// tools/macro/tally.h: how often a run writes each place, and the most bytes that this comes to.
//
// A run that comes to a spot has written other places than one that comes to another, so each spot
// has its own numbers.
#ifndef TOOLS_MACRO_TALLY_H
#define TOOLS_MACRO_TALLY_H

#include <cstddef>
#include <vector>

#include "tools/macro/pass.h"

// Where a look-up leads from one spot.
struct Move {
  Spot from;
  Found found;
};

// Before the cursor moves.  What is found is written, or only found.
void Tally_Move(Pass *pass, const std::vector<Move> &moves, bool is_written);

// The most bytes of values, in a document that has room for them; not counted in all detail where
// they are no more than enough.
std::size_t Tally_Most(Pass *pass, std::size_t enough);

#endif
