// index/indexing.h: how a document goes into the index.
#ifndef INDEX_INDEXING_H
#define INDEX_INDEXING_H

#include <xapian.h>

#include <set>
#include <string>
#include <string_view>

#include "store/field.h"
#include "store/schema.h"

// How the documents of a run are indexed, and what was met.
struct Indexing {
  Schema schema = {};
  std::string id = {};  // the field that names a document; empty: see Indexing_UniqueTerm
  bool positions = true;
  Xapian::TermGenerator terms = {};

  int cut = 0;                         // values that were not stored whole
  std::set<std::string> unknown = {};  // fields that the schema does not name
};

// Makes indexing fit a database: its schema, whose field with the option id names a document, and
// with spelling the words of its documents.
void Indexing_Begin(Indexing *indexing, const Schema &schema, Xapian::WritableDatabase *database,
                    bool spelling);

// The term that is this document's alone: its identity, or without one its first field, with its
// fields Version and Architecture where it has them.  A document of the same term is the same one
// in a newer state.
std::string Indexing_UniqueTerm(const Indexing &indexing, const Fields &fields);

// The term of that identity.
std::string Indexing_IdTerm(std::string_view name, std::string_view id);

// The document with its terms and values, as the schema has them, and with its fields as data.
// Fields of the schema get the spelling that their name has there.  False: *expected says what is
// missing or wrong.
bool Indexing_Document(Indexing *indexing, Fields *fields, Xapian::Document *document,
                       std::string *expected);

#endif
