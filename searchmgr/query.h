// searchmgr/query.h: what a QUERY asks for.
//
// The predicate is tokens parted by tabs.  NAME=terms looks for the terms in that field, any other
// token for its terms in all fields, and @OPER=AND or @OPER=OR, at whatever place, says how all
// terms are joined: AND if it does not stand there.  Punctuation has no meaning of its own; words
// that it binds together are a phrase.
#ifndef SEARCHMGR_QUERY_H
#define SEARCHMGR_QUERY_H

#include <xapian.h>

// Fills query from a predicate, which may be null.  Null, or the plain reason why it cannot be
// parsed.  The database settles which of the marks behind a word belong to it, as in "C++".  Throws
// what Xapian throws.
const char *Query_Parse(const Xapian::Database &database, const char *predicate,
                        Xapian::Query *query);

#endif
