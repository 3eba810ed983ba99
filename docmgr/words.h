// docmgr/words.h: finds in a text the words that a search has found.
//
// A word is what Xapian's indexer takes for one: letters and digits, parts that an apostrophe or
// "&" joins, "U.N.", "C++".
#ifndef DOCMGR_WORDS_H
#define DOCMGR_WORDS_H

#include <xapian.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// What to look for: a word that is one of them in small letters, or whose stem is.
struct Wanted {
  Xapian::Stem stem;
  bool keeps_start;  // whether a stem begins with the letter that its words begin with
  std::vector<std::string> words;  // in small letters
};

// language as a schema has it.
Wanted Words_Wanted(const std::string &language, const std::vector<std::string> &words);

// A part of a text, as offsets.
struct Span {
  std::size_t begin;
  std::size_t end;
};

using Spans = std::vector<Span>;

// The wanted words that begin within the first size bytes of text, in their order; at most that
// many.
Spans Words_Find(const Wanted &wanted, std::string_view text, std::size_t size,
                 std::size_t most = SIZE_MAX);

#endif
