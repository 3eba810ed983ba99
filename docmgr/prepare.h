// docmgr/prepare.h: makes the record of a document as its request wants it.
#ifndef DOCMGR_PREPARE_H
#define DOCMGR_PREPARE_H

#include <xapian.h>

#include <string>

#include "protocol/cmd_hdr.h"
#include "store/schema.h"

// The whole record that answers hdr, with its newline: the document as SCRIPT says, or an ERROR
// record, logged, for one that has no fields.  Throws what Xapian throws.
std::string Prepare_Record(const Xapian::Document &document, const Schema &schema,
                           const CmdHdr &hdr);

#endif
