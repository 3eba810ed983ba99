// store/document.h: a document as it stands in a database.
//
// Ours is a tab, NAME, "=", value, again and again, and a closing tab.  Omega's indexers write
// lines of name, "=", value.  Either can name a field more than once.
#ifndef STORE_DOCUMENT_H
#define STORE_DOCUMENT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "store/field.h"
#include "store/schema.h"

// Bytes of a document in a database: what is sent of it is far less, and a snippet is looked for in
// all of it.
inline constexpr std::size_t kDocumentSize = 1 << 20;

// The data of a document.  A value that would lead beyond kDocumentSize is cut at a character, and
// what comes behind it is left out; *cut grows by the number of values that are not whole.
std::string Document_Data(const Fields &fields, int *cut);

// Fills fields from the data of a document.  Bytes that no field can hold become blanks, and what
// is no field is left out.  False: there is no field in it.
bool Document_Read(std::string_view data, SchemaOrigin origin, Fields *fields);

#endif
