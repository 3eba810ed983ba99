// searchmgr/shards.h: the databases that a Search Manager searches, as one.
#ifndef SEARCHMGR_SHARDS_H
#define SEARCHMGR_SHARDS_H

#include <span>
#include <string>
#include <vector>

#include "store/shard.h"

// A shard, and how its documents are named for good.
struct SearchShard {
  Shard shard;
  std::string group;  // the Document Manager that holds them
  std::string type;   // the engine, or the name of the database on this machine
};

// The database of the own line of korvo.db, if there is one, and then the engines: the Document
// Manager is the one of an engine's own id where korvo.conf has such a line, else that of the
// group. A worker's, made at its first call.
std::span<SearchShard> Shards_All();

#endif
