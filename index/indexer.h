// index/indexer.h: a run of the indexer over one database.
//
// Readers see what was committed, and nothing is left of a run that committed nothing.  Throws what
// Xapian throws.
#ifndef INDEX_INDEXER_H
#define INDEX_INDEXER_H

#include <xapian.h>

#include <cstdint>
#include <string>

#include "index/indexing.h"

struct IndexerOptions {
  std::string location;  // of the database
  const Schema *schema;  // that it must have or gets; null: what it has
  std::string id;        // the field that names a document where the schema does not say
  std::int32_t commit;   // documents; 0: all of the run
  bool positions, spelling;
  bool create;  // a database where there is none
};

struct Indexer {
  IndexerOptions options;
  Xapian::WritableDatabase database;
  Indexing indexing;
  bool fresh;          // nothing of the database was there before
  Xapian::docid last;  // the highest number of a document
  std::int64_t added, replaced;
  std::int64_t committed;  // documents of this run
  std::int64_t bytes;      // of the documents since
};

// Opens the database, or makes one where that is wanted.
void Indexer_Open(Indexer *indexer);

// Settles what the fields are.  False: *reason says why the documents of this run cannot go into
// this database.
bool Indexer_Begin(Indexer *indexer, std::string *reason);

// Adds a document, or puts it in the place of the one with its identity.  False: *expected says
// what is missing or wrong; nothing has changed.
bool Indexer_Add(Indexer *indexer, Fields *fields, std::string *expected);

// Commits what is left.
void Indexer_Finish(Indexer *indexer);

// Takes back what is not committed.  Nothing is thrown.
void Indexer_Abandon(Indexer *indexer);

// Deletes the documents of that identity and counts them; see Indexing_UniqueTerm for what they are
// known by where no field names them.
Xapian::doccount Indexer_Delete(Indexer *indexer, const std::string &id);

#endif
