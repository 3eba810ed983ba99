// searchmgr/search.h: a QUERY and the records that answer it.
#ifndef SEARCHMGR_SEARCH_H
#define SEARCHMGR_SEARCH_H

#include <string>

#include "protocol/cmd_hdr.h"

// Searches all shards that answer, within the deadline of the request.  text is the whole line,
// predicate where its predicate begins, or null.  Throws what Xapian throws where no shard can be
// blamed for it.
std::string Search_Answer(const CmdHdr &hdr, const char *text, const char *predicate);

#endif
