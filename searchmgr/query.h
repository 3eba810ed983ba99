// searchmgr/query.h: what a QUERY asks for.
//
// The predicate is tokens parted by tabs, as searchmgr/query_text.h reads them, and @OPER=AND or
// @OPER=OR at whatever place says how words are joined: AND if it does not stand there.  What one
// field is asked for several times is any of it; a range and the exact value of a keyword have to
// be met in any case, and what is excluded must not be there.
#ifndef SEARCHMGR_QUERY_H
#define SEARCHMGR_QUERY_H

#include <xapian.h>

#include <string>
#include <vector>

#include "store/schema.h"

struct SearchQuery {
  Xapian::Query query;
  std::vector<std::string> marks;  // the words to mark in what is found: their stems, each once
};

// The text as its author would have it if the words that are not known were others, and what it
// asks for; empty: there is nothing to correct.
struct CorrectedQuery {
  std::string text;
  Xapian::Query query;
};

// Fills query from a predicate, which may be null.  Null, or the plain reason why it cannot be.
// The database settles which of the marks behind a word belong to it, as in "C++".  Throws what
// Xapian throws when it cannot be read.
const char *Query_Parse(const Xapian::Database &database, const Schema &schema,
                        const char *predicate, SearchQuery *query);

// The same predicate with its spelling corrected by the database, which costs more than most
// searches: for those alone who show it.
CorrectedQuery Query_Correct(const Xapian::Database &database, const Schema &schema,
                             const char *predicate);

#endif
