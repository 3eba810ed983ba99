// searchmgr/query_text.h: the pieces that the text of a search is made of.
//
// A text is tokens parted by tabs, newlines and carriage returns, and a token is words, marks and
// NAME= of fields.  Every text has pieces: what has no meaning as a mark is words.
#ifndef SEARCHMGR_QUERY_TEXT_H
#define SEARCHMGR_QUERY_TEXT_H

#include <optional>
#include <string_view>
#include <vector>

#include "store/schema.h"

enum class PieceKind {
  kWords,     // some that stand together, as they were typed
  kPhrase,    // what stood between quotes
  kWildcard,  // a word with its star
  kExact,     // the value of a keyword, which stood between quotes
  kRange,     // a number, a date, or two of them
};

struct TextPiece {
  PieceKind kind;
  bool exclude;           // "-" stood before it
  std::string_view text;  // without "-" and quotes; never empty
};

// What is asked of a field, or free text.
struct TextPart {
  std::string_view name;               // as it was typed; empty: free text
  const SchemaField *field = nullptr;  // null: free text, or a database without a schema
  bool exclude = false;                // "-" stood before the name
  std::vector<TextPiece> pieces;       // can be empty
};

// The parts of a text, in their order.  They point into text and schema.
std::vector<TextPart> QueryText_Read(std::string_view text, const Schema &schema);

// Both ends belong to it; without one it has no end there.
struct ValueRange {
  std::optional<double> low, high;
};

// Reads 10, 10..20, ..20 or 10..; of dates a span like 2026-01 is all of it.  Ends that are changed
// round are put right.  An empty text, or one of dots alone, has no ends.  False: it is no range.
bool QueryText_Range(FieldKind kind, std::string_view text, ValueRange *range);

#endif
