// index/indexing.h: how a document goes into the index.
#ifndef INDEX_INDEXING_H
#define INDEX_INDEXING_H

#include <xapian.h>

#include <string>

#include "store/field.h"

// The term that is this document's alone: its first field, with its fields Version and Architecture
// where it has them.  A document of the same three is the same one in a newer state.
std::string Indexing_UniqueTerm(const Fields &fields);

// The document with its terms, whole values' and both with and without their field, and with its
// record as data. *cut grows as Record_Fields says.
Xapian::Document Indexing_Document(const Fields &fields, int *cut);

#endif
