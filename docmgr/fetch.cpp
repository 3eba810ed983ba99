#include "docmgr/fetch.h"

#include <cstring>
#include <vector>

#include "core/workers.h"
#include "docmgr/prepare.h"
#include "manager/manager.h"
#include "store/record.h"

namespace {

constexpr std::chrono::milliseconds kDeadline(5000);

// A worker's, made at its first call: the database on this machine, and then the engines.
std::vector<Shard> Make() {
  std::vector<Shard> shards = {Manager_LocalShard(Manager_Database.DocLocation)};
  for (const INIT_CHILDINFO &engine : Manager_Engines)
    shards.push_back(Manager_EngineShard(engine));
  return shards;
}

Shard *ShardOf(const char *type) {
  static std::vector<Shard> shards = Make();
  for (std::size_t i = 1; i < shards.size(); ++i)
    if (shards[i].name == type) return &shards[i];
  return shards.front().location.empty() ? nullptr : &shards.front();
}

std::string Fetch(const Shard &shard, const CmdHdr &hdr) {
  try {
    const auto number = static_cast<Xapian::docid>(hdr.DocNum);
    return Prepare_Record(shard.database->get_document(number), shard.schema, hdr);
  } catch (const Xapian::DocNotFoundError &) {
    return Record_Error("There is no document of this number");
  }
}

}  // namespace

std::string Fetch_Answer(const CmdHdr &hdr, const char *, const char *) {
  if (hdr.DocNum <= 0) return Record_Error("There is no document of this number");
  Shard *shard = ShardOf(hdr.RecType);
  if (shard == nullptr) return Record_Error("There is no database of this record type");
  MainCore_EndAfter(static_cast<int>((kDeadline + kManagerGrace).count()),
                    "\t@COMMAND=ERROR\tThe document took too long\n");
  Shard *const shards[] = {shard};
  const auto now = ShardClock::now();
  const ShardRequest request = {now, now + kDeadline};
  while (ShardClock::now() < request.end && Shard_Ready(shards, request) == 1) {
    try {
      return Fetch(*shard, hdr);
    } catch (const Xapian::DatabaseModifiedError &) {
      // It is written to meanwhile; Shard_Ready looks at it anew.
    } catch (const Xapian::Error &error) {
      Shard_Fail(shards, shard, error, request);
    }
  }
  return Record_Error("Unable to read the database");
}
