// index/table.h: reads documents out of tables, a record a document; the first line has the names.
//
// CSV is that of RFC 4180: commas part the values, and a value in double quotes can hold commas,
// line ends and, doubled, quotes.  In TSV tabs part them, and a quote is a character as any other.
// Blanks around a value do not belong to it unless it is quoted, and an empty one without quotes is
// none.
#ifndef INDEX_TABLE_H
#define INDEX_TABLE_H

#include "index/reader.h"

ReadResult Table_ReadCsv(Reader *reader, Fields *fields);
ReadResult Table_ReadTsv(Reader *reader, Fields *fields);

#endif
