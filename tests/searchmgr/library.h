// tests/searchmgr/library.h: databases of a few documents, for searches to be tried on.
#ifndef TESTS_SEARCHMGR_LIBRARY_H
#define TESTS_SEARCHMGR_LIBRARY_H

#include <xapian.h>

#include <string>
#include <utility>
#include <vector>

#include "store/schema.h"

extern const char *const kLibrarySchema;  // in English

Schema SchemaFrom(const std::string &text);

using Values = std::vector<std::pair<std::string, std::string>>;

// Adds a document with the terms and values that an indexer gives it, and its words to the spelling
// data.
void AddTo(Xapian::WritableDatabase *database, const Schema &schema, const Values &values);

// A database in a folder: six documents of kLibrarySchema, with the numbers 1 to 6.
Xapian::Database Library(const std::string &path);

#endif
