// Makes the Search Manager out of the shared core.
#include <algorithm>
#include <limits>

#include "manager/manager.h"
#include "searchmgr/query.h"
#include "store/record.h"
#include "core/program.h"
#include "core/workers.h"
#include "debug/log.h"

namespace {

constexpr std::int32_t kDefaultHits =
    100;  // of a query that sets no limit: each hit costs its reader a fetch
constexpr std::int32_t kMostHits = 10000;  // bounds the memory of one answer

// The records of a search, best hit first; of equal ones the lower number.  The documents lie with
// the Document Manager of the same id.
std::string Search(const Xapian::Database &database, const CmdHdr &hdr, const char *predicate) {
  Xapian::Query query;
  const char *reason = Query_Parse(database, predicate, &query);
  if (reason != nullptr) return Record_Error(reason);

  Xapian::Enquire enquire(database);
  enquire.set_query(query);
  const std::int32_t limit = hdr.MaxHits > 0 ? std::min(hdr.MaxHits, kMostHits) : kDefaultHits;
  const Xapian::MSet hits = enquire.get_mset(0, static_cast<Xapian::doccount>(limit));
  std::string records;
  for (auto hit = hits.begin(); hit != hits.end(); ++hit) {
    if (*hit > std::numeric_limits<std::int32_t>::max()) continue;  // DOCNUM cannot name it
    records +=
        Record_Hit(Manager_Database.ID, Manager_Database.DBName, static_cast<std::int32_t>(*hit));
  }
  return records + kRecordSearchComplete;
}

void ClientCmd(int, int sock, const char *text) {
  Manager_ClientCmd(sock, text, {"QUERY", Manager_Database.SearchLocation, Search});
}

}  // namespace

char ProgramType() { return 'S'; }

int Program_Startup(const ConfigInfo *config, const DBInfo *) {
  if (Manager_Startup(config) != 1) return 0;  // the status of every fault of the configuration
  Manager_TryDatabase(Manager_Database.SearchLocation);
  DPRINTF(nullptr, kWarning, "[SearchMgr: Startup] Search Manager Initialization Complete.\n");
  return 1;
}

MainCore_LoopFn Program_Loop() { return MainCore_WorkerLoop; }
MainCore_ClientFn Program_ClientHandler() { return ClientCmd; }
MainCore_AdminFn Program_AdminHandler() { return Manager_Admin; }
