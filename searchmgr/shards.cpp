#include "searchmgr/shards.h"

#include "core/state.h"
#include "debug/log.h"
#include "manager/manager.h"

namespace {

// Quietly: most engines have no Document Manager of their own, and the reader of the file would
// report each as a fault.
bool HasDocMgr(const char *id) {
  const int level = Debug_Level;
  Debug_Level = kOff + 1;
  ConfigInfo config;
  const int found = Init_ReadConf(MainCore_State.ConfigPath, id, 'D', &config);
  Debug_Level = level;
  return found == 1;
}

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
