// index/json_lines.h: reads documents in JSON, an object a line.
//
// A string, a number, true or false is a value of the field of that name; an array gives the field
// several times.  What stands in an object within has the names of both, as in "author.name".  null
// is no value.
#ifndef INDEX_JSON_LINES_H
#define INDEX_JSON_LINES_H

#include "index/reader.h"

ReadResult JsonLines_Read(Reader *reader, Fields *fields);

#endif
