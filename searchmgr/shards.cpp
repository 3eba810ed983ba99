#include "searchmgr/shards.h"

#include "core/state.h"
#include "manager/manager.h"

namespace {

bool HasDocMgr(const char *id) { return Init_HasConf(MainCore_State.ConfigPath, id, 'D'); }

std::vector<SearchShard> Make() {
  const char *own = MainCore_State.Config.ID;
  std::vector<SearchShard> shards;
  if (*Manager_Database.SearchLocation != '\0')
    shards.push_back(
        {Manager_LocalShard(Manager_Database.SearchLocation), own, Manager_Database.DBName});
  for (const INIT_CHILDINFO &engine : Manager_Engines)
    shards.push_back(
        {Manager_EngineShard(engine), HasDocMgr(engine.ID) ? engine.ID : own, engine.ID});
  return shards;
}

}  // namespace

std::span<SearchShard> Shards_All() {
  static std::vector<SearchShard> shards = Make();
  return shards;
}
