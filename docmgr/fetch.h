// docmgr/fetch.h: a GETDOC and the record that answers it.
#ifndef DOCMGR_FETCH_H
#define DOCMGR_FETCH_H

#include <string>

#include "protocol/cmd_hdr.h"

// The document DocNum of the engine that RecType names, if that engine is known, else of the
// database on this machine, prepared as Script says; or an ERROR record.  Throws what Xapian throws
// where the database cannot be blamed for it.
std::string Fetch_Answer(const CmdHdr &hdr, const char *text, const char *predicate);

#endif
