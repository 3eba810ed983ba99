#include <xapian.h>
#include "store/schema.h"
#include "store/record.h"
inline std::string Prepare_Record(const Xapian::Document &d, const Schema &, const CmdHdr &hdr) { return Record_Document(hdr.DocNum, d.get_data()); }
