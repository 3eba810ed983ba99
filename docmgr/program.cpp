// Makes the Document Manager out of the shared core.
#include "manager/manager.h"
#include "store/record.h"
#include "core/program.h"
#include "core/workers.h"
#include "debug/log.h"

namespace {

// The document's fields as stored; false: there is no such document.
bool Fetch(const Xapian::Database &database, std::int32_t docnum, std::string *fields) {
  if (docnum <= 0) return false;
  try {
    *fields = database.get_document(static_cast<Xapian::docid>(docnum)).get_data();
    return true;
  } catch (const Xapian::DocNotFoundError &) {
    return false;
  }
}

std::string GetDoc(const Xapian::Database &database, const CmdHdr &hdr, const char *) {
  std::string fields;
  if (!Fetch(database, hdr.DocNum, &fields))
    return Record_Error("There is no document of this number");
  if (Record_IsFields(fields)) return Record_Document(hdr.DocNum, fields);
  DPRINTF(nullptr, kWarning, "[DocMgr: GetDoc] Document %d of '%s' was not stored as a record\n",
          hdr.DocNum, Manager_Database.DocLocation);
  return Record_Error("The document of this number cannot be sent");
}

void ClientCmd(int, int sock, const char *text) {
  Manager_ClientCmd(sock, text, {"GETDOC", Manager_Database.DocLocation, GetDoc});
}

}  // namespace

char ProgramType() { return 'D'; }

int Program_Startup(const ConfigInfo *config, const DBInfo *) {
  if (Manager_Startup(config) != 1) return 0;  // the status of every fault of the configuration
  Manager_TryDatabase(Manager_Database.DocLocation);
  DPRINTF(nullptr, kWarning, "[DocMgr: Startup] Document Manager Initialization Complete.\n");
  return 1;
}

MainCore_LoopFn Program_Loop() { return MainCore_WorkerLoop; }
MainCore_ClientFn Program_ClientHandler() { return ClientCmd; }
MainCore_AdminFn Program_AdminHandler() { return Manager_Admin; }
