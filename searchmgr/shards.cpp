#include "searchmgr/shards.h"

#include <algorithm>
#include <string_view>

#include "core/state.h"
#include "manager/manager.h"

namespace {

bool HasDocMgr(const char *id) { return Init_HasConf(MainCore_State.ConfigPath, id, 'D'); }

std::vector<SearchShard> Make() {
  const char *own = MainCore_State.Config.ID;
  std::vector<SearchShard> shards;
  // An engine of this id serves the same line of korvo.db.
  const bool is_served = std::any_of(
      Manager_Engines.begin(), Manager_Engines.end(),
      [own](const INIT_CHILDINFO &engine) { return std::string_view(engine.ID) == own; });
  if (!is_served && *Manager_Database.SearchLocation != '\0')
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
