// store/shard.h: a database that is held open from one request to the next, here or at an engine.
//
// A shard that refuses, hangs or breaks off is left out, logged once, and tried again after a
// second; an engine that is tried again keeps nobody waiting for it.  Nothing here throws.
#ifndef STORE_SHARD_H
#define STORE_SHARD_H

#include <xapian.h>

#include <chrono>
#include <optional>
#include <span>
#include <string>

#include "store/location.h"
#include "store/schema.h"

using ShardClock = std::chrono::steady_clock;

struct Shard {
  // What it is: the caller's.
  std::string name;      // id of the engine, or name of the database
  std::string location;  // path; empty: it is at an engine
  std::string host;      // dotted text, of the engine
  unsigned port = 0;

  // What is held.
  std::optional<Xapian::Database> database;  // without: not open
  Schema schema;                             // of the open database
  LocationState state;                       // of a path, when it was opened
  LocationState revision;                    // of a path, when it was last looked at anew
  bool unchanged = false;                    // since then
  std::chrono::milliseconds patience{0};     // of the connection, for one answer
  int greeting = -1;                         // a connection that the engine has not greeted yet
  ShardClock::time_point begun;              // when it was made
  ShardClock::time_point opened;             // when the database was
  ShardClock::time_point retry;              // not before
  bool failed = false;                       // since it was last open
  bool doubted = false;                      // another engine hung
};

// When a request began, and when it has to be answered.
struct ShardRequest {
  ShardClock::time_point begin, end;
};

// Makes shards ready for a request: what is open is looked at anew, what is not is opened, engines
// all at the same time.  Returns how many are open.
int Shard_Ready(std::span<Shard *const> shards, const ShardRequest &request);

// Closes a shard that has broken off in the middle of a request.  One that was held from an earlier
// request may be opened again at once, for its engine may only have been started anew.  Behind one
// that hangs the next Shard_Ready looks at the others all at the same time.
void Shard_Fail(std::span<Shard *const> shards, Shard *failed, const Xapian::Error &error,
                const ShardRequest &request);

// The shard that an error of Xapian's came from; null: it cannot be told, or it is none's fault.
Shard *Shard_OfError(std::span<Shard *const> shards, const Xapian::Error &error);

#endif
