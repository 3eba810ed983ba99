// tools/wire/header.h: the header of a message, as the programs of the service read it.
#ifndef TOOLS_WIRE_HEADER_H
#define TOOLS_WIRE_HEADER_H

#include <string_view>

struct HeaderField {
  std::string_view name, value;
};

// Takes the next field off *rest, up to the separator behind it.  False: the header is over, by the
// predicate, a fault, or the end of the bytes; *rest stays as it is.
bool Header_Take(std::string_view *rest, HeaderField *field);

// The value of a field of that name that counts, the last; false: the line has none.
bool Header_Find(std::string_view line, std::string_view name, std::string_view *value);

#endif
